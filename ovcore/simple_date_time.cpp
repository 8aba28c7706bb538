// SPDX-License-Identifier: Apache-2.0
#include "ovcore/simple_date_time.h"

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/impl/calendar.h"
#include "ovcore/impl/time_format.h"

namespace ovcore {

/// Between the packed and the calendar form.
struct SimpleDateTime::Packer {
  static SimpleDateTime pack(const impl::CalendarTime& t) noexcept {
    SimpleDateTime result;
    result.m_fields = static_cast<std::uint64_t>(t.year) << year_shift |
                      std::uint64_t{t.month} << month_shift | std::uint64_t{t.day} << day_shift |
                      std::uint64_t{t.hour} << hour_shift |
                      std::uint64_t{t.minute} << minute_shift |
                      std::uint64_t{t.second} << second_shift | t.microsecond;
    return result;
  }
  static impl::CalendarTime unpack(SimpleDateTime t) noexcept {
    return {t.year(),
            static_cast<unsigned>(t.month()),
            static_cast<unsigned>(t.day()),
            static_cast<unsigned>(t.hour()),
            static_cast<unsigned>(t.minute()),
            static_cast<unsigned>(t.second()),
            static_cast<unsigned>(t.microsecond())};
  }
};

namespace {

bool is_supported_year(std::int64_t year) noexcept {
  return year >= 0 && year <= 9999;
}

/// Numbers that no field can hold become one that is too large for each.
unsigned field_of(std::int64_t value) noexcept {
  return value >= 0 && value <= 1'000'000 ? static_cast<unsigned>(value) : 1'000'000;
}

}  // namespace

SimpleDateTime::SimpleDateTime(std::int64_t year, std::int64_t month, std::int64_t day,
                               std::int64_t hour, std::int64_t minute, std::int64_t second,
                               std::int64_t microsecond) {
  const impl::CalendarTime fields = {year,
                                     field_of(month),
                                     field_of(day),
                                     field_of(hour),
                                     field_of(minute),
                                     field_of(second),
                                     field_of(microsecond)};
  if (!is_supported_year(year) || !impl::exists(fields)) {
    ErrorComposer(
        "There is no time {@year}-{@month}-{@day} {@hour}:{@minute}:{@second}"
        " and {@microsecond} microseconds")
        .add("year", year)
        .add("month", month)
        .add("day", day)
        .add("hour", hour)
        .add("minute", minute)
        .add("second", second)
        .add("microsecond", microsecond)
        .throw_error(error::ovcore_time_invalid,
                     {"ovcore/simple_date_time", "ovcore::SimpleDateTime::SimpleDateTime()", 0});
  }
  *this = Packer::pack(fields);
}

SimpleDateTime SimpleDateTime::from_absolute_time(AbsoluteTime time) {
  const TimeParts parts = time.parts();
  impl::CalendarTime fields = impl::calendar_time_of(parts.seconds);
  if (!is_supported_year(fields.year)) {
    ErrorComposer("{@time} is not in the years 0 to 9999")
        .add("time", time.text().view())
        .throw_error(
            error::ovcore_time_overflow,
            {"ovcore/simple_date_time", "ovcore::SimpleDateTime::from_absolute_time()", 0});
  }
  fields.microsecond = parts.microseconds;
  return Packer::pack(fields);
}

SimpleDateTime SimpleDateTime::parse(SourceString text) {
  impl::TimeScanner scanner(text, "Malformed date and time '{@text}' at position {@position}",
                            {"ovcore/simple_date_time", "ovcore::SimpleDateTime::parse()"});
  const impl::CalendarTime fields = scanner.calendar_time(false);
  scanner.expect_end();
  if (!impl::exists(fields)) scanner.fail_invalid();
  return Packer::pack(fields);
}

AbsoluteTime SimpleDateTime::to_absolute_time() const noexcept {
  // The years to 9999 all fit.
  return *AbsoluteTime::try_from_parts({impl::seconds_since_epoch(Packer::unpack(*this)),
                                        static_cast<std::uint32_t>(microsecond())});
}

TimeText SimpleDateTime::text() const noexcept {
  TimeText result;
  impl::append_calendar_time(result, Packer::unpack(*this));
  return result;
}

}  // namespace ovcore
