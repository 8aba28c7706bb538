// SPDX-License-Identifier: Apache-2.0
#include "ovcore/time.h"

#include <iterator>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/impl/calendar.h"
#include "ovcore/impl/time_format.h"

namespace ovcore {
namespace {

/// Adds up one duration, whose parts all have the same sign.
class DurationSum {
 public:
  DurationSum(const impl::TimeScanner& scanner, bool negative) noexcept
      : m_scanner(&scanner), m_negative(negative) {}

  void add(std::int64_t count, std::int64_t unit) {
    if (__builtin_mul_overflow(count, m_negative ? -unit : unit, &count) ||
        __builtin_add_overflow(m_total, count, &m_total)) {
      m_scanner->fail_overflow();
    }
  }
  [[nodiscard]] std::int64_t total() const noexcept { return m_total; }

 private:
  const impl::TimeScanner* m_scanner;
  bool m_negative;
  std::int64_t m_total = 0;
};

struct Unit {
  char mark;
  std::int64_t microseconds;
};
constexpr Unit days = {'D', 86'400'000'000};
constexpr Unit weeks = {'W', 7 * days.microseconds};
constexpr Unit hours = {'H', 3'600'000'000};
constexpr Unit minutes = {'M', 60'000'000};
constexpr Unit seconds = {'S', 1'000'000};

/// Reads hours, minutes and seconds, in this order, at least one of them.
void scan_day_time(impl::TimeScanner& scanner, DurationSum& sum) {
  const Unit units[] = {hours, minutes, seconds};
  const Unit* next = units;
  do {
    const std::int64_t count = scanner.number();
    if (scanner.accept('.') || scanner.accept(',')) {
      sum.add(count, seconds.microseconds);
      sum.add(scanner.fraction(), 1);
      scanner.expect(seconds.mark);
      break;
    }
    while (next != std::end(units) && !scanner.accept(next->mark))
      ++next;
    if (next == std::end(units)) scanner.fail_syntax();
    sum.add(count, next->microseconds);
    ++next;
  } while (next != std::end(units) && !scanner.at_end());
}

}  // namespace

void impl::throw_time_overflow(const char* function) {
  throw_error(error::ovcore_time_overflow, "The time is out of range",
              {"ovcore/time", function, 0});
}

void impl::throw_bad_parts(const TimeParts& parts) {
  const char* function = "ovcore::TimeBase::from_parts()";
  if (parts.microseconds <= 999'999) throw_time_overflow(function);
  ErrorComposer("A second has no {@microseconds} microseconds")
      .add("microseconds", parts.microseconds)
      .throw_error(error::ovcore_time_invalid, {"ovcore/time", function, 0});
}

RelativeTime RelativeTime::parse(SourceString text) {
  impl::TimeScanner scanner(text, "Malformed duration '{@text}' at position {@position}",
                            {"ovcore/time", "ovcore::RelativeTime::parse()"});
  const bool negative = scanner.accept('-');
  if (!negative) static_cast<void>(scanner.accept('+'));
  DurationSum sum(scanner, negative);
  scanner.expect('P');
  if (!scanner.accept('T')) {
    const std::int64_t count = scanner.number();
    if (scanner.accept(weeks.mark)) {
      sum.add(count, weeks.microseconds);
      scanner.expect_end();
      return from_microseconds(sum.total());
    }
    scanner.expect(days.mark);
    sum.add(count, days.microseconds);
    if (scanner.at_end()) return from_microseconds(sum.total());
    scanner.expect('T');
  }
  scan_day_time(scanner, sum);
  scanner.expect_end();
  return from_microseconds(sum.total());
}

TimeText RelativeTime::text() const noexcept {
  TimeText result;
  const bool negative = microseconds() < 0;
  auto left = static_cast<std::uint64_t>(microseconds());
  if (negative) {
    result.append('-');
    left = 0 - left;
  }
  result.append('P');
  const auto append_units = [&result, &left](const Unit& unit) {
    const auto size = static_cast<std::uint64_t>(unit.microseconds);
    if (left < size) return;
    impl::append_number(result, left / size);
    result.append(unit.mark);
    left %= size;
  };
  append_units(days);
  if (left == 0 && microseconds() != 0) return result;
  result.append('T');
  append_units(hours);
  append_units(minutes);
  if (left == 0 && microseconds() != 0) return result;
  impl::append_number(result, left / 1'000'000);
  impl::append_fraction(result, static_cast<unsigned>(left % 1'000'000));
  result.append(seconds.mark);
  return result;
}

AbsoluteTime AbsoluteTime::now() noexcept {
  return AbsoluteTime(
      std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now()));
}

AbsoluteTime AbsoluteTime::parse(SourceString text) {
  impl::TimeScanner scanner(text, "Malformed time '{@text}' at position {@position}",
                            {"ovcore/time", "ovcore::AbsoluteTime::parse()"});
  const impl::CalendarTime local = scanner.calendar_time(true);
  std::int64_t offset = 0;  // in seconds, ahead of UTC
  if (!scanner.accept('Z') && !scanner.accept('z')) {
    const bool behind = scanner.accept('-');
    if (!behind) scanner.expect('+');
    const unsigned offset_hours = scanner.digits(2);
    scanner.expect(':');
    const unsigned offset_minutes = scanner.digits(2);
    if (offset_hours > 23 || offset_minutes > 59) scanner.fail_invalid();
    offset = offset_hours * 3600 + offset_minutes * 60;
    if (behind) offset = -offset;
  }
  scanner.expect_end();
  if (!impl::exists(local)) scanner.fail_invalid();
  const std::optional<AbsoluteTime> result =
      try_from_parts({impl::seconds_since_epoch(local) - offset, local.microsecond});
  if (!result) scanner.fail_overflow();
  return *result;
}

TimeText AbsoluteTime::text() const noexcept {
  const TimeParts p = parts();
  impl::CalendarTime calendar = impl::calendar_time_of(p.seconds);
  calendar.microsecond = p.microseconds;
  TimeText result;
  impl::append_calendar_time(result, calendar);
  result.append('Z');
  return result;
}

}  // namespace ovcore
