// SPDX-License-Identifier: Apache-2.0
// The names that a reader of maps has met, found by what came before them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ovcore/impl/small_memory.h"
#include "ovcore/string_key.h"
#include "ovserialize/impl/format.h"

namespace ovserialize::impl {

/// Names mostly come in the order in which they came before, as in lists of records: so a name is
/// first compared with the one that followed the last time, without a hash, a lock or a counter.
/// Names stay interned, and in their places, as long as this lives.
class KnownNames {
 public:
  KnownNames() noexcept = default;
  KnownNames(const KnownNames&) = delete;
  KnownNames& operator=(const KnownNames&) = delete;
  static void* operator new(std::size_t size) { return ovcore::impl::SmallMemory::take(size); }
  static void operator delete(void* memory, std::size_t size) noexcept {
    ovcore::impl::SmallMemory::give(memory, size);
  }

  /// The name that followed the last one before, if this is its text; else null.
  [[nodiscard]] const ovcore::StringKey* next(std::string_view text) noexcept {
    Name* const name = m_last->next;
    if (name == nullptr) return nullptr;
    const std::string& known = name->key.value();
    if (known.size() != text.size() || !equal_short(known.data(), text.data(), text.size())) {
      return nullptr;
    }
    m_last = name;
    return &name->key;
  }

  /// Takes in a name. `follows`: from now on it is expected behind the last one. Not for a text
  /// that is no UTF-8, which must not be taken for one that is.
  const ovcore::StringKey& add(ovcore::StringKey key, bool follows) {
    if (m_unused == m_end) add_part();
    Name*& place = m_places[key.key_value() / sizeof(ovcore::impl::KeyToken) % m_places.size()];
    if (place == nullptr || place->key != key) {
      place = m_unused++;
      place->key = std::move(key);
    }
    if (follows) m_last = m_last->next = place;
    return place->key;
  }

  /// True once. The first map may take its names away, which often are not met again.
  [[nodiscard]] bool end_first_map() noexcept { return std::exchange(m_at_first_map, false); }

  /// How many names it has room for.
  [[nodiscard]] std::size_t capacity() const noexcept { return m_capacity; }

 private:
  struct Name {
    ovcore::StringKey key;
    Name* next = nullptr;
  };
  static constexpr std::size_t few = 32;
  static constexpr std::size_t many = 256;
  static constexpr std::size_t first_part = 8;
  static constexpr std::size_t largest_part = 512;

  void add_part() {
    if (m_capacity >= few && m_many_places.empty()) {
      m_many_places.resize(many);
      m_places = m_many_places;
    }
    const std::size_t size = std::min(m_capacity, largest_part);
    m_parts.push_back(std::make_unique<Name[]>(size));
    m_unused = m_parts.back().get();
    m_end = m_unused + size;
    m_capacity += size;
  }

  Name m_start;
  Name* m_last = &m_start;
  // By the token's address, the last name of those that share a place.
  Name* m_few_places[few] = {};
  std::vector<Name*> m_many_places;
  std::span<Name*> m_places = m_few_places;
  Name m_first[first_part];
  std::vector<std::unique_ptr<Name[]>> m_parts;
  std::size_t m_capacity = first_part;
  bool m_at_first_map = true;
  Name* m_unused = m_first;
  Name* m_end = m_first + first_part;
};

}  // namespace ovserialize::impl
