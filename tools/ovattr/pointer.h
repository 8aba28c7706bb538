// SPDX-License-Identifier: Apache-2.0
// JSON pointers (RFC 6901) into attribute values.
#pragma once

#include <functional>
#include <memory>
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

  /// As it was parsed.
  [[nodiscard]] const std::string& text() const noexcept { return m_text; }

  /// A name as it stands in a pointer.
  [[nodiscard]] static std::string escaped(const std::string& name);

  /// The value pointed at, empty when there is none. A name leads into a map; an index into a list,
  /// and to a scalar as its only element, where a map with an attribute of that name goes first.
  [[nodiscard]] std::optional<ovattribute::AttributeValue> find_in(
      const ovattribute::AttributeValue& whole) const;

  /// The whole with what `change` makes of the value pointed at in its place. Raises
  /// `ovattribute_invalidParameter` when there is none, or when it is pointed at as an element of a
  /// list: the elements of a list are of one type.
  using Change =
      std::function<ovattribute::AttributeValue(const ovattribute::AttributeValue& value)>;
  [[nodiscard]] ovattribute::AttributeValue replace_in(const ovattribute::AttributeValue& whole,
                                                       const Change& change) const;

 private:
  std::string m_text;
  std::vector<std::string> m_tokens;
};

/// Where a walk is. Places share what is around them, so that walking past many and keeping them
/// costs little, however long their pointers are.
class Place {
 public:
  /// The whole value.
  Place() noexcept = default;
  /// Inside this place, that of a name or an index.
  [[nodiscard]] Place at(std::string token) const;

  [[nodiscard]] bool is_whole() const noexcept { return m_step == nullptr; }
  [[nodiscard]] std::string pointer() const;

 private:
  struct Step {
    std::shared_ptr<const Step> around;
    std::string token;
  };
  std::shared_ptr<const Step> m_step;
};

}  // namespace ovattr
