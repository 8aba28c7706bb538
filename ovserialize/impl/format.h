// SPDX-License-Identifier: Apache-2.0
// The constants of the binary form, and its heads. docs/format.md is the authority.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ovserialize::impl {

// Initial bytes that are whole items or marks.
constexpr unsigned char byte_false = 0xf4;
constexpr unsigned char byte_true = 0xf5;
constexpr unsigned char byte_null = 0xf6;
constexpr unsigned char byte_half = 0xf9;
constexpr unsigned char byte_single = 0xfa;
constexpr unsigned char byte_double = 0xfb;
constexpr unsigned char byte_sequence = 0x9f;
constexpr unsigned char byte_sequence_end = 0xff;
constexpr unsigned char byte_sequence_of_one = 0xf0;
constexpr unsigned char byte_structure = 0xf1;
constexpr unsigned char byte_structure_end = 0xf2;
// Unsigned items: 0..15 in one byte, 16..239 in the byte after `byte_unsigned`.
constexpr unsigned char byte_unsigned_tiny = 0xe0;
constexpr unsigned char byte_unsigned = 0xf8;
constexpr unsigned char simple_two_bytes = 32;  // simple values below have one byte
constexpr std::uint64_t unsigned_tiny_end = 16;
constexpr std::uint64_t unsigned_tagged_from = 240;
constexpr unsigned char unsigned_bias = 16;  // simple value minus unsigned item

/// The simple value that is the item or mark of one byte.
constexpr unsigned simple_of(unsigned char byte) {
  return byte - unsigned{byte_unsigned_tiny};
}

// Major types, as the upper bits of an initial byte.
constexpr unsigned char major_positive = 0x00;
constexpr unsigned char major_negative = 0x20;
constexpr unsigned char major_bytes = 0x40;
constexpr unsigned char major_text = 0x60;
constexpr unsigned char major_map = 0xa0;
constexpr unsigned char major_tag = 0xc0;
constexpr unsigned char major_mask = 0xe0;
constexpr unsigned char info_mask = 0x1f;

constexpr std::uint64_t tag_uuid = 37;             // RFC 9562 over 16 bytes, by registration
constexpr std::uint64_t tag_absolute_time = 1001;  // RFC 9581
constexpr std::uint64_t tag_relative_time = 1002;  // RFC 9581
constexpr std::uint64_t tag_unsigned = 38217;      // private: an unsigned item from 240
constexpr std::uint64_t tag_string = 38218;        // private: a string that is not UTF-8
constexpr unsigned char key_seconds = 0x01;        // the key 1 of a time's map
constexpr unsigned char key_microseconds = 0x25;   // the key -6

/// The NaN that the text form calls "NaN"; any other is shown by its bits.
constexpr std::uint64_t plain_nan = 0x7ff8000000000000;

/// Arguments below this stand in the initial byte.
constexpr std::uint64_t inline_end = 24;

/// Longest head, and longest item that is written in one go (a time: 3 + 1 + 1 + 9 + 1 + 5).
constexpr std::size_t max_head = 9;
constexpr std::size_t max_item = 24;

/// From or to the order of the network; the compilers make no single instruction of a loop.
template <class U>
constexpr U big_endian(U value) noexcept {
  if constexpr (std::endian::native == std::endian::big || sizeof value == 1) return value;
  if constexpr (sizeof value == 2) return __builtin_bswap16(value);
  if constexpr (sizeof value == 4) return __builtin_bswap32(value);
  if constexpr (sizeof value == 8) return __builtin_bswap64(value);
}

template <class U>
inline unsigned char* store_big(unsigned char* out, U value) noexcept {
  value = big_endian(value);
  std::memcpy(out, &value, sizeof value);
  return out + sizeof value;
}

template <class U>
inline U load_big(const unsigned char* in) noexcept {
  U value;
  std::memcpy(&value, in, sizeof value);
  return big_endian(value);
}

