// SPDX-License-Identifier: Apache-2.0
// Walking maps in an order that does not depend on the process.
#pragma once

#include <algorithm>
#include <vector>

#include "ovattribute/attribute_map.h"

namespace ovattribute::impl {

/// Gives the entries of a map one after the other, in the order of the names' bytes or in the map's
/// own. Small, since it lies in frames that recurse.
class EntryWalk {
 public:
  using Entry = AttributeMapBase::value_type;

  EntryWalk(const AttributeMapBase& map, bool order_by_text)
      : m_next(map.begin()), m_end(map.end()) {
    if (order_by_text) sort();
  }

  /// Null at the end.
  [[nodiscard]] const Entry* next() noexcept {
    if (m_next != m_end) return &*m_next++;
    if (m_sorted.empty()) return nullptr;
    const Entry* const entry = m_sorted.back();
    m_sorted.pop_back();
    return entry;
  }

 private:
  [[gnu::noinline]] void sort() {
    for (; m_next != m_end; ++m_next)
      m_sorted.push_back(&*m_next);
    std::sort(m_sorted.begin(), m_sorted.end(),
              [](const Entry* a, const Entry* b) { return b->first.value() < a->first.value(); });
  }

  AttributeMapBase::const_iterator m_next;
  const AttributeMapBase::const_iterator m_end;
  std::vector<const Entry*> m_sorted;  // the last is the next
};

}  // namespace ovattribute::impl
