// SPDX-License-Identifier: Apache-2.0
#include "ovcore/impl/time_format.h"

#include "ovcore/error_codes.h"
#include "ovcore/to_string.h"

namespace ovcore::impl {
namespace {

/// Decimal with leading zeros; `value` has at most `width` digits.
void append_digits(TimeText& out, unsigned value, unsigned width) noexcept {
  char* const digits = out.extend(width);
  while (width > 0) {
    digits[--width] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
}

}  // namespace

void append_number(TimeText& out, std::uint64_t value) noexcept {
  const NumberText number(value);
  number.view().copy(out.extend(number.view().size()), number.view().size());
}

void append_fraction(TimeText& out, unsigned microseconds) noexcept {
  if (microseconds == 0) return;
  unsigned width = 6;
  for (; microseconds % 10 == 0; --width)
    microseconds /= 10;
  out.append('.');
  append_digits(out, microseconds, width);
}

void append_calendar_time(TimeText& out, const CalendarTime& time) noexcept {
  const bool expanded = time.year < 0 || time.year > 9999;
  if (expanded) out.append(time.year < 0 ? '-' : '+');
  const auto year = static_cast<unsigned>(time.year < 0 ? -time.year : time.year);
  append_digits(out, year, expanded ? 6 : 4);
  out.append('-');
  append_digits(out, time.month, 2);
  out.append('-');
  append_digits(out, time.day, 2);
  out.append('T');
  append_digits(out, time.hour, 2);
  out.append(':');
  append_digits(out, time.minute, 2);
  out.append(':');
  append_digits(out, time.second, 2);
  append_fraction(out, time.microsecond);
}

bool TimeScanner::at_digit() const noexcept {
  return !at_end() && m_text[m_position] >= '0' && m_text[m_position] <= '9';
}

bool TimeScanner::accept(char c) noexcept {
  if (at_end() || m_text[m_position] != c) return false;
  ++m_position;
  return true;
}

void TimeScanner::expect(char c) {
  if (!accept(c)) fail_syntax();
}

void TimeScanner::expect_end() const {
  if (!at_end()) fail_syntax();
}

unsigned TimeScanner::digits(unsigned count) {
  unsigned result = 0;
  for (; count > 0; --count) {
    if (!at_digit()) fail_syntax();
    result = result * 10 + static_cast<unsigned>(m_text[m_position++] - '0');
  }
  return result;
}

std::int64_t TimeScanner::number() {
  std::int64_t result = digits(1);
  while (at_digit()) {
    if (__builtin_mul_overflow(result, 10, &result) ||
        __builtin_add_overflow(result, m_text[m_position] - '0', &result)) {
      fail_overflow();
    }
    ++m_position;
  }
  return result;
}

unsigned TimeScanner::fraction() {
  unsigned result = 0;
  unsigned unit = 100'000;
  do {
    const std::size_t here = m_position;
    const unsigned digit = digits(1);
    if (unit == 0 && digit != 0) {
      m_position = here;
      fail_syntax();
    }
    result += digit * unit;
    unit /= 10;
  } while (at_digit());
  return result;
}

std::int64_t TimeScanner::year(bool expanded) {
  if (!expanded || at_digit()) return digits(4);
  const std::size_t start = m_position;
  const bool negative = accept('-');
  if (!negative) expect('+');
  const std::int64_t result = digits(6);
  if (negative && result == 0) {
    m_position = start;
    fail_syntax();
  }
  return negative ? -result : result;
}

CalendarTime TimeScanner::calendar_time(bool expanded_years) {
  CalendarTime result;
  result.year = year(expanded_years);
  expect('-');
  result.month = digits(2);
  expect('-');
  result.day = digits(2);
  if (!accept('t')) expect('T');
  result.hour = digits(2);
  expect(':');
  result.minute = digits(2);
  expect(':');
  result.second = digits(2);
  if (accept('.')) result.microsecond = fraction();
  return result;
}

void TimeScanner::fail_syntax() const {
  throw_text_error(error::ovcore_time_syntax, m_syntax_message, m_text, m_position, m_site);
}

void TimeScanner::fail_invalid() const {
  throw_text_error(error::ovcore_time_invalid, "There is no time '{@text}'", m_text, m_position,
                   m_site);
}

void TimeScanner::fail_overflow() const {
  throw_text_error(error::ovcore_time_overflow, "'{@text}' is out of range", m_text, m_position,
                   m_site);
}

}  // namespace ovcore::impl
