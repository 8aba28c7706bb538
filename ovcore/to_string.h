// SPDX-License-Identifier: Apache-2.0
// Numbers as text, the same in every locale.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ovcore/export.h"

namespace ovcore {

/// The text of one number, held in place: no allocation, no locale.
class OV_EXPORT NumberText {
 public:
  /// Decimal.
  template <std::integral I>
  requires(!std::same_as<I, bool> && sizeof(I) <= 8) explicit NumberText(I value) noexcept {
    if constexpr (std::is_signed_v<I>) {
      set(static_cast<std::int64_t>(value));
    } else {
      set(static_cast<std::uint64_t>(value));
    }
  }
  /// The shortest text that reads back to the same number, never mistaken for an integer:
  /// "2.0", "0.1", "1e+300", "-0.0"; else "Infinity", "-Infinity" or "NaN".
  explicit NumberText(double value) noexcept;

  [[nodiscard]] std::string_view view() const noexcept { return {m_text, m_size}; }

 private:
  void set(std::int64_t value) noexcept;
  void set(std::uint64_t value) noexcept;

  std::size_t m_size = 0;
  char m_text[32];
};

template <class N>
requires((std::integral<N> && !std::same_as<N, bool> && sizeof(N) <= 8) || std::same_as<N, double>)
    [[nodiscard]] std::string to_string(N value) {
  return std::string(NumberText(value).view());
}
/// "true" or "false".
[[nodiscard]] inline std::string to_string(std::same_as<bool> auto value) {
  return value ? "true" : "false";
}

}  // namespace ovcore
