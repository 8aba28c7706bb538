// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value_type.h"

#include <array>
#include <iterator>

#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/impl/at_load.h"
#include "ovcore/static_instance.h"

namespace ovattribute {

#define OV_TYPES(X)                   \
  X(Null, "Null")                     \
  X(Boolean, "Boolean")               \
  X(Integer, "Integer")               \
  X(String, "String")                 \
  X(Double, "Double")                 \
  X(Uuid, "UUID")                     \
  X(Uri, "URI")                       \
  X(AbsoluteTime, "AbsoluteTime")     \
  X(RelativeTime, "RelativeTime")     \
  X(SimpleDateTime, "SimpleDateTime") \
  X(Binary, "Binary")                 \
  X(Serialized, "Serialized")         \
  X(AttributeMap, "AttributeMap")     \
  X(Secured, "Secured")               \
  X(ErrorInfo, "ErrorInfo")

#define OV_TYPE(name, text) \
  constinit const ValueTypeId ValueTypeId::type##name(ValueTypeId::id##name);
OV_TYPES(OV_TYPE)
#undef OV_TYPE

const std::string& ValueTypeId::name() const {
#define OV_TYPE(name, text) std::string(text),
  static const ovcore::StaticInstance<std::array<std::string, 15>> names(
      std::array<std::string, 15>{OV_TYPES(OV_TYPE)});
#undef OV_TYPE
  return names.get()[m_id];
}

namespace {

[[maybe_unused]] const bool g_types_ready =
    ovcore::impl::at_load([] { static_cast<void>(ValueTypeId::typeNull.name()); });

}  // namespace

const ValueTypeId& ValueTypeId::from_id(EId id) {
#define OV_TYPE(name, text) &type##name,
  static constexpr const ValueTypeId* by_id[] = {OV_TYPES(OV_TYPE)};
#undef OV_TYPE
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
