// SPDX-License-Identifier: Apache-2.0
// UTF-8 character by character, for text that comes in pieces. Well-formed is what RFC 3629 and
// table 3-7 of the Unicode Standard say: no overlong forms, no surrogates, nothing above U+10FFFF.
// Whole texts are checked by ovcore/utf8.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace ovjson::impl {

/// Bytes in the sequence that a lead byte announces; 0 when it leads none (ASCII included).
constexpr std::size_t sequence_length(unsigned char lead) noexcept {
  if (lead < 0xc2) return 0;
  if (lead < 0xe0) return 2;
  if (lead < 0xf0) return 3;
  return lead < 0xf5 ? 4 : 0;
}

/// Whether `c` may stand at `index` (1 to 3) of a sequence that begins with `lead`.
constexpr bool continues(unsigned char lead, std::size_t index, unsigned char c) noexcept {
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
struct Sequence {
  enum class State { whole, cut, ill_formed };
  State state;
  std::size_t size;
};

/// `text` is not empty and does not begin with ASCII.
inline Sequence first_sequence(std::string_view text) noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = sequence_length(lead);
  if (length == 0) return {Sequence::State::ill_formed, 1};
  for (std::size_t i = 1; i < length; ++i) {
    if (i == text.size()) return {Sequence::State::cut, i};
    if (!continues(lead, i, static_cast<unsigned char>(text[i]))) {
      return {Sequence::State::ill_formed, i};
    }
  }
  return {Sequence::State::whole, length};
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

}  // namespace ovjson::impl
