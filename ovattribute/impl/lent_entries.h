// SPDX-License-Identifier: Apache-2.0
// Keys, or values, that several maps show and none of them owns.
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "ovcore/impl/small_memory.h"
#include "ovcore/ref_count.h"

namespace ovattribute::impl {

/// A counted list of keys, or a counted list of values that keeps a list of keys with it. The same
/// bytes stand in the nodes of the maps that hold the list: keys and values are handles, which may
/// be moved as bytes. A list of values never changes while several maps hold it.
template <class Key, class Value>
class LentEntries {
 public:
  LentEntries(const LentEntries&) = delete;
  LentEntries& operator=(const LentEntries&) = delete;

  /// Room for `count` keys, to be filled with bytes. Raises `std::bad_alloc`.
  [[nodiscard]] static LentEntries* make_keys(std::size_t count) {
    return make(count, size_of_keys(count), nullptr);
  }
  /// The same for values. Takes over the caller's reference of `keys`.
  [[nodiscard]] static LentEntries* make_values(std::size_t count, LentEntries* keys) {
    return make(count, size_of_values(count), keys);
  }

  [[nodiscard]] std::size_t count() const noexcept { return m_count; }
  [[nodiscard]] bool has_values() const noexcept { return m_keys != nullptr; }
  [[nodiscard]] LentEntries* keys_list() const noexcept { return m_keys; }
  [[nodiscard]] Key* keys() noexcept { return reinterpret_cast<Key*>(this + 1); }
  [[nodiscard]] Value* values() noexcept { return reinterpret_cast<Value*>(this + 1); }

  void add_ref() noexcept { m_refs.increment(); }
  [[nodiscard]] bool has_unique_ref() const noexcept { return m_refs.has_unique_ref(); }
  void release() noexcept {
    if (!m_refs.decrement()) return;
    if (has_values()) {
      std::destroy_n(values(), m_count);
      m_keys->release();
    } else {
      std::destroy_n(keys(), m_count);
    }
    free_memory();
  }
  /// What stands in the list belongs to others now, the list of keys too.
  void free_memory() noexcept {
    ovcore::impl::SmallMemory::give(this,
                                    has_values() ? size_of_values(m_count) : size_of_keys(m_count));
  }

 private:
  LentEntries(std::size_t count, LentEntries* keys) noexcept : m_count(count), m_keys(keys) {}
  ~LentEntries() = default;

  static constexpr std::size_t size_of_keys(std::size_t count) noexcept {
    return sizeof(LentEntries) + count * sizeof(Key);
  }
  static constexpr std::size_t size_of_values(std::size_t count) noexcept {
    return sizeof(LentEntries) + count * sizeof(Value);
  }
  static LentEntries* make(std::size_t count, std::size_t size, LentEntries* keys) {
    return ::new (ovcore::impl::SmallMemory::take(size)) LentEntries(count, keys);
  }

  ovcore::AtomicRefCount m_refs;
  const std::size_t m_count;
  LentEntries* const m_keys;
};

}  // namespace ovattribute::impl
