// SPDX-License-Identifier: Apache-2.0
// The lossless form of a value inside JSON: an object of one member whose string is the value in
// the text form of the item stream.
#pragma once

#include <cstddef>

#include "ovattribute/attribute_value.h"
#include "ovjson/reader.h"

namespace ovjson {
class Writer;
}

namespace ovattribute::impl {

/// The value in the member's string. `level`: the maps around it.
[[nodiscard]] AttributeValue read_serialized_attribute_value(ovjson::Reader& reader,
                                                             const ovjson::Reader::ValuePtr& member,
                                                             std::size_t level);

/// Streams the text through the writer as it is made. `level`: the maps around the value.
void write_serialized_attribute_value(ovjson::Writer& writer, const AttributeValue& value,
                                      std::size_t level);

}  // namespace ovattribute::impl
