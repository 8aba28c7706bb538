// SPDX-License-Identifier: Apache-2.0
// Text as pointer and length: what every function that only reads text takes.
#pragma once

#include <compare>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

namespace ovcore {

/// A view of bytes that somebody else owns; it is not kept beyond the call it is passed to unless
/// the callee says so. Bytes are 8-bit characters of any encoding and may include NUL.
class SourceString {
 public:
  constexpr SourceString() noexcept = default;
  /// NUL-terminated text; null is the empty text.
  constexpr SourceString(const char* text) noexcept
      : m_view(text != nullptr ? std::string_view(text) : std::string_view()) {}
  constexpr SourceString(const char* text, std::size_t size) noexcept : m_view(text, size) {}
  constexpr SourceString(std::string_view text) noexcept : m_view(text) {}
  SourceString(const std::string& text) noexcept : m_view(text) {}

  [[nodiscard]] constexpr const char* data() const noexcept { return m_view.data(); }
  [[nodiscard]] constexpr std::size_t size() const noexcept { return m_view.size(); }
  [[nodiscard]] constexpr bool empty() const noexcept { return m_view.empty(); }
  [[nodiscard]] constexpr std::string_view view() const noexcept { return m_view; }
  [[nodiscard]] std::string str() const { return std::string(m_view); }
  constexpr operator std::string_view() const noexcept { return m_view; }

  [[nodiscard]] constexpr const char* begin() const noexcept { return m_view.data(); }
  [[nodiscard]] constexpr const char* end() const noexcept { return begin() + size(); }

  /// Byte-wise.
  friend constexpr bool operator==(SourceString a, SourceString b) noexcept {
    return a.m_view == b.m_view;
  }
  friend constexpr std::strong_ordering operator<=>(SourceString a, SourceString b) noexcept {
    return a.m_view <=> b.m_view;
  }
  /// Takes the stream's width and pads nothing, as all that the libraries print.
  friend std::ostream& operator<<(std::ostream& out, SourceString text) {
    out.width(0);
    return out.write(text.data(), static_cast<std::streamsize>(text.size()));
  }

 private:
  std::string_view m_view;
};

}  // namespace ovcore
