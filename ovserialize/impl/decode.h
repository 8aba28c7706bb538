// SPDX-License-Identifier: Apache-2.0
// What bytes of the binary form mean. docs/format.md is the authority.
#pragma once

#include <array>
#include <cstdint>

#include "ovserialize/impl/format.h"
#include "ovserialize/item_kind.h"

namespace ovserialize::impl {

// Initial bytes whose kind depends on what follows.
inline constexpr std::uint8_t kind_of_simple = 254;
inline constexpr std::uint8_t kind_of_tag = 255;

/// The kinds that initial bytes begin.
constexpr std::array<std::uint8_t, 256> make_kinds() {
  std::array<std::uint8_t, 256> kinds{};
  for (unsigned i = 0; i < 28; ++i) {
    kinds[major_positive | i] = kinds[major_negative | i] = item_integer;
    kinds[major_bytes | i] = item_binary;
    kinds[major_text | i] = item_string;
    kinds[major_tag | i] = kind_of_tag;
  }
  for (unsigned i = 0; i < unsigned_tiny_end; ++i)
    kinds[byte_unsigned_tiny | i] = item_unsigned;
  kinds[byte_unsigned] = kind_of_simple;
  kinds[byte_sequence] = kinds[byte_sequence_of_one] = item_sequence;
  kinds[byte_structure] = item_structure;
  kinds[byte_false] = kinds[byte_true] = item_boolean;
  kinds[byte_null] = item_null;
  kinds[byte_half] = kinds[byte_single] = kinds[byte_double] = item_double;
  return kinds;
}
inline constexpr std::array<std::uint8_t, 256> kinds = make_kinds();

/// The kind of what stands behind a tag; `item_none` for an unknown one.
inline int kind_of(std::uint64_t tag) noexcept {
  switch (tag) {
    case tag_unsigned:
      return item_unsigned;
    case tag_string:
      return item_string;
    case tag_uuid:
      return item_uuid;
    case tag_absolute_time:
      return item_absolute_time;
    case tag_relative_time:
      return item_relative_time;
    default:
      return item_none;
  }
}

/// Why no item begins with this byte, which is no end mark either.
[[nodiscard]] const char* reason_against(unsigned char initial) noexcept;

/// The value of a 16-bit float (5 bits of exponent, 10 of fraction) or a 32-bit one (8 and 23). A
/// number that is none keeps sign and payload.
[[nodiscard]] double widen(std::uint64_t bits, unsigned exponent_bits,
                           unsigned fraction_bits) noexcept;

}  // namespace ovserialize::impl
