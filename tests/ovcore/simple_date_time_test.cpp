// SPDX-License-Identifier: Apache-2.0
#include "ovcore/simple_date_time.h"

#include <gtest/gtest.h>

#include <array>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_set>

#include "ovcore/error_codes.h"
#include "tests/ovcore/time_cases.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovcore {
namespace {

static_assert(std::is_trivially_copyable_v<SimpleDateTime> && sizeof(SimpleDateTime) <= 16);

using Fields = std::array<std::int64_t, 7>;

SimpleDateTime made(const Fields& f) {
  return SimpleDateTime(f[0], f[1], f[2], f[3], f[4], f[5], f[6]);
}
Fields fields_of(SimpleDateTime t) {
  return {t.year(), t.month(), t.day(), t.hour(), t.minute(), t.second(), t.microsecond()};
}

TEST(SimpleDateTime, ReadsAndWritesItsText) {
  ovtest::check_time_cases<SimpleDateTime>(
      "simple_date_time.txt", "Malformed date and time",
      {"ovcore/simple_date_time", "ovcore::SimpleDateTime::parse()", 0},
      [](SimpleDateTime time) { return time.to_absolute_time().microseconds(); },
      [](std::int64_t value) {
        return SimpleDateTime::from_absolute_time(AbsoluteTime::from_microseconds(value));
      });
}

TEST(SimpleDateTime, HoldsAndOrdersItsFields) {
  const Fields ascending[] = {{0, 1, 1, 0, 0, 0, 0},    {1969, 12, 31, 23, 59, 59, 999999},
                              {1970, 1, 1, 0, 0, 0, 0}, {1970, 1, 1, 0, 0, 0, 1},
                              {1970, 1, 1, 0, 0, 1, 0}, {1970, 1, 1, 0, 1, 0, 0},
                              {1970, 1, 1, 1, 0, 0, 0}, {1970, 1, 2, 0, 0, 0, 0},
                              {1970, 2, 1, 0, 0, 0, 0}, {9999, 12, 31, 23, 59, 59, 999999}};
  std::unordered_set<std::size_t> hashes;
  for (const Fields& a : ascending) {
    EXPECT_EQ(fields_of(made(a)), a);
    for (const Fields& b : ascending)
      EXPECT_EQ(made(a) <=> made(b), &a <=> &b);
    hashes.insert(std::hash<SimpleDateTime>()(made(a)));
  }
  EXPECT_EQ(hashes.size(), std::size(ascending));
  EXPECT_EQ(SimpleDateTime(), made({1970, 1, 1, 0, 0, 0, 0}));
  std::ostringstream out;
  out << SimpleDateTime(2024, 2, 29);
  EXPECT_EQ(out.str(), "2024-02-29T00:00:00");
}

TEST(SimpleDateTime, EveryDayFollowsTheOneBefore) {
  constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  AbsoluteTime noon = SimpleDateTime(0, 1, 1, 12).to_absolute_time();
  for (int year = 0; year <= 2400; ++year) {
    const bool leap = year % 400 == 0 || (year % 4 == 0 && year % 100 != 0);
    for (int month = 1; month <= 12; ++month) {
      const int length = lengths[month - 1] + (month == 2 && leap ? 1 : 0);
      for (int day = 1; day <= length; ++day) {
        const SimpleDateTime expected(year, month, day, 12);
        ASSERT_EQ(SimpleDateTime::from_absolute_time(noon), expected);
        ASSERT_EQ(expected.to_absolute_time(), noon);
        noon = noon + RelativeTime::from_days(1);
      }
    }
  }
}

TEST(SimpleDateTime, WhatDoesNotExistIsRefused) {
  constexpr std::int64_t wraps = std::int64_t{1} << 32;  // to 0 in 32 bits
  for (const Fields& f : {Fields{-1, 1, 1, 0, 0, 0, 0},
                          {10000, 1, 1, 0, 0, 0, 0},
                          {2024, 0, 1, 0, 0, 0, 0},
                          {2024, 13, 1, 0, 0, 0, 0},
                          {2024, 1, 0, 0, 0, 0, 0},
                          {2024, 4, 31, 0, 0, 0, 0},
                          {2023, 2, 29, 0, 0, 0, 0},
                          {2024, 1, 1, 24, 0, 0, 0},
                          {2024, 1, 1, 0, 60, 0, 0},
                          {2024, 1, 1, 0, 0, 60, 0},
                          {2024, 1, 1, 0, 0, 0, 1000000},
                          {2024, 1, 1, 0, 0, 0, -1},
                          {2024 + wraps, 1, 1, 0, 0, 0, 0},
                          {2024, 1 + wraps, 1, 0, 0, 0, 0},
                          {2024, 1, 1, wraps, 0, 0, 0},
                          {2024, 1, 1, 0, 0, 0, std::numeric_limits<std::int64_t>::min()}}) {
    const auto text = [&f](std::size_t i) { return std::to_string(f[i]); };
    EXPECT_ERROR(made(f), error::ovcore_time_invalid,
                 "There is no time " + text(0) + "-" + text(1) + "-" + text(2) + " " + text(3) +
                     ":" + text(4) + ":" + text(5) + " and " + text(6) + " microseconds");
  }
}

TEST(SimpleDateTime, TimesOfOtherYearsAreRefused) {
  for (const char* text : {"-000001-12-31T23:59:59.999999Z", "+010000-01-01T00:00:00Z",
                           "-290308-12-21T19:59:05.224192Z", "+294247-01-10T04:00:54.775807Z"}) {
    EXPECT_ERROR(SimpleDateTime::from_absolute_time(AbsoluteTime::parse(text)),
                 error::ovcore_time_overflow, std::string(text) + " is not in the years 0 to 9999");
  }
}

TEST(SimpleDateTime, TextAndParsingDoNotAllocate) {
  EXPECT_EQ(ovtest::allocations_of([] {
              const SimpleDateTime time(2024, 2, 29, 1, 2, 3, 456789);
              if (SimpleDateTime::parse(time.text().view()) != time) std::abort();
            }),
            0u);
}

}  // namespace
}  // namespace ovcore
