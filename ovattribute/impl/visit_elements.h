// SPDX-License-Identifier: Apache-2.0
// The one way to walk values by type.
#pragma once

#include <span>
#include <string>
#include <type_traits>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"

namespace ovattribute::impl {

/// Calls `f(std::type_identity<T>())` with the stored type of a type number.
template <class F>
decltype(auto) visit_type(ValueTypeId::EId id, F&& f) {
  switch (id) {
    case ValueTypeId::idNull:
      break;
    case ValueTypeId::idBoolean:
      return f(std::type_identity<bool>());
    case ValueTypeId::idInteger:
      return f(std::type_identity<long long>());
    case ValueTypeId::idString:
      return f(std::type_identity<std::string>());
    case ValueTypeId::idDouble:
      return f(std::type_identity<double>());
    case ValueTypeId::idUuid:
      return f(std::type_identity<ovcore::Uuid>());
    case ValueTypeId::idUri:
      return f(std::type_identity<ovuri::UriReference>());
    case ValueTypeId::idAbsoluteTime:
      return f(std::type_identity<ovcore::AbsoluteTime>());
    case ValueTypeId::idRelativeTime:
      return f(std::type_identity<ovcore::RelativeTime>());
    case ValueTypeId::idSimpleDateTime:
      return f(std::type_identity<ovcore::SimpleDateTime>());
    case ValueTypeId::idBinary:
      return f(std::type_identity<BinaryValue>());
    case ValueTypeId::idSerialized:
      return f(std::type_identity<SerializedValue>());
    case ValueTypeId::idAttributeMap:
      return f(std::type_identity<AttributeMap>());
    case ValueTypeId::idSecured:
      return f(std::type_identity<SecuredValue>());
    case ValueTypeId::idErrorInfo:
      return f(std::type_identity<ErrorInfoPtr>());
  }
  return f(std::type_identity<NullValueType>());
}

/// Calls `f(std::span<const T>)` with the elements of the value.
template <class F>
decltype(auto) visit_elements(const AttributeValue& value, F&& f) {
  return visit_type(value.type().id(), [&]<class T>(std::type_identity<T>) -> decltype(auto) {
    return f(value.elements<T>());
  });
}

}  // namespace ovattribute::impl
