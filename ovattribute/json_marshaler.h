// SPDX-License-Identifier: Apache-2.0
// Attribute values as JSON, both ways without loss.
//
// Null, Boolean, Integer, String and AttributeMap have a JSON form of their own: null, true and
// false, integer numbers, strings and objects; a list of two or more elements is an array. All
// other values, and those whose JSON would read back as something else, are written as an object of
// one member, `{"ovserialize": "..."}`, whose string is the value in the text form of the item
// stream. Strings, and maps with names, that are not UTF-8 are such values; but a writer that
// replaces invalid UTF-8 does so in a single String.
//
// Reading changes nothing that this writes, but it does change some documents of others: a fraction
// comes back in the lossless form, an array of one element as the element, -0 as 0. Nested arrays
// and arrays of nulls or of different kinds are refused.
#pragma once

#include <string>

#include "ovattribute/attribute_value.h"
#include "ovcore/export.h"
#include "ovcore/source_string.h"

namespace ovjson {
class Reader;
class Writer;
}  // namespace ovjson

namespace ovattribute {

struct JsonReadOptions {
  /// Integer literals (no fraction, no exponent) are read exactly, not by way of a double. Beyond
  /// 64 bits, and beside a fraction in one array, they are Doubles, and those that a double does
  /// not hold exactly are refused.
  bool exact_integers = false;
  /// A member name that comes twice in an object is an error; else the last one counts.
  bool refuse_repeated_names = false;
};

struct JsonWriteOptions {
  /// Every Integer is written as a number; else those beyond 2^53 go in the lossless form.
  bool exact_integers = false;
  /// Members in the order of their names' bytes; else in the map's own.
  bool order_names_by_text = false;
};

/// Reads the reader's current value, or at the start its first one. Errors are of code
/// `ovjson_reader` with the position, also when maps nest deeper than `nesting_limit()`, or those
/// of the reader.
[[nodiscard]] OV_EXPORT AttributeValue read_attribute_value(ovjson::Reader& reader,
                                                            const JsonReadOptions& options = {});
/// The target is unchanged after a failure.
OV_EXPORT void read_attribute_value(ovjson::Reader& reader, AttributeValue& value,
                                    const JsonReadOptions& options = {});

/// Writes one value. Raises `ovserialize_writer_depth` when maps nest deeper than
/// `nesting_limit()`, and what the writer raises; then nothing of the value was written, see
/// `ovjson::Savepoint`.
OV_EXPORT void write_attribute_value(ovjson::Writer& writer, const AttributeValue& value,
                                     const JsonWriteOptions& options = {});

/// The value of a text that holds one document and nothing else.
[[nodiscard]] OV_EXPORT AttributeValue parse_json(ovcore::SourceString text,
                                                  const JsonReadOptions& options = {});
/// The text of a value, on one line.
[[nodiscard]] OV_EXPORT std::string to_json(const AttributeValue& value,
                                            const JsonWriteOptions& options = {});

}  // namespace ovattribute
