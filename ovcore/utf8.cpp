// SPDX-License-Identifier: Apache-2.0
#include "ovcore/utf8.h"

namespace ovcore {
namespace {

/// Bytes of the well-formed character of two to four bytes at `p`, 0 when there is none; the table
/// of RFC 3629, section 4.
std::size_t multibyte_size(const unsigned char* p, std::size_t left) noexcept {
  const auto tail = [p](std::size_t i) { return (p[i] & 0xc0) == 0x80; };
  const unsigned char first = p[0];
  if (first < 0xc2 || first > 0xf4) return 0;
  if (left < 2 || !tail(1)) return 0;
  if (first < 0xe0) return 2;
  const unsigned char second = p[1];
  if (left < 3 || !tail(2)) return 0;
  if (first < 0xf0) {
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
    return 3;
  }
  if (left < 4 || !tail(3)) return 0;
  if ((first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
  return 4;
}

}  // namespace

std::size_t utf8_prefix(std::string_view text) noexcept {
  const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
  const unsigned char* const end = begin + text.size();
  const unsigned char* p = begin;
  while (p < end) {
    const auto left = static_cast<std::size_t>(end - p);
    if (left >= 8 && is_ascii({reinterpret_cast<const char*>(p), 8})) {
      p += 8;
    } else if (*p < 0x80) {
      ++p;
    } else if (const std::size_t size = multibyte_size(p, left); size > 0) {
      p += size;
    } else {
      break;
    }
  }
  return static_cast<std::size_t>(p - begin);
}

}  // namespace ovcore
