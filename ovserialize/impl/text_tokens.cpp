// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/impl/text_tokens.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "ovcore/utf8.h"
#include "ovserialize/impl/decode.h"

namespace ovserialize::impl {
namespace {

using Mark = TextToken::Mark;

// Longer numbers than anybody writes, shorter than what would be a burden.
constexpr std::size_t longest_number = 1200;
constexpr std::size_t longest_word = 16;

constexpr RaiseSite site(const char* function) {
  return {"ovserialize/text_reader", function};
}

bool is_digit(int c) noexcept {
  return c >= '0' && c <= '9';
}

bool is_letter(int c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// -1 for what is no hexadecimal digit.
int hex_value(int c) noexcept {
  if (is_digit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Sets an integer's sign and magnitude.
void set_integer(TextToken& token, std::string_view digits) {
  token.negative = digits.starts_with('-');
  if (token.negative) digits.remove_prefix(1);
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), token.number);
  token.in_range = result.ec == std::errc();
}

}  // namespace

// What was found malformed or cut stays the next token for good, since nothing is known behind it.
void TextTokens::look() {
  if (m_token.mark == Mark::malformed || m_token.mark == Mark::truncated) return;
  m_token = {};
  bool whole = m_scanner.skip_blanks();
  m_token.at = m_scanner.position();
  if (whole && m_comma_due) {
    const int c = m_scanner.peek();
    if (c == ',') {
      m_scanner.take();
      m_comma_due = false;
      whole = m_scanner.skip_blanks();
      m_token.at = m_scanner.position();
    } else if (c != ']' && c != TextScanner::end) {
      return set_malformed("a comma is missing");
    }
  }
  if (!whole) return set_truncated();
  find();
  m_looked = true;
}

void TextTokens::find() {
  const int c = m_scanner.peek();
  if (is_digit(c) || c == '-') return find_number();
  if (is_letter(c)) return find_word(false);
  switch (c) {
    case TextScanner::end:
      m_token.mark = Mark::end;
      return;
    case '"':
      m_scanner.take();
      return set_item(item_string);
    case '[':
      m_scanner.take();
      return find_sequence();
    case ']':
      m_scanner.take();
      m_token.mark = Mark::sequence_end;
      return;
    case '{':
      return set_malformed("a map");
    default:
      return set_malformed("a character that begins no item");
  }
}

void TextTokens::find_word(bool negative) {
  m_characters.clear();
  while (is_letter(m_scanner.peek()) && m_characters.size() < longest_word) {
    m_characters.push_back(static_cast<char>(m_scanner.peek()));
    m_scanner.take();
  }
  const std::string_view word = m_characters;
  const auto real = [this](double value) {
    m_token.real = value;
    set_item(item_double);
  };
  if (word == "Infinity") {
    const double infinity = std::numeric_limits<double>::infinity();
    return real(negative ? -infinity : infinity);
  }
  const auto may_become = [word](std::string_view whole) { return whole.starts_with(word); };
  if (negative) {
    constexpr auto reason = "a sign without a number";
    return may_become("Infinity") ? set_unexpected(reason) : set_malformed(reason);
  }
  if (word == "null") return set_item(item_null);
  if (word == "true" || word == "false") {
    m_token.flag = word == "true";
    return set_item(item_boolean);
  }
  if (word == "NaN") return real(std::numeric_limits<double>::quiet_NaN());
  if (word == "simple") return find_simple();
  if (word == "float") return find_float();
  if (word == "h" && m_scanner.take_if('\'')) return set_item(item_binary);
  constexpr std::string_view words[] = {"null", "true",  "false",    "simple",
                                        "h",    "float", "Infinity", "NaN"};
  constexpr auto reason = "an unknown word";
  std::ranges::any_of(words, may_become) ? set_unexpected(reason) : set_malformed(reason);
}

// The grammar of JSON; a number before a parenthesis is a tag.
void TextTokens::find_number() {
  m_characters.clear();
  const auto take_digits = [this] {
    const std::size_t before = m_characters.size();
    while (is_digit(m_scanner.peek()) && m_characters.size() < longest_number) {
      m_characters.push_back(static_cast<char>(m_scanner.peek()));
      m_scanner.take();
    }
    return m_characters.size() > before;
  };
  const auto take_any = [this](std::string_view characters) {
    const int c = m_scanner.peek();
    if (c == TextScanner::end || characters.find(static_cast<char>(c)) == characters.npos) {
      return false;
    }
    m_characters.push_back(static_cast<char>(c));
    m_scanner.take();
    return true;
  };

  const bool negative = take_any("-");
  if (negative && is_letter(m_scanner.peek())) return find_word(true);
  const std::size_t first = m_characters.size();
  if (!take_digits()) return set_unexpected("a sign without a number");
  if (m_characters.size() > first + 1 && m_characters.compare(first, 1, "0") == 0) {
    return set_malformed("a number with a leading zero");
  }
  bool real = false;
  if (take_any(".")) {
    real = true;
    if (!take_digits()) return set_unexpected("a number without digits behind its point");
  }
  if (take_any("eE")) {
    real = true;
    take_any("+-");
    if (!take_digits()) return set_unexpected("a number without digits in its exponent");
  }
  if (m_characters.size() >= longest_number) return set_malformed("a number that is too long");

  if (real) {
    const auto result = std::from_chars(m_characters.data(),
                                        m_characters.data() + m_characters.size(), m_token.real);
    m_token.in_range = result.ec == std::errc();
    return set_item(item_double);
  }
  set_integer(m_token, m_characters);
  if (m_scanner.peek() != '(') return set_item(item_integer);
  const int kind = m_token.negative || !m_token.in_range ? item_none : kind_of(m_token.number);
  if (kind == item_none) return set_malformed("an unknown tag");
  m_scanner.take();
  m_token.tagged = true;
  set_item(kind);
}

void TextTokens::find_simple() {
  std::uint64_t value = 0;
  if (!m_scanner.take_if('(')) return set_unexpected("not a simple value");
  if (!scan_count(value)) return;
  if (!m_scanner.skip_blanks()) return set_truncated();
  if (!m_scanner.take_if(')')) return set_unexpected("not a simple value");
  if (value < unsigned_tiny_end) {
    m_token.number = value;
    set_item(item_unsigned);
  } else if (value >= 32 && value <= 255) {
    m_token.number = value - unsigned_bias;
    set_item(item_unsigned);
  } else if (value == simple_of(byte_sequence_of_one)) {
    m_token.flag = true;
    set_item(item_sequence);
  } else if (value == simple_of(byte_structure)) {
    set_item(item_structure);
  } else if (value == simple_of(byte_structure_end)) {
    m_token.mark = Mark::structure_end;
  } else {
    set_malformed("an unused simple value");
  }
}

// Digits of a number without sign, after blanks; false when the token is set to what is wrong.
bool TextTokens::scan_count(std::uint64_t& count) {
  if (!m_scanner.skip_blanks()) return set_truncated(), false;
  m_characters.clear();
  while (is_digit(m_scanner.peek()) && m_characters.size() < longest_number) {
    m_characters.push_back(static_cast<char>(m_scanner.peek()));
    m_scanner.take();
  }
  if (m_characters.empty()) return set_unexpected("a number is missing"), false;
  if (m_characters.size() > 1 && m_characters[0] == '0') {
    return set_malformed("a number with a leading zero"), false;
  }
  const char* const end = m_characters.data() + m_characters.size();
  if (std::from_chars(m_characters.data(), end, count).ec != std::errc()) {
    return set_malformed("a number that is too large"), false;
  }
  return true;
}

// The eight bytes of a NaN that is not the plain one.
void TextTokens::find_float() {
  if (!m_scanner.take_if('\'')) return set_unexpected("an unknown word");
  std::uint64_t bits = 0;
  for (int i = 0; i < 16; ++i) {
    const int value = hex_value(m_scanner.peek());
    if (value < 0) return set_unexpected("not the 16 digits of a double");
    bits = bits << 4 | static_cast<unsigned>(value);
    m_scanner.take();
  }
  if (!m_scanner.take_if('\'')) return set_unexpected("not the 16 digits of a double");
  m_token.real = std::bit_cast<double>(bits);
  if (!std::isnan(m_token.real) || bits == plain_nan) {
    return set_malformed("a double that has a spelling of its own");
  }
  set_item(item_double);
}

void TextTokens::find_sequence() {
  if (!m_scanner.take_if('_')) return set_unexpected("an array of definite length");
  const int c = m_scanner.peek();
  if (is_digit(c) || is_letter(c)) return set_malformed("an encoding indicator");
  if (!scan_count(m_token.number)) return;
  const int behind = m_scanner.peek();
  if (behind == TextScanner::end) return set_truncated();
  if (behind == '.' || is_letter(behind) || behind == '(') {
    return set_malformed("a sequence without a count");
  }
  if (m_token.number == 1) return set_malformed("a sequence of one in the form for others");
  set_item(item_sequence);
}

void TextTokens::set_malformed(const char* reason) noexcept {
  m_token.mark = Mark::malformed;
  m_token.kind = item_none;
  m_token.reason = reason;
}

void TextTokens::set_unexpected(const char* reason) {
  m_scanner.peek() == TextScanner::end ? set_truncated() : set_malformed(reason);
}

void TextTokens::skip_blanks() {
  if (!m_scanner.skip_blanks()) throw_truncated();
}

void TextTokens::expect(char character, const char* reason) {
  if (!take_if(character)) throw_unexpected(reason);
}

bool TextTokens::take_if(char character) {
  skip_blanks();
  return m_scanner.take_if(character);
}

TextToken TextTokens::read_integer() {
  skip_blanks();
  m_token = {};
  m_token.at = m_scanner.position();
  const int c = m_scanner.peek();
  if (!is_digit(c) && c != '-') throw_unexpected("a number is missing");
  find_number();
  if (m_token.mark == Mark::truncated || m_scanner.peek() == TextScanner::end) throw_truncated();
  if (m_token.kind != item_integer) {
    throw_malformed(m_token.reason != nullptr ? m_token.reason : "not an integer", m_token.at);
  }
  return m_token;
}

void TextTokens::read_text(std::string& text, std::size_t limit) {
  const Position at = m_token.at;
  text.clear();
  for (;;) {
    const int c = m_scanner.peek();
    if (c == '"') break;
    if (c == '\\') {
      m_scanner.take();
      read_escape(text);
    } else if (c == TextScanner::end) {
      throw_truncated();
    } else if (c < 0x20) {
      throw_unexpected("a control character in a string");
    } else {
      text += m_scanner.take_plain();
    }
    if (text.size() > limit) {
      throw_reader_size(at, item_string, 0, limit, site("ovserialize::Reader::operator>>()"));
    }
  }
  m_scanner.take();
  if (!ovcore::is_utf8(text)) throw_malformed("text that is not UTF-8", at);
}

void TextTokens::read_escape(std::string& text) {
  constexpr std::string_view letters = "\"\\/bfnrt";
  constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
  const int c = m_scanner.peek();
  if (c == 'u') {
    m_scanner.take();
    std::uint32_t value = read_code_unit();
    if (value >= 0xdc00 && value < 0xe000) throw_unexpected("half of a surrogate pair");
    if (value >= 0xd800 && value < 0xdc00) {
      if (!m_scanner.take_if('\\') || !m_scanner.take_if('u')) {
        throw_unexpected("half of a surrogate pair");
      }
      const std::uint32_t low = read_code_unit();
      if (low < 0xdc00 || low >= 0xe000) throw_unexpected("half of a surrogate pair");
      value = 0x10000 + ((value - 0xd800) << 10) + (low - 0xdc00);
    }
    char bytes[4];
    text.append(bytes, ovcore::encode_utf8(value, bytes));
    return;
  }
  const std::size_t at = c == TextScanner::end ? letters.npos : letters.find(static_cast<char>(c));
  if (at == letters.npos) throw_unexpected("an unknown escape");
  m_scanner.take();
  text.push_back(meanings[at]);
}

unsigned TextTokens::read_code_unit() {
  unsigned value = 0;
  for (int i = 0; i < 4; ++i) {
    const int digit = hex_value(m_scanner.peek());
    if (digit < 0) throw_unexpected("not the four digits of an escape");
    value = value << 4 | static_cast<unsigned>(digit);
    m_scanner.take();
  }
  return value;
}

void TextTokens::read_hex(std::string& bytes, std::size_t limit, int kind) {
  const Position at = m_token.at;
  bytes.clear();
  int high = -1;
  for (;;) {
    skip_blanks();
    const int c = m_scanner.peek();
    const int value = hex_value(c);
    if (value < 0) break;
    m_scanner.take();
    if (high < 0) {
      high = value;
      continue;
    }
    if (bytes.size() == limit) {
      throw_reader_size(at, kind, 0, limit,
                        site(kind == item_binary ? "ovserialize::Reader::read_binary()"
                                                 : "ovserialize::Reader::operator>>()"));
    }
    bytes.push_back(static_cast<char>(high << 4 | value));
    high = -1;
  }
  if (high >= 0) throw_unexpected("an odd number of hexadecimal digits");
  if (!m_scanner.take_if('\'')) throw_unexpected("not a hexadecimal digit");
}

void TextTokens::read_block(std::string& bytes, std::size_t limit, int kind) {
  skip_blanks();
  if (!m_scanner.take_if('h') || !m_scanner.take_if('\'')) {
    throw_unexpected("not a byte string behind its tag");
  }
  read_hex(bytes, limit, kind);
}

void TextTokens::throw_malformed(const char* reason, const Position& at) const {
  impl::throw_malformed(at, reason, site("ovserialize::TextReader::throw_malformed()"));
}

void TextTokens::throw_truncated() const {
  impl::throw_truncated(m_scanner.position(), site("ovserialize::TextReader::throw_truncated()"));
}

void TextTokens::throw_unexpected(const char* reason) {
  if (m_scanner.peek() == TextScanner::end) throw_truncated();
  throw_malformed(reason, m_scanner.position());
}

}  // namespace ovserialize::impl
