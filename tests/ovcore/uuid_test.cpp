// SPDX-License-Identifier: Apache-2.0
#include "ovcore/uuid.h"

#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include "ovcore/error_codes.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovcore {
namespace {

constexpr const char* sample = "00112233-4455-6677-8899-aabbccddeeff";
constexpr Uuid::BinaryData sample_bytes = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                                           0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
static_assert(std::is_trivially_copyable_v<Uuid> && sizeof(Uuid) == 16);

TEST(Uuid, TextShowsTheBytesInOrder) {
  const Uuid uuid(sample_bytes);
  EXPECT_EQ(uuid.as_string(0), sample);
  EXPECT_EQ(uuid.as_string(1), sample);
  EXPECT_EQ(uuid.text().view(), sample);
  std::ostringstream out;
  out << uuid;
  EXPECT_EQ(out.str(), sample);
  EXPECT_EQ(Uuid::parse(sample).data(), sample_bytes);
  EXPECT_EQ(Uuid::parse("00112233-4455-6677-8899-AABBCCDDEEFF"), uuid);
}

TEST(Uuid, TheDefaultIsNil) {
  EXPECT_TRUE(Uuid().is_nil());
  EXPECT_EQ(Uuid().as_string(), "00000000-0000-0000-0000-000000000000");
  Uuid uuid(sample_bytes);
  EXPECT_FALSE(uuid.empty());
  uuid.clear();
  EXPECT_EQ(uuid, Uuid());
}

TEST(Uuid, BadTextIsRefusedAtItsFirstMistake) {
  struct Case {
    std::string text;
    std::size_t position;
  };
  const std::string good = sample;
  std::vector<Case> cases = {
      {"", 0},
      {"{" + good + "}", 0},
      {" " + good, 0},
      {good + " ", 36},
      {good + std::string(1, '\0'), 36},
      {"urn:uuid:" + good, 0},
      {"00112233445566778899aabbccddeeff", 8},
      {"0011223-34455-6677-8899-aabbccddeeff", 7},
      {"00112233-4455-6677-8899-aabbccddeefg", 35},
      {"00112233-4455-6677-8899-aabbccddee\xc3\xa9", 34},
  };
  for (std::size_t size = 0; size < good.size(); ++size)
    cases.push_back({good.substr(0, size), size});
  // Around the ranges of digits, and both kinds of places.
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (const char bad : {'/', ':', '@', 'G', '`', 'g', '\0', good[at] == '-' ? '0' : '-'}) {
      cases.push_back({good, at});
      cases.back().text[at] = bad;
    }
  }
  for (const Case& c : cases) {
    EXPECT_FALSE(Uuid::try_parse(c.text).has_value()) << c.text;
    EXPECT_ERROR(Uuid::parse(c.text), error::ovcore_uuid_syntax,
                 "Malformed UUID '" + c.text + "' at position " + std::to_string(c.position),
                 {"ovcore/uuid", "ovcore::Uuid::parse()", 0});
  }
  // Of a long text the beginning, up to the end of a character.
  std::string start = "x";
  while (start.size() < 63)
    start += 'x';
  EXPECT_ERROR(Uuid::parse(start + "\xc3\xa9 and more"), error::ovcore_uuid_syntax,
               "Malformed UUID '" + start + "' at position 0");
}

TEST(Uuid, OrdersByteByByte) {
  Uuid::BinaryData top{};
  top[0] = 0x80;
  Uuid::BinaryData last{};
  last[15] = 0xFF;
  EXPECT_LT(Uuid(), Uuid(last));
  EXPECT_LT(Uuid(last), Uuid(top));
  EXPECT_GT(Uuid(top), Uuid(sample_bytes));
}

TEST(Uuid, HashDependsOnEveryByte) {
  std::unordered_set<std::size_t> hashes = {Uuid().hash()};
  for (std::size_t at = 0; at < 16; ++at) {
    for (const std::uint8_t value : {1, 2, 128, 255}) {
      Uuid::BinaryData data{};
      data[at] = value;
      hashes.insert(std::hash<Uuid>()(Uuid(data)));
    }
  }
  EXPECT_EQ(hashes.size(), 65u);
}

TEST(Uuid, GeneratesRandomOnes) {
  std::set<Uuid> seen;
  Uuid::BinaryData ones{};
  Uuid::BinaryData zeros{};
  for (int i = 0; i < 200; ++i) {
    const Uuid uuid = Uuid::generate();
    EXPECT_EQ(uuid.as_string()[14], '4');
    EXPECT_NE(std::string("89ab").find(uuid.as_string()[19]), std::string::npos);
    seen.insert(uuid);
    for (std::size_t at = 0; at < 16; ++at) {
      ones[at] = static_cast<std::uint8_t>(ones[at] | uuid.data()[at]);
      zeros[at] = static_cast<std::uint8_t>(zeros[at] | ~uuid.data()[at]);
    }
  }
  EXPECT_EQ(seen.size(), 200u);
  // Every bit but the six of version and variant takes both values.
  EXPECT_EQ(Uuid(ones).as_string(), "ffffffff-ffff-4fff-bfff-ffffffffffff");
  EXPECT_EQ(Uuid(zeros).as_string(), "ffffffff-ffff-bfff-7fff-ffffffffffff");
}

TEST(Uuid, TextAndParsingDoNotAllocate) {
  EXPECT_EQ(ovtest::allocations_of([] {
              if (Uuid::parse(sample).text().view() != sample) std::abort();
              if (Uuid::try_parse("x")) std::abort();
            }),
            0u);
}

}  // namespace
}  // namespace ovcore
