// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/transcode.h"

#include <string>
#include <vector>

#include "ovserialize/frame_stack.h"
#include "ovserialize/savepoint.h"

namespace ovserialize {
namespace {

template <class Value>
void copy_value(Reader& from, Writer& to) {
  Value value{};
  from >> value;
  to << value;
}

void copy_scalar(Reader& from, Writer& to, int kind) {
  switch (kind) {
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
    default:
      from.read_null();
      to.write_null();
  }
}

/// A sequence or structure that is being copied.
struct OpenFrame {
  Frame frame;
  bool started = false;
};

OpenFrame open_frame(Reader& from, Writer& to, int kind) {
  if (kind == item_structure) {
    from.begin_structure();
    to.begin_structure();
    return {Frame::structure};
  }
  const std::uint64_t count = from.begin_sequence();
  to.begin_sequence(count);
  return {count == 1 ? Frame::single : Frame::counted};
}

/// Whether an item of the frame comes next; if none does, the frame is ended on both sides.
bool has_next_item(Reader& from, Writer& to, OpenFrame& open) {
  if (open.frame == Frame::structure) {
    if (from.item_kind() != item_none) return true;
    from.end_structure();
    to.end_structure();
    return false;
  }
  if (!from.has_next_element()) {
    to.end_sequence();
    return false;
  }
  if (open.started) to.next_element();
  open.started = true;
  return true;
}

}  // namespace

void copy_item(Reader& from, Writer& to) {
  Savepoint whole(to);
  std::vector<OpenFrame> open;
  do {
    const int kind = from.item_kind();
    if (kind == item_sequence || kind == item_structure) {
      open.push_back(open_frame(from, to, kind));
    } else {
      copy_scalar(from, to, kind);
    }
    while (!open.empty() && !has_next_item(from, to, open.back()))
      open.pop_back();
  } while (!open.empty());
  whole.commit();
}

void copy_items(Reader& from, Writer& to) {
  while (!from.at_end())
    copy_item(from, to);
}

}  // namespace ovserialize
