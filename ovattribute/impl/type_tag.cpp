// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/impl/type_tag.h"

#include <cstdint>

#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovserialize/reader.h"

namespace ovattribute::impl {

ValueTypeId::EId read_type_tag(ovserialize::Reader& reader) {
  const std::uint32_t tag = reader.read_uint();
  if (tag <= ValueTypeId::idErrorInfo) return static_cast<ValueTypeId::EId>(tag);
  ovcore::ErrorComposer("Unknown marshaled attribute type id.  Value={@typeId}")
      .add("typeId", static_cast<std::int32_t>(tag))
      .throw_error(
          error::ovattribute_value_type_unknown,
          {"ovattribute/attribute_value_marshaler", "ovattribute::read_attribute_value()", 0});
}

}  // namespace ovattribute::impl
