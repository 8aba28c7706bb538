// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "ovattribute/error_codes.h"
#include "tests/ovattribute/typed_samples.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using impl::NullValueType;

constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
const char* const at_text = "ovattribute::TypedValue<>::at";
const char* const subrange_text = "ovattribute::TypedValue<>::subrange";

void expect_no_single_element(auto&& get, bool empty) {
  if (empty) {
    EXPECT_ERROR(
        get(), error::ovattribute_value_cardinality_expectNonzero,
        "Expecting non-empty attribute value",
        {"ovattribute/attribute_value_impl", "ovattribute::impl::throw_array_empty_error()", 338});
  } else {
    EXPECT_ERROR(get(), error::ovattribute_value_cardinality_expectSingle,
                 "Attribute value 'get' invoked on multi-value attribute",
                 {"ovattribute/attribute_value_impl",
                  "ovattribute::impl::throw_get_on_multi_value_attribute()", 347});
  }
}

void expect_elements(const ElementType& type, const AttributeValue& value,
                     const Elements& expected) {
  EXPECT_EQ(&value.type(), type.type);
  EXPECT_FALSE(value.is_null());
  EXPECT_EQ(value.size(), expected.size());
  EXPECT_EQ(value.empty(), expected.empty());
  EXPECT_EQ(value.is_multivalue(), expected.size() > 1);
  EXPECT_EQ(type.elements(value), expected);
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(type.at(value, i), expected[i]);
  EXPECT_OUT_OF_RANGE(type.at(value, expected.size()), at_text);
  EXPECT_OUT_OF_RANGE(type.at(value, most), at_text);
  if (expected.size() == 1) {
    EXPECT_EQ(type.get(value), expected[0]);
  } else {
    expect_no_single_element([&] { return type.get(value); }, expected.empty());
  }
}

TEST(AttributeValue, HoldsAnyNumberOfElements) {
  for (const ElementType& type : element_types()) {
    SCOPED_TRACE(*type.type);
    const Elements elements = type.samples();
    for (const AttributeValue& element : elements)
      expect_elements(type, element, {element});
    expect_elements(type, AttributeValue(*type.type), {});
    for (std::size_t count = 0; count <= elements.size(); ++count) {
      const Elements some(elements.begin(), elements.begin() + static_cast<std::ptrdiff_t>(count));
      expect_elements(type, type.list(some), some);
    }
  }
}

TEST(AttributeValue, SelectsElements) {
  for (const ElementType& type : element_types()) {
    SCOPED_TRACE(*type.type);
    const AttributeValue a = type.samples().front();
    const AttributeValue b = type.samples().back();
    struct Case {
      AttributeValue value;
      std::size_t first;
      std::size_t count;
      Elements elements;
    };
    const AttributeValue value = type.list({a, b, b});
    const AttributeValue none = b.subrange(1);
    const Case cases[] = {{value, 0, 3, {a, b, b}},
                          {value, 0, 0, {}},
                          {value, 0, 1, {a}},
                          {value, 0, 2, {a, b}},
                          {value, 1, 0, {}},
                          {value, 1, 2, {b, b}},
                          {value, 3, 0, {}},
                          {b, 0, 1, {b}},
                          {b, 0, 0, {}},
                          {b, 1, 0, {}},
                          {none, 0, 0, {}}};
    for (const Case& c : cases) {
      expect_elements(type, c.value.subrange(c.first, c.count), c.elements);
      if (c.first + c.count == c.value.size()) {
        expect_elements(type, c.value.subrange(c.first), c.elements);
      }
    }
    const Case refused[] = {{value, 0, 4, {}},    {value, 1, 3, {}}, {value, 2, 2, {}},
                            {value, 3, 1, {}},    {value, 4, 0, {}}, {value, 2, most, {}},
                            {value, most, 2, {}}, {b, 1, 1, {}},     {b, 2, 0, {}},
                            {none, 0, 1, {}},     {none, 1, 0, {}}};
    for (const Case& c : refused) {
      EXPECT_OUT_OF_RANGE(c.value.subrange(c.first, c.count), subrange_text);
      if (c.first > c.value.size()) {
        EXPECT_OUT_OF_RANGE(c.value.subrange(c.first), subrange_text);
      }
    }
    expect_elements(type, value, {a, b, b});
  }
}

