// SPDX-License-Identifier: Apache-2.0
#include "tests/ovattribute/typed_samples.h"

#include <limits>
#include <span>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_composer.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovcrypto/key.h"
#include "ovserialize/memory_list.h"
#include "ovuri/uri_reference.h"

namespace ovattribute {
namespace {

template <class T>
std::vector<T> ascending_elements();

SecuredValue in_the_clear(const char* text) {
  const auto cipher = SecuredValue::default_cipher_provider()->find_cipher("NULL");
  return SecuredValue(AttributeValue(text), "annotation", {}, ovcrypto::Key(), *cipher);
}

SerializedValue serialized(const char* type, const std::string& data) {
  return SerializedValue(type, ovserialize::MemoryList::create_copy(data.data(), data.size()));
}

BinaryValue binary(const std::string& text) {
  return BinaryValue(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

impl::ErrorInfoPtr error(const char* code) {
  return ovcore::ErrorComposer("text").compose(ovcore::ErrorCode(code, true), {"file", "f()", 1});
}

template <>
std::vector<bool> ascending_elements() {
  return {false, true};
}
template <>
std::vector<long long> ascending_elements() {
  using Limits = std::numeric_limits<long long>;
  return {Limits::min(), -2, 8, Limits::max()};
}
template <>
std::vector<std::string> ascending_elements() {
  return {"", "A", "a", "a" + std::string(100, 'b'), "b", "\x80"};
}
template <>
std::vector<double> ascending_elements() {
  using Limits = std::numeric_limits<double>;
  return {-Limits::infinity(), -1, 0, Limits::denorm_min(), 2.5, Limits::infinity()};
}
template <>
std::vector<ovcore::Uuid> ascending_elements() {
  return {ovcore::Uuid(), ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff"),
          ovcore::Uuid::parse("ff000000-0000-0000-0000-000000000000")};
}
template <>
std::vector<ovuri::UriReference> ascending_elements() {
  return {ovuri::UriReference(), ovuri::UriReference("http://example.org/"),
          ovuri::UriReference("urn:a-longer-text-that-does-not-fit-into-a-small-string")};
}
template <>
std::vector<ovcore::AbsoluteTime> ascending_elements() {
  return {ovcore::AbsoluteTime::min(), ovcore::AbsoluteTime(), ovcore::AbsoluteTime::max()};
}
template <>
std::vector<ovcore::RelativeTime> ascending_elements() {
  return {ovcore::RelativeTime::min(), ovcore::RelativeTime(), ovcore::RelativeTime::max()};
}
template <>
std::vector<ovcore::SimpleDateTime> ascending_elements() {
  return {ovcore::SimpleDateTime(0, 1, 1), ovcore::SimpleDateTime(),
          ovcore::SimpleDateTime(9999, 12, 31, 23, 59, 59, 999999)};
}
template <>
std::vector<BinaryValue> ascending_elements() {
  return {BinaryValue(), BinaryValue(1), binary("ab"),
          binary("abc"), binary("abd"),  binary("\xff")};
}
template <>
std::vector<SerializedValue> ascending_elements() {
  return {SerializedValue(), serialized("", "b"), serialized("t", "a"), serialized("t", "aa")};
}
template <>
std::vector<AttributeMap> ascending_elements() {
  return {AttributeMap(), AttributeMap{{"a", "text"}},
          AttributeMap{{"a", AttributeValue{"x", "y"}}}};
}
template <>
std::vector<SecuredValue> ascending_elements() {
  return {SecuredValue(), in_the_clear("a"), in_the_clear("b")};
}
template <>
std::vector<impl::ErrorInfoPtr> ascending_elements() {
  return {nullptr, error("error.a"), error("error.b")};
}

template <class T>
ElementType element_type() {
  return {
      &impl::ValueTypeTraits<T>::type(),
      [] {
        const std::vector<T> elements = ascending_elements<T>();
        return Elements(elements.begin(), elements.end());
      },
      [](const AttributeValue& value) { return AttributeValue(value.get<T>()); },
      [](const AttributeValue& value, std::size_t i) { return AttributeValue(value.at<T>(i)); },
      [](const AttributeValue& value) {
        const std::span<const T> elements = value.elements<T>();
        return Elements(elements.begin(), elements.end());
      },
      [](const AttributeValue& value) -> const void* { return value.elements<T>().data(); },
      [](const AttributeValue& value) { return impl::ValueTypeTraits<T>::hash(value.get<T>()); },
      [](const Elements& elements) {
        std::vector<T> list;
        for (const AttributeValue& element : elements)
          list.push_back(element.get<T>());
        return AttributeValue::list_of(list);
      },
      [](AttributeValue& value, const AttributeValue& element) { value.set(element.get<T>()); },
      [](AttributeValue& value, const AttributeValue& element) { value.append(element.get<T>()); }};
}

}  // namespace

const std::vector<ElementType>& element_types() {
  static const std::vector<ElementType> types{element_type<bool>(),
                                              element_type<long long>(),
                                              element_type<std::string>(),
                                              element_type<double>(),
                                              element_type<ovcore::Uuid>(),
                                              element_type<ovuri::UriReference>(),
                                              element_type<ovcore::AbsoluteTime>(),
                                              element_type<ovcore::RelativeTime>(),
                                              element_type<ovcore::SimpleDateTime>(),
                                              element_type<BinaryValue>(),
                                              element_type<SerializedValue>(),
                                              element_type<AttributeMap>(),
                                              element_type<SecuredValue>(),
                                              element_type<impl::ErrorInfoPtr>()};
  return types;
}

std::vector<AttributeValue> one_of_each_type() {
  std::vector<AttributeValue> values{AttributeValue()};
  for (const ElementType& type : element_types())
    values.push_back(type.samples().back());
  return values;
}

}  // namespace ovattribute
