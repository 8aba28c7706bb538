// SPDX-License-Identifier: Apache-2.0
// Item streams as hexadecimal text, for tests that pin bytes.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>

#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "tests/support/hex.h"

namespace ovattribute {

using ovtest::from_hex;
using ovtest::to_hex;
using ovtest::without_blanks;

inline std::string text_of(const ovserialize::MemoryList& list) {
  std::string bytes(list.size(), '\0');
  list.copy_to(bytes.data(), 0, bytes.size());
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
