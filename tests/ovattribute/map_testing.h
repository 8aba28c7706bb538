// SPDX-License-Identifier: Apache-2.0
// What the tests of maps share.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "ovattribute/attribute_map.h"

namespace ovattribute {

/// The checks that accessors are built on.
struct Checks : AttributeMapBase {
  using AttributeMapBase::check_attribute_of_type;
  using AttributeMapBase::check_default_of_type;
  using AttributeMapBase::check_scalar_of_type;
  using AttributeMapBase::throw_attribute_not_found;
};

/// What a map should hold, by the texts of the names.
using Entries = std::map<std::string, AttributeValue>;

inline Entries entries_of(const AttributeMapBase& map) {
  Entries entries;
  for (const auto& [name, value] : map)
    entries.emplace(name.value(), value);
  return entries;
}

inline MutableAttributeMap map_of(const Entries& entries) {
  MutableAttributeMap map;
  for (const auto& [name, value] : entries)
    map.add(name, value);
  return map;
}

/// "n0", "n1", ..., which stay interned.
inline const AttributeName& name(std::size_t number) {
  static const std::vector<AttributeName> names = [] {
    std::vector<AttributeName> result;
    for (int i = 0; i < 100; ++i)
      result.emplace_back("n" + std::to_string(i));
    return result;
  }();
  return names[number];
}

}  // namespace ovattribute
