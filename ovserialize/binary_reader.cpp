// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/binary_reader.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <optional>
#include <string_view>

#include "ovcore/utf8.h"
#include "ovserialize/impl/decode.h"
#include "ovserialize/impl/raise.h"
#include "ovserialize/impl/window.h"

namespace ovserialize {
namespace {

constexpr impl::RaiseSite binary_reader_site(const char* function) {
  return {"ovserialize/binary_reader", function};
}

const char* name_of_mark(unsigned char byte) noexcept {
  return byte == impl::byte_sequence_end ? "the end of a sequence" : "the end of a structure";
}

}  // namespace

inline unsigned BinaryReader::Head::major() const noexcept {
  return initial & impl::major_mask;
}

bool BinaryReader::more(std::size_t size) {
  if (m_block_left > 0) {
    finish_block();
    if (in_window() >= size) return true;
  }
  return fill(size);
}

int BinaryReader::item_kind() {
  if (!has(1)) return item_none;
  const int kind = impl::kinds[*m_cursor];
  return kind < impl::kind_of_simple ? kind : kind_of_more(kind);
}

// Where the first byte does not tell.
int BinaryReader::kind_of_more(int kind) {
  const std::size_t size = impl::head_size(*m_cursor);
  if (!has(size)) return item_none;
  const std::uint64_t argument = impl::load_argument(m_cursor);
  if (kind == impl::kind_of_tag) return impl::kind_of(argument);
  return argument >= impl::simple_two_bytes ? item_unsigned : item_none;
}

bool BinaryReader::at_end() {
  return !has(1);
}

// The head that follows `skipped` bytes which stand in the window.
BinaryReader::Head BinaryReader::peek_head(std::size_t skipped) {
  if (!has(skipped + 1)) throw_truncated();
  const unsigned char initial = m_cursor[skipped];
  const std::size_t size = impl::head_size(initial);
  if (size == 0) throw_malformed(impl::reason_against(initial), position() + skipped);
  if (!has(skipped + size)) throw_truncated();
  return {initial, static_cast<std::uint8_t>(size), impl::load_argument(m_cursor + skipped)};
}

BinaryReader::Head BinaryReader::read_head() {
  const Head head = peek_head();
  m_cursor += head.size;
  return head;
}

std::uint64_t BinaryReader::read_head_of(unsigned major, const char* reason) {
  const std::uint64_t at = position();
  const Head head = read_head();
  if (head.major() != major) throw_malformed(reason, at);
  return head.argument;
}

bool BinaryReader::skip_tag(std::uint64_t tag) {
  if (!has(1) || impl::kinds[*m_cursor] != impl::kind_of_tag) return false;
  const std::size_t size = impl::head_size(*m_cursor);
  if (!has(size) || impl::load_argument(m_cursor) != tag) return false;
  m_cursor += size;
  return true;
}

void BinaryReader::read_null() {
  if (!has(1) || *m_cursor != impl::byte_null) throw_other(impl::kind_name(item_null));
  ++m_cursor;
}

bool BinaryReader::get_boolean() {
  if (!has(1) || impl::kinds[*m_cursor] != item_boolean) throw_other(impl::kind_name(item_boolean));
  return *m_cursor++ == impl::byte_true;
}

std::int64_t BinaryReader::integer_of(const Head& head, std::uint64_t at) const {
  const auto value = static_cast<std::int64_t>(head.argument);
  if (value < 0) throw_range(item_integer, at);
  return head.major() == impl::major_negative ? ~value : value;
}

std::int64_t BinaryReader::get_integer(std::int64_t min, std::int64_t max) {
  if (!has(1) || impl::kinds[*m_cursor] != item_integer) throw_other(impl::kind_name(item_integer));
  const Head head = peek_head();
  const std::int64_t value = integer_of(head, position());
  if (value < min || value > max) throw_range(item_integer, position());
  m_cursor += head.size;
  return value;
}

std::uint64_t BinaryReader::get_unsigned(std::uint64_t max) {
  if (!has(1)) throw_other(impl::kind_name(item_unsigned));
  std::uint64_t value;
  std::size_t size = 1;
  if (impl::kinds[*m_cursor] == item_unsigned) {
    value = *m_cursor - impl::byte_unsigned_tiny;
  } else if (*m_cursor == impl::byte_unsigned && has(2) && m_cursor[1] >= impl::simple_two_bytes) {
    value = m_cursor[1] - std::uint64_t{impl::unsigned_bias};
    size = 2;
  } else if (item_kind() != item_unsigned) {
    throw_other(impl::kind_name(item_unsigned));
  } else {
    const std::size_t tag_size = impl::head_size(*m_cursor);
    const Head head = peek_head(tag_size);
    value = head.argument;
    if (head.major() != impl::major_positive || value < impl::unsigned_tagged_from) {
      throw_malformed("not an unsigned integer that needs its tag", position() + tag_size);
    }
    size = tag_size + head.size;
  }
  if (value > max) throw_range(item_unsigned, position());
  m_cursor += size;
  return value;
}

double BinaryReader::get_double() {
  if (!has(1) || impl::kinds[*m_cursor] != item_double) throw_other(impl::kind_name(item_double));
  const Head head = read_head();
  switch (head.initial) {
    case impl::byte_half:
      return impl::widen(head.argument, 5, 10);
    case impl::byte_single:
      return impl::widen(head.argument, 8, 23);
    default:
      return std::bit_cast<double>(head.argument);
  }
}

// A string that does not stand whole in the window, is no UTF-8 or an error.
std::string BinaryReader::read_other_string() {
  const std::uint64_t at = offset();
  if (!has(1)) throw_other(impl::kind_name(item_string));
  std::uint64_t size;
  bool utf8 = true;
  if (impl::kinds[*m_cursor] == item_string) {
    size = read_head().argument;
  } else if (skip_tag(impl::tag_string)) {
    size = read_head_of(impl::major_bytes, "not a byte string behind its tag");
    utf8 = false;
  } else {
    throw_other(impl::kind_name(item_string));
  }
  if (size > limits().max_string) {
    impl::throw_reader_size({.offset = at}, item_string, size, limits().max_string,
                            binary_reader_site("ovserialize::Reader::operator>>()"));
  }
  std::string text = gather(static_cast<std::size_t>(size));
  if (ovcore::is_utf8(text) != utf8) {
    throw_malformed(utf8 ? "text that is not UTF-8" : "UTF-8 behind the tag for other text", at);
  }
  return text;
}

void BinaryReader::get_string(std::string& text) {
  if (std::string_view read; impl::Window(*this).read(read)) {
    text.assign(read);
  } else {
    text = read_other_string();
  }
}

ovcore::StringKey BinaryReader::read_string_key() {
  impl::Window window(*this);
  if (const ovcore::StringKey* const known = window.read_name()) return *known;
  return ovcore::StringKey(read_other_string());
}

std::int64_t BinaryReader::read_time(std::uint64_t tag, int kind) {
  const std::uint64_t at = offset();
  if (!skip_tag(tag)) throw_other(impl::kind_name(kind));
  const char* const not_a_time = "not the map of a time";
  const std::uint64_t map_at = position();
  const std::uint64_t entries = read_head_of(impl::major_map, not_a_time);
  if (entries != 1 && entries != 2) throw_malformed(not_a_time, map_at);

  std::uint64_t key_at = position();
  const Head key = read_head();
  if (key.major() != impl::major_positive || key.argument != 1) {
    throw_malformed(not_a_time, key_at);
  }
  const std::uint64_t seconds_at = position();
  const Head seconds = read_head();
  if (impl::kinds[seconds.initial] != item_integer) throw_malformed(not_a_time, seconds_at);
  ovcore::TimeParts parts{integer_of(seconds, at), 0};

  if (entries == 2) {
    key_at = position();
    if (read_head_of(impl::major_negative, not_a_time) != 5) throw_malformed(not_a_time, key_at);
    const std::uint64_t fraction_at = position();
    const std::uint64_t fraction = read_head_of(impl::major_positive, not_a_time);
    if (fraction < 1 || fraction > 999'999) {
      throw_malformed("microseconds that are not 1 to 999999", fraction_at);
    }
    parts.microseconds = static_cast<std::uint32_t>(fraction);
  }
  const auto time = ovcore::RelativeTime::try_from_parts(parts);
  if (!time) throw_range(kind, at);
  return time->microseconds();
}

std::int64_t BinaryReader::get_absolute_time() {
  return read_time(impl::tag_absolute_time, item_absolute_time);
}

std::int64_t BinaryReader::get_relative_time() {
  return read_time(impl::tag_relative_time, item_relative_time);
}

ovcore::Uuid BinaryReader::get_uuid() {
  if (!skip_tag(impl::tag_uuid)) throw_other(impl::kind_name(item_uuid));
  ovcore::Uuid::BinaryData data;
  const std::uint64_t at = position();
  if (read_head_of(impl::major_bytes, "not a byte string behind its tag") != data.size()) {
    throw_malformed("a UUID that is not 16 bytes long", at);
  }
  if (!has(data.size())) throw_truncated();
  std::memcpy(data.data(), m_cursor, data.size());
  m_cursor += data.size();
  return ovcore::Uuid(data);
}

// Before the mark is consumed, so that nothing is left to fail behind it.
void BinaryReader::open(Frame frame) {
  if (m_frames.depth() >= limits().max_depth) {
    impl::throw_reader_depth(
        {.offset = position()}, limits().max_depth,
        binary_reader_site(frame == Frame::structure ? "ovserialize::Reader::begin_structure()"
                                                     : "ovserialize::Reader::begin_sequence()"));
  }
  m_frames.reserve();
  ++m_cursor;
  m_frames.push(frame);
}

std::uint64_t BinaryReader::begin_sequence() {
  if (!has(1) || impl::kinds[*m_cursor] != item_sequence)
    throw_other(impl::kind_name(item_sequence));
  if (*m_cursor == impl::byte_sequence_of_one) {
    open(Frame::single);
    return 1;
  }
  open(Frame::counted);
  const std::uint64_t at = position();
  if (!has(1)) throw_truncated();
  if (impl::kinds[*m_cursor] != item_integer) throw_malformed("a sequence without a count", at);
  const Head count = read_head();
  if (count.major() != impl::major_positive) throw_malformed("a negative count", at);
  if (count.argument == 1) throw_malformed("a sequence of one in the form for others", at);
  return count.argument;
}

bool BinaryReader::has_next_element() {
  switch (m_frames.top()) {
    case Frame::single:
      m_frames.set_top(Frame::single_asked);
      return true;
    case Frame::single_asked:
      m_frames.pop();
      return false;
    case Frame::counted:
      break;
    default:
      impl::throw_no_sequence({.offset = offset()},
                              binary_reader_site("ovserialize::Reader::has_next_element()"));
  }
  if (!has(1)) throw_truncated();
  if (*m_cursor == impl::byte_structure_end) {
    throw_malformed("the end of a structure in a sequence", position());
  }
  if (*m_cursor != impl::byte_sequence_end) return true;
  ++m_cursor;
  m_frames.pop();
  return false;
}

void BinaryReader::begin_structure() {
  if (!has(1) || *m_cursor != impl::byte_structure) throw_other(impl::kind_name(item_structure));
  open(Frame::structure);
}

void BinaryReader::end_structure() {
  if (m_frames.top() != Frame::structure) {
    impl::throw_no_structure({.offset = offset()},
                             binary_reader_site("ovserialize::Reader::end_structure()"));
  }
  if (!has(1) || *m_cursor != impl::byte_structure_end) {
    if (in_window() > 0 && *m_cursor == impl::byte_sequence_end) {
      throw_malformed("the end of a sequence in a structure", position());
    }
    throw_other("the end of a structure");
  }
  ++m_cursor;
  m_frames.pop();
}

// All that is left stands in the window, as `fill` has answered.
void BinaryReader::throw_truncated() const {
  impl::throw_truncated({.offset = position() + in_window()},
                        binary_reader_site("ovserialize::BinaryReader::throw_truncated()"));
}

void BinaryReader::throw_malformed(const char* reason, std::uint64_t at) const {
  impl::throw_malformed({.offset = at}, reason,
                        binary_reader_site("ovserialize::BinaryReader::throw_malformed()"));
}

void BinaryReader::throw_range(int kind, std::uint64_t at) const {
  impl::throw_range({.offset = at}, kind,
                    binary_reader_site("ovserialize::BinaryReader::throw_range()"));
}

// Something else than what was asked for: another item, no item, or nothing at all.
void BinaryReader::throw_other(const char* expected) {
  if (!has(1)) throw_truncated();
  constexpr impl::RaiseSite here = binary_reader_site("ovserialize::BinaryReader::throw_other()");
  const unsigned char initial = *m_cursor;
  if (const int kind = item_kind(); kind != item_none) {
    impl::throw_kind({.offset = position()}, expected, impl::kind_name(kind), here);
  }
  if (initial == impl::byte_sequence_end || initial == impl::byte_structure_end) {
    impl::throw_kind({.offset = position()}, expected, name_of_mark(initial), here);
  }
  if (!has(std::max<std::size_t>(impl::head_size(initial), 1))) throw_truncated();
  throw_malformed(impl::reason_against(initial), position());
}

}  // namespace ovserialize
