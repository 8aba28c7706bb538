// SPDX-License-Identifier: Apache-2.0
// Looking at text eight bytes at a time, in portable C++.
//
// A search yields flags: the top bit of each byte that was found. Flags are exact up to the first
// one set; those behind it may be false.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace ovjson::impl {

constexpr std::uint64_t every_byte(unsigned char c) noexcept {
  return 0x0101010101010101u * c;
}
inline constexpr std::uint64_t top_bits = every_byte(0x80);

/// The eight bytes at `p`, the first one in the lowest place.
inline std::uint64_t load_word(const char* p) noexcept {
  std::uint64_t word;
  std::memcpy(&word, p, sizeof word);
  if constexpr (std::endian::native == std::endian::big) word = __builtin_bswap64(word);
  return word;
}

/// The index of the first byte that is not zero; `word` is not zero.
inline int first_byte(std::uint64_t word) noexcept {
  return std::countr_zero(word) / 8;
}

/// Quotation mark, backslash, control characters below 0x20.
inline std::uint64_t find_escaped(std::uint64_t word) noexcept {
  return ((word - every_byte(0x20)) | ((word ^ every_byte('"')) - every_byte(1)) |
          ((word ^ every_byte('\\')) - every_byte(1))) &
         ~word & top_bits;
}

/// Those, and every byte that is not ASCII.
inline std::uint64_t find_special(std::uint64_t word) noexcept {
  return (word | (word - every_byte(0x20)) | ((word ^ every_byte('"')) - every_byte(1)) |
          ((word ^ every_byte('\\')) - every_byte(1))) &
         top_bits;
}

}  // namespace ovjson::impl
