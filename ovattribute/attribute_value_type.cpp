// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value_type.h"

#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"

namespace ovattribute {

// Before the static objects of ordinary priority, here and in whatever uses the library.
#define OV_TYPE(name, text)                                                                    \
  [[gnu::init_priority(101)]] const ValueTypeId ValueTypeId::type##name(ValueTypeId::id##name, \
                                                                        text);
OV_TYPE(Null, "Null")
OV_TYPE(Boolean, "Boolean")
OV_TYPE(Integer, "Integer")
OV_TYPE(String, "String")
OV_TYPE(Double, "Double")
OV_TYPE(Uuid, "UUID")
OV_TYPE(Uri, "URI")
OV_TYPE(AbsoluteTime, "AbsoluteTime")
OV_TYPE(RelativeTime, "RelativeTime")
OV_TYPE(SimpleDateTime, "SimpleDateTime")
OV_TYPE(Binary, "Binary")
OV_TYPE(Serialized, "Serialized")
OV_TYPE(AttributeMap, "AttributeMap")
OV_TYPE(Secured, "Secured")
OV_TYPE(ErrorInfo, "ErrorInfo")
#undef OV_TYPE

const ValueTypeId& ValueTypeId::from_id(EId id) {
  static constexpr const ValueTypeId* by_id[] = {
      &typeNull,   &typeBoolean,    &typeInteger,      &typeString,       &typeDouble,
      &typeUuid,   &typeUri,        &typeAbsoluteTime, &typeRelativeTime, &typeSimpleDateTime,
      &typeBinary, &typeSerialized, &typeAttributeMap, &typeSecured,      &typeErrorInfo};
  if (id < std::size(by_id)) return *by_id[id];
  ovcore::ErrorComposer("Unknown attribute type id.  Value={@typeId}")
      .add("typeId", static_cast<std::int32_t>(id))
      .throw_error(error::ovattribute_value_type_unknown,
                   {"ovattribute/attribute_value_type", "ovattribute::ValueTypeId::from_id()", 78});
}

std::ostream& operator<<(std::ostream& out, const ValueTypeId& type) {
  return out << ovcore::SourceString(type.name());
}

}  // namespace ovattribute
