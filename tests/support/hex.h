// SPDX-License-Identifier: Apache-2.0
// Bytes as hexadecimal text.
#pragma once

#include <string>
#include <string_view>

namespace ovtest {

inline std::string to_hex(std::string_view bytes) {
  std::string hex;
  for (const char c : bytes) {
    hex.push_back("0123456789abcdef"[c >> 4 & 15]);
    hex.push_back("0123456789abcdef"[c & 15]);
  }
  return hex;
}

inline std::string without_blanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

/// Blanks between digits mean nothing.
inline std::string from_hex(std::string_view text) {
  const std::string digits = without_blanks(std::string(text));
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  return bytes;
}

}  // namespace ovtest
