// SPDX-License-Identifier: Apache-2.0
// A calendar date and time of day that belongs to no time zone.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "ovcore/export.h"
#include "ovcore/impl/mix_hash.h"
#include "ovcore/source_string.h"
#include "ovcore/time.h"

namespace ovcore {

/// Years 0..9999 of the proleptic Gregorian calendar, to the microsecond, without leap seconds;
/// always an existing date and time of day. The default is 1970-01-01T00:00:00.
class OV_EXPORT SimpleDateTime {
 public:
  constexpr SimpleDateTime() noexcept = default;
  /// Raises `ovcore_time_invalid` when there is no such date and time.
  SimpleDateTime(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour = 0,
                 std::int64_t minute = 0, std::int64_t second = 0, std::int64_t microsecond = 0);
  /// What clocks in UTC show. Raises `ovcore_time_overflow` outside the years 0..9999.
  [[nodiscard]] static SimpleDateTime from_absolute_time(AbsoluteTime time);
  /// Reads "2024-02-29T12:34:56.5": the date-time of RFC 3339 without an offset. The fraction is
  /// optional; its digits beyond the sixth must be zero; "t" may be lower-case.
  /// Raises `ovcore_time_syntax` with the byte position, or `ovcore_time_invalid`.
  [[nodiscard]] static SimpleDateTime parse(SourceString text);

  [[nodiscard]] constexpr int year() const noexcept { return field(year_shift, 14); }
  [[nodiscard]] constexpr int month() const noexcept { return field(month_shift, 4); }
  [[nodiscard]] constexpr int day() const noexcept { return field(day_shift, 5); }
  [[nodiscard]] constexpr int hour() const noexcept { return field(hour_shift, 5); }
  [[nodiscard]] constexpr int minute() const noexcept { return field(minute_shift, 6); }
  [[nodiscard]] constexpr int second() const noexcept { return field(second_shift, 6); }
  [[nodiscard]] constexpr int microsecond() const noexcept { return field(0, 20); }

  /// The point in time at which clocks in UTC show this.
  [[nodiscard]] AbsoluteTime to_absolute_time() const noexcept;
  /// "2024-02-29T12:34:56.5", the fraction without trailing zeros.
  [[nodiscard]] TimeText text() const noexcept;
  [[nodiscard]] std::string as_string() const { return text().str(); }
  [[nodiscard]] constexpr std::size_t hash() const noexcept { return impl::mix_hash(m_fields); }

  friend constexpr bool operator==(SimpleDateTime, SimpleDateTime) noexcept = default;
  /// Earlier is smaller.
  friend constexpr std::strong_ordering operator<=>(SimpleDateTime,
                                                    SimpleDateTime) noexcept = default;
  friend std::ostream& operator<<(std::ostream& out, SimpleDateTime time) {
    return out << SourceString(time.text().view());
  }

 private:
  // The fields in one number, the year on top, so that it orders as the times do.
  static constexpr int second_shift = 20;
  static constexpr int minute_shift = 26;
  static constexpr int hour_shift = 32;
  static constexpr int day_shift = 37;
  static constexpr int month_shift = 42;
  static constexpr int year_shift = 46;

  struct Packer;

  [[nodiscard]] constexpr int field(int shift, int bits) const noexcept {
    return static_cast<int>(m_fields >> shift & ((std::uint64_t{1} << bits) - 1));
  }

  std::uint64_t m_fields = std::uint64_t{1970} << year_shift | std::uint64_t{1} << month_shift |
                           std::uint64_t{1} << day_shift;
};

}  // namespace ovcore

template <>
struct std::hash<ovcore::SimpleDateTime> {
  std::size_t operator()(ovcore::SimpleDateTime time) const noexcept { return time.hash(); }
};
