// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/transcode.h"

#include "ovserialize/impl/raise.h"

namespace ovserialize {
namespace {

template <class Value>
void copy_value(Reader& from, Writer& to) {
  Value value{};
  from >> value;
  to << value;
}

void copy_sequence(Reader& from, Writer& to) {
  const std::uint64_t count = from.begin_sequence();
  to.begin_sequence(count);
  if (count == 1) {
    static_cast<void>(from.has_next_element());
    copy_item(from, to);
    static_cast<void>(from.has_next_element());
  } else {
    for (bool first = true; from.has_next_element(); first = false) {
      if (!first) to.next_element();
      copy_item(from, to);
    }
  }
  to.end_sequence();
}

void copy_structure(Reader& from, Writer& to) {
  from.begin_structure();
  to.begin_structure();
  while (from.item_kind() != item_none)
    copy_item(from, to);
  from.end_structure();
  to.end_structure();
}

}  // namespace

void copy_item(Reader& from, Writer& to) {
  switch (from.item_kind()) {
    case item_boolean:
      return copy_value<bool>(from, to);
    case item_integer:
      return copy_value<long long>(from, to);
    case item_unsigned:
      return copy_value<unsigned long long>(from, to);
    case item_double:
      return copy_value<double>(from, to);
    case item_string:
      return copy_value<std::string>(from, to);
    case item_absolute_time:
      return copy_value<ovcore::AbsoluteTime>(from, to);
    case item_relative_time:
      return copy_value<ovcore::RelativeTime>(from, to);
    case item_uuid:
      return copy_value<ovcore::Uuid>(from, to);
    case item_binary:
      return to.write_memory_list_as_binary(from.read_memory_list_as_binary());
    case item_sequence:
      return copy_sequence(from, to);
    case item_structure:
      return copy_structure(from, to);
    default:
      from.read_null();
      to.write_null();
  }
}

void copy_items(Reader& from, Writer& to) {
  while (!from.at_end())
    copy_item(from, to);
}

}  // namespace ovserialize
