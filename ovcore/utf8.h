// SPDX-License-Identifier: Apache-2.0
// UTF-8. Well-formed is what RFC 3629 and table 3-7 of the Unicode Standard say: no overlong forms,
// no surrogates, nothing above U+10FFFF.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "ovcore/export.h"

namespace ovcore {

/// True when no byte is above 0x7f.
[[nodiscard]] inline bool is_ascii(std::string_view text) noexcept {
  const auto load = [](auto& word, const char* from) { std::memcpy(&word, from, sizeof word); };
  const char* p = text.data();
  std::size_t left = text.size();
  if (left >= 8) {
    std::uint64_t seen;
    std::uint64_t word;
    load(seen, p + left - 8);
    for (; left > 8; p += 8, left -= 8) {
      load(word, p);
      seen |= word;
    }
    return (seen & 0x8080808080808080) == 0;
  }
  if (left >= 4) {
    std::uint32_t first;
    std::uint32_t last;
    load(first, p);
    load(last, p + left - 4);
    return ((first | last) & 0x80808080) == 0;
  }
  if (left == 0) return true;
  return ((p[0] | p[left / 2] | p[left - 1]) & 0x80) == 0;
}

/// The number of bytes up to the first that is not part of a well-formed character; all of them
/// when the text is UTF-8.
[[nodiscard]] OV_EXPORT std::size_t utf8_prefix(std::string_view text) noexcept;

[[nodiscard]] inline bool is_utf8(std::string_view text) noexcept {
  return is_ascii(text) || utf8_prefix(text) == text.size();
}

/// Bytes in the sequence that a lead byte announces; 0 when it leads none (ASCII included).
constexpr std::size_t utf8_length(unsigned char lead) noexcept {
  if (lead < 0xc2) return 0;
  if (lead < 0xe0) return 2;
  if (lead < 0xf0) return 3;
  return lead < 0xf5 ? 4 : 0;
}

/// Whether `c` may stand at `index` (1 to 3) of a sequence that begins with `lead`.
constexpr bool utf8_continues(unsigned char lead, std::size_t index, unsigned char c) noexcept {
  if ((c & 0xc0) != 0x80) return false;
  if (index > 1) return true;
  switch (lead) {
    case 0xe0:
      return c >= 0xa0;
    case 0xed:
      return c < 0xa0;
    case 0xf0:
      return c >= 0x90;
    case 0xf4:
      return c < 0x90;
    default:
      return true;
  }
}

/// What stands at the front of a text: a whole sequence, one that the end of the text cuts off, or
/// an ill-formed one, then with the size of what U+FFFD replaces.
struct Utf8Sequence {
  enum class State { whole, cut, ill_formed };
  State state;
  std::size_t size;
};

/// `text` is not empty and does not begin with ASCII.
inline Utf8Sequence first_utf8_sequence(std::string_view text) noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = utf8_length(lead);
  if (length == 0) return {Utf8Sequence::State::ill_formed, 1};
  for (std::size_t i = 1; i < length; ++i) {
    if (i == text.size()) return {Utf8Sequence::State::cut, i};
    if (!utf8_continues(lead, i, static_cast<unsigned char>(text[i]))) {
      return {Utf8Sequence::State::ill_formed, i};
    }
  }
  return {Utf8Sequence::State::whole, length};
}

/// Writes the one to four bytes of a code point that is no surrogate; returns how many.
inline std::size_t encode_utf8(std::uint32_t code_point, char* to) noexcept {
  const auto tail = [code_point](int shift) {
    return static_cast<char>(0x80 | (code_point >> shift & 0x3f));
  };
  if (code_point < 0x80) {
    to[0] = static_cast<char>(code_point);
    return 1;
  }
  if (code_point < 0x800) {
    to[0] = static_cast<char>(0xc0 | code_point >> 6);
    to[1] = tail(0);
    return 2;
  }
  if (code_point < 0x10000) {
    to[0] = static_cast<char>(0xe0 | code_point >> 12);
    to[1] = tail(6);
    to[2] = tail(0);
    return 3;
  }
  to[0] = static_cast<char>(0xf0 | code_point >> 18);
  to[1] = tail(12);
  to[2] = tail(6);
  to[3] = tail(0);
  return 4;
}

}  // namespace ovcore
