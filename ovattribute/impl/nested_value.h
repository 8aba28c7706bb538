// SPDX-License-Identifier: Apache-2.0
// Values that are a part of another one, in a form of its own.
#pragma once

#include <cstddef>

#include "ovattribute/attribute_value.h"

namespace ovserialize {
class Reader;
class Writer;
}  // namespace ovserialize

namespace ovattribute::impl {

// As `read_attribute_value` and `write_attribute_value`, inside so many maps, which count too.
[[nodiscard]] AttributeValue read_nested_value(ovserialize::Reader& reader, std::size_t level);
void write_nested_value(ovserialize::Writer& writer, const AttributeValue& value,
                        std::size_t level);

/// Raises `ovserialize_writer_depth`, in whatever form values are written.
[[noreturn]] void throw_writing_too_deep(std::size_t limit);

}  // namespace ovattribute::impl
