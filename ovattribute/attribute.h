// SPDX-License-Identifier: Apache-2.0
// A name and a value.
#pragma once

#include <cstddef>
#include <ostream>
#include <utility>

#include "ovattribute/attribute_name.h"
#include "ovattribute/attribute_value.h"
#include "ovcore/export.h"

namespace ovattribute {

/// Ordered by name (token identity), then by value.
class OV_EXPORT Attribute {
 public:
  /// The empty name and Null.
  Attribute() noexcept = default;
  Attribute(AttributeName name, AttributeValue value) noexcept
      : m_name(std::move(name)), m_value(std::move(value)) {}

  [[nodiscard]] const AttributeName& name() const noexcept { return m_name; }
  [[nodiscard]] const AttributeValue& value() const noexcept { return m_value; }

  void swap(Attribute& other) noexcept {
    m_name.swap(other.m_name);
    m_value.swap(other.m_value);
  }
  friend void swap(Attribute& a, Attribute& b) noexcept { a.swap(b); }

  /// The name, then the value. The coder has the name only: names inside the value are written and
  /// read as they are, unlike those of a map. An attribute that could not be read is as it was.
  void write(ovserialize::Writer& writer) const;
  void write(ovserialize::Writer& writer, IAttributeNameEncoder& encoder) const;
  void read(ovserialize::Reader& reader);
  void read(ovserialize::Reader& reader, IAttributeNameDecoder& decoder);

  [[nodiscard]] std::size_t hash() const { return m_name.hash() ^ m_value.hash(); }

  friend bool operator==(const Attribute& a, const Attribute& b) {
    return a.m_name == b.m_name && a.m_value == b.m_value;
  }
  friend bool operator<(const Attribute& a, const Attribute& b) {
    return a.m_name == b.m_name ? a.m_value.compare(b.m_value) < 0 : a.m_name < b.m_name;
  }
  friend bool operator>(const Attribute& a, const Attribute& b) { return b < a; }
  friend bool operator<=(const Attribute& a, const Attribute& b) { return !(b < a); }
  friend bool operator>=(const Attribute& a, const Attribute& b) { return !(a < b); }

 private:
  AttributeName m_name;
  AttributeValue m_value;
};

/// `'name' => value`, the value with the default trace formatter at level 0.
OV_EXPORT std::ostream& operator<<(std::ostream& out, const Attribute& attribute);

OV_EXPORT ovserialize::Writer& operator<<(ovserialize::Writer& writer, const Attribute& attribute);
OV_EXPORT ovserialize::Reader& operator>>(ovserialize::Reader& reader, Attribute& attribute);

}  // namespace ovattribute
