// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/impl/key_marshaler.h"

#include "ovattribute/attribute_value_type.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/impl/type_tag.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/reader.h"

namespace ovattribute::impl {
namespace {

ovcore::SourceLocation location() {
  return {"ovattribute/attribute_value_marshaler", "ovattribute::read_key_as_binary()", 0};
}

[[noreturn]] void throw_not_binary(ValueTypeId::EId found) {
  ovcore::ErrorComposer("Only Binary attribute values can be read as Key.  TypeFound={@actualType}")
      .add("expectedType", ValueTypeId::typeBinary.name())
      .add("actualType", ValueTypeId::from_id(found).name())
      .throw_error(error::ovattribute_value_type_mismatch, location());
}

/// Reads the tag, if there is one, and checks the type.
void read_type(ovserialize::Reader& reader) {
  switch (reader.item_kind()) {
    case ovserialize::item_binary:
      return;
    case ovserialize::item_null:
      throw_not_binary(ValueTypeId::idNull);
    case ovserialize::item_boolean:
      throw_not_binary(ValueTypeId::idBoolean);
    case ovserialize::item_integer:
      throw_not_binary(ValueTypeId::idInteger);
    case ovserialize::item_double:
      throw_not_binary(ValueTypeId::idDouble);
    case ovserialize::item_string:
      throw_not_binary(ValueTypeId::idString);
    case ovserialize::item_absolute_time:
      throw_not_binary(ValueTypeId::idAbsoluteTime);
    case ovserialize::item_relative_time:
      throw_not_binary(ValueTypeId::idRelativeTime);
    case ovserialize::item_uuid:
      throw_not_binary(ValueTypeId::idUuid);
    default:
      break;
  }
  const ValueTypeId::EId type = read_type_tag(reader);
  if (type != ValueTypeId::idBinary) throw_not_binary(type);
  if (reader.item_kind() != ovserialize::item_sequence) return;
  ovcore::throw_error(error::ovattribute_value_type_mismatch,
                      "Only scalar binary attributes can be read as Key", location());
}

}  // namespace

ovcrypto::Key read_key_as_binary(ovserialize::Reader& reader) {
  read_type(reader);
  ovcrypto::Key key;
  key.read(*reader.read_binary_stream());
  return key;
}

}  // namespace ovattribute::impl
