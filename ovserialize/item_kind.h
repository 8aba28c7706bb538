// SPDX-License-Identifier: Apache-2.0
// The kinds of items in a stream, by the numbers that `Reader::item_kind` answers.
#pragma once

namespace ovserialize {

enum ItemKind : int {
  /// An end mark, the end of the stream, or something that is no item.
  item_none = 0,
  item_null = 1,
  item_boolean = 2,
  item_integer = 3,
  item_unsigned = 4,
  item_double = 5,
  item_string = 6,
  item_absolute_time = 7,
  item_relative_time = 8,
  item_uuid = 9,
  item_binary = 10,
  item_sequence = 11,
  item_structure = 12,
};

}  // namespace ovserialize
