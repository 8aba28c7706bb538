// SPDX-License-Identifier: Apache-2.0
// Keys in an item stream.
#pragma once

#include "ovcore/export.h"
#include "ovcrypto/key.h"

namespace ovserialize {
class Reader;
}

namespace ovattribute::impl {

/// Reads a value that must be one Binary element, straight into a key: no other place in memory
/// sees its bytes. Raises `ovattribute_value_type_mismatch` for any other value,
/// `ovattribute_value_type_unknown` for a tag that is no type, and what the reader raises.
[[nodiscard]] OV_EXPORT ovcrypto::Key read_key_as_binary(ovserialize::Reader& reader);

}  // namespace ovattribute::impl
