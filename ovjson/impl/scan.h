// SPDX-License-Identifier: Apache-2.0
// Finding where tokens begin and end. The text is followed by a block of zeros, which stop every
// search: none of these looks for the end.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "ovcore/utf8.h"
#include "ovjson/impl/block.h"
#include "ovjson/impl/number.h"
#include "ovjson/tokenizer.h"

namespace ovjson::impl {

enum CharClass : unsigned char {
  class_other,
  class_punctuator,
  class_quote,
  class_number,  // what a number begins with
  class_word,    // what an identifier or a literal begins with
};

inline constexpr auto class_of = [] {
  std::array<CharClass, 256> table{};
  for (const char c : std::string_view("{}[]:,"))
    table[static_cast<unsigned char>(c)] = class_punctuator;
  table['"'] = class_quote;
  table['-'] = class_number;
  for (unsigned c = '0'; c <= '9'; ++c)
    table[c] = class_number;
  for (unsigned c = 'a'; c <= 'z'; ++c)
    table[c] = table[c - 'a' + 'A'] = class_word;
  table['_'] = table['$'] = class_word;
  return table;
}();

inline bool is_word(char c) noexcept {
  return class_of[static_cast<unsigned char>(c)] == class_word || is_digit(c);
}

/// What may be meant as part of a number; which order is right is checked afterwards.
inline bool is_number(char c) noexcept {
  return is_digit(c) || c == '.' || c == '-' || c == '+' || (c | 0x20) == 'e';
}

template <bool (*Belongs)(char)>
const char* skip(const char* p) noexcept {
  while (Belongs(*p))
    ++p;
  return p;
}

inline Token literal_token(std::string_view word) noexcept {
  if (word == "true") return Token::literal_true;
  if (word == "false") return Token::literal_false;
  if (word == "null") return Token::literal_null;
  return Token::unknown;
}

inline bool begins_literal(std::string_view word) noexcept {
  for (const std::string_view literal : {"true", "false", "null"}) {
    if (literal.starts_with(word)) return true;
  }
  return false;
}

/// Behind the whole sequences at `p`.
inline const char* skip_not_ascii(const char* p, const char* end) noexcept {
  while (static_cast<unsigned char>(*p) >= 0x80) {
    const ovcore::Utf8Sequence s =
        ovcore::first_utf8_sequence({p, static_cast<std::size_t>(end - p)});
    if (s.state != ovcore::Utf8Sequence::State::whole) break;
    p += s.size;
  }
  return p;
}

/// Stops at a quotation mark, a backslash, a control character, or a sequence that is not whole.
inline const char* plain_end(const char* p, const char* end) noexcept {
  for (;;) {
    Found special;
    while ((special = find_special(p)) == 0)
      p += block_size;
    p += first_found(special);
    if (static_cast<unsigned char>(*p) < 0x80) [[likely]]
      return p;
    const char* const behind = skip_not_ascii(p, end);
    if (static_cast<unsigned char>(*behind) >= 0x80) return behind;
    p = behind;
  }
}

}  // namespace ovjson::impl
