// SPDX-License-Identifier: Apache-2.0
// Storage of the strings that a reader makes one after the other.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "ovattribute/attribute_value_impl.h"

namespace ovattribute::impl {

/// Memory for a few storages, which goes with the last of them, on whatever thread. The room that
/// is not used yet counts as in use.
class StorageBlock {
 public:
  using Storage = RefCountedValueImpl<std::string>;

  static StorageBlock* make(std::size_t capacity) {
    void* const memory = ::operator new(sizeof(StorageBlock) + capacity * sizeof(Storage));
    return ::new (memory) StorageBlock(capacity);
  }
  [[nodiscard]] void* place(std::size_t index) noexcept {
    return reinterpret_cast<std::byte*>(this + 1) + index * sizeof(Storage);
  }
  void let_go(std::size_t places) noexcept {
    if (m_in_use.load(std::memory_order_acquire) == places ||
        m_in_use.fetch_sub(places, std::memory_order_acq_rel) == places) {
      ::operator delete(this);
    }
  }

 private:
  explicit StorageBlock(std::size_t capacity) noexcept : m_in_use(capacity) {}

  alignas(Storage) std::atomic<std::size_t> m_in_use;
};

/// Makes String storage, several to a piece of memory: neighbours in a document are mostly given up
/// together, and one that is kept holds on to seven more places at most. For one thread.
class StringMaker {
 public:
  StringMaker() noexcept = default;
  StringMaker(const StringMaker&) = delete;
  StringMaker& operator=(const StringMaker&) = delete;
  ~StringMaker() {
    if (m_left > 0) m_block->let_go(m_left);
  }

  /// The caller gets a reference. `Text`: a string, which is moved, or a view.
  template <class Text>
  [[nodiscard]] ValueBase* make(Text&& text) {
    if (text.empty()) return create_string({});
    if (m_left == 0) add_block();
    auto* const storage = ::new (m_block->place(m_capacity - m_left))
        StorageBlock::Storage(*m_block, std::forward<Text>(text));
    --m_left;
    return storage;
  }

 private:
  static constexpr std::size_t max_capacity = 8;

  void add_block() {
    const std::size_t capacity = std::min(2 * m_capacity, max_capacity);
    m_block = StorageBlock::make(capacity);
    m_left = m_capacity = capacity;
  }

  StorageBlock* m_block = nullptr;
  std::size_t m_capacity = 1;  // of the block; documents of few strings begin with a small one
  std::size_t m_left = 0;      // places in it that are not used
};

}  // namespace ovattribute::impl
