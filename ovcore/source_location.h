// SPDX-License-Identifier: Apache-2.0
// Where an error was raised.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace ovcore {

/// The place is part of an error's identity for whoever searches logs: file, function and line are
/// constants of the raise site and do not move with the code around them.
struct SourceLocation {
  /// Source unit without ending, such as "ovattribute/attribute_map"; empty when unknown.
  std::string file;
  /// Qualified name followed by "()".
  std::string function;
  /// 0 when the site states none.
  std::uint32_t line = 0;

  friend auto operator<=>(const SourceLocation&, const SourceLocation&) = default;
  friend bool operator==(const SourceLocation&, const SourceLocation&) = default;
};

}  // namespace ovcore
