// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <ostream>
#include <string>

#include "ovcore/export.h"
#include "ovcore/source_string.h"

namespace ovuri {

/// A URI or relative reference, its text kept as given.
class OV_EXPORT UriReference {
 public:
  /// The empty reference.
  UriReference() = default;

  [[nodiscard]] const std::string& as_string() const noexcept { return m_text; }
  [[nodiscard]] std::size_t hash() const noexcept { return std::hash<std::string>()(m_text); }

  friend bool operator==(const UriReference&, const UriReference&) = default;
  friend std::strong_ordering operator<=>(const UriReference&, const UriReference&) = default;
  friend std::ostream& operator<<(std::ostream& out, const UriReference& uri) {
    return out << ovcore::SourceString(uri.m_text);
  }

 private:
  std::string m_text;
};

}  // namespace ovuri
