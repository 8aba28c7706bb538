// SPDX-License-Identifier: Apache-2.0
// The entries of maps that are being read.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/impl/map_access.h"
#include "ovcore/string_key.h"

namespace ovattribute::impl {

/// Gathers the entries of a map until all are there, those of maps inside it above its own; then
/// they become a map of just their number. Owns the values, not the names.
class EntryRows {
 public:
  EntryRows() noexcept = default;
  EntryRows(const EntryRows&) = delete;
  EntryRows& operator=(const EntryRows&) = delete;
  ~EntryRows() {
    for (const Row& row : m_rows)
      row.value->release();
  }

  /// Returns the number of rows there are, behind which those of the next map stand.
  std::size_t begin_map() {
    constexpr std::size_t first_capacity = 16;
    if (m_rows.capacity() == 0) m_rows.reserve(first_capacity);
    return m_rows.size();
  }

  /// Adds an entry whose value is Null. `name` must outlive the row.
  void push(const ovcore::StringKey& name) { m_rows.push_back({&name, null_storage()}); }
  /// Gives the last entry its value, of which a reference is handed over.
  void set_value(ValueBase* value) noexcept { m_rows.back().value = value; }

  /// Makes a map of the rows from `first` on. `take_names`: moves the names, too.
  [[gnu::noinline]] MapAccess::Holder take_map(std::size_t first, bool take_names) {
    constexpr std::size_t most_beside = 64;
    sort(first);
    const std::size_t count = m_rows.size() - first;
    auto holder = AttributeMapBase::MapHolder::make(count <= most_beside ? count : 0);
    append_to(holder->map, first, take_names);
    return holder;
  }
  /// Moves the rows from `first` on to a map that is new.
  void move_to(AttributeMapBase::Map& map, std::size_t first) {
    sort(first);
    append_to(map, first, false);
  }

 private:
  struct Row {
    const ovcore::StringKey* name;
    ValueBase* value;

    bool operator<(const Row& other) const noexcept { return *name < *other.name; }
  };

  /// Brings the rows into the order of maps. Of equal names the first row stays.
  void sort(std::size_t first) {
    const std::span rows = std::span(m_rows).subspan(first);
    const auto not_below = [](const Row& a, const Row& b) { return !(a < b); };
    if (std::adjacent_find(rows.begin(), rows.end(), not_below) != rows.end()) sort_unique(rows);
  }
  [[gnu::noinline]] void sort_unique(std::span<Row> rows) {
    std::stable_sort(rows.begin(), rows.end());
    std::size_t kept = 1;
    for (const Row& row : rows.subspan(1)) {
      if (*row.name == *rows[kept - 1].name) {
        row.value->release();
      } else {
        rows[kept++] = row;
      }
    }
    m_rows.resize(m_rows.size() - rows.size() + kept);
  }

  void append_to(AttributeMapBase::Map& map, std::size_t first, bool take_names) {
    map.reserve(m_rows.size() - first);
    for (Row& row : std::span(m_rows).subspan(first)) {
      ValueBase* const value = std::exchange(row.value, null_storage());
      if (take_names) {
        map.append(std::move(const_cast<ovcore::StringKey&>(*row.name)), ValueAccess::adopt(value));
      } else {
        map.append(*row.name, ValueAccess::adopt(value));
      }
    }
    m_rows.resize(first);
  }

  std::vector<Row> m_rows;
};

}  // namespace ovattribute::impl
