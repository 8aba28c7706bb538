// SPDX-License-Identifier: Apache-2.0
#include "ovjson/writer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/utf8.h"
#include "ovjson/error_codes.h"
#include "ovjson/impl/block.h"
#include "ovjson/impl/number.h"
#include "ovjson/impl/scan.h"

namespace ovjson {
namespace {

constexpr std::string_view replacement = "\xef\xbf\xbd";  // U+FFFD

// Else a line could be endless.
TextWriterOptions bounded(TextWriterOptions options) noexcept {
  options.indent = std::min<std::size_t>(options.indent, 64);
  return options;
}

bool is_escaped(char c) noexcept {
  return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\';
}

// Bytes at the end of a text that begin a character without completing it.
std::size_t cut_size(std::string_view text) noexcept {
  for (std::size_t n = 1; n <= std::min<std::size_t>(text.size(), 3); ++n) {
    const std::string_view end = text.substr(text.size() - n);
    if ((static_cast<unsigned char>(end[0]) & 0xc0) == 0x80) continue;
    const bool ascii = static_cast<unsigned char>(end[0]) < 0x80;
    return !ascii && ovcore::first_utf8_sequence(end).state == ovcore::Utf8Sequence::State::cut ? n
                                                                                                : 0;
  }
  return 0;
}

}  // namespace

Writer::~Writer() = default;

Writer::Mark Writer::mark() const noexcept {
  return {};
}

void Writer::roll_back(const Mark&) noexcept {}

/// The operation that is under way: what its errors have in common.
class TextWriter::Site {
 public:
  Site(const ovcore::ErrorCode& code, const char* function) noexcept
      : m_code(code), m_function(function) {}

  [[noreturn]] void raise(const char* message) const { raise(m_code, message); }
  [[noreturn]] void raise(const ovcore::ErrorCode& code, const char* message) const {
    ovcore::throw_error(code, message, location());
  }
  [[noreturn]] void raise(const char* message, const char* name, std::size_t value) const {
    raise(m_code, message, name, value);
  }
  [[noreturn]] void raise(const ovcore::ErrorCode& code, const char* message, const char* name,
                          std::size_t value) const {
    ovcore::ErrorComposer(message).add(name, value).throw_error(code, location());
  }

 private:
  [[nodiscard]] ovcore::SourceLocation location() const { return {"ovjson/writer", m_function, 0}; }

