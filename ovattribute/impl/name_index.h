// SPDX-License-Identifier: Apache-2.0
// Finding names in packages.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "ovattribute/attribute_name.h"

namespace ovattribute::impl {

/// A hash table from names, by token identity, to places in packages. Made for a number of names
/// that is known beforehand; whoever fills it keeps the names alive. Immutable once filled and then
/// shared between threads.
class NameIndex {
 public:
  static constexpr std::uint32_t vacant = ~std::uint32_t{0};
  static constexpr std::uint32_t several = std::uint32_t{1} << 31;

  /// In the index of a set: the number of the first package that has the name, and the position in
  /// that. With the bit `several` in the number, more packages have it, and in place of the
  /// position stands which of all such names it is.
  struct Entry {
    std::uintptr_t token = 0;
    std::uint32_t package = vacant;
    std::uint32_t position = 0;
  };

  explicit NameIndex(std::size_t count)
      : m_bits(static_cast<unsigned>(std::bit_width(count + count / 2 + 1))),
        m_entries(std::make_unique<Entry[]>(std::size_t{1} << m_bits)) {}

  /// Null when the name is not there.
  [[nodiscard]] const Entry* find(const AttributeName& name) const noexcept {
    const Entry& entry = m_entries[slot_of(name)];
    return entry.package != vacant ? &entry : nullptr;
  }
  /// The entry of the name; vacant, to be filled in, when it was not there.
  [[nodiscard]] Entry& enter(const AttributeName& name) noexcept {
    Entry& entry = m_entries[slot_of(name)];
    entry.token = name.key().key_value();
    return entry;
  }

 private:
  // Where the name is, or where it would be. At most two thirds of the slots are in use. By the
  // hash, which has a secret in it: addresses of tokens tell in which order names came.
  [[nodiscard]] std::size_t slot_of(const AttributeName& name) const noexcept {
    const std::uintptr_t token = name.key().key_value();
    const std::size_t mask = (std::size_t{1} << m_bits) - 1;
    std::size_t slot = name.hash() >> (64 - m_bits);
    while (m_entries[slot].package != vacant && m_entries[slot].token != token)
      slot = (slot + 1) & mask;
    return slot;
  }

  unsigned m_bits;
  std::unique_ptr<Entry[]> m_entries;
};

}  // namespace ovattribute::impl
