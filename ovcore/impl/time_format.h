// SPDX-License-Identifier: Apache-2.0
// The parts that the texts of the time types have in common, both ways.
#pragma once

#include <cstdint>
#include <string_view>

#include "ovcore/impl/calendar.h"
#include "ovcore/impl/raise_site.h"
#include "ovcore/source_string.h"
#include "ovcore/time.h"

namespace ovcore::impl {

void append_number(TimeText& out, std::uint64_t value) noexcept;
/// Point and up to six digits, without trailing zeros; nothing for 0.
void append_fraction(TimeText& out, unsigned microseconds) noexcept;
/// "2024-02-29T12:34:56.5"; years outside 0000..9999 with a sign and six digits.
void append_calendar_time(TimeText& out, const CalendarTime& time) noexcept;

/// Walks over a text from front to back and raises an error with the position where it stops
/// making sense.
class TimeScanner {
 public:
  /// `syntax_message`: see `throw_text_error`.
  TimeScanner(SourceString text, const char* syntax_message, const RaiseSite& site) noexcept
      : m_text(text), m_syntax_message(syntax_message), m_site(site) {}

  [[nodiscard]] bool at_end() const noexcept { return m_position == m_text.size(); }
  /// Steps over `c` when it is next.
  [[nodiscard]] bool accept(char c) noexcept;
  void expect(char c);
  void expect_end() const;
  /// Exactly `count` digits, at most nine.
  [[nodiscard]] unsigned digits(unsigned count);
  /// Any number of digits, at least one. Raises `ovcore_time_overflow` beyond 64 bits.
  [[nodiscard]] std::int64_t number();
  /// The digits behind the point, at least one, as microseconds.
  [[nodiscard]] unsigned fraction();
  /// What `append_calendar_time` writes, with "t" for "T" too.
  /// `expanded_years`: with a sign and six digits; four digits are always taken.
  [[nodiscard]] CalendarTime calendar_time(bool expanded_years);

  [[noreturn]] void fail_syntax() const;
  [[noreturn]] void fail_invalid() const;
  [[noreturn]] void fail_overflow() const;

 private:
  [[nodiscard]] bool at_digit() const noexcept;
  [[nodiscard]] std::int64_t year(bool expanded);

  std::string_view m_text;
  std::size_t m_position = 0;
  const char* m_syntax_message;
  RaiseSite m_site;
};

}  // namespace ovcore::impl
