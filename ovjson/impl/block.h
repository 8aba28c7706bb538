// SPDX-License-Identifier: Apache-2.0
// Looking at text a block at a time: sixteen bytes where the processor surely has SSE2, else eight.
//
// A search yields what was found in the block: 0 for nothing, else `first_found` tells where.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace ovjson::impl {

/// A word with a byte in each place; for words of any size.
template <class Word>
constexpr Word every_byte(unsigned char c) noexcept {
  return static_cast<Word>(static_cast<Word>(~Word{0}) / 0xff * c);
}

/// Flags (top bits) for quotation marks, backslashes, control characters below 0x20, and bytes that
/// are not ASCII. False ones may stand above the lowest.
template <class Word>
constexpr Word special_bytes(Word word) noexcept {
  return (word | (word - every_byte<Word>(0x20)) |
          ((word ^ every_byte<Word>('"')) - every_byte<Word>(1)) |
          ((word ^ every_byte<Word>('\\')) - every_byte<Word>(1))) &
         every_byte<Word>(0x80);
}

#ifdef __SSE2__

inline constexpr std::size_t block_size = 16;
using Found = unsigned;

inline __m128i load_block(const char* p) noexcept {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

inline Found bytes_of(__m128i flags) noexcept {
  return static_cast<Found>(_mm_movemask_epi8(flags));
}

/// The index of the first byte found.
inline std::size_t first_found(Found found) noexcept {
  return static_cast<std::size_t>(std::countr_zero(found));
}

/// Quotation mark, backslash, control characters below 0x20, and every byte that is not ASCII.
inline Found find_special(const char* p) noexcept {
  const __m128i block = load_block(p);
  const __m128i mark = _mm_cmpeq_epi8(block, _mm_set1_epi8('"'));
  const __m128i backslash = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
  const __m128i below = _mm_cmplt_epi8(block, _mm_set1_epi8(0x20));  // signed: not ASCII is below
  return bytes_of(_mm_or_si128(_mm_or_si128(mark, backslash), below));
}

/// Quotation mark, backslash, control characters below 0x20.
inline Found find_escaped(const char* p) noexcept {
  const __m128i block = load_block(p);
  const __m128i mark = _mm_cmpeq_epi8(block, _mm_set1_epi8('"'));
  const __m128i backslash = _mm_cmpeq_epi8(block, _mm_set1_epi8('\\'));
  const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(block, _mm_set1_epi8(0x1f)), block);
  return bytes_of(_mm_or_si128(_mm_or_si128(mark, backslash), control));
}

/// All but blanks.
inline Found find_other_than_blank(const char* p) noexcept {
  return bytes_of(_mm_cmpeq_epi8(load_block(p), _mm_set1_epi8(' '))) ^ 0xffff;
}

#else

inline constexpr std::size_t block_size = 8;
using Found = std::uint64_t;  // the top bits of bytes; false ones may stand behind the first

inline Found load_block(const char* p) noexcept {
  Found block;
  std::memcpy(&block, p, sizeof block);
  if constexpr (std::endian::native == std::endian::big) block = __builtin_bswap64(block);
  return block;
}

inline std::size_t first_found(Found found) noexcept {
  return static_cast<std::size_t>(std::countr_zero(found)) / 8;
}

inline Found find_special(const char* p) noexcept {
  return special_bytes(load_block(p));
}

inline Found find_escaped(const char* p) noexcept {
  const Found block = load_block(p);
  return ((block - every_byte<Found>(0x20)) |
          ((block ^ every_byte<Found>('"')) - every_byte<Found>(1)) |
          ((block ^ every_byte<Found>('\\')) - every_byte<Found>(1))) &
         ~block & every_byte<Found>(0x80);
}

inline Found find_other_than_blank(const char* p) noexcept {
  return load_block(p) ^ every_byte<Found>(' ');
}

#endif

/// One word from either end, which may overlap.
template <class Word>
bool copy_two_words(char* to, const char* from, std::size_t size) noexcept {
  Word first;
  Word last;
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&last, from + size - sizeof last, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + size - sizeof last, &last, sizeof last);
  return (special_bytes(first) | special_bytes(last)) == 0;
}

/// Copies text, looking at nothing behind it, unless a byte of it is special: then false, and some
/// of it may be copied.
[[gnu::always_inline]] inline bool copy_plain(char* to, const char* from,
                                              std::size_t size) noexcept {
  if (size >= block_size) {
    const std::size_t last = size - block_size;
    for (std::size_t i = 0; i < last; i += block_size) {
      if (find_special(from + i) != 0) return false;
      std::memcpy(to + i, from + i, block_size);
    }
    std::memcpy(to + last, from + last, block_size);
    return find_special(from + last) == 0;
  }
  if (size >= 8) return copy_two_words<std::uint64_t>(to, from, size);
  if (size >= 4) return copy_two_words<std::uint32_t>(to, from, size);
  if (size == 0) return true;
  // One to three: the first, the middle and the last, which may be the same.
  const auto first = static_cast<unsigned char>(from[0]);
  const auto middle = static_cast<unsigned char>(from[size / 2]);
  const auto last = static_cast<unsigned char>(from[size - 1]);
  to[0] = from[0];
  to[size / 2] = from[size / 2];
  to[size - 1] = from[size - 1];
  return special_bytes<std::uint32_t>(0x61000000u | first << 16 | middle << 8 | last) == 0;
}

}  // namespace ovjson::impl
