// SPDX-License-Identifier: Apache-2.0
// The text of numbers (RFC 8259 section 6).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace ovjson::impl {

constexpr bool is_digit(char c) noexcept {
  return c >= '0' && c <= '9';
}

/// Where a text stops being a number; `at` is null when it is one.
struct NumberFault {
  const char* at;      // may be the end of the text
  bool expects_digit;  // else: no such character may follow
};
[[nodiscard]] NumberFault check_number(std::string_view text) noexcept;

/// The value of a number that is written without fraction and exponent, when 64 bits hold it.
[[nodiscard]] std::optional<std::int64_t> number_as_integer(std::string_view number) noexcept;

/// The nearest double, none when it is infinite. Numbers too small to tell from zero are zero.
[[nodiscard]] std::optional<double> number_as_double(std::string_view number) noexcept;

}  // namespace ovjson::impl
