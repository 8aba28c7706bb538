// SPDX-License-Identifier: Apache-2.0
// For readers, which build maps themselves.
#pragma once

#include <utility>

#include "ovattribute/attribute_map.h"

namespace ovattribute::impl {

struct MapAccess {
  using Holder = ovcore::RefCountPtr<AttributeMapBase::MapHolder>;

  static AttributeMap adopt(Holder holder) noexcept { return AttributeMap(std::move(holder)); }

  /// Gives room back that was made for more entries than came: for half as many, or four of six.
  /// For the only holder.
  static void trim(Holder& holder) {
    const AttributeMapBase::Map& map = holder->map;
    if (2 * map.spare_room() > map.size() + 4) move_to_exact_room(holder);
  }

 private:
  [[gnu::noinline]] static void move_to_exact_room(Holder& holder) {
    constexpr std::size_t most_beside = 64;
    AttributeMapBase::Map& map = holder->map;
    Holder exact = AttributeMapBase::MapHolder::make(map.size() <= most_beside ? map.size() : 0);
    exact->map.reserve(map.size());
    for (AttributeMapBase::value_type& entry : map)
      exact->map.append(entry.first, std::move(entry.second));
    holder.swap(exact);
  }
};

}  // namespace ovattribute::impl
