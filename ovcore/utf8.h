// SPDX-License-Identifier: Apache-2.0
// Checking text for UTF-8.
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

/// The number of bytes up to the first that is not part of a well-formed character (RFC 3629): no
/// surrogates, no overlong forms, nothing above U+10FFFF; all of them when the text is UTF-8.
[[nodiscard]] OV_EXPORT std::size_t utf8_prefix(std::string_view text) noexcept;

[[nodiscard]] inline bool is_utf8(std::string_view text) noexcept {
  return is_ascii(text) || utf8_prefix(text) == text.size();
}

}  // namespace ovcore
