// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/json_marshaler.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovcore/to_string.h"
#include "ovcore/uuid.h"
#include "ovjson/error_codes.h"
#include "ovjson/reader.h"
#include "ovjson/writer.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"
#include "tests/support/table.h"

namespace ovattribute {
namespace {

AttributeValue one(AttributeValue value) {
  return value;
}
template <class T>
AttributeValue list(std::vector<T> elements) {
  return AttributeValue::list_of(elements);
}

TEST(JsonMarshaler, ReadsEachKindAsItsType) {
  struct Case {
    const char* json;
    AttributeValue value;
  };
  const Case cases[] = {
      {"null", {}},
      {"true", one(true)},
      {"\"\"", one("")},
      {"\"a\\u00e9\"", one("a\xc3\xa9")},
      {"0", one(0)},
      {"-0", one(0)},
      {"-0.0", one(0)},
      {"1.0", one(1)},
      {"2.5e1", one(25)},
      {"2.5", one(2.5)},
      {"1e300", one(1e300)},
      {"9223372036854775808", one(9223372036854775808.0)},
      {"-9223372036854775808", one(std::numeric_limits<long long>::min())},
      {"9007199254740993", one(9007199254740992LL)},
      {"5e-324", one(5e-324)},
      {"[]", AttributeValue(ValueTypeId::typeString)},
      {"[1]", list<int>({1})},
      {"[1, 2]", list<int>({1, 2})},
      {"[1, 2.5]", list<double>({1.0, 2.5})},
      {"[2.5, 1]", list<double>({2.5, 1.0})},
      {"[true, false]", AttributeValue{true, false}},
      {"[\"a\", \"\"]", AttributeValue{"a", ""}},
      {"{}", AttributeMap()},
      {"{a: 1, \"b\": {\"c\": [\"d\", \"e\"]}}",
       AttributeMap{{"a", 1}, {"b", AttributeMap{{"c", {"d", "e"}}}}}},
      {"[{\"a\": 1}, {}]", AttributeValue{AttributeMap{{"a", 1}}, AttributeMap()}},
      {"{\"a\": 1, \"a\": 2}", AttributeMap{{"a", 2}}},
      {"{\"x\": 1, \"ovserialize\": 2}", AttributeMap{{"x", 1}, {"ovserialize", 2}}},
      {"[{\"ovserialize\": 1}]", list<AttributeMap>({AttributeMap{{"ovserialize", 1}}})},
      {"{\"ovserialize\": \"2.0\"}", one(2.0)},
      {"{\"ovserialize\": \"2.0\", \"x\": [[null]]}", one(2.0)},
      {"{\"ovserialize\": \" / a comment / 7 \"}", one(7)},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    const AttributeValue value = parse_json(c.json);
    EXPECT_EQ(value.type(), c.value.type());
    EXPECT_EQ(value, c.value);
    ovtest::for_each_split(c.json, [&](const auto& stream) {
      ovjson::Reader reader(stream);
      EXPECT_EQ(read_attribute_value(reader), c.value);
    });
  }
}

TEST(JsonMarshaler, KeepsIntegersExactlyOnRequest) {
  const JsonReadOptions exact{.exact_integers = true};
  EXPECT_EQ(parse_json("9007199254740993", exact), one(9007199254740993LL));
  EXPECT_EQ(parse_json("9223372036854775807", exact), one(std::numeric_limits<long long>::max()));
  EXPECT_EQ(parse_json("9223372036854775808", exact), one(9223372036854775808.0));
  EXPECT_EQ(parse_json("-9223372036854775808", exact), one(std::numeric_limits<long long>::min()));
  EXPECT_EQ(parse_json("-0", exact), one(0));
  EXPECT_EQ(parse_json("[9007199254740993, 1.0]", exact),
            (AttributeValue{9007199254740993LL, 1LL}));
  EXPECT_EQ(parse_json("[9007199254740992, 0.5]", exact),
            (AttributeValue{9007199254740992.0, 0.5}));
  EXPECT_ERROR(parse_json("[9007199254740993, 0.5]", exact), ovjson::error::ovjson_reader,
               "Array holds a fraction and an integer that no Double can hold. "
               "[line 1, pos 20]");
  EXPECT_EQ(to_json(9007199254740993LL, {.exact_integers = true}), "9007199254740993");
}

// Such a number is mostly somebody's identifier, and two neighbours are one and the same double.
TEST(JsonMarshaler, TheExactModeRefusesIntegersThatNothingHolds) {
  struct Case {
    const char* json;
    const char* refused;  // the number, or null
    const char* position = "";
  };
  const std::string largest =
      "17976931348623157" + std::string(292, '0');                      // not the largest double
  const std::string power = "340282366920938463463374607431768211456";  // 2^128
  const Case cases[] = {
      {"18446744073709551615", "18446744073709551615", "line 1, pos 1"},
      {"-9223372036854775809", "-9223372036854775809", "line 1, pos 1"},
      {"{\"id\":\n 12345678901234567890}", "12345678901234567890", "line 2, pos 2"},
      {"[1, 18446744073709551615]", "18446744073709551615", "line 1, pos 5"},
      {"[18446744073709551615, 0.5]", "18446744073709551615", "line 1, pos 2"},
      {"[0.5, -18446744073709551617]", "-18446744073709551617", "line 1, pos 7"},
      {largest.c_str(), largest.c_str(), "line 1, pos 1"},
      {"18446744073709551616", nullptr},
      {"-18446744073709551616", nullptr},
      {power.c_str(), nullptr},
      {"[18446744073709551616, 1]", nullptr},
      {"18446744073709551615.0", nullptr},
      {"18446744073709551615e0", nullptr},
      {"1e19", nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.json);
    EXPECT_NO_THROW(static_cast<void>(parse_json(c.json)));
    if (c.refused == nullptr) {
      EXPECT_EQ(parse_json(c.json, {.exact_integers = true}), parse_json(c.json));
      continue;
    }
    ovtest::for_each_split(c.json, [&](const auto& stream) {
      ovjson::Reader reader(stream);
      EXPECT_ERROR(read_attribute_value(reader, {.exact_integers = true}),
                   ovjson::error::ovjson_reader,
                   "Integer " + std::string(c.refused) +
                       " fits neither 64 bits nor a Double exactly [" + c.position + "]");
    });
  }
}

// An Integer has no such zero, a Double has, whatever stands behind it.
TEST(JsonMarshaler, KeepsTheSignOfZeroAmongDoubles) {
  for (const bool exact : {false, true}) {
    const auto doubles = [exact](const char* json) {
      const AttributeValue value = parse_json(json, {.exact_integers = exact});
      std::string text;
      for (const double d : value.elements<double>())
        text += ovcore::to_string(d) + " ";
      return text;
    };
    EXPECT_EQ(doubles("[0, -0, -0.0, 1, 0.0, -0e5, 0.5, -0, 0]"),
              "0.0 -0.0 -0.0 1.0 0.0 -0.0 0.5 -0.0 0.0 ");
    EXPECT_EQ(doubles("[-0, 2.5]"), "-0.0 2.5 ");
    EXPECT_EQ(parse_json("[-0, 2, -0.0]", {.exact_integers = exact}), (AttributeValue{0, 2, 0}));
  }
}

TEST(JsonMarshaler, ErrorsOfTheJsonAroundATextAreItsOwn) {
  EXPECT_ERROR(parse_json(R"({"ovserialize": "1\q"})"),
               ovjson::error::ovjson_reader_tokenizer_syntaxError,
               "Invalid escape: expecting one of \"\\/bfnrtu, found 'q' [line 1, pos 20]");
}

TEST(JsonMarshaler, RefusesWhatHasNoValue) {
  for (const ovtest::Row& row : ovtest::read_table("json/no_value.txt", 3)) {
    SCOPED_TRACE(row[0]);
    AttributeValue target("kept");
    const auto error = ovtest::error_of([&] {
      ovjson::Reader reader(
          ovcore::make_ref_counted<ovcore::MemoryReadStream>(ovcore::SourceString(row[0])));
      read_attribute_value(reader, target);
    });
    ovtest::expect_error(error, ovjson::error::ovjson_reader, row[1],
                         {"ovattribute/json_marshaler", row[2].c_str(), 0});
    EXPECT_EQ(target, one("kept"));
    const bool decoding = row[1].starts_with("String value");
    EXPECT_EQ(error && error->cause(), decoding);
    const bool mixed = row[1].starts_with("All array");
    EXPECT_EQ(error && error->parameter("expected") && error->parameter("actual"), mixed);
  }
}

TEST(JsonMarshaler, RefusesRepeatedNamesOnRequest) {
  const JsonReadOptions strict{.refuse_repeated_names = true};
  EXPECT_EQ(parse_json("{\"a\": {\"a\": 1}}", strict),
            one(AttributeMap{{"a", AttributeMap{{"a", 1}}}}));
  EXPECT_ERROR(parse_json("{\"a\": 1,\n  \"b\": 2, \"a\": [1]}", strict),
               ovjson::error::ovjson_reader, "Repeated member name 'a' [line 2, pos 11]");
}

TEST(JsonMarshaler, WritesPlainJsonWhereItReadsBackTheSame) {
  const long long limit = 9007199254740992;
  struct Case {
    AttributeValue value;
    const char* json;
  };
  const Case cases[] = {
      {{}, "null"},
      {one(false), "false"},
      {AttributeValue{true, false}, "[true,false]"},
      {AttributeValue(ValueTypeId::typeBoolean), "{\"ovserialize\":\"simple(1), [_ 0]\"}"},
      {one(limit), "9007199254740992"},
      {one(-limit), "-9007199254740992"},
      {one(limit + 1), "{\"ovserialize\":\"9007199254740993\"}"},
      {AttributeValue{1LL, -limit - 1},
       "{\"ovserialize\":\"simple(2), [_ 2, 1, -9007199254740993]\"}"},
      {AttributeValue(ValueTypeId::typeInteger), "{\"ovserialize\":\"simple(2), [_ 0]\"}"},
      {one("a\"\n"), "\"a\\\"\\n\""},
      {AttributeValue(ValueTypeId::typeString), "[]"},
      {list<std::string>({"x"}), "\"x\""},
      {one("\xff"), "{\"ovserialize\":\"38218(h'ff')\"}"},  // no text, but any bytes are a String
      {AttributeValue{"a", "\xff"}, R"({"ovserialize":"simple(3), [_ 2, \"a\", 38218(h'ff')]"})"},
      {AttributeMap{{"a", "\xff"}}, "{\"a\":{\"ovserialize\":\"38218(h'ff')\"}}"},
      {one(2.0), "{\"ovserialize\":\"2.0\"}"},
      {AttributeMap{{"a", 1}}, "{\"a\":1}"},
      {AttributeMap(), "{}"},
      {AttributeValue(ValueTypeId::typeAttributeMap), "{\"ovserialize\":\"simple(12), [_ 0]\"}"},
      {AttributeValue{AttributeMap(), AttributeMap{{"a", 2.5}}},
       "[{},{\"a\":{\"ovserialize\":\"2.5\"}}]"},
  };
  for (const Case& c : cases) {
    const std::string json = to_json(c.value);
    EXPECT_EQ(json, c.json);
    const AttributeValue again = parse_json(json);
    EXPECT_EQ(again, c.value) << json;
    EXPECT_EQ(to_json(again), json);
  }
}

// The table of docs/json.md: texts in the first column, what is written in the second.
TEST(JsonMarshaler, ChangesOfADocumentWhatThePageSays) {
  const auto quoted = [](std::string column) {
    std::erase(column, ' ');
    std::vector<std::string> texts;
    for (std::size_t at = 0; (at = column.find('`', at)) != column.npos; ++at) {
      const std::size_t end = column.find('`', at + 1);
      texts.push_back(column.substr(at + 1, end - at - 1));
      at = end;
    }
    return texts;
  };
  std::ifstream page(OV_SOURCE_ROOT "/docs/json.md");
  std::size_t rows = 0;
  for (std::string line; std::getline(page, line);) {
    if (!line.starts_with("| `")) continue;
    SCOPED_TRACE(line);
    const std::size_t second = line.find(" | ");
    const auto before = quoted(line.substr(0, second));
    const auto after = quoted(line.substr(second, line.find(" | ", second + 3) - second));
    ASSERT_EQ(before.size(), after.size());
    for (std::size_t i = 0; i < before.size(); ++i)
      EXPECT_EQ(to_json(parse_json(before[i])), after[i]);
    ++rows;
  }
  EXPECT_GE(rows, 9u);
}

TEST(JsonMarshaler, FallsBackForMapsThatWouldNotReadBack) {
  const AttributeMap reserved{{"ovserialize", "x"}};
  const AttributeMap nameless{{"", 1}, {"b", 2}};
  const AttributeMap bytes{{"b", 1},
                           {"\xc3", AttributeMap{{"a", "\xff"}}}};  // a name that is no text
  for (const AttributeValue& value :
       {one(reserved), one(nameless), one(bytes), AttributeValue{AttributeMap(), reserved},
        AttributeValue{AttributeMap(), bytes}, one(AttributeMap{{"inner", reserved}})}) {
    const std::string json = to_json(value);
    EXPECT_NE(json.find("{\"ovserialize\":\""), std::string::npos) << json;
    EXPECT_EQ(parse_json(json), value) << json;
  }
  // Only the map with the name falls back, not the one around it.
  EXPECT_TRUE(to_json(AttributeMap{{"inner", reserved}}).starts_with("{\"inner\":{\"ovser"));
}

TEST(JsonMarshaler, LongValuesStreamInPieces) {
  std::vector<std::string> texts;
  for (int i = 0; i < 3000; ++i)
    texts.push_back("\"\\\n" + std::to_string(i));
  const AttributeMap map{{"ovserialize", AttributeValue::list_of(texts)}};
  EXPECT_EQ(parse_json(to_json(map)), one(map));
}

/// Notes the calls, and of string data the sizes.
class CallRecorder final : public ovjson::Writer {
 public:
  using Writer::member_name;
  using Writer::string_data;
  void member_name(const char* chars, std::size_t size) override {
    calls += "name " + std::string(chars, size) + "; ";
  }
  void string_value(const char*, std::size_t) override { calls += "string; "; }
  void boolean_value(bool) override { calls += "boolean; "; }
  void integer_value(std::int64_t) override { calls += "integer; "; }
  void double_value(double) override { calls += "double; "; }
  void number_value(const char*, std::size_t) override { calls += "number; "; }
  void null_value() override { calls += "null; "; }
  void begin_object() override { calls += "begin object; "; }
  void end_object() override { calls += "end object; "; }
  void begin_array() override { calls += "begin array; "; }
  void end_array() override { calls += "end array; "; }
  void begin_streamed_string() override { calls += "begin string; "; }
  void string_data(const char* chars, std::size_t size) override {
    calls += "data " + std::to_string(size) + "; ";
    data.append(chars, size);
  }
  void end_streamed_string() override { calls += "end string; "; }