TEST(AttributeValue, SaysWhichTypeItIsNot) {
  const char* const names[] = {"Null",         "Boolean",        "Integer",  "String",
                               "Double",       "UUID",           "URI",      "AbsoluteTime",
                               "RelativeTime", "SimpleDateTime", "Binary",   "Serialized",
                               "AttributeMap", "Secured",        "ErrorInfo"};
  const std::vector<AttributeValue> values = one_of_each_type();
  ASSERT_EQ(values.size(), 15u);
  for (std::size_t actual = 0; actual < values.size(); ++actual) {
    for (std::uint32_t expected = 0; expected < values.size(); ++expected) {
      const AttributeValue& value = values[actual];
      const auto check = [&] {
        value.throw_if_not_type(ValueTypeId::from_id(static_cast<ValueTypeId::EId>(expected)));
      };
      if (expected == actual) {
        EXPECT_NO_THROW(check());
        continue;
      }
      const auto info = ovtest::error_of(check);
      ovtest::expect_error(info, error::ovattribute_value_type_mismatch,
                           std::string("Attribute value type mismatch.  Expected=") +
                               names[expected] + ", ActualType=" + names[actual],
                           {"ovattribute/attribute_value", "ovattribute::raise_type_error()", 137});
      ASSERT_TRUE(info);
      EXPECT_EQ(info->message_template(),
                "Attribute value type mismatch.  Expected={@expectedType}, "
                "ActualType={@actualType}");
      EXPECT_EQ(info->parameters(),
                (std::vector<ovcore::ErrorInfo::Parameter>{{"expectedType", names[expected]},
                                                           {"actualType", names[actual]}}));
    }
  }
}

TEST(AttributeValue, IsReadAsItsOwnTypeOnly) {
  const std::vector<ElementType>& types = element_types();
  for (std::size_t i = 0; i < types.size(); ++i) {
    const ElementType& type = types[i];
    const ElementType& other = types[(i + 1) % types.size()];
    const Elements elements = type.samples();
    // The type comes before the number of elements.
    for (const AttributeValue& value : {elements[0], type.list({}), type.list(elements)}) {
      const std::string message = "Attribute value type mismatch.  Expected=" + other.type->name() +
                                  ", ActualType=" + type.type->name();
      const ovcore::SourceLocation location{"ovattribute/attribute_value",
                                            "ovattribute::raise_type_error()", 137};
      const ovcore::ErrorCode& code = error::ovattribute_value_type_mismatch;
      EXPECT_ERROR(other.get(value), code, message, location);
      EXPECT_ERROR(other.at(value, 7), code, message, location);
      EXPECT_ERROR(other.elements(value), code, message, location);
      AttributeValue changed = value;
      EXPECT_ERROR(other.append(changed, other.samples()[0]), code, message, location);
      EXPECT_EQ(changed, value);
    }
  }
}

