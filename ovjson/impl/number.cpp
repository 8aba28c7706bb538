// SPDX-License-Identifier: Apache-2.0
#include "ovjson/impl/number.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace ovjson::impl {
namespace {

// Tells a number too large for a double from one too small: whether its first digit that is not
// zero stands before the point, once the exponent is applied. Every such number has that digit.
bool is_large(std::string_view number) noexcept {
  const std::size_t e = std::min(number.find_first_of("eE"), number.size());
  const std::string_view digits = number.substr(0, e);
  const std::size_t point = std::min(digits.find('.'), digits.size());
  const std::size_t first = digits.find_first_of("123456789");
  const auto power = static_cast<std::int64_t>(point) - static_cast<std::int64_t>(first);

  std::string_view exponent = number.substr(std::min(e + 1, number.size()));
  if (exponent.empty()) return power > 0;
  if (exponent[0] == '+') exponent.remove_prefix(1);
  std::int64_t value = 0;
  const auto [end, error] =
      std::from_chars(exponent.data(), exponent.data() + exponent.size(), value);
  if (error != std::errc()) return exponent[0] != '-';
  return value > -power;
}

}  // namespace

NumberFault check_number(std::string_view text) noexcept {
  const char* p = text.data();
  const char* const end = p + text.size();
  const auto skip_digits = [&p, end] {
    const char* const first = p;
    while (p != end && is_digit(*p))
      ++p;
    return p != first;
  };
  if (p != end && *p == '-') ++p;
  if (p != end && *p == '0') {
    ++p;
  } else if (!skip_digits()) {
    return {p, true};
  }
  if (p != end && *p == '.') {
    ++p;
    if (!skip_digits()) return {p, true};
  }
  if (p != end && (*p == 'e' || *p == 'E')) {
    ++p;
    if (p != end && (*p == '+' || *p == '-')) ++p;
    if (!skip_digits()) return {p, true};
  }
  return {p == end ? nullptr : p, false};
}

std::optional<std::int64_t> number_as_integer(std::string_view number) noexcept {
  const char* const end = number.data() + number.size();
  std::int64_t value = 0;
  const auto [stop, error] = std::from_chars(number.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::optional<double> number_as_double(std::string_view number) noexcept {
  // Up to 15 digits are exact in a double; the sign of a zero is not in an integer.
  if (number.size() <= 15) {
    const std::optional<std::int64_t> integer = number_as_integer(number);
    if (integer.has_value() && *integer != 0) return static_cast<double>(*integer);
  }
  double value = 0;
  const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
  if (result.ec == std::errc()) return value;
  if (is_large(number)) return std::nullopt;
  return number[0] == '-' ? -0.0 : 0.0;
}

}  // namespace ovjson::impl
