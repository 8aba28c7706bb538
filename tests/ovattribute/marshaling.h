// SPDX-License-Identifier: Apache-2.0
// Item streams as hexadecimal text, for tests that pin bytes.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>

#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

namespace ovattribute {

inline std::string to_hex(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string result;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    result += {digits[byte >> 4], digits[byte & 15]};
  }
  return result;
}

/// Blanks between digits mean nothing.
inline std::string from_hex(std::string_view text) {
  std::string digits(text);
  std::erase(digits, ' ');
  std::string result;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    result += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return result;
}

inline std::string without_blanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

inline std::string text_of(const ovserialize::MemoryList& list) {
  std::string bytes;
  list.for_each_span([&bytes](std::span<const unsigned char> span) {
    bytes.append(reinterpret_cast<const char*>(span.data()), span.size());
  });
  return bytes;
}

/// The bytes that `write(writer)` writes.
template <class F>
std::string bytes_of(F&& write) {
  ovserialize::MemoryWriter writer;
  write(writer);
  return text_of(*writer.detach());
}

/// What `read(reader)` makes of all the bytes.
template <class F>
auto read_from(std::string_view bytes, F&& read) {
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  auto result = read(reader);
  EXPECT_TRUE(reader.at_end());
  return result;
}

}  // namespace ovattribute
