// SPDX-License-Identifier: Apache-2.0
// Storage of the strings that a reader makes one after the other.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "ovattribute/attribute_value_impl.h"
#include "ovcore/impl/small_memory.h"

namespace ovattribute::impl {

/// Memory for a few storages, which goes with the last of them, on whatever thread. The room that
/// is not used yet counts as in use.
class StorageBlock {
 public:
  using Storage = RefCountedValueImpl<std::string>;

  static StorageBlock* make(std::uint32_t capacity) {
    void* const memory = ovcore::impl::SmallMemory::take(size_of(capacity));
    return ::new (memory) StorageBlock(capacity);
  }
  [[nodiscard]] static StorageBlock* around(void* storage, std::size_t offset) noexcept {
    return reinterpret_cast<StorageBlock*>(static_cast<std::byte*>(storage) - offset);
  }
  /// One place into it.
  template <class Arg>
  [[nodiscard]] Storage* put(std::size_t index, Arg&& arg) {
    const std::size_t offset = size_of(index);
    return ::new (reinterpret_cast<std::byte*>(this) + offset)
        Storage(InBlock{static_cast<std::uint16_t>(offset)}, std::forward<Arg>(arg));
  }
  void let_go(std::uint32_t places) noexcept {
    if (m_in_use.load(std::memory_order_acquire) == places ||
        m_in_use.fetch_sub(places, std::memory_order_acq_rel) == places) {
      ovcore::impl::SmallMemory::give(this, size_of(m_capacity));
    }
  }

 private:
  explicit StorageBlock(std::uint32_t capacity) noexcept
      : m_in_use(capacity), m_capacity(capacity) {}
  static constexpr std::size_t size_of(std::size_t capacity) noexcept {
    return sizeof(StorageBlock) + capacity * sizeof(Storage);
  }

  alignas(Storage) std::atomic<std::uint32_t> m_in_use;
  const std::uint32_t m_capacity;
};

/// Makes String storage, several to a piece of memory: neighbours in a document are mostly given up
/// together, and one that is kept holds on to seven more places at most. Short texts that come
/// again and again, such as codes, share one storage. For one thread.
class StringMaker {
 public:
  StringMaker() noexcept = default;
  StringMaker(const StringMaker&) = delete;
  StringMaker& operator=(const StringMaker&) = delete;
  ~StringMaker() {
    for (const Recent& recent : m_recent) {
      if (recent.storage != nullptr) recent.storage->release();
    }
    if (m_left > 0) m_block->let_go(m_left);
  }

  /// The caller gets a reference. `Text`: a string, which is moved, or a view.
  template <class Text>
  [[nodiscard]] ValueBase* make(Text&& text) {
    if (text.empty()) return create_string({});
    if (m_left == 0) add_block();
    auto* const storage = m_block->put(m_capacity - m_left, std::forward<Text>(text));
    --m_left;
    return storage;
  }

  /// The same from a text without zeros. REQUIRES: a word can be read where the text begins.
  [[nodiscard]] ValueBase* make_or_share(std::string_view text) {
    if (text.empty() || text.size() > sizeof(std::uint64_t)) return make(text);
    const std::uint64_t word = word_of(text);
    Recent& recent = m_recent[(word * 0x9e3779b97f4a7c15) >> 59];
    static_assert(recent_count == 1 << (64 - 59));
    if (recent.word != word) {
      // Counted from the second time on: most texts come once.
      recent.word = word;
      if (recent.storage != nullptr) std::exchange(recent.storage, nullptr)->release();
      return make(text);
    }
    if (recent.storage == nullptr) recent.storage = make(text);
    return recent.storage->clone();
  }

 private:
  static constexpr std::uint32_t max_capacity = 8;
  static constexpr std::size_t recent_count = 32;

  /// A short text that came lately, and its storage once it came again.
  struct Recent {
    std::uint64_t word = 0;
    ValueBase* storage = nullptr;
  };

  /// The bytes of a text of one to eight.
  static std::uint64_t word_of(std::string_view text) noexcept {
    std::uint64_t word;
    std::memcpy(&word, text.data(), sizeof word);
    if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
    return word & ~std::uint64_t{0} >> (64 - 8 * text.size());
  }

  void add_block() {
    const std::uint32_t capacity = std::min(2 * m_capacity, max_capacity);
    m_block = StorageBlock::make(capacity);
    m_left = m_capacity = capacity;
  }

  StorageBlock* m_block = nullptr;
  std::uint32_t m_capacity = 1;  // of the block; documents of few strings begin with a small one
  std::uint32_t m_left = 0;      // places in it that are not used
  std::array<Recent, recent_count> m_recent;
};

}  // namespace ovattribute::impl
