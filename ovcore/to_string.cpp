// SPDX-License-Identifier: Apache-2.0
#include "ovcore/to_string.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace ovcore {

NumberText::NumberText(double value) noexcept {
  if (!std::isfinite(value)) {
    const std::string_view word = std::isnan(value) ? "NaN" : value > 0 ? "Infinity" : "-Infinity";
    m_size = word.copy(m_text, sizeof m_text);
    return;
  }
  // 24 characters at most: sign, 17 digits, point, exponent of five.
  char* end = std::to_chars(m_text, m_text + sizeof m_text - 2, value).ptr;
  m_size = static_cast<std::size_t>(end - m_text);
  if (view().find_first_of(".e") == std::string_view::npos) {
    m_text[m_size++] = '.';
    m_text[m_size++] = '0';
  }
}

void NumberText::set(std::int64_t value) noexcept {
  m_size =
      static_cast<std::size_t>(std::to_chars(m_text, m_text + sizeof m_text, value).ptr - m_text);
}

void NumberText::set(std::uint64_t value) noexcept {
  m_size =
      static_cast<std::size_t>(std::to_chars(m_text, m_text + sizeof m_text, value).ptr - m_text);
}

}  // namespace ovcore