  const ovcore::ErrorCode& m_code;
  const char* m_function;
};

inline void TextWriter::check_value(const Site& site) const {
  if (m_refusal != nullptr || m_in_string) check_open(site);
  if (m_after_name) return;
  if (m_inside == 0 ? m_has_value : m_inside == '{') raise_value(site);
}

inline void TextWriter::put(char c) {
  if (m_used == m_capacity) pass_on({m_buffer.get(), std::exchange(m_used, 0)});
  m_buffer[m_used++] = c;
}

inline void TextWriter::check_size(const Site& site, std::size_t size) const {
  if (size > m_options.max_value_size) {
    site.raise("Value exceeds {@maxSize} bytes of character data", "maxSize",
               m_options.max_value_size);
  }
}

TextWriter::TextWriter(ovcore::RefCountPtr<ovcore::IWriteStream> target,
                       const TextWriterOptions& options)
    : m_target(std::move(target)),
      m_options(bounded(options)),
      m_capacity(std::max<std::size_t>(options.buffer_size, 1)),
      m_buffer(std::make_unique<char[]>(m_capacity + impl::block_size)) {}

TextWriter::~TextWriter() = default;

Writer::Mark TextWriter::mark() const noexcept {
  return {m_passed_on + m_used, m_open.size(), m_empty, m_after_name, m_has_value, m_in_string};
}

void TextWriter::roll_back(const Mark& mark) noexcept {
  if (m_refusal != nullptr || mark.in_string) return;
  if (mark.position < m_passed_on) {
    m_refusal = "Nothing can be written after part of a failed value was passed on";
    return;
  }
  m_used = static_cast<std::size_t>(mark.position - m_passed_on);
  m_open.resize(std::min(mark.depth, m_open.size()));
  m_inside = m_open.empty() ? '\0' : m_open.back();
  m_empty = mark.empty;
  m_after_name = mark.after_name;
  m_has_value = mark.has_value;
  m_in_string = false;
  m_cut_size = 0;
}

void TextWriter::member_name(const char* chars, std::size_t size) {
  const Site site(error::ovjson_writer_unexpected_name, "ovjson::TextWriter::member_name()");
  const std::string_view name(chars, size);
  if (m_refusal != nullptr || m_in_string) check_open(site);
  if (m_inside != '{') {
    site.raise("A member name cannot stand outside an object");
  }
  if (m_after_name) site.raise("The member has a name already");
  if (size == 0) site.raise("A member name cannot be empty");
  put_string(name, site);
  put(':');
  if (m_options.indent != 0) put(' ');
  m_after_name = true;
}

void TextWriter::string_value(const char* chars, std::size_t size) {
  const Site site(error::ovjson_writer_unexpected_string, "ovjson::TextWriter::string_value()");
  const std::string_view text(chars, size);
  check_value(site);
  put_string(text, site);
  end_value();
}

void TextWriter::boolean_value(bool value) {
  put_literal(value ? "true" : "false",
              {error::ovjson_writer_unexpected_literal, "ovjson::TextWriter::boolean_value()"});
}

void TextWriter::integer_value(std::int64_t value) {
  put_literal(ovcore::NumberText(value).view(),
              {error::ovjson_writer_unexpected_number, "ovjson::TextWriter::integer_value()"});
}

void TextWriter::double_value(double value) {
  const Site site(error::ovjson_writer_unexpected_number, "ovjson::TextWriter::double_value()");
  if (std::isnan(value)) {
    site.raise(error::ovjson_writer_unsupported_value_nan, "JSON has no number that is none");
  }
  if (std::isinf(value)) {
    site.raise(error::ovjson_writer_unsupported_value_inf, "JSON has no infinite numbers");
  }
  put_literal(ovcore::NumberText(value).view(), site);
}

void TextWriter::number_value(const char* chars, std::size_t size) {
  const Site site(error::ovjson_writer_unexpected_number, "ovjson::TextWriter::number_value()");
  const std::string_view text(chars, size);
  check_size(site, size);
  if (impl::check_number(text).at != nullptr || size == 0) site.raise("Text is not a JSON number");
  put_literal(text, site);
}

void TextWriter::null_value() {
  put_literal("null",
              {error::ovjson_writer_unexpected_literal, "ovjson::TextWriter::null_value()"});
}

void TextWriter::begin_object() {
  begin_container(
      '{', {error::ovjson_writer_unexpected_container_begin, "ovjson::TextWriter::begin_object()"});
}

void TextWriter::end_object() {
  end_container(
      '{', {error::ovjson_writer_unexpected_container_end, "ovjson::TextWriter::end_object()"});
}

void TextWriter::begin_array() {
  begin_container(
      '[', {error::ovjson_writer_unexpected_container_begin, "ovjson::TextWriter::begin_array()"});
}

void TextWriter::end_array() {
  end_container('[',
                {error::ovjson_writer_unexpected_container_end, "ovjson::TextWriter::end_array()"});
}

void TextWriter::begin_streamed_string() {
  const Site site(error::ovjson_writer_unexpected_string,
                  "ovjson::TextWriter::begin_streamed_string()");
  check_value(site);
  put_separator();
  put('"');
  m_in_string = true;
  m_string_size = 0;
}

void TextWriter::string_data(const char* chars, std::size_t size) {
  const Site site(error::ovjson_writer_unexpected_string_data, "ovjson::TextWriter::string_data()");
  if (!m_in_string) site.raise("String data cannot stand outside a streamed string");
  if (m_refusal != nullptr) check_going(site);
  if (size > m_options.max_value_size - m_string_size) {
    check_size(site, m_options.max_value_size + 1);
  }
  std::string_view text(chars, size);

  // The character that the previous piece began.
  char first[sizeof m_cut];
  std::size_t first_size = m_cut_size;
  ovcore::Utf8Sequence::State first_state = ovcore::Utf8Sequence::State::cut;
  std::memcpy(first, m_cut, m_cut_size);
  while (first_size > 0 && first_state == ovcore::Utf8Sequence::State::cut && !text.empty()) {
    first[first_size++] = text[0];
    first_state = ovcore::first_utf8_sequence({first, first_size}).state;
    if (first_state != ovcore::Utf8Sequence::State::ill_formed) text.remove_prefix(1);
  }
  if (first_state == ovcore::Utf8Sequence::State::ill_formed && !m_options.replace_invalid_utf8) {
    site.raise(error::ovjson_writer_unexpected_character, "Invalid UTF-8 at byte {@offset}",
               "offset", size - text.size());
  }
  const bool first_is_cut = first_size > 0 && first_state == ovcore::Utf8Sequence::State::cut;
  const std::size_t cut = first_is_cut ? 0 : cut_size(text);
  const std::string_view whole = text.substr(0, text.size() - cut);
  const bool well_formed = check_characters(site, whole, size - text.size());

  m_string_size += size;
  if (first_is_cut) {
    std::memcpy(m_cut, first, first_size);
    m_cut_size = first_size;
    return;
  }
  m_cut_size = cut;
  text.copy(m_cut, cut, whole.size());
  if (first_state == ovcore::Utf8Sequence::State::whole) put({first, first_size});
  if (first_state == ovcore::Utf8Sequence::State::ill_formed) put(replacement);
  well_formed ? put_escaped(whole) : put_replaced(whole);
}

void TextWriter::end_streamed_string() {
  const Site site(error::ovjson_writer_unexpected_string_end,
                  "ovjson::TextWriter::end_streamed_string()");
  if (!m_in_string) site.raise("No streamed string is open");
  if (m_refusal != nullptr) check_going(site);
  if (m_cut_size > 0) {
    if (!m_options.replace_invalid_utf8) {
      site.raise(error::ovjson_writer_unexpected_character,
                 "Invalid UTF-8 at the end of a streamed string");
    }
    put(replacement);
  }
  put('"');
  m_in_string = false;
  m_cut_size = 0;
  end_value();
}

void TextWriter::next_document() {
  const Site site(error::ovjson_writer_unexpected_container, "ovjson::TextWriter::next_document()");
  check_complete(site);
  if (!m_has_value) site.raise("The document has no value");
  put('\n');
  m_has_value = false;
}

void TextWriter::close() {
  check_complete({error::ovjson_writer_unexpected_container, "ovjson::TextWriter::close()"});
  flush();
}

void TextWriter::flush() {
  check_going({error::ovjson_writer, "ovjson::TextWriter::flush()"});
  pass_on({m_buffer.get(), std::exchange(m_used, 0)});
}

void TextWriter::check_going(const Site& site) const {
  if (m_refusal != nullptr) site.raise(error::ovjson_writer, m_refusal);
}

void TextWriter::check_open(const Site& site) const {
  check_going(site);
  if (m_in_string) site.raise("A streamed string can hold string data only");
}

void TextWriter::raise_value(const Site& site) const {
  if (m_open.empty()) site.raise("The document has its value already");
  site.raise("A value in an object needs a member name");
}

void TextWriter::check_complete(const Site& site) const {
  check_going(site);
  if (m_in_string) site.raise("A streamed string is still open");
  if (!m_open.empty()) site.raise("Objects or arrays are still open");
}

// False when the text must be written with replacements.
bool TextWriter::check_characters(const Site& site, std::string_view text,
                                  std::size_t offset) const {
  if (ovcore::is_utf8(text)) return true;
  if (m_options.replace_invalid_utf8) return false;
  site.raise(error::ovjson_writer_unexpected_character, "Invalid UTF-8 at byte {@offset}", "offset",
             offset + ovcore::utf8_prefix(text));
}

void TextWriter::begin_container(char bracket, const Site& site) {
  check_value(site);
  if (m_open.size() >= m_options.max_depth) {
    site.raise("Objects and arrays nest deeper than {@maxDepth}", "maxDepth", m_options.max_depth);
  }
  m_open.reserve(m_open.size() + 1);
  put_separator();
  put(bracket);
  m_open.push_back(bracket);
  m_inside = bracket;
  m_after_name = false;
  m_empty = true;
}

void TextWriter::end_container(char bracket, const Site& site) {
  check_open(site);
  if (m_inside != bracket) {
    site.raise(bracket == '{' ? "No object is open here" : "No array is open here");
  }
  if (m_after_name) site.raise("A member name needs its value");
  m_open.pop_back();
  m_inside = m_open.empty() ? '\0' : m_open.back();
  if (!m_empty) put_line_start();
  put(bracket == '{' ? '}' : ']');
  end_value();
}

// Of what `put_separator` puts.
inline std::size_t TextWriter::separator_size() const noexcept {
  if (!needs_separator()) return 0;
  return std::size_t{!m_empty} + (m_options.indent > 0 ? 1 + m_options.indent * m_open.size() : 0);
}

// Copies text to where a byte more has room, unless some of it must be escaped or replaced.
[[gnu::noinline]] bool copy_unescaped(char* to, std::string_view text) noexcept {
  char* const end = to + text.size();
  text.copy(to, text.size());
  *end = '"';  // where the search stops
  return impl::plain_end(to, end) == end;
}

// A string and what comes before it, when there is room and nothing to be escaped or replaced; else
// false, and nothing is put.
[[gnu::always_inline]] inline bool TextWriter::put_plain(std::string_view text) {
  const std::size_t before = separator_size() + 1;
  const std::size_t room = m_capacity - m_used;
  if (room < before || room - before <= text.size()) return false;
  char* const first = m_buffer.get() + m_used + before;
  char* const end = first + text.size();
  if (!impl::copy_plain(first, text.data(), text.size()) && !copy_unescaped(first, text)) {
    return false;
  }
  *end = '"';
  if (m_options.indent > 0) {
    put_separator();
  } else if (before == 2) {
    first[-2] = ',';
  }
  first[-1] = '"';
  m_used = static_cast<std::size_t>(end + 1 - m_buffer.get());
  return true;
}

// All of a string and what comes before it, or nothing.
void TextWriter::put_string(std::string_view text, const Site& site) {
  check_size(site, text.size());
  if (put_plain(text)) [[likely]]
    return;
  const bool well_formed = check_characters(site, text);
  put_separator();
  put_quoted(text, well_formed);
}

void TextWriter::put_literal(std::string_view text, const Site& site) {
  check_value(site);
  put_separator();
  put(text);
  end_value();
}

// What comes before a name, or before a value that has none.
void TextWriter::put_separator() {
  if (!needs_separator()) return;
  if (!m_empty) put(',');
  put_line_start();
}

void TextWriter::put_line_start() {
  if (m_options.indent == 0) return;
  put('\n');
  static constexpr std::string_view blanks = "                                ";
  for (std::size_t left = m_options.indent * m_open.size(); left > 0;) {
    const std::size_t size = std::min(left, blanks.size());
    put(blanks.substr(0, size));
    left -= size;
  }
}

void TextWriter::put_quoted(std::string_view text, bool well_formed) {
  put('"');
  well_formed ? put_escaped(text) : put_replaced(text);
  put('"');
}

void TextWriter::put_replaced(std::string_view text) {
  while (!text.empty()) {
    std::size_t size = ovcore::utf8_prefix(text);
    put_escaped(text.substr(0, size));
    if (size == text.size()) return;
    put(replacement);
    size += ovcore::first_utf8_sequence(text.substr(size)).size;
    text.remove_prefix(size);
  }
}

void TextWriter::put_escaped(std::string_view text) {
  const char* p = text.data();
  const char* const end = p + text.size();
  const char* run = p;
  while (p != end) {
    if (static_cast<std::size_t>(end - p) >= impl::block_size) {
      const impl::Found found = impl::find_escaped(p);
      if (found == 0) {
        p += impl::block_size;
        continue;
      }
      p += impl::first_found(found);
    } else if (!is_escaped(*p)) {
      ++p;
      continue;
    }
    put({run, static_cast<std::size_t>(p - run)});
    put_escape(*p++);
    run = p;
  }
  put({run, static_cast<std::size_t>(p - run)});
}

void TextWriter::put_escape(char c) {
  switch (c) {
    case '\b':
      return put("\\b");
    case '\f':
      return put("\\f");
    case '\n':
      return put("\\n");
    case '\r':
      return put("\\r");
    case '\t':
      return put("\\t");
    case '"':
      return put("\\\"");
    case '\\':
      return put("\\\\");
    default:
      break;
  }
  const char text[] = {'\\', 'u', '0', '0', c < 0x10 ? '0' : '1', "0123456789abcdef"[c & 15]};
  put({text, sizeof text});
}

void TextWriter::put(std::string_view text) {
  if (text.empty()) return;
  if (text.size() > m_capacity - m_used) {
    pass_on({m_buffer.get(), std::exchange(m_used, 0)});
    if (text.size() >= m_capacity) return pass_on(text);
  }
  std::memcpy(m_buffer.get() + m_used, text.data(), text.size());
  m_used += text.size();
}

void TextWriter::pass_on(std::string_view text) {
  if (text.empty()) return;
  m_refusal = "Nothing can be written after the target failed";
  m_passed_on += text.size();
  m_target->write(text.data(), text.size());
  m_refusal = nullptr;
}

}  // namespace ovjson
