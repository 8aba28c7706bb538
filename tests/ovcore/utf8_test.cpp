// SPDX-License-Identifier: Apache-2.0
#include "ovcore/utf8.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace ovcore {
namespace {

// RFC 3629 section 3, for any number of up to 21 bits, allowed or not.
std::string encoded(std::uint32_t c, int size) {
  if (size == 1) return {static_cast<char>(c)};
  std::string bytes;
  for (; size > 1; --size, c >>= 6)
    bytes.insert(bytes.begin(), static_cast<char>(0x80 | (c & 0x3f)));
  const int lead = static_cast<int>(0xf00 >> (bytes.size() + 1)) & 0xff;
  bytes.insert(bytes.begin(), static_cast<char>(lead | static_cast<int>(c)));
  return bytes;
}

TEST(Utf8, EveryNumberInItsShortestFormUnlessItIsNoCharacter) {
  for (std::uint32_t c = 0; c < 0x140000; ++c) {
    const int shortest = c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    const bool character = c < 0xd800 || (c >= 0xe000 && c < 0x110000);
    for (int size = shortest; size <= 4; ++size) {
      const bool valid = character && size == shortest;
      const std::string bytes = encoded(c, size);
      ASSERT_EQ(utf8_prefix(bytes) == bytes.size(), valid) << c << " in " << size;
      if (valid && size > 1) {
        ASSERT_EQ(utf8_prefix(bytes.substr(0, bytes.size() - 1)), 0u) << c;
      }
    }
  }
}

TEST(Utf8, FirstMistakeIsFoundAtEveryPlace) {
  for (std::size_t size = 1; size < 40; ++size) {
    for (std::size_t at = 0; at < size; ++at) {
      std::string text(size, 'a');
      EXPECT_TRUE(is_ascii(text));
      text[at] = '\x80';
      EXPECT_EQ(utf8_prefix(text), at);
      EXPECT_FALSE(is_ascii(text));
      EXPECT_FALSE(is_utf8(text));
      if (at + 1 == size) continue;
      text[at] = '\xc3';
      text[at + 1] = '\xa4';
      EXPECT_TRUE(is_utf8(text));
      EXPECT_FALSE(is_ascii(text));
    }
  }
  EXPECT_TRUE(is_utf8(""));
}

}  // namespace
}  // namespace ovcore
