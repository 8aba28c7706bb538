// SPDX-License-Identifier: Apache-2.0
// A document larger than memory should get. A program of its own, since it looks at the peak of the
// whole process. The document has 2 GiB, less in slow builds; OVATTRIBUTE_LONG_DOCUMENT_MIB sets
// another size.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <string>
#include <string_view>

#include "ovjson/reader.h"
#include "tests/ovjson/json_testing.h"
#include "tests/support/sanitized.h"

namespace ovjson {
namespace {

#ifdef __OPTIMIZE__
constexpr std::uint64_t default_mib = ovtest::sanitized ? 16 : 2048;
#else
constexpr std::uint64_t default_mib = 16;
#endif

std::uint64_t document_size() {
  const char* const mib = std::getenv("OVATTRIBUTE_LONG_DOCUMENT_MIB");
  return (mib != nullptr ? std::strtoull(mib, nullptr, 10) : default_mib) << 20;
}

/// The most memory that the process ever had, in KiB.
std::uint64_t peak_memory() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (word == "VmHWM:" && status >> word) return std::stoull(word);
  }
  return std::numeric_limits<std::uint64_t>::max();
}

/// An array of records in which everything comes that JSON has.
const char* const record =
    R"({"id":17,"name":"a record of many","tags":["first","second","z\u00fcrich \"x\"\n"],)"
    R"("price":-12.5e-1,"ok":true,"gone":false,"none":null,)"
    R"("inner":{"empty":{},"list":[],"deep":[[[1,2],[3]],{"x":"0123456789012345678901234567890123"}]},)"
    R"(unquoted:"a longer text, of which the reader looks at every byte, to see that it is UTF-8, )"
    R"(without control characters, and where it ends: \u20ac \ud83d\ude00 and so on and so on."})";
// As python3's json counts them.
constexpr std::uint64_t values_in_record = 24;
constexpr std::uint64_t text_in_record = 230;
constexpr std::uint64_t sum_in_record = 23;  // of the integers

TEST(LongDocument, IsWalkedInLittleMemory) {
  const std::string repeated = std::string(",\n") + record;
  const std::uint64_t times = document_size() / repeated.size();
  ovtest::RepeatStream source(std::string("[") + record, repeated, times, "]");
  Reader reader(source);
  std::uint64_t values = 0;
  std::uint64_t text = 0;
  std::int64_t sum = 0;
  Position last;
  reader.next_value();
  while (const auto value = reader.next_value()) {
    ++values;
    last = value->position();
    if (value->kind() == Reader::Kind::string) text += value->as_string().size();
    if (value->kind() == Reader::Kind::number) sum += value->as_integer().value_or(0);
  }
  EXPECT_EQ(values, (times + 1) * values_in_record);
  EXPECT_EQ(text, (times + 1) * text_in_record);
  EXPECT_EQ(static_cast<std::uint64_t>(sum), (times + 1) * sum_in_record);
  const std::uint64_t text_pos = std::string_view(record).find("\"a longer");
  EXPECT_EQ(last, (Position{times + 1, text_pos + 1, 1 + times * repeated.size() + text_pos}));
  const std::uint64_t peak = peak_memory();
  RecordProperty("peak_KiB", std::to_string(peak));
  std::printf("%.1f MiB of text, %llu values, peak memory %.1f MiB\n",
              static_cast<double>((times + 1) * repeated.size()) / (1 << 20),
              static_cast<unsigned long long>(values), static_cast<double>(peak) / 1024);
  EXPECT_TRUE(ovtest::sanitized || peak < 64u << 10);
}

}  // namespace
}  // namespace ovjson
