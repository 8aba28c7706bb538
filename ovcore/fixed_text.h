// SPDX-License-Identifier: Apache-2.0
// Short texts of bounded length, held in place, for types that print without allocating.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace ovcore {

/// Up to `Capacity` bytes of text.
template <std::size_t Capacity>
class FixedText {
 public:
  static_assert(Capacity <= 255);

  [[nodiscard]] std::string_view view() const noexcept { return {m_text, m_size}; }
  [[nodiscard]] std::string str() const { return std::string(view()); }

  /// Adds `size` bytes, which the caller fills in. REQUIRES: they fit, as for `append`.
  [[nodiscard]] char* extend(std::size_t size) noexcept {
    char* const added = m_text + m_size;
    m_size = static_cast<std::uint8_t>(m_size + size);
    return added;
  }
  void append(char c) noexcept { *extend(1) = c; }

 private:
  char m_text[Capacity];
  std::uint8_t m_size = 0;
};

}  // namespace ovcore
