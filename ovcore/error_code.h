// SPDX-License-Identifier: Apache-2.0
// Error codes: dotted lower-camel-case paths such as "error.ovattribute.value.type.mismatch".
// Every prefix that ends before a dot is itself a code, the family of those below it.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"

namespace ovcore {

/// A value type; copies share the text. Equal and ordered by text. The codes of the libraries are
/// constants initialised at compile time, so they serve in static initialisers and at exit.
class OV_EXPORT ErrorCode {
 public:
  /// The empty code, the parent of "error".
  constexpr ErrorCode() noexcept = default;
  /// `permanent`: the text lives as long as the process and is referred to; else it is copied.
  constexpr ErrorCode(const char* text, bool permanent) {
    if (permanent) {
      m_text = SourceString(text);
    } else {
      copy(text);
    }
  }
  /// Copies the text.
  explicit ErrorCode(SourceString text) { copy(text); }

  [[nodiscard]] constexpr SourceString text() const noexcept { return m_text; }
  [[nodiscard]] bool empty() const noexcept { return m_text.empty(); }
  /// The code without its last component; the empty code has itself as parent.
  [[nodiscard]] ErrorCode parent() const;
  /// True for `family` itself and every code below it.
  [[nodiscard]] bool is_a(const ErrorCode& family) const noexcept;

  [[nodiscard]] std::size_t hash() const noexcept {
    return std::hash<std::string_view>()(m_text.view());
  }
  friend bool operator==(const ErrorCode& a, const ErrorCode& b) noexcept {
    return a.m_text == b.m_text;
  }
  friend std::strong_ordering operator<=>(const ErrorCode& a, const ErrorCode& b) noexcept {
    return a.m_text <=> b.m_text;
  }
  friend std::ostream& operator<<(std::ostream& out, const ErrorCode& code) {
    return out << code.m_text;
  }

 private:
  void copy(SourceString text);

  SourceString m_text;
  RefCountPtr<const RefCounted> m_owner;  // null when the text is permanent
};

}  // namespace ovcore

template <>
struct std::hash<ovcore::ErrorCode> {
  std::size_t operator()(const ovcore::ErrorCode& code) const noexcept { return code.hash(); }
};
