// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/typed_attribute.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

ovcore::SourceLocation check(const char* function, std::uint32_t line) {
  return {"ovattribute/attribute_map", function, line};
}
const auto by_scalar_type = check("ovattribute::AttributeMapBase::check_scalar_of_type()", 212);
const auto by_size = check("ovattribute::AttributeMapBase::check_scalar_of_type()", 219);
const auto by_type = check("ovattribute::AttributeMapBase::check_attribute_of_type()", 235);
const auto by_default = check("ovattribute::AttributeMapBase::check_default_of_type()", 251);
const auto by_name = check("ovattribute::AttributeMapBase::throw_attribute_not_found()", 263);

/// Everything that one type of attribute can be asked for, with two elements of it.
template <class T>
void check_type(const char* type_name, const T& a, const T& b) {
  SCOPED_TRACE(type_name);
  const TypedAttribute<T> attribute("x");
  const AttributeValue list{a, b};
  const auto list_of_one = AttributeValue::list_of(std::vector<T>{b});
  const AttributeValue none(impl::ValueTypeTraits<T>::type());
  EXPECT_EQ(attribute.name(), "x");

  MutableAttributeMap map;
  attribute.set(map, a);
  EXPECT_EQ(map, (AttributeMap{{"x", a}}));
  EXPECT_EQ(attribute.get(map), a);
  EXPECT_EQ(&attribute.get(map), attribute.find(map)) << "a reference into the map";
  EXPECT_EQ(attribute.get_or(map, b), a);
  EXPECT_EQ(attribute.value_or(map, list), AttributeValue(a));
  ASSERT_EQ(attribute.elements(map).size(), 1u);
  EXPECT_EQ(&attribute.elements(map)[0], attribute.find(map));

  map.add("x", list_of_one);
  EXPECT_EQ(attribute.get(map), b);
  EXPECT_EQ(*attribute.find(map), b);

  const std::string wanted =
      std::string("Expecting value of type '") + type_name + "'; actual type ";
  for (const auto& [value, size] : {std::pair(list, 2), std::pair(none, 0)}) {
    map.add("x", value);
    const std::string message =
        "Attribute 'x': Expecting scalar, found value with cardinality " + std::to_string(size);
    const auto& code = error::ovattribute_value_cardinality_expectSingle;
    EXPECT_ERROR(attribute.get(map), code, message, by_size);
    EXPECT_ERROR(attribute.get_or(map, a), code, message, by_size);
    EXPECT_ERROR(attribute.find(map), code, message, by_size);
    EXPECT_EQ(attribute.elements(map).size(), static_cast<std::size_t>(size));
    EXPECT_EQ(attribute.value_or(map, a), map.query("x"));
  }

  map.add("x", AttributeValue());
  const std::string mismatch = "Attribute 'x': " + wanted + "'Null'";
  const auto& code = error::ovattribute_value_type_mismatch;
  EXPECT_ERROR(attribute.get(map), code, mismatch, by_scalar_type);
  EXPECT_ERROR(attribute.get_or(map, a), code, mismatch, by_scalar_type);
  EXPECT_ERROR(attribute.find(map), code, mismatch, by_scalar_type);
  EXPECT_ERROR(attribute.elements(map), code, mismatch, by_type);
  EXPECT_ERROR(attribute.value_or(map, a), code, mismatch, by_type);

  const AttributeMap empty;
  const char* const not_found = "Attribute 'x' not found in map";
  EXPECT_ERROR(attribute.get(empty), error::ovattribute_map_attributeNotFound, not_found, by_name);
  EXPECT_ERROR(attribute.elements(empty), error::ovattribute_map_attributeNotFound, not_found,
               by_name);
  EXPECT_EQ(attribute.get_or(empty, b), b);
  EXPECT_EQ(attribute.find(empty), nullptr);
  EXPECT_EQ(attribute.value_or(empty, list), list);

  // A wrong default shows at once, not only on the day when the attribute is missing.
  map.add("x", a);
  for (const AttributeMapBase* m :
       {static_cast<const AttributeMapBase*>(&map), static_cast<const AttributeMapBase*>(&empty)}) {
    EXPECT_ERROR(attribute.value_or(*m, AttributeValue()), code,
                 std::string("Expecting default value of type '") + type_name +
                     "' for attribute 'x'; actual default value type: 'Null'",
                 by_default);
  }
}

TEST(TypedAttribute, GivesElementsOfItsTypeOnly) {
  check_type<bool>("Boolean", true, false);
  check_type<long long>("Integer", 5, -70'000'000'000);
  check_type<std::string>("String", std::string(200, 'x'), "");
  check_type<double>("Double", 0.5, -1e300);
  check_type<ovcore::Uuid>("UUID", ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff"), {});
  check_type<ovuri::UriReference>("URI", ovuri::UriReference("http://example.org/"), {});
  check_type<ovcore::AbsoluteTime>("AbsoluteTime", ovcore::AbsoluteTime::from_microseconds(1), {});
  check_type<ovcore::RelativeTime>("RelativeTime", ovcore::RelativeTime::from_microseconds(-1), {});
  check_type<ovcore::SimpleDateTime>("SimpleDateTime", {2024, 2, 29, 12, 34, 56, 1}, {});
  check_type<BinaryValue>("Binary", BinaryValue(3), {});
  check_type<AttributeMap>("AttributeMap", AttributeMap{{"y", 1}}, {});
}

TEST(TypedAttribute, ChecksTheRangeOfOtherIntegerTypes) {
  const TypedAttribute<std::int8_t> small("x");
  const TypedAttribute<std::uint64_t> big("x");
  const auto& code = error::ovattribute_value_conversion_data;
  MutableAttributeMap map;
  for (const long long value : {-129, -128, -1, 0, 127, 128}) {
    map.add("x", value);
    if (value >= -128 && value <= 127) {
      EXPECT_EQ(small.get(map), value);
      EXPECT_EQ(small.get_or(map, 1), value);
    } else {
      EXPECT_EQ(ovtest::error_of([&] { static_cast<void>(small.get(map)); })->code(), code);
      EXPECT_EQ(ovtest::error_of([&] { static_cast<void>(small.get_or(map, 1)); })->code(), code);
    }
    EXPECT_EQ(*small.find(map), value) << "as it is stored";
    EXPECT_EQ(small.elements(map)[0], value);
    if (value < 0) {
      EXPECT_EQ(ovtest::error_of([&] { static_cast<void>(big.get(map)); })->code(), code);
    }
  }
  big.set(map, 9'223'372'036'854'775'807u);
  EXPECT_EQ(big.get(map), 9'223'372'036'854'775'807u);
  EXPECT_EQ(ovtest::error_of([&] { big.set(map, 9'223'372'036'854'775'808u); })->code(), code);
  EXPECT_EQ(big.get(map), 9'223'372'036'854'775'807u) << "the map is as it was";
}

}  // namespace
}  // namespace ovattribute
