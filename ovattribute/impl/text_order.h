// SPDX-License-Identifier: Apache-2.0
// Walking maps in an order that does not depend on the process.
#pragma once

#include <algorithm>
#include <vector>

#include "ovattribute/attribute_map.h"

namespace ovattribute::impl {

/// Calls `f` with each entry, in the order of the names' bytes or in the map's own.
template <class F>
void for_each_entry(const AttributeMapBase& map, bool order_by_text, F&& f) {
  if (!order_by_text) {
    for (const AttributeMapBase::value_type& entry : map)
      f(entry);
    return;
  }
  std::vector<const AttributeMapBase::value_type*> entries;
  entries.reserve(map.size());
  for (const AttributeMapBase::value_type& entry : map)
    entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first.value() < b->first.value(); });
  for (const auto* entry : entries)
    f(*entry);
}

}  // namespace ovattribute::impl
