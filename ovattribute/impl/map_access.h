// SPDX-License-Identifier: Apache-2.0
// For readers, which build maps themselves.
#pragma once

#include <utility>

#include "ovattribute/attribute_map.h"

namespace ovattribute::impl {

struct MapAccess {
  static AttributeMap adopt(ovcore::RefCountPtr<AttributeMapBase::MapHolder> holder) noexcept {
    return AttributeMap(std::move(holder));
  }
};

}  // namespace ovattribute::impl
