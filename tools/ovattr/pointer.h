// SPDX-License-Identifier: Apache-2.0
// JSON pointers (RFC 6901) into attribute values.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ovattribute/attribute_value.h"

namespace ovattr {

/// A row of names and indices, from the whole value inwards.
class Pointer {
 public:
  /// Empty when the text is no pointer.
  [[nodiscard]] static std::optional<Pointer> parse(const std::string& text);

  [[nodiscard]] const std::vector<std::string>& tokens() const noexcept { return m_tokens; }

  /// The value pointed at, empty when there is none. A name leads into a map; an index into a list,
  /// and to a scalar as its only element, where a map with an attribute of that name goes first.
  [[nodiscard]] std::optional<ovattribute::AttributeValue> find_in(
      const ovattribute::AttributeValue& whole) const;

 private:
  std::vector<std::string> m_tokens;
};

}  // namespace ovattr
