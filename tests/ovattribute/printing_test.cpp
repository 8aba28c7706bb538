// SPDX-License-Identifier: Apache-2.0
// What GoogleTest prints of our types when an expectation fails.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include "ovattribute/attribute.h"
#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_composer.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovserialize/memory_writer.h"
#include "ovuri/uri_reference.h"

namespace ovattribute {
namespace {

using testing::PrintToString;

// [compare]
AttributeMap order_under_test() {
  return {{"id", 17}, {"tags", {"blue", "flat"}}};
}

void check_order() {
  EXPECT_EQ(order_under_test(), (AttributeMap{{"id", 18}, {"tags", {"blue", "flat"}}}));
}
// [compare]

// [message]
const char* const message_of_check_order = R"(
    Which is: [AttributeMap: 
  {
   'id' => [Integer: {17}]
   'tags' => [String: {"blue", "flat"}]
  }]
)";
// [message]

TEST(Printing, MessagesShowMapsAsText) {
  EXPECT_NONFATAL_FAILURE(check_order(), message_of_check_order);
}

ovcore::RefCountPtr<const ovcore::ErrorInfo> error(
    const char* code, ovcore::RefCountPtr<const ovcore::ErrorInfo> cause = {}) {
  return ovcore::ErrorComposer("No {@what}")
      .add("what", "luck")
      .cause(cause)
      .compose(ovcore::ErrorCode(code, false), {});
}

TEST(Printing, IsReadableForEachType) {
  const unsigned char bytes[] = {0x00, 0xff};
  const ovcore::Uuid uuid = ovcore::Uuid::parse("0b1f2c6e-58a7-4f1d-9a54-0c5e9d3f7b21");
  ovserialize::MemoryWriter writer;
  writer << true;
  // In an order that is not that of the alphabet, whatever was interned before.
  MutableAttributeMap map;
  map.add("printed second", 2);
  map.add("printed first", AttributeMap{{"b", 1}, {"a", 2}});
  const std::string map_text =
      "[AttributeMap: \n  {\n"
      "   'printed first' => [AttributeMap: \n    {\n"
      "     'a' => [Integer: {2}]\n     'b' => [Integer: {1}]\n    }]\n"
      "   'printed second' => [Integer: {2}]\n  }]";
  const AttributeValue many = AttributeValue::list_of(std::vector<int>(100, 1));
  std::string hundred = "[Integer: {1";
  for (int i = 1; i < 100; ++i)
    hundred += ", 1";

  const std::pair<std::string, std::string> cases[] = {
      {PrintToString(AttributeValue()), "[Null]"},
      {PrintToString(AttributeValue{2, 3}), "[Integer: {2, 3}]"},
      {PrintToString(many), hundred + "}]"},
      {PrintToString(std::vector<AttributeValue>{1, 2.0}), "{ [Integer: {1}], [Double: {2.0}] }"},
      {PrintToString(map), map_text},
      {PrintToString(AttributeMap(map)), map_text},
      {PrintToString(Attribute("caller", "alice")), "'caller' => [String: {\"alice\"}]"},
      {PrintToString(AttributeName("caller")), "caller"},
      {PrintToString(ovcore::StringKey("caller")), "caller"},
      {PrintToString(ValueTypeId::typeUri), "URI"},
      {PrintToString(BinaryValue(bytes, 2)), "[Binary: \n  {\n   00 ff\n  }]"},
      {PrintToString(SerializedValue("flag", writer)), "[Serialized: {<type='flag', size=1>}]"},
      {PrintToString(SecuredValue::KeyId("orders", uuid)), "orders:" + uuid.as_string()},
      {PrintToString(uuid), "0b1f2c6e-58a7-4f1d-9a54-0c5e9d3f7b21"},
      {PrintToString(ovuri::UriReference("a/b?c")), "a/b?c"},
      {PrintToString(ovcore::AbsoluteTime()), "1970-01-01T00:00:00Z"},
      {PrintToString(ovcore::RelativeTime::from_seconds(90)), "PT1M30S"},
      {PrintToString(ovcore::SimpleDateTime(2024, 2, 29)), "2024-02-29T00:00:00"},
      {PrintToString(ovcore::ErrorCode("error.a", false)), "error.a"},
      {PrintToString(error("error.a", error("error.b"))),
       "error.a: No luck\n  caused by error.b: No luck"},
      {PrintToString(ovcore::RefCountPtr<const ovcore::ErrorInfo>()), "no error"},
  };
  for (const auto& [printed, text] : cases)
    EXPECT_EQ(printed, text);
}

TEST(Printing, TakesTheWidthAndPadsNothing) {
  const auto check = [](const auto&... printed) {
    const auto one = [](const auto& object) {
      std::ostringstream plain, wide;
      plain << object << '|';
      wide << std::setw(100) << std::setfill('*') << object << '|';
      EXPECT_EQ(wide.str(), plain.str());
    };
    (one(printed), ...);
  };
  check(AttributeName("caller"), AttributeName(), ovcore::StringKey("caller"), ovcore::StringKey(),
        ovcore::SourceString("text"), ovcore::SourceString(""));
  check(ValueTypeId::typeUri, AttributeValue(), AttributeValue("x"), AttributeMap(),
        AttributeMap{{"id", 17}}, MutableAttributeMap(), Attribute("caller", "alice"));
  check(SecuredValue(), SecuredValue::KeyId("orders", {}), SecuredValue::KeyId());
  check(ovcore::Uuid(), ovuri::UriReference("a/b?c"), ovcore::AbsoluteTime(),
        ovcore::RelativeTime::from_seconds(90), ovcore::SimpleDateTime(2024, 2, 29));
  check(ovcore::ErrorCode("error.a", false), *error("error.a", error("error.b")));
}

}  // namespace
}  // namespace ovattribute
