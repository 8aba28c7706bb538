// SPDX-License-Identifier: Apache-2.0
// For readers, which build maps themselves.
#pragma once

#include <utility>

#include "ovattribute/attribute_map.h"

namespace ovattribute::impl {

struct MapAccess {
  using Holder = ovcore::RefCountPtr<AttributeMapBase::MapHolder>;

  static AttributeMap adopt(Holder holder) noexcept { return AttributeMap(std::move(holder)); }

  /// Gives room back that was made for more entries than came: for half as many again, or for four
  /// of six. For the only holder. The names of large maps take so many bytes of input that there it
  /// does not matter.
  static void trim(Holder& holder) {
    constexpr std::size_t most_trimmed = 512;
    const std::size_t size = holder->map.size();
    if (2 * holder->map.spare_room() > size + 4 && size <= most_trimmed) move_to_exact_room(holder);
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
