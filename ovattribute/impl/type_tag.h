// SPDX-License-Identifier: Apache-2.0
// The tags of marshaled values.
#pragma once

#include "ovattribute/attribute_value_type.h"

namespace ovserialize {
class Reader;
}

namespace ovattribute::impl {

/// Reads a tag, the number of a type. Raises `ovattribute_value_type_unknown` for any other number,
/// and what the reader raises.
[[nodiscard]] ValueTypeId::EId read_type_tag(ovserialize::Reader& reader);

}  // namespace ovattribute::impl
