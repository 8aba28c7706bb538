// SPDX-License-Identifier: Apache-2.0
#include "tests/ovattribute/sample_values.h"

#include <bit>
#include <limits>
#include <string>

#include "ovattribute/impl/visit_elements.h"
#include "ovcore/error_code.h"
#include "ovcore/error_info.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

namespace ovattribute {
namespace {

using ovcore::ErrorCode;
using ovcore::ErrorInfo;

SecuredValue secured(const char* annotation, const std::string& data) {
  ovserialize::MemoryWriter writer;
  writer.begin_structure();
  writer << annotation << "EAX_AES128";
  SecuredValue::KeyId("family", ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff"))
      .write(writer);
  writer.write_binary(data.data(), data.size());
  writer.end_structure();
  ovserialize::MemoryReader reader(writer.detach());
  return SecuredValue(reader);
}

SerializedValue serialized(const char* type, const std::string& data) {
  return SerializedValue(type, ovserialize::MemoryList::create_copy(data.data(), data.size()));
}

template <class T>
std::vector<T> samples();

template <>
std::vector<bool> samples() {
  return {true, false};
}
template <>
std::vector<long long> samples() {
  using Limits = std::numeric_limits<long long>;
  return {0, -2, 7, 8, 1000, Limits::min(), Limits::max()};
}
template <>
std::vector<std::string> samples() {
  return {"", "name", "\xff", std::string("a\0b", 3), std::string(5000, 'x'), "\u00fc\u20ac"};
}
template <>
std::vector<double> samples() {
  return {0.0, -0.0, 1e300, std::bit_cast<double>(0x7ff8000000000001),
          std::numeric_limits<double>::infinity()};
}
template <>
std::vector<ovcore::Uuid> samples() {
  return {ovcore::Uuid(), ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff")};
}
template <>
std::vector<ovuri::UriReference> samples() {
  return {ovuri::UriReference(), ovuri::UriReference("http://example.org/a?b#c")};
}
template <>
std::vector<ovcore::AbsoluteTime> samples() {
  return {ovcore::AbsoluteTime::from_microseconds(0), ovcore::AbsoluteTime::from_microseconds(-1),
          ovcore::AbsoluteTime::from_microseconds(std::numeric_limits<std::int64_t>::max())};
}
template <>
std::vector<ovcore::RelativeTime> samples() {
  return {ovcore::RelativeTime::from_microseconds(0),
          ovcore::RelativeTime::from_microseconds(std::numeric_limits<std::int64_t>::min())};
}
template <>
std::vector<ovcore::SimpleDateTime> samples() {
  return {ovcore::SimpleDateTime(), ovcore::SimpleDateTime(2024, 2, 29, 12, 34, 56, 1)};
}
template <>
std::vector<BinaryValue> samples() {
  return {BinaryValue(), BinaryValue(3), BinaryValue(5000)};
}
template <>
std::vector<SerializedValue> samples() {
  return {SerializedValue(), serialized("t", ""), serialized("type", std::string(5000, 'd')),
          serialized("", "x")};
}
template <>
std::vector<AttributeMap> samples() {
  return {AttributeMap(), AttributeMap{{"a", 1}}, AttributeMap{{"a", 1}, {"b", AttributeValue()}}};
}
template <>
std::vector<SecuredValue> samples() {
  return {SecuredValue(), secured("annotated", std::string(33, 's'))};
}
template <>
std::vector<impl::ErrorInfoPtr> samples() {
  const auto cause = ErrorInfo::create(ErrorCode("error.b", true), "", {}, {});
  return {nullptr, ErrorInfo::create(ErrorCode("error.a", true), "{@p} {@q}",
                                     {{"p", "1"}, {"q", "2"}, {"p", "3"}}, {"f", "g()", 7}, cause)};
}

}  // namespace

std::vector<AttributeValue> sample_values() {
  std::vector<AttributeValue> values{AttributeValue()};
  for (int id = ValueTypeId::idBoolean; id <= int{ValueTypeId::idErrorInfo}; ++id) {
    impl::visit_type(static_cast<ValueTypeId::EId>(id), [&]<class T>(std::type_identity<T>) {
      if constexpr (!std::same_as<T, impl::NullValueType>) {
        const std::vector<T> elements = samples<T>();
        for (const T& element : elements)
          values.emplace_back(element);
        values.emplace_back(impl::ValueTypeTraits<T>::type());
        values.push_back(AttributeValue::list_of(std::vector<T>{elements.back()}));
        values.push_back(AttributeValue::list_of(elements));
      }
    });
  }
  return values;
}

AttributeMap nested_samples(std::size_t depth) {
  MutableAttributeMap map;
  std::size_t number = 0;
  for (const AttributeValue& value : sample_values())
    map.add("value" + std::to_string(number++), value);
  if (depth == 1) return map;
  const AttributeMap inner = nested_samples(depth - 1);
  map.add("scalar", inner);
  map.add("list", AttributeValue{inner, AttributeMap()});
  return map;
}

AttributeMap maps_within_maps(std::size_t depth) {
  AttributeMap map;
  for (std::size_t i = 1; i < depth; ++i)
    map = AttributeMap{{"m", std::move(map)}};
  return map;
}

}  // namespace ovattribute
