// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/text_writer.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

#include "ovcore/to_string.h"
#include "ovcore/utf8.h"
#include "ovserialize/impl/format.h"
#include "ovserialize/impl/raise.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/savepoint.h"

namespace ovserialize {
namespace {

/// The text of one item, composed in place; the longest is a time with 61 characters.
class Text {
 public:
  [[nodiscard]] std::string_view view() const noexcept { return {m_text, m_size}; }
  void append(char c) noexcept { m_text[m_size++] = c; }
  void append(std::string_view text) noexcept { m_size += text.copy(m_text + m_size, text.size()); }

 private:
  std::size_t m_size = 0;
  char m_text[96];
};

constexpr impl::RaiseSite text_writer_site(const char* function) {
  return {"ovserialize/text_writer", function};
}

template <class Number>
void append(Text& text, Number number) {
  text.append(ovcore::NumberText(number).view());
}

/// "1001(" and the like.
Text tagged(std::uint64_t tag) {
  Text text;
  append(text, tag);
  text.append('(');
  return text;
}

Text simple(std::uint64_t number) {
  Text text;
  text.append("simple(");
  append(text, number);
  text.append(')');
  return text;
}

constexpr char hex_digit(unsigned value) {
  return "0123456789abcdef"[value & 15];
}

/// What stands for a character that cannot stand for itself in a string; empty for all others.
Text escape(unsigned char c) {
  Text text;
  constexpr std::string_view escaped = "\"\\\b\f\n\r\t";
  constexpr std::string_view letters = "\"\\bfnrt";
  if (const std::size_t at = escaped.find(static_cast<char>(c)); at != escaped.npos) {
    text.append('\\');
    text.append(letters[at]);
  } else if (c < 0x20 || c == 0x7f) {
    text.append("\\u00");
    text.append(hex_digit(c >> 4));
    text.append(hex_digit(c));
  }
  return text;
}

bool stands_for_itself(char c) {
  return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\' && c != 0x7f;
}

}  // namespace

void TextWriter::close() {
  check_usable();
  if (m_frames.depth() > 0) {
    impl::throw_still_open(m_frames.top() == Frame::structure,
                           text_writer_site("ovserialize::TextWriter::close()"));
  }
  Savepoint whole(*this);
  if (!m_options.one_line && m_items > 0) out("\n");
  whole.commit();
  m_refusal = impl::closed_by_caller;
}

void TextWriter::check_usable() const {
  if (m_refusal == nullptr) return;
  impl::throw_closed(m_refusal, text_writer_site("ovserialize::TextWriter::check_usable()"));
}

Writer::Mark TextWriter::mark() const noexcept {
  return {.position = m_written,
          .frames = m_frames.mark(),
          .single_start = m_single_start,
          .counted_start = m_counted_start,
          .items = m_items,
          .indentation = m_indentation,
          .usable = m_refusal == nullptr};
}

void TextWriter::roll_back(const Mark& mark) noexcept {
  if (!mark.usable) return;
  m_frames.return_to(mark.frames);
  m_single_start = mark.single_start;
  m_counted_start = mark.counted_start;
  m_items = mark.items;
  m_indentation = mark.indentation;
  const std::uint64_t size = std::exchange(m_written, mark.position) - mark.position;
  if (size == 0 && m_refusal == nullptr) return;
  if (m_target->take_back(size)) {
    m_refusal = nullptr;
  } else if (m_refusal == nullptr) {
    m_refusal = impl::closed_by_part;
  }
}

// REQUIRES: a savepoint.
void TextWriter::out(std::string_view text) {
  try {
    m_target->write(text.data(), text.size());
  } catch (...) {
    m_refusal = impl::closed_by_target;
    throw;
  }
  m_written += text.size();
}

void TextWriter::item(std::string_view text) {
  Savepoint whole(*this);
  separate();
  out(text);
  whole.commit();
}

// Whatever stands before an item or a mark.
void TextWriter::separate() {
  check_usable();
  if (m_items++ == 0) return;
  if (m_options.one_line) return out(", ");
  out(",");
  new_line();
}

void TextWriter::new_line() {
  constexpr std::string_view blanks = "                                ";
  out("\n");
  for (std::size_t left = m_indentation * std::min(m_options.indent, 64U); left > 0;) {
    const std::size_t step = std::min(left, blanks.size());
    out(blanks.substr(0, step));
    left -= step;
  }
}

void TextWriter::write_null() {
  item("null");
}

void TextWriter::put_boolean(bool value) {
  item(value ? "true" : "false");
}

void TextWriter::put_integer(std::int64_t value) {
  item(ovcore::NumberText(value).view());
}

void TextWriter::put_unsigned(std::uint64_t value) {
  if (value < impl::unsigned_tiny_end) return item(simple(value).view());
  if (value < impl::unsigned_tagged_from) return item(simple(value + impl::unsigned_bias).view());
  Text text = tagged(impl::tag_unsigned);
  append(text, value);
  text.append(')');
  item(text.view());
}

void TextWriter::put_double(double value) {
  const auto bits = std::bit_cast<std::uint64_t>(value);
  if (!std::isnan(value) || bits == impl::plain_nan) return item(ovcore::NumberText(value).view());
  Text text;
  text.append("float'");
  for (int shift = 60; shift >= 0; shift -= 4)
    text.append(hex_digit(static_cast<unsigned>(bits >> shift)));
  text.append('\'');
  item(text.view());
}

void TextWriter::put_string(std::string_view text) {
  if (text.size() > limits().max_string) {
    impl::throw_writer_size(item_string, text.size(), limits().max_string,
                            text_writer_site("ovserialize::Writer::operator<<()"));
  }
  Savepoint whole(*this);
  separate();
  if (ovcore::is_utf8(text)) {
    quoted(text);
  } else {
    out(tagged(impl::tag_string).view());
    out("h'");
    hex_digits(reinterpret_cast<const unsigned char*>(text.data()), text.size());
    out("')");
  }
  whole.commit();
}

void TextWriter::quoted(std::string_view text) {
  out("\"");
  while (!text.empty()) {
    const auto plain = static_cast<std::size_t>(
        std::find_if_not(text.begin(), text.end(), stands_for_itself) - text.begin());
    if (plain > 0) out(text.substr(0, plain));
    text.remove_prefix(plain);
    if (text.empty()) break;
    out(escape(static_cast<unsigned char>(text.front())).view());
    text.remove_prefix(1);
  }
  out("\"");
}

void TextWriter::time(std::uint64_t tag, std::int64_t microseconds) {
  const ovcore::TimeParts parts = ovcore::RelativeTime::from_microseconds(microseconds).parts();
  Text text = tagged(tag);
  text.append("{1: ");
  append(text, parts.seconds);
  if (parts.microseconds != 0) {
    text.append(", -6: ");
    append(text, parts.microseconds);
  }
  text.append("})");
  item(text.view());
}

void TextWriter::put_absolute_time(std::int64_t microseconds) {
  time(impl::tag_absolute_time, microseconds);
}

void TextWriter::put_relative_time(std::int64_t microseconds) {
  time(impl::tag_relative_time, microseconds);
}

void TextWriter::put_uuid(const ovcore::Uuid& uuid) {
  Text text = tagged(impl::tag_uuid);
  text.append("h'");
  for (const unsigned byte : uuid.data()) {
    text.append(hex_digit(byte >> 4));
    text.append(hex_digit(byte));
  }
  text.append("')");
  item(text.view());
}

void TextWriter::put_binary(const void* data, std::size_t size) {
  if (size > limits().max_binary) {
    impl::throw_writer_size(item_binary, size, limits().max_binary,
                            text_writer_site("ovserialize::Writer::write_binary()"));
  }
  Savepoint whole(*this);
  item("h'");
  hex_digits(static_cast<const unsigned char*>(data), size);
  out("'");
  whole.commit();
}

void TextWriter::put_memory_list(const MemoryList* list) {
  const std::size_t size = list != nullptr ? list->size() : 0;
  if (size > limits().max_binary) {
    impl::throw_writer_size(item_binary, size, limits().max_binary,
                            text_writer_site("ovserialize::Writer::write_memory_list_as_binary()"));
  }
  Savepoint whole(*this);
  item("h'");
  if (list != nullptr) {
    list->for_each_span([this](auto bytes) { hex_digits(bytes.data(), bytes.size()); });
  }
  out("'");
  whole.commit();
}

void TextWriter::hex_digits(const unsigned char* data, std::size_t size) {
  char digits[256];
  while (size > 0) {
    const std::size_t step = std::min(size, sizeof digits / 2);
    for (std::size_t i = 0; i < step; ++i) {
      digits[2 * i] = hex_digit(data[i] >> 4);
      digits[2 * i + 1] = hex_digit(data[i]);
    }
    out({digits, 2 * step});
    data += step;
    size -= step;
  }
}

// Before anything is written, so that nothing is left to fail behind it but the target.
void TextWriter::check_depth(bool structure) {
  check_usable();
  if (m_frames.depth() >= limits().max_depth) {
    impl::throw_writer_depth(limits().max_depth,
                             text_writer_site(structure ? "ovserialize::Writer::begin_structure()"
                                                        : "ovserialize::Writer::begin_sequence()"));
  }
  m_frames.reserve();
}

void TextWriter::begin_sequence(std::uint64_t count) {
  check_depth(false);
  if (count == 1) {
    item(simple(impl::simple_of(impl::byte_sequence_of_one)).view());
    m_frames.push(Frame::single);
    m_single_start = m_items;
    return;
  }
  Text text;
  text.append("[_ ");
  append(text, count);
  item(text.view());
  m_frames.push(Frame::counted);
  m_counted_start = m_items;
  ++m_indentation;
}

void TextWriter::next_element() {
  check_usable();
  if (m_frames.top() == Frame::counted) return;
  impl::throw_next_element(m_frames.top() == Frame::single,
                           text_writer_site("ovserialize::Writer::next_element()"));
}

void TextWriter::end_sequence() {
  check_usable();
  Savepoint whole(*this);
  const Frame frame = m_frames.top();
  if (frame == Frame::counted) {
    --m_indentation;
    if (!m_options.one_line && std::exchange(m_counted_start, 0) != m_items) new_line();
    out("]");
  } else if (frame != Frame::single || m_single_start == m_items) {
    impl::throw_end_sequence(frame == Frame::single,
                             text_writer_site("ovserialize::Writer::end_sequence()"));
  }
  whole.commit();
  m_frames.pop();
}

void TextWriter::begin_structure() {
  check_depth(true);
  item(simple(impl::simple_of(impl::byte_structure)).view());
  m_frames.push(Frame::structure);
  ++m_indentation;
}

void TextWriter::end_structure() {
  check_usable();
  if (m_frames.top() != Frame::structure) {
    impl::throw_end_structure(text_writer_site("ovserialize::Writer::end_structure()"));
  }
  Savepoint whole(*this);
  --m_indentation;
  item(simple(impl::simple_of(impl::byte_structure_end)).view());
  whole.commit();
  m_frames.pop();
}

}  // namespace ovserialize
