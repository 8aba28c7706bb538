// SPDX-License-Identifier: Apache-2.0
#include "ovjson/tokenizer.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "ovcore/exception.h"
#include "ovcore/to_string.h"
#include "ovcore/utf8.h"
#include "ovjson/impl/block.h"
#include "ovjson/impl/number.h"
#include "ovjson/impl/scan.h"

namespace ovjson {
namespace {

constexpr std::size_t padding = impl::block_size;  // zeros behind the buffer

std::string hex(unsigned value, int digits) {
  std::string text;
  for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
    text += "0123456789abcdef"[value >> shift & 15];
  return text;
}

std::string quoted(unsigned char c) {
  if (c < 0x20 || c >= 0x7f) return "0x" + hex(c, 2);
  return {'\'', static_cast<char>(c), '\''};
}

// Or another control character, or the end of the buffer.
bool is_white(char c) noexcept {
  return static_cast<unsigned char>(c) <= ' ';
}

// Where text may end too early, and what is wrong with bytes.
constexpr const char* cut_string = "Unexpected end of text inside a string";
constexpr const char* cut_comment = "Unexpected end of text inside a comment";
constexpr const char* cut_number = "Unexpected end of text inside a number";
constexpr const char* cut_literal = "Unexpected end of text inside a literal";
constexpr const char* cut_mark = "Unexpected end of text inside a byte order mark";
constexpr const char* bad_character = "Unexpected character {@found}";
constexpr const char* bad_utf8 = "Invalid UTF-8: unexpected byte {@found}";

}  // namespace

std::string token_name(Token token) {
  static constexpr const char* names[] = {
      "eToken_Unknown",     "eToken_DocumentStart",   "eToken_DocumentEnd",
      "eToken_Error",       "eToken_IdentifierBegin", "eToken_IdentifierEnd",
      "eToken_StringBegin", "eToken_StringEnd",       "eToken_CharData",
      "eToken_True",        "eToken_False",           "eToken_Number",
      "eToken_Null",        "eToken_Punctuator"};
  const int number = static_cast<int>(token);
  if (number >= 0 && number < static_cast<int>(std::size(names))) return names[number];
  return "##InvalidToken(" + ovcore::to_string(number) + ")";
}

Tokenizer::Tokenizer(ovcore::RefCountPtr<ovcore::IReadStream> source,
                     const TokenizerOptions& options)
    : m_source(std::move(source)),
      // A short text needs no large buffer.
      m_capacity(static_cast<std::size_t>(
          std::min<std::uint64_t>(std::max<std::size_t>(options.buffer_size, 1),
                                  std::max<std::uint64_t>(m_source->remaining(), padding)))),
      m_buffer(std::make_unique_for_overwrite<char[]>(m_capacity + padding)),
      m_next(m_buffer.get()),
      m_end(m_next),
      m_base(options.start.source_pos),
      m_max_text_size(options.max_value_size),
      m_token_offset(options.start.source_pos),
      m_line(options.start.line),
      m_line_start(options.start.source_pos + 1 - options.start.line_pos),
      m_allow_comments(options.allow_comments) {
  std::memset(m_buffer.get(), 0, padding);
}

void Tokenizer::close() noexcept {
  m_mode = Mode::failed;
  m_source.reset();
  m_buffer.reset();
  m_next = m_end = nullptr;
  m_text = {};
}

// `behind`: the byte that ends the line.
inline void Tokenizer::end_line(const char* behind) noexcept {
  m_line_start = offset(behind);
  if (behind[-1] == '\r') {
    m_after_return = m_line_start;
  } else if (m_line_start - 1 == m_after_return) {
    return;  // the second half of "\r\n"
  }
  ++m_line;
}

// Behind the white space at `p`; the lines that end in it are counted.
inline const char* Tokenizer::white_end(const char* p) noexcept {
  for (;;) {
    // Indented text: the end of a line, then a run of blanks.
    if (*p == '\n' || *p == '\r') end_line(++p);
    impl::Found other;
    while ((other = impl::find_other_than_blank(p)) == 0)
      p += impl::block_size;
    p += impl::first_found(other);
    if (!is_white(*p)) return p;
    if (*p == '\t') {
      ++p;
    } else if (*p != '\n' && *p != '\r') {
      return p;
    }
  }
}

void Tokenizer::skip_white() noexcept {
  const char* const p = m_next;
  m_next = *p == ' ' && !is_white(p[1]) ? p + 1 : white_end(p);
}

// The end of the string that goes on at `first`, whose text becomes the token's; null when it must
// be read in pieces.
inline const char* Tokenizer::plain_string(const char* first) noexcept {
  const char* const end = impl::plain_end(first, m_end);
  const auto size = static_cast<std::size_t>(end - first);
  if (*end != '"' || size > m_max_text_size - m_text_size) return nullptr;
  m_text = {first, size};
  return end;
}

bool Tokenizer::take_string() noexcept {
  if (m_mode != Mode::string) return false;
  const char* const first = m_next;
  const char* const end = plain_string(first);
  if (end == nullptr) return false;
  m_token_offset = offset(first);
  m_next = end + 1;
  m_mode = Mode::structure;
  return true;
}

bool Tokenizer::take_name() noexcept {
  if (m_mode != Mode::structure) return false;
  if (is_white(*m_next)) m_next = white_end(m_next);
  const char* const quote = m_next;
  if (*quote != '"') return false;
  m_text_size = 0;
  const char* const end = plain_string(quote + 1);
  if (end == nullptr || m_text.empty() || end[1] != ':') return false;
  m_token_offset = offset(quote);
  m_next = end + 2 + (end[2] == ' ');
  return true;
}

[[gnu::always_inline]] inline Token Tokenizer::structure() {
  for (;;) {
    if (is_white(*m_next)) skip_white();
    m_token_offset = offset(m_next);
    const auto c = static_cast<unsigned char>(*m_next);
    switch (impl::class_of[c]) {
      case impl::class_punctuator:
        m_text = {m_next++, 1};
        return Token::punctuator;
      case impl::class_quote:
        ++m_next;
        m_mode = Mode::string;
        m_text_size = 0;
        return Token::string_begin;
      case impl::class_number:
        return number();
      case impl::class_word:
        return word();
      case impl::class_other:
        break;
    }
    if (const Token token = other(c); token != Token::unknown) return token;
  }
}

Token Tokenizer::next() {
  if (m_mode == Mode::structure) return m_token = structure();
  if (m_mode == Mode::string) return m_token = string_run();
  if (m_mode == Mode::identifier) return m_token = identifier_run();
  if (m_mode == Mode::ended) return m_token = Token::document_end;
  if (m_mode == Mode::failed) return m_token = Token::error;
  m_mode = Mode::structure;
  return m_token = Token::document_start;
}

// `unknown` when there is more to look at.
Token Tokenizer::other(unsigned char c) {
  if (m_next == m_end) {
    if (fill()) return Token::unknown;
    if (m_mode == Mode::failed) return Token::error;
    m_mode = Mode::ended;
    return Token::document_end;
  }
  if (c == 0xef && m_token_offset == 0) {
    return skip_byte_order_mark() ? Token::unknown : Token::error;
  }
  if (c != '/') return fail(bad_character, m_token_offset, quoted(c));
  if (!m_allow_comments) return fail("Comments are not allowed", m_token_offset, quoted(c));
  return skip_comment() ? Token::unknown : Token::error;
}

Token Tokenizer::number() {
  const char* const first = m_next;
  m_next = impl::skip<impl::is_number>(first);
  m_text = {first, static_cast<std::size_t>(m_next - first)};
  if (m_next == m_end) {  // it may go on
    m_number = m_text;
    while (m_next == m_end && m_number.size() <= m_max_text_size && fill()) {
      const char* const stop = impl::skip<impl::is_number>(m_next);
      m_number.append(m_next, stop);
      m_next = stop;
    }
    m_text = m_number;
  }
  if (m_mode == Mode::failed) return Token::error;
  if (m_text.size() > m_max_text_size) return fail_size(m_token_offset);

  const impl::NumberFault fault = impl::check_number(m_text);
  if (fault.at == nullptr && !impl::is_word(*m_next)) return Token::number;
  const char* const message = fault.expects_digit
                                  ? "Invalid number: expecting a digit, found {@found}"
                                  : "Invalid number: unexpected {@found}";
  const char* const end = m_text.data() + m_text.size();
  if (fault.at == nullptr || fault.at == end) return fail_here(cut_number, message);
  return fail(message, m_token_offset + static_cast<std::uint64_t>(fault.at - m_text.data()),
              quoted(static_cast<unsigned char>(*fault.at)));
}

Token Tokenizer::word() {
  Token literal = Token::unknown;
  const char* const stop = impl::skip<impl::is_word>(m_next);
  m_scratch_size = 0;
  if (stop != m_end) {
    literal = impl::literal_token({m_next, static_cast<std::size_t>(stop - m_next)});
    if (literal != Token::unknown) m_next = stop;
  } else {
    // It may go on: take more than any literal has, or all of it.
    int c = peek();
    while (m_scratch_size < 6 && c >= 0 && impl::is_word(static_cast<char>(c))) {
      m_scratch[m_scratch_size++] = static_cast<char>(c);
      ++m_next;
      c = peek();
    }
    if (m_mode == Mode::failed) return Token::error;
    const std::string_view start(m_scratch, m_scratch_size);
    literal = impl::literal_token(start);
    if (literal == Token::unknown && c < 0 && impl::begins_literal(start)) {
      return fail(cut_literal, offset(m_next), {});
    }
  }
  if (literal != Token::unknown) return literal;
  m_mode = Mode::identifier;
  m_text_size = 0;
  return Token::identifier_begin;
}

Token Tokenizer::identifier_run() {
  if (m_scratch_size > 0) return run({m_scratch, std::exchange(m_scratch_size, 0)});
  do {
    const char* const first = m_next;
    m_token_offset = offset(first);
    m_next = impl::skip<impl::is_word>(first);
    if (m_next != first) return run({first, static_cast<std::size_t>(m_next - first)});
  } while (m_next == m_end && fill());
  if (m_mode == Mode::failed) return Token::error;
  m_mode = Mode::structure;
  return Token::identifier_end;
}

Token Tokenizer::string_run() {
  do {
    const char* const first = m_next;
    m_token_offset = offset(first);
    m_next = impl::plain_end(first, m_end);
    if (m_next != first) return run({first, static_cast<std::size_t>(m_next - first)});
    const auto c = static_cast<unsigned char>(*first);
    if (c == '"') {
      ++m_next;
      m_mode = Mode::structure;
      return Token::string_end;
    }
    if (c == '\\') return escape();
    if (c >= 0x80) return scratch_run(read_sequence(cut_string));
  } while (m_next == m_end && fill());
  return fail_here(cut_string, "Control character {@found} in a string");
}

Token Tokenizer::run(std::string_view text) {
  m_text = text;
  m_text_size += text.size();
  if (m_text_size <= m_max_text_size) return Token::char_data;
  // At the first byte too many, however the text was cut into runs.
  return fail_size(m_token_offset + (text.size() - (m_text_size - m_max_text_size)));
}

// What `unicode_escape` and `read_sequence` give.
Token Tokenizer::scratch_run(std::size_t size) {
  return size > 0 ? run({m_scratch, size}) : Token::error;
}

Token Tokenizer::escape() {
  static constexpr std::string_view letters = "nrt\"\\/bf";
  static constexpr std::string_view characters = "\n\r\t\"\\/\b\f";
  ++m_next;
  const int c = peek();
  if (c == 'u') {
    ++m_next;
    return scratch_run(unicode_escape());
  }
  const std::size_t i = c < 0 ? letters.npos : letters.find(static_cast<char>(c));
  if (i == letters.npos) {
    return fail_here(cut_string, "Invalid escape: expecting one of \"\\/bfnrtu, found {@found}");
  }
  ++m_next;
  m_scratch[0] = characters[i];
  return run({m_scratch, 1});
}

// Behind "\u"; puts the character into the scratch and returns its size, 0 after a fault.
std::size_t Tokenizer::unicode_escape() {
  const int unit = hex_unit();
  if (unit < 0) return 0;
  if (unit < 0xd800 || unit > 0xdfff)
    return ovcore::encode_utf8(static_cast<std::uint32_t>(unit), m_scratch);
  const int low = unit < 0xdc00 ? low_unit() : 0;
  if (low < 0) return 0;
  if (low < 0xdc00 || low > 0xdfff) {
    fail("Unpaired surrogate {@found}", m_token_offset,
         "\\u" + hex(static_cast<unsigned>(unit), 4));
    return 0;
  }
  return ovcore::encode_utf8(
      static_cast<std::uint32_t>(0x10000 + ((unit - 0xd800) << 10) + (low - 0xdc00)), m_scratch);
}

// The second half of a surrogate pair: 0 when no escape follows, -1 after a fault.
int Tokenizer::low_unit() {
  for (const char expected : {'\\', 'u'}) {
    const int c = peek();
    if (c < 0) {
      fail_here(cut_string, nullptr);
      return -1;
    }
    if (c != expected) return 0;
    ++m_next;
  }
  return hex_unit();
}

// -1 after a fault.
int Tokenizer::hex_unit() {
  int unit = 0;
  for (int i = 0; i < 4; ++i) {
    const int c = peek();
    const int lower = c | 0x20;
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (c >= 0 && lower >= 'a' && lower <= 'f') {
      digit = lower - 'a' + 10;
    } else {
      fail_here(cut_string, "Invalid escape: expecting a hexadecimal digit, found {@found}");
      return -1;
    }
    unit = unit << 4 | digit;
    ++m_next;
  }
  return unit;
}

// Puts a sequence that the buffer's end may split into the scratch and returns its size, 0 after a
// fault.
std::size_t Tokenizer::read_sequence(const char* cut_off) {
  const auto lead = static_cast<unsigned char>(*m_next);
  const std::size_t length = ovcore::utf8_length(lead);
  for (std::size_t i = 0; i < length; ++i) {
    const int c = peek();
    if (i > 0 && (c < 0 || !ovcore::utf8_continues(lead, i, static_cast<unsigned char>(c)))) break;
    m_scratch[i] = static_cast<char>(c);
    ++m_next;
    if (i + 1 == length) return length;
  }
  fail_here(cut_off, bad_utf8);
  return 0;
}

bool Tokenizer::skip_byte_order_mark() {
  for (const int byte : {0xef, 0xbb, 0xbf}) {
    if (peek() != byte) {
      fail_here(cut_mark, bad_character);
      return false;
    }
    ++m_next;
  }
  m_line_start = offset(m_next);
  return true;
}

bool Tokenizer::skip_comment() {
  ++m_next;
  const int c = peek();
  if (c == '/') return skip_line_comment();
  if (c == '*') return skip_block_comment();
  fail_here(cut_comment, bad_character);
  return false;
}

bool Tokenizer::skip_line_comment() {
  for (int c = peek(); c >= 0 && c != '\n' && c != '\r'; c = peek()) {
    if (c < 0x80) {
      ++m_next;
    } else if (read_sequence(cut_comment) == 0) {
      return false;
    }
  }
  return m_mode != Mode::failed;
}

bool Tokenizer::skip_block_comment() {
  ++m_next;
  bool after_star = false;
  for (int c = peek(); c >= 0; c = peek()) {
    if (c >= 0x80) {
      if (read_sequence(cut_comment) == 0) return false;
    } else {
      ++m_next;
      if (after_star && c == '/') return true;
      if (c == '\n' || c == '\r') end_line(m_next);
    }
    after_star = c == '*';
  }
  fail_here(cut_comment, nullptr);
  return false;
}

// Replaces the buffer, which has been used up. False at the end and after a failure of the source.
bool Tokenizer::fill() {
  if (m_ended) return false;
  m_base = offset(m_end);
  char* const buffer = m_buffer.get();
  m_next = m_end = buffer;
  std::memset(buffer, 0, padding);
  std::size_t size = 0;
  try {
    size = m_source->read_some(buffer, m_capacity);
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    fail("Reading the text failed", m_base, {});
    m_fault.kind = Fault::Kind::stream;
    m_fault.cause = ovcore::error_info_of(e);
    m_ended = true;
    return false;
  }
  m_ended = size == 0;
  m_end = buffer + size;
  std::memset(buffer + size, 0, padding);
  return size > 0;
}

// The next byte, -1 where `fill` gives no more.
int Tokenizer::peek() {
  if (m_next == m_end && !fill()) return -1;
  return static_cast<unsigned char>(*m_next);
}

Token Tokenizer::fail(const char* message, std::uint64_t at, std::string found) {
  m_mode = Mode::failed;
  m_token_offset = at;
  m_text = {};
  m_fault.kind = Fault::Kind::syntax;
  m_fault.message = message;
  m_fault.found = std::move(found);
  return Token::error;
}

// The next byte does not fit, or there is none.
Token Tokenizer::fail_here(const char* cut_off, const char* message) {
  const int c = peek();
  if (m_mode == Mode::failed) return Token::error;
  if (c < 0) return fail(cut_off, offset(m_next), {});
  return fail(message, offset(m_next), quoted(static_cast<unsigned char>(c)));
}

Token Tokenizer::fail_size(std::uint64_t at) {
  fail("Node value exceeds {@maxSize}bytes of character data", at, {});
  m_fault.kind = Fault::Kind::size;
  return Token::error;
}

}  // namespace ovjson
