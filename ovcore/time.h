// SPDX-License-Identifier: Apache-2.0
// Points in time and durations, both as signed 64-bit microseconds.
#pragma once

#include <chrono>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <ostream>
#include <string>

#include "ovcore/export.h"
#include "ovcore/fixed_text.h"
#include "ovcore/impl/mix_hash.h"
#include "ovcore/source_string.h"

namespace ovcore {

/// Whole seconds, rounded down, and the microseconds behind them: -1 microsecond is {-1, 999999}.
struct TimeParts {
  std::int64_t seconds = 0;
  std::uint32_t microseconds = 0;  // 0..999999

  friend bool operator==(const TimeParts&, const TimeParts&) = default;
};

/// Room for the text of any time of this library.
using TimeText = FixedText<31>;

namespace impl {

/// Raises `ovcore_time_overflow`.
[[noreturn]] OV_EXPORT void throw_time_overflow(const char* function);
/// Raises `ovcore_time_invalid` or `ovcore_time_overflow`, whichever applies to the parts.
[[noreturn]] OV_EXPORT void throw_bad_parts(const TimeParts& parts);

constexpr std::int64_t time_sum(std::int64_t a, std::int64_t b, const char* function) {
  if (__builtin_add_overflow(a, b, &a)) throw_time_overflow(function);
  return a;
}
constexpr std::int64_t time_difference(std::int64_t a, std::int64_t b, const char* function) {
  if (__builtin_sub_overflow(a, b, &a)) throw_time_overflow(function);
  return a;
}
constexpr std::int64_t time_product(std::int64_t a, std::integral auto b, const char* function) {
  if (__builtin_mul_overflow(a, b, &a)) throw_time_overflow(function);
  return a;
}

}  // namespace impl

/// What points in time and durations have in common. Both are ordered by their microseconds; the
/// two kinds do not mix. The default is 0.
template <class Time>
class TimeBase {
 public:
  // Factories for any integer type; those that can overflow raise `ovcore_time_overflow`.
  [[nodiscard]] static constexpr Time from_microseconds(std::integral auto count) {
    return made_of(impl::time_product(1, count, "ovcore::TimeBase::from_microseconds()"));
  }
  [[nodiscard]] static constexpr Time from_milliseconds(std::integral auto count) {
    return made_of(impl::time_product(1'000, count, "ovcore::TimeBase::from_milliseconds()"));
  }
  [[nodiscard]] static constexpr Time from_seconds(std::integral auto count) {
    return made_of(impl::time_product(1'000'000, count, "ovcore::TimeBase::from_seconds()"));
  }
  /// Raises `ovcore_time_invalid` for microseconds above 999999, else `ovcore_time_overflow`.
  [[nodiscard]] static constexpr Time from_parts(const TimeParts& parts) {
    const std::optional<Time> result = try_from_parts(parts);
    if (!result) impl::throw_bad_parts(parts);
    return *result;
  }
  /// As `from_parts`; empty instead of an error.
  [[nodiscard]] static constexpr std::optional<Time> try_from_parts(
      const TimeParts& parts) noexcept;

  [[nodiscard]] static constexpr Time min() noexcept {
    return from_microseconds(std::numeric_limits<std::int64_t>::min());
  }
  [[nodiscard]] static constexpr Time max() noexcept {
    return from_microseconds(std::numeric_limits<std::int64_t>::max());
  }

  [[nodiscard]] constexpr std::int64_t microseconds() const noexcept { return m_microseconds; }
  [[nodiscard]] constexpr TimeParts parts() const noexcept;
  [[nodiscard]] constexpr std::size_t hash() const noexcept {
    return impl::mix_hash(static_cast<std::uint64_t>(m_microseconds));
  }

  friend constexpr bool operator==(const Time& a, const Time& b) noexcept {
    return a.microseconds() == b.microseconds();
  }
  friend constexpr std::strong_ordering operator<=>(const Time& a, const Time& b) noexcept {
    return a.microseconds() <=> b.microseconds();
  }
  friend std::ostream& operator<<(std::ostream& out, const Time& time) {
    return out << SourceString(time.text().view());
  }

 protected:
  constexpr TimeBase() noexcept = default;

 private:
  static constexpr Time made_of(std::int64_t microseconds) noexcept {
    Time result;
    result.m_microseconds = microseconds;
    return result;
  }

  std::int64_t m_microseconds = 0;
};

/// A duration. Days are 24 hours. Arithmetic raises `ovcore_time_overflow`.
class OV_EXPORT RelativeTime : public TimeBase<RelativeTime> {
 public:
  constexpr RelativeTime() noexcept = default;
  explicit constexpr RelativeTime(std::chrono::microseconds duration)
      : RelativeTime(from_microseconds(duration.count())) {}

  [[nodiscard]] static constexpr RelativeTime from_minutes(std::integral auto count) {
    return from_microseconds(
        impl::time_product(60'000'000, count, "ovcore::RelativeTime::from_minutes()"));
  }
  [[nodiscard]] static constexpr RelativeTime from_hours(std::integral auto count) {
    return from_microseconds(
        impl::time_product(3'600'000'000, count, "ovcore::RelativeTime::from_hours()"));
  }
  [[nodiscard]] static constexpr RelativeTime from_days(std::integral auto count) {
    return from_microseconds(
        impl::time_product(86'400'000'000, count, "ovcore::RelativeTime::from_days()"));
  }
  /// Reads an ISO 8601 duration: an optional sign, then "P" and weeks alone ("P2W"), or days,
  /// "T", hours, minutes and seconds, each at most once and at least one of them ("P1DT12H").
  /// Only seconds take a fraction, behind a point or comma; digits beyond the sixth must be zero.
  /// Years and months have no fixed length and are refused.
  /// Raises `ovcore_time_syntax` with the byte position, or `ovcore_time_overflow`.
  [[nodiscard]] static RelativeTime parse(SourceString text);

  [[nodiscard]] constexpr std::chrono::microseconds to_chrono() const noexcept {
    return std::chrono::microseconds(microseconds());
  }
  /// An ISO 8601 duration of days, hours, minutes and seconds, without those that are zero:
  /// "P1DT12H", "PT1H2M3.5S", "-PT0.5S", else "PT0S". Reads back to the same duration.
  [[nodiscard]] TimeText text() const noexcept;
  [[nodiscard]] std::string as_string() const { return text().str(); }

  friend constexpr RelativeTime operator+(RelativeTime a, RelativeTime b) {
    return from_microseconds(
        impl::time_sum(a.microseconds(), b.microseconds(), "ovcore::RelativeTime::operator+()"));
  }
  friend constexpr RelativeTime operator-(RelativeTime a, RelativeTime b) {
    return from_microseconds(impl::time_difference(a.microseconds(), b.microseconds(),
                                                   "ovcore::RelativeTime::operator-()"));
  }
  friend constexpr RelativeTime operator-(RelativeTime a) {
    return from_microseconds(
        impl::time_difference(0, a.microseconds(), "ovcore::RelativeTime::operator-()"));
  }
  friend constexpr RelativeTime operator*(RelativeTime a, std::integral auto factor) {
    return from_microseconds(
        impl::time_product(a.microseconds(), factor, "ovcore::RelativeTime::operator*()"));
  }
  friend constexpr RelativeTime operator*(std::integral auto factor, RelativeTime a) {
    return a * factor;
  }
};

/// A point in time: microseconds since 1970-01-01T00:00:00Z, without leap seconds, in the
/// proleptic Gregorian calendar. Arithmetic raises `ovcore_time_overflow`.
class OV_EXPORT AbsoluteTime : public TimeBase<AbsoluteTime> {
 public:
  using ChronoTime = std::chrono::sys_time<std::chrono::microseconds>;

  constexpr AbsoluteTime() noexcept = default;
  explicit constexpr AbsoluteTime(ChronoTime time)
      : AbsoluteTime(from_microseconds(time.time_since_epoch().count())) {}

  [[nodiscard]] static AbsoluteTime now() noexcept;
  /// Reads an RFC 3339 date-time with any numeric offset; "t" and "z" may be lower-case, a blank
  /// does not stand for "T". Fraction digits beyond the sixth must be zero. Years outside
  /// 0000..9999 are a sign and six digits (ISO 8601 expanded: "+010000-01-01T00:00:00Z"), never
  /// "-000000".
  /// Raises `ovcore_time_syntax` with the byte position; `ovcore_time_invalid` for a date, time
  /// or offset that does not exist, leap seconds (":60") among them; `ovcore_time_overflow`.
  [[nodiscard]] static AbsoluteTime parse(SourceString text);

  [[nodiscard]] constexpr ChronoTime to_chrono() const noexcept {
    return ChronoTime(std::chrono::microseconds(microseconds()));
  }
  /// RFC 3339 in UTC, the fraction without trailing zeros: "2024-02-29T12:34:56.5Z". Years
  /// outside 0000..9999 as `parse` takes them. Reads back to the same time.
  [[nodiscard]] TimeText text() const noexcept;
  [[nodiscard]] std::string as_string() const { return text().str(); }

  friend constexpr AbsoluteTime operator+(AbsoluteTime a, RelativeTime b) {
    return from_microseconds(
        impl::time_sum(a.microseconds(), b.microseconds(), "ovcore::AbsoluteTime::operator+()"));
  }
  friend constexpr AbsoluteTime operator+(RelativeTime a, AbsoluteTime b) { return b + a; }
  friend constexpr AbsoluteTime operator-(AbsoluteTime a, RelativeTime b) {
    return from_microseconds(impl::time_difference(a.microseconds(), b.microseconds(),
                                                   "ovcore::AbsoluteTime::operator-()"));
  }
  friend constexpr RelativeTime operator-(AbsoluteTime a, AbsoluteTime b) {
    return RelativeTime::from_microseconds(impl::time_difference(
        a.microseconds(), b.microseconds(), "ovcore::AbsoluteTime::operator-()"));
  }
};

template <class Time>
constexpr TimeParts TimeBase<Time>::parts() const noexcept {
  std::int64_t seconds = m_microseconds / 1'000'000;
  std::int64_t rest = m_microseconds % 1'000'000;
  if (rest < 0) {
    --seconds;
    rest += 1'000'000;
  }
  return {seconds, static_cast<std::uint32_t>(rest)};
}

template <class Time>
constexpr std::optional<Time> TimeBase<Time>::try_from_parts(const TimeParts& parts) noexcept {
  if (parts.microseconds > 999'999) return std::nullopt;
  // Negative seconds are rounded down: their product alone may be out of range.
  const bool negative = parts.seconds < 0;
  const std::int64_t rest = std::int64_t{parts.microseconds} - (negative ? 1'000'000 : 0);
  std::int64_t result = parts.seconds + (negative ? 1 : 0);
  if (__builtin_mul_overflow(result, 1'000'000, &result) ||
      __builtin_add_overflow(result, rest, &result)) {
    return std::nullopt;
  }
  return made_of(result);
}

}  // namespace ovcore

template <>
struct std::hash<ovcore::RelativeTime> {
  std::size_t operator()(ovcore::RelativeTime time) const noexcept { return time.hash(); }
};
template <>
struct std::hash<ovcore::AbsoluteTime> {
  std::size_t operator()(ovcore::AbsoluteTime time) const noexcept { return time.hash(); }
};
