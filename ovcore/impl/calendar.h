// SPDX-License-Identifier: Apache-2.0
// Arithmetic of the proleptic Gregorian calendar.
#pragma once

#include <cstdint>

namespace ovcore::impl {

/// Fields of a date and time of day, in any combination.
struct CalendarTime {
  std::int64_t year = 1970;
  unsigned month = 1;
  unsigned day = 1;
  unsigned hour = 0;
  unsigned minute = 0;
  unsigned second = 0;
  unsigned microsecond = 0;
};

inline constexpr std::int64_t seconds_per_day = 86'400;

[[nodiscard]] constexpr std::int64_t floor_div(std::int64_t a, std::int64_t b) noexcept {
  return a / b - (a % b < 0 ? 1 : 0);
}

[[nodiscard]] constexpr unsigned days_in_month(std::int64_t year, unsigned month) noexcept {
  if (month == 2) return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
  return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

/// True when there is such a date and time of day. There are no leap seconds.
[[nodiscard]] constexpr bool exists(const CalendarTime& t) noexcept {
  return t.month >= 1 && t.month <= 12 && t.day >= 1 && t.day <= days_in_month(t.year, t.month) &&
         t.hour <= 23 && t.minute <= 59 && t.second <= 59 && t.microsecond <= 999'999;
}

// Years are counted from March below, so that the leap day is the last of its year and month m
// (0: March) begins (153 * m + 2) / 5 days into it. Day 0 of that count is 0000-03-01.
inline constexpr std::int64_t march_epoch = -719'468;  // in days since 1970-01-01
inline constexpr std::int64_t days_per_400_years = 146'097;

/// Seconds since 1970-01-01T00:00:00 of an existing time, years up to seven digits.
[[nodiscard]] constexpr std::int64_t seconds_since_epoch(const CalendarTime& t) noexcept {
  const std::int64_t year = t.month >= 3 ? t.year : t.year - 1;
  const std::int64_t month = t.month >= 3 ? t.month - 3 : t.month + 9;
  const std::int64_t leap_days = floor_div(year, 4) - floor_div(year, 100) + floor_div(year, 400);
  const std::int64_t days =
      march_epoch + year * 365 + leap_days + (153 * month + 2) / 5 + (t.day - 1);
  return days * seconds_per_day + std::int64_t{t.hour} * 3600 + std::int64_t{t.minute} * 60 +
         t.second;
}

/// The inverse for any number of seconds; microseconds stay 0.
[[nodiscard]] constexpr CalendarTime calendar_time_of(std::int64_t seconds) noexcept {
  const std::int64_t days = floor_div(seconds, seconds_per_day);
  const auto second_of_day = static_cast<unsigned>(seconds - days * seconds_per_day);
  const std::int64_t cycle = floor_div(days - march_epoch, days_per_400_years);
  const auto day_of_cycle = static_cast<unsigned>(days - march_epoch - cycle * days_per_400_years);
  // Leap days that lie before this day: the last days of each 4, 100 and 400 years.
  const unsigned leap_days = day_of_cycle / 1'460 - day_of_cycle / 36'524 + day_of_cycle / 146'096;
  const unsigned year = (day_of_cycle - leap_days) / 365;
  const unsigned day_of_year = day_of_cycle - (year * 365 + year / 4 - year / 100);
  const unsigned month = (day_of_year * 5 + 2) / 153;

  CalendarTime result;
  result.month = month < 10 ? month + 3 : month - 9;
  result.year = cycle * 400 + year + (month < 10 ? 0 : 1);
  result.day = day_of_year - (153 * month + 2) / 5 + 1;
  result.hour = second_of_day / 3600;
  result.minute = second_of_day / 60 % 60;
  result.second = second_of_day % 60;
  return result;
}

}  // namespace ovcore::impl
