// SPDX-License-Identifier: Apache-2.0
// The types that an attribute value can have.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "ovcore/export.h"

namespace ovattribute {

/// Names the type of a value. There are fifteen instances, the static members below, and no others;
/// types are compared and ordered by their number, which is also their tag in the marshaled form.
class OV_EXPORT ValueTypeId {
 public:
  enum EId : std::uint32_t {
    idNull = 0,
    idBoolean = 1,
    idInteger = 2,
    idString = 3,
    idDouble = 4,
    idUuid = 5,
    idUri = 6,
    idAbsoluteTime = 7,
    idRelativeTime = 8,
    idSimpleDateTime = 9,
    idBinary = 10,
    idSerialized = 11,
    idAttributeMap = 12,
    idSecured = 13,
    idErrorInfo = 14,
  };

  static const ValueTypeId typeNull;
  static const ValueTypeId typeBoolean;
  static const ValueTypeId typeInteger;
  static const ValueTypeId typeString;
  static const ValueTypeId typeDouble;
  static const ValueTypeId typeUuid;
  static const ValueTypeId typeUri;
  static const ValueTypeId typeAbsoluteTime;
  static const ValueTypeId typeRelativeTime;
  static const ValueTypeId typeSimpleDateTime;
  static const ValueTypeId typeBinary;
  static const ValueTypeId typeSerialized;
  static const ValueTypeId typeAttributeMap;
  static const ValueTypeId typeSecured;
  static const ValueTypeId typeErrorInfo;

  ValueTypeId(const ValueTypeId&) = delete;
  ValueTypeId& operator=(const ValueTypeId&) = delete;

  /// The instance of that number. Raises `ovattribute_value_type_unknown` for any other number.
  static const ValueTypeId& from_id(EId id);

  [[nodiscard]] EId id() const noexcept { return m_id; }
  [[nodiscard]] const std::string& name() const;

  /// The difference of the numbers: negative, 0 or positive.
  [[nodiscard]] int compare(const ValueTypeId& other) const noexcept {
    return static_cast<int>(m_id) - static_cast<int>(other.m_id);
  }
  friend bool operator==(const ValueTypeId& a, const ValueTypeId& b) noexcept {
    return a.m_id == b.m_id;
  }

 private:
  // Initialised at compile time: programs linked to the library refer to copies of these objects
  // that the loader makes before any code has run.
  explicit constexpr ValueTypeId(EId id) noexcept : m_id(id) {}

  const EId m_id;
};

/// Writes the name.
OV_EXPORT std::ostream& operator<<(std::ostream& out, const ValueTypeId& type);

}  // namespace ovattribute
