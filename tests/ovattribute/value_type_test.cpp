// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value_type.h"

#include <gtest/gtest.h>

#include <cstring>
#include <iomanip>
#include <limits>
#include <span>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value_impl.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovattribute/trace_formatter.h"
#include "ovcore/error_info.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

struct Row {
  std::uint32_t number;
  const ValueTypeId* type;
  const ValueTypeId* of_elements;
  const char* name;
  std::string (*default_text)();
};

/// A program outside of the library may call what the traits declare.
template <class T>
std::string default_text() {
  using Traits = impl::ValueTypeTraits<T>;
  std::ostringstream out;
  Traits::write_trace(out, TraceFormatter(), 0, std::span<const T>(&Traits::default_value(), 1));
  return out.str();
}

#define ROW(number, name, T, text) \
  { number, &ValueTypeId::type##name, &impl::ValueTypeTraits<T>::type(), text, &default_text<T> }
const Row rows[] = {ROW(0, Null, impl::NullValueType, "Null"),
                    ROW(1, Boolean, bool, "Boolean"),
                    ROW(2, Integer, long long, "Integer"),
                    ROW(3, String, std::string, "String"),
                    ROW(4, Double, double, "Double"),
                    ROW(5, Uuid, ovcore::Uuid, "UUID"),
                    ROW(6, Uri, ovuri::UriReference, "URI"),
                    ROW(7, AbsoluteTime, ovcore::AbsoluteTime, "AbsoluteTime"),
                    ROW(8, RelativeTime, ovcore::RelativeTime, "RelativeTime"),
                    ROW(9, SimpleDateTime, ovcore::SimpleDateTime, "SimpleDateTime"),
                    ROW(10, Binary, BinaryValue, "Binary"),
                    ROW(11, Serialized, SerializedValue, "Serialized"),
                    ROW(12, AttributeMap, AttributeMap, "AttributeMap"),
                    ROW(13, Secured, SecuredValue, "Secured"),
                    ROW(14, ErrorInfo, ovcore::RefCountPtr<const ovcore::ErrorInfo>, "ErrorInfo")};
#undef ROW

// Types are used by whoever is initialised early.
const std::string name_before_main = ValueTypeId::typeUri.name();

TEST(ValueTypeId, HasFifteenInstances) {
  static_assert(std::is_same_v<std::underlying_type_t<ValueTypeId::EId>, std::uint32_t>);
  static_assert(!std::is_constructible_v<ValueTypeId, ValueTypeId::EId, const char*> &&
                !std::is_copy_constructible_v<ValueTypeId> && std::is_destructible_v<ValueTypeId>);
  for (const Row& row : rows) {
    const ValueTypeId& type = *row.type;
    EXPECT_EQ(std::uint32_t{type.id()}, row.number);
    EXPECT_EQ(type.name(), row.name);
    EXPECT_EQ(&ValueTypeId::from_id(static_cast<ValueTypeId::EId>(row.number)), &type);
    EXPECT_EQ(row.of_elements, &type);
    for (const Row& other : rows) {
      EXPECT_EQ(type.compare(*other.type), int(row.number) - int(other.number));
      EXPECT_EQ(type == *other.type, row.number == other.number);
      EXPECT_EQ(type != *other.type, row.number != other.number);
    }
  }
  EXPECT_EQ(name_before_main, "URI");
}

TEST(ValueTypeId, IsWrittenAsItsNameAlone) {
  for (const Row& row : rows) {
    std::ostringstream out;
    out << std::setw(20) << std::setfill('*') << std::left << *row.type << '|';
    EXPECT_EQ(out.str(), std::string(row.name) + '|');
  }
}

TEST(ValueTypeId, HasADefaultElement) {
  for (const Row& row : rows) {
    const std::string text = row.default_text();
    EXPECT_EQ(text.substr(0, 1 + std::strlen(row.name)), std::string("[") + row.name);
  }
}

TEST(ValueTypeId, OtherNumbersAreUnknown) {
  struct Case {
    std::int32_t number;
    const char* text;
  };
  for (const Case& c : {Case{15, "15"}, Case{-1, "-1"}, Case{2147483647, "2147483647"},
                        Case{std::numeric_limits<std::int32_t>::min(), "-2147483648"}}) {
    const auto info =
        ovtest::error_of([&c] { ValueTypeId::from_id(static_cast<ValueTypeId::EId>(c.number)); });
    ovtest::expect_error(
        info, error::ovattribute_value_type_unknown,
        "Unknown attribute type id.  Value=" + std::string(c.text),
        {"ovattribute/attribute_value_type", "ovattribute::ValueTypeId::from_id()", 78});
    ASSERT_TRUE(info);
    EXPECT_EQ(info->message_template(), "Unknown attribute type id.  Value={@typeId}");
    EXPECT_EQ(info->parameters(), (std::vector<ovcore::ErrorInfo::Parameter>{{"typeId", c.text}}));
  }
}

}  // namespace
}  // namespace ovattribute