/// Copies up to 32 bytes without a call.
inline void copy_short(unsigned char* out, const void* from, std::size_t size) noexcept {
  const auto* in = static_cast<const unsigned char*>(from);
  const auto two = [=](auto word) {
    auto last = word;
    std::memcpy(&word, in, sizeof word);
    std::memcpy(&last, in + size - sizeof last, sizeof last);
    std::memcpy(out, &word, sizeof word);
    std::memcpy(out + size - sizeof last, &last, sizeof last);
  };
  struct Word16 {
    unsigned char bytes[16];
  };
  if (size >= 16) {
    two(Word16{});
  } else if (size >= 8) {
    two(std::uint64_t{0});
  } else if (size >= 4) {
    two(std::uint32_t{0});
  } else if (size > 0) {
    const unsigned char middle = in[size / 2];
    const unsigned char last = in[size - 1];
    out[0] = in[0];
    out[size / 2] = middle;
    out[size - 1] = last;
  }
}

/// Whether two blocks of up to 32 bytes are the same, without a call.
inline bool equal_short(const void* a, const void* b, std::size_t size) noexcept {
  const auto* x = static_cast<const unsigned char*>(a);
  const auto* y = static_cast<const unsigned char*>(b);
  const auto differ = [=](auto word, std::size_t at) {
    auto other = word;
    std::memcpy(&word, x + at, sizeof word);
    std::memcpy(&other, y + at, sizeof other);
    return word ^ other;
  };
  if (size >= 8) {
    std::uint64_t different = differ(std::uint64_t{0}, size - 8);
    for (std::size_t at = 0; at + 8 < size; at += 8)
      different |= differ(std::uint64_t{0}, at);
    return different == 0;
  }
  if (size >= 4) {
    return (differ(std::uint32_t{0}, 0) | differ(std::uint32_t{0}, size - 4)) == 0;
  }
  return size == 0 ||
         ((x[0] ^ y[0]) | (x[size / 2] ^ y[size / 2]) | (x[size - 1] ^ y[size - 1])) == 0;
}

/// Writes the shortest head of a major type and its argument; returns its end.
inline unsigned char* store_head(unsigned char* out, unsigned char major,
                                 std::uint64_t value) noexcept {
  if (value < 24) {
    *out = static_cast<unsigned char>(major | value);
    return out + 1;
  }
  if (value <= 0xff) {
    *out = major | 24;
    return store_big(out + 1, static_cast<std::uint8_t>(value));
  }
  if (value <= 0xffff) {
    *out = major | 25;
    return store_big(out + 1, static_cast<std::uint16_t>(value));
  }
  if (value <= 0xffffffff) {
    *out = major | 26;
    return store_big(out + 1, static_cast<std::uint32_t>(value));
  }
  *out = major | 27;
  return store_big(out + 1, value);
}

/// A signed integer: major type 1 holds -1 - value.
inline unsigned char* store_integer(unsigned char* out, std::int64_t value) noexcept {
  const auto sign = static_cast<std::uint64_t>(value >> 63);
  return store_head(out, static_cast<unsigned char>(sign & major_negative),
                    static_cast<std::uint64_t>(value) ^ sign);
}

/// Bytes of the head that begins with this byte; 0 for the reserved and indefinite ones.
inline std::size_t head_size(unsigned char initial) noexcept {
  const unsigned info = initial & info_mask;
  if (info < 24) return 1;
  return info < 28 ? 1 + (std::size_t{1} << (info - 24)) : 0;
}

/// The argument of a complete head whose `head_size` is not 0.
inline std::uint64_t load_argument(const unsigned char* head) noexcept {
  const unsigned info = head[0] & info_mask;
  if (info < 24) return info;
  switch (info) {
    case 24:
      return head[1];
    case 25:
      return load_big<std::uint16_t>(head + 1);
    case 26:
      return load_big<std::uint32_t>(head + 1);
    default:
      return load_big<std::uint64_t>(head + 1);
  }
}

}  // namespace ovserialize::impl