  std::string calls;
  std::string data;
};

// Small pieces are gathered to 2,048 bytes.
TEST(JsonMarshaler, TheLosslessFormIsAStringOfLargePieces) {
  const auto recorded = [](const AttributeValue& value) {
    CallRecorder recorder;
    write_attribute_value(recorder, value);
    return std::pair(recorder.calls, recorder.data);
  };
  const std::string before = "begin object; name ovserialize; begin string; ";
  const std::string behind = "end string; end object; ";
  EXPECT_EQ(recorded(2.5).first, before + "data 3; " + behind);
  const AttributeValue ones = AttributeValue::list_of(std::vector<double>(1000, 1.0));
  const auto [calls, text] = recorded(ones);
  EXPECT_EQ(calls, before + "data 2048; data 2048; data " + std::to_string(text.size() - 4096) +
                       "; " + behind);
  EXPECT_EQ(parse_json("{\"ovserialize\": \"" + text + "\"}"), ones);
}

TEST(JsonMarshaler, OrdersNamesOnRequest) {
  // Interned in this order, so maps hold them in this order unless the names were known before.
  const AttributeMap map{
      {"zz order", 1}, {"mm order", 2}, {"aa order", AttributeMap{{"b", 1}, {"A", 2}}}};
  EXPECT_EQ(to_json(map, {.order_names_by_text = true}),
            "{\"aa order\":{\"A\":2,\"b\":1},\"mm order\":2,\"zz order\":1}");
}

TEST(JsonMarshaler, TextHoldsOneDocument) {
  const std::string longer = "[\"" + std::string(100'000, 'x') + "\", \"y\"]";
  EXPECT_EQ(to_json(parse_json(longer)), "[\"" + std::string(100'000, 'x') + "\",\"y\"]");
  EXPECT_EQ(parse_json(" [1,\n2] \n"), (AttributeValue{1, 2}));
  for (const char* const text : {"", " ", "1 2", "{} x"}) {
    const auto error = ovtest::error_of([&] { static_cast<void>(parse_json(text)); });
    EXPECT_TRUE(error && error->code().is_a(ovjson::error::ovjson_reader)) << text;
  }
}

}  // namespace
}  // namespace ovattribute
