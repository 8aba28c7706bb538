// SPDX-License-Identifier: Apache-2.0
#include "ovcore/time.h"

#include <gtest/gtest.h>

#include <concepts>
#include <cstdint>
#include <limits>
#include <sstream>
#include <type_traits>
#include <unordered_set>

#include "ovcore/error_codes.h"
#include "tests/ovcore/time_cases.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovcore {
namespace {

constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();

static_assert(std::is_trivially_copyable_v<AbsoluteTime> && sizeof(AbsoluteTime) == 8);
static_assert(!std::equality_comparable_with<AbsoluteTime, RelativeTime>);
static_assert(!std::is_convertible_v<std::int64_t, RelativeTime>);
static_assert(RelativeTime::from_hours(1) * 24 == RelativeTime::from_days(1));

constexpr AbsoluteTime at(std::int64_t microseconds) {
  return AbsoluteTime::from_microseconds(microseconds);
}
constexpr RelativeTime span(std::int64_t microseconds) {
  return RelativeTime::from_microseconds(microseconds);
}

TEST(AbsoluteTime, ReadsAndWritesRfc3339) {
  ovtest::check_time_cases<AbsoluteTime>(
      "absolute_time.txt", "Malformed time", {"ovcore/time", "ovcore::AbsoluteTime::parse()", 0},
      [](AbsoluteTime time) { return time.microseconds(); }, at);
}

TEST(RelativeTime, ReadsAndWritesIsoDurations) {
  ovtest::check_time_cases<RelativeTime>(
      "relative_time.txt", "Malformed duration",
      {"ovcore/time", "ovcore::RelativeTime::parse()", 0},
      [](RelativeTime time) { return time.microseconds(); }, span);
}

TEST(Time, EveryMagnitudeReadsBack) {
  for (int bits = 0; bits < 63; ++bits) {
    for (const std::int64_t value : {std::int64_t{1} << bits, (std::int64_t{1} << bits) - 1}) {
      for (const std::int64_t n : {value, -value, ~value}) {
        EXPECT_EQ(AbsoluteTime::parse(at(n).text().view()), at(n));
        EXPECT_EQ(RelativeTime::parse(span(n).text().view()), span(n));
      }
    }
  }
}

TEST(AbsoluteTime, AgreesWithTheClock) {
  using std::chrono::system_clock;
  const auto before = std::chrono::floor<std::chrono::microseconds>(system_clock::now());
  const AbsoluteTime now = AbsoluteTime::now();
  const auto after = std::chrono::floor<std::chrono::microseconds>(system_clock::now());
  EXPECT_LE(AbsoluteTime(before), now);
  EXPECT_LE(now.to_chrono(), after);
}

TEST(Time, ArithmeticIsExactOrAnError) {
  EXPECT_EQ(at(5) + span(-7), at(-2));
  EXPECT_EQ(span(1) + at(lowest), at(lowest + 1));
  EXPECT_EQ(at(5) - span(lowest + 6), at(highest));
  EXPECT_EQ(at(-1) - at(highest), span(lowest));
  EXPECT_EQ(span(3) - span(5) + span(1), span(-1));
  EXPECT_EQ(-span(highest), span(-highest));
  EXPECT_EQ(-3 * span(2) * 2U, span(-12));
  EXPECT_EQ(span(0) * std::numeric_limits<std::uint64_t>::max(), span(0));
  EXPECT_EQ(span(-1) * (std::uint64_t{1} << 63), span(lowest));
  EXPECT_EQ(RelativeTime::from_minutes(-3), RelativeTime::from_seconds(-180));
  EXPECT_EQ(AbsoluteTime::from_milliseconds(1U), at(1000));
  EXPECT_EQ(RelativeTime(std::chrono::hours(-1)).to_chrono(), std::chrono::minutes(-60));
}

TEST(Time, OverflowIsAnError) {
#define EXPECT_OVERFLOW(expression, function)                                       \
  EXPECT_ERROR(expression, error::ovcore_time_overflow, "The time is out of range", \
               {"ovcore/time", function, 0})
  EXPECT_OVERFLOW(AbsoluteTime::max() + span(1), "ovcore::AbsoluteTime::operator+()");
  EXPECT_OVERFLOW(AbsoluteTime::min() + span(-1), "ovcore::AbsoluteTime::operator+()");
  EXPECT_OVERFLOW(at(0) - span(lowest), "ovcore::AbsoluteTime::operator-()");
  EXPECT_OVERFLOW(at(0) - at(lowest), "ovcore::AbsoluteTime::operator-()");
  EXPECT_OVERFLOW(RelativeTime::max() + span(1), "ovcore::RelativeTime::operator+()");
  EXPECT_OVERFLOW(RelativeTime::min() - span(1), "ovcore::RelativeTime::operator-()");
  EXPECT_OVERFLOW(-RelativeTime::min(), "ovcore::RelativeTime::operator-()");
  EXPECT_OVERFLOW(RelativeTime::min() * -1, "ovcore::RelativeTime::operator*()");
  EXPECT_OVERFLOW(span(1) * (std::uint64_t{1} << 63), "ovcore::RelativeTime::operator*()");
  EXPECT_OVERFLOW(at(0).from_microseconds(std::uint64_t{1} << 63),
                  "ovcore::TimeBase::from_microseconds()");
  EXPECT_OVERFLOW(AbsoluteTime::from_milliseconds(highest / 1000 + 1),
                  "ovcore::TimeBase::from_milliseconds()");
  EXPECT_OVERFLOW(AbsoluteTime::from_seconds(lowest), "ovcore::TimeBase::from_seconds()");
  EXPECT_OVERFLOW(RelativeTime::from_minutes(highest), "ovcore::RelativeTime::from_minutes()");
  EXPECT_OVERFLOW(RelativeTime::from_hours(2562047789), "ovcore::RelativeTime::from_hours()");
  EXPECT_OVERFLOW(RelativeTime::from_days(-106751992), "ovcore::RelativeTime::from_days()");
  for (const TimeParts& parts :
       {TimeParts{9223372036854, 775808}, TimeParts{-9223372036855, 224191}, TimeParts{highest, 0},
        TimeParts{lowest, 999999}}) {
    EXPECT_OVERFLOW(AbsoluteTime::from_parts(parts), "ovcore::TimeBase::from_parts()");
    EXPECT_FALSE(RelativeTime::try_from_parts(parts));
  }
#undef EXPECT_OVERFLOW
}

TEST(Time, SplitsIntoFlooredSecondsAndMicroseconds) {
  struct Case {
    std::int64_t microseconds;
    TimeParts parts;
  };
  for (const Case& c : {Case{0, {0, 0}},
                        {1, {0, 1}},
                        {-1, {-1, 999999}},
                        {-1000000, {-1, 0}},
                        {-1000001, {-2, 999999}},
                        {1999999, {1, 999999}},
                        {highest, {9223372036854, 775807}},
                        {lowest, {-9223372036855, 224192}}}) {
    EXPECT_EQ(at(c.microseconds).parts(), c.parts);
    EXPECT_EQ(RelativeTime::from_parts(c.parts), span(c.microseconds));
  }
  EXPECT_ERROR(AbsoluteTime::from_parts({0, 1000000}), error::ovcore_time_invalid,
               "A second has no 1000000 microseconds");
}

TEST(Time, OrdersHashesAndPrints) {
  const std::int64_t ascending[] = {lowest, -1000000, -1, 0, 1, 1000000, highest};
  std::unordered_set<AbsoluteTime> times;
  std::unordered_set<std::size_t> hashes;
  for (const std::int64_t a : ascending) {
    for (const std::int64_t b : ascending)
      EXPECT_EQ(at(a) <=> at(b), a <=> b);
    times.insert(at(a));
    hashes.insert(span(a).hash());
  }
  EXPECT_EQ(times.size(), 7u);
  EXPECT_EQ(hashes.size(), 7u);
  std::ostringstream out;
  out << at(1) << ' ' << span(-1);
  EXPECT_EQ(out.str(), "1970-01-01T00:00:00.000001Z -PT0.000001S");
}

TEST(Time, TextAndParsingDoNotAllocate) {
  EXPECT_EQ(ovtest::allocations_of([] {
              if (AbsoluteTime::parse(AbsoluteTime::min().text().view()) != AbsoluteTime::min() ||
                  RelativeTime::parse(RelativeTime::min().text().view()) != RelativeTime::min()) {
                std::abort();
              }
            }),
            0u);
}

}  // namespace
}  // namespace ovcore
