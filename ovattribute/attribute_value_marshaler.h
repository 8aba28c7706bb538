// SPDX-License-Identifier: Apache-2.0
// Values in an item stream. docs/format.md gives every byte.
#pragma once

#include "ovattribute/attribute_value.h"
#include "ovcore/export.h"

namespace ovserialize {
class Reader;
class Writer;
}  // namespace ovserialize

namespace ovattribute {

class IAttributeNameDecoder;
class IAttributeNameEncoder;

/// Writes one value. A list of one element is written as that element. A coder has the names of all
/// maps inside. Raise what the writer or the coder raises, and `ovserialize_writer_depth` when maps
/// nest deeper than `nesting_limit()`; then nothing of the value was written, see
/// `ovserialize::Savepoint`.
OV_EXPORT void write_attribute_value(ovserialize::Writer& writer, const AttributeValue& value);
OV_EXPORT void write_attribute_value(ovserialize::Writer& writer, IAttributeNameEncoder& encoder,
                                     const AttributeValue& value);

/// Reads one value. Raise `ovattribute_value_type_unknown` for a tag that is no type,
/// `ovserialize_reader_depth` when maps nest deeper than `nesting_limit()`, and what the reader or
/// the coder raises; then the target is unchanged.
OV_EXPORT void read_attribute_value(ovserialize::Reader& reader, AttributeValue& value);
OV_EXPORT void read_attribute_value(ovserialize::Reader& reader, IAttributeNameDecoder& decoder,
                                    AttributeValue& value);
[[nodiscard]] OV_EXPORT AttributeValue read_attribute_value(ovserialize::Reader& reader);
[[nodiscard]] OV_EXPORT AttributeValue read_attribute_value(ovserialize::Reader& reader,
                                                            IAttributeNameDecoder& decoder);

OV_EXPORT ovserialize::Writer& operator<<(ovserialize::Writer& writer, const AttributeValue& value);
OV_EXPORT ovserialize::Reader& operator>>(ovserialize::Reader& reader, AttributeValue& value);

}  // namespace ovattribute