TEST(AttributeValue, IsNullByDefault) {
  for (AttributeValue value : {AttributeValue(), AttributeValue(ValueTypeId::typeNull),
                               AttributeValue(NullValueType()), AttributeValue::null}) {
    EXPECT_TRUE(value.is_null());
    EXPECT_EQ(&value.type(), &ValueTypeId::typeNull);
    EXPECT_EQ(value.size(), 0u);
    EXPECT_TRUE(value.empty());
    EXPECT_FALSE(value.is_multivalue());
    EXPECT_EQ(value.hash(), 0u);
    EXPECT_EQ(value, AttributeValue());
    EXPECT_EQ(value.compare(AttributeValue()), 0);
    expect_no_single_element([&value] { return value.get<NullValueType>(); }, true);
    EXPECT_OUT_OF_RANGE(value.at<NullValueType>(0), at_text);
    EXPECT_TRUE(value.elements<NullValueType>().empty());
    EXPECT_TRUE(value.subrange(0).is_null());
    EXPECT_TRUE(value.subrange(0, 0).is_null());
    EXPECT_OUT_OF_RANGE(value.subrange(1), subrange_text);
    EXPECT_OUT_OF_RANGE(value.subrange(0, 1), subrange_text);
    value.clear();
    value.append(NullValueType());
    value.set(NullValueType());
    EXPECT_TRUE(value.is_null());
  }
}

TEST(AttributeValue, TakesEveryTextAndNumber) {
  using namespace std::literals;
  using Limits = std::numeric_limits<long long>;
  struct Case {
    AttributeValue value;
    AttributeValue same;
  };
  const Case cases[] = {
      {AttributeValue("text"), AttributeValue("text"s)},
      {AttributeValue("text and more", 4), AttributeValue("text"s)},
      {AttributeValue("a\0b", 3), AttributeValue("a\0b"s)},
      {AttributeValue("text"sv), AttributeValue("text"s)},
      {AttributeValue(ovcore::SourceString("text")), AttributeValue("text"s)},
      {AttributeValue(-5), AttributeValue(-5LL)},
      {AttributeValue(std::numeric_limits<int>::min()), AttributeValue(-2147483648LL)},
      {AttributeValue(std::int64_t{Limits::min()}), AttributeValue(Limits::min())},
      {AttributeValue(4294967295u), AttributeValue(4294967295LL)},
      {AttributeValue(std::uint8_t{255}), AttributeValue(255LL)},
      {AttributeValue(std::uint64_t{9223372036854775807u}), AttributeValue(Limits::max())},
      {AttributeValue(0.5f), AttributeValue(0.5)},
      {AttributeValue({1, 2, 3}), AttributeValue({1LL, 2LL, 3LL})},
      {AttributeValue({"a", "b"}), AttributeValue({"a"s, "b"s})},
      {AttributeValue::list_of(std::vector<unsigned>{1, 2}), AttributeValue({1, 2})},
      {AttributeValue::list_of(std::vector<bool>{true, false}), AttributeValue({true, false})}};
  for (const Case& c : cases) {
    EXPECT_EQ(&c.value.type(), &c.same.type());
    EXPECT_EQ(c.value, c.same);
    AttributeValue set("old");
    set = c.value;
    EXPECT_EQ(set, c.same);
  }
  static_assert(!std::is_constructible_v<AttributeValue, std::nullptr_t> &&
                !std::is_constructible_v<AttributeValue, const int*> &&
                !std::is_constructible_v<AttributeValue, char> &&
                !std::is_constructible_v<AttributeValue, char32_t>);
}

TEST(AttributeValue, ConvertsNoIntegerThatDoesNotFit) {
  const std::uint64_t beyond = 9223372036854775808u;
  const ovcore::ErrorCode& code = error::ovattribute_value_conversion_data;
  EXPECT_ERROR(AttributeValue(beyond), code, "Integer out of range: 9223372036854775808");
  AttributeValue value(300);
  EXPECT_ERROR(value.set(beyond), code, "Integer out of range: 9223372036854775808");
  EXPECT_ERROR(value.append(beyond), code, "Integer out of range: 9223372036854775808");
  EXPECT_EQ(value, AttributeValue(300));
  EXPECT_ERROR(value.get<signed char>(), code, "Integer out of range: 300");
  EXPECT_EQ(value.get<std::int16_t>(), 300);
  value.set(-1);
  EXPECT_ERROR(value.get<unsigned>(), code, "Integer out of range: -1");
  EXPECT_EQ(value.get<signed char>(), -1);
}

}  // namespace
}  // namespace ovattribute
