// SPDX-License-Identifier: Apache-2.0
// Reading JSON into values: what becomes of the reader, and the memory of what was read.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/json_marshaler.h"
#include "ovcore/read_stream.h"
#include "ovjson/error_codes.h"
#include "ovjson/reader.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using Kind = ovjson::Reader::Kind;

struct Document {
  explicit Document(std::string_view json, const ovjson::ReaderOptions& options = {})
      : stream(json), reader(stream, {}, options) {}

  ovcore::MemoryReadStream stream;
  ovjson::Reader reader;
};

AttributeValue read(std::string_view json) {
  Document d(json);
  return read_attribute_value(d.reader);
}

TEST(JsonReading, TakesTheCurrentValueAndLeavesTheReaderBehindIt) {
  Document d(
      R"({"skipped": [1, {"a": 2}], "taken": {"b": [1, 2]}, "text": "xyz", "n": 1, "last": []})");
  const auto object = d.reader.next_value();
  d.reader.next_child(object);
  const auto taken = d.reader.next_child(object);
  EXPECT_EQ(read_attribute_value(d.reader), AttributeValue(AttributeMap{{"b", {1, 2}}}));
  EXPECT_EQ(d.reader.current_value(), nullptr) << "it was found closed";
  EXPECT_EQ(d.reader.next_child(taken), nullptr);
  EXPECT_EQ(taken->member_name(), "taken");

  const auto text = d.reader.next_child(object);
  EXPECT_EQ(text->as_string(), "xyz");
  EXPECT_EQ(read_attribute_value(d.reader), AttributeValue("xyz"));
  EXPECT_EQ(d.reader.current_value(), text);

  const auto number = d.reader.next_child(object);
  EXPECT_EQ(read_attribute_value(d.reader), AttributeValue(1));
  EXPECT_EQ(d.reader.current_value(), number);
  EXPECT_EQ(number->as_double(), 1);

  EXPECT_EQ(d.reader.next_child(object)->member_name(), "last");
  EXPECT_EQ(read_attribute_value(d.reader), AttributeValue(ValueTypeId::typeString));
  EXPECT_EQ(d.reader.next_child(object), nullptr);
  EXPECT_ERROR(read_attribute_value(d.reader), ovjson::error::ovjson_reader,
               "Expecting JSON value [line 1, pos 85]");
}

// What has no value is an error of the mapping, not of the text.
TEST(JsonReading, ErrorsLeaveTheReaderAtTheValueAtFault) {
  struct Case {
    const char* json;
    const char* name;
    Kind kind;
    std::size_t depth;
  };
  for (const Case& c : {Case{R"([{"a": [null, 1]}, 5])", "", Kind::null, 4},
                        Case{R"([{"a": [[1]]}, 5])", "", Kind::array, 4},
                        Case{R"([{"a": [1, "x"]}, 5])", "", Kind::string, 4},
                        Case{R"([{"a": {"ovserialize": [1]}}, 5])", "ovserialize", Kind::array, 4},
                        Case{R"([{"a": {"b": 1, "c": 1e999}}, 5])", "c", Kind::number, 4},
                        Case{R"([{"a": 1, "a": [2]}, 5])", "a", Kind::array, 3}}) {
    SCOPED_TRACE(c.json);
    Document d(c.json);
    const auto array = d.reader.next_value();
    d.reader.next_child(array);
    EXPECT_NE(ovtest::error_of([&] {
                static_cast<void>(read_attribute_value(d.reader, {.refuse_repeated_names = true}));
              }),
              nullptr);
    const auto value = d.reader.current_value();
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(value->member_name(), c.name);
    EXPECT_EQ(value->kind(), c.kind);
    EXPECT_EQ(value->depth(), c.depth);
    if (c.kind == Kind::string) {
      EXPECT_EQ(value->as_string(), "x");
    }
    EXPECT_EQ(d.reader.next_child(array)->as_double(), 5);
  }
}

TEST(JsonReading, OfEqualNamesTheLastCountsHoweverTheyAreWritten) {
  EXPECT_EQ(read(R"({"a": 1, "b": 2, a: 3, "\u0061": {"c": 4}})"),
            AttributeValue(AttributeMap{{"a", AttributeMap{{"c", 4}}}, {"b", 2}}));
}

// Of every size, so that buffers and blocks end everywhere in them.
TEST(JsonReading, TextIsReadWholeWhereverItIsCut) {
  std::string json = "{";
  MutableAttributeMap expected;
  for (std::size_t size = 1; size < 70; ++size) {
    const std::string name(size, 'n');
    std::string text(size, 'x');
    std::string written = text;
    if (size % 3 == 1) {
      text.insert(size / 2, "\xe2\x82\xac");
      written = text;
    } else if (size % 3 == 2) {
      text.back() = '\n';
      written.replace(size - 1, 1, "\\n");
    }
    json += "\"" + name + "\":\"" + written + "\", ";
    expected.add(name, text);
  }
  json.replace(json.size() - 2, 2, "}");
  for (const std::size_t size : {1, 2, 15, 16, 17, 100, 1000, 100'000}) {
    Document d(json, {.buffer_size = size});
    EXPECT_EQ(read_attribute_value(d.reader), AttributeValue(AttributeMap(expected))) << size;
  }
}

// Strings that are read together lie together.
TEST(JsonReading, StringsAreKeptAndReleasedInAnyOrderOnAnyThread) {
  constexpr std::size_t count = 100;
  const auto text_of = [](std::size_t i) {
    return std::string(i % 3 * 20, 'x') + std::to_string(i);
  };
  std::string json = "[";
  for (std::size_t i = 0; i < count; ++i)
    json += R"({"a":")" + text_of(i) + R"("},)";
  json.back() = ']';

  std::vector<AttributeValue> kept(count);
  {
    const AttributeValue list = read(json);
    for (std::size_t i = 0; i < count; ++i)
      kept[i * 37 % count] = list.at<AttributeMap>(i * 37 % count).query("a");
  }
  const std::vector<AttributeValue> copies(kept.begin(), kept.begin() + 10);
  kept[3].append("more");
  const auto release = [&kept](std::size_t first) {
    for (std::size_t i = first; i < kept.size(); i += 2)
      kept[i].set_null();
  };
  std::thread other([&release] { release(1); });
  release(0);
  other.join();
  for (std::size_t i = 0; i < copies.size(); ++i)
    EXPECT_EQ(copies[i], AttributeValue(text_of(i)));
}

// They share their storage then, also those that differ in their ends or sizes only.
TEST(JsonReading, ShortStringsThatComeAgainAreValuesOfTheirOwn) {
  const std::vector<std::string> texts = {
      "a", "b", "aa", "ab", "abcdefg", "abcdefgh", "bbcdefgh", "abcdefghi", "\xc3\xa9", "x\x7f"};
  std::string json = "[";
  for (int round = 0; round < 4; ++round) {
    for (const std::string& text : texts)
      json += R"({"t":")" + text + R"("},{"t":"\u0000"},)";
  }
  json.back() = ']';
  AttributeValue list = read(json);
  AttributeValue changed = list.at<AttributeMap>(2 * texts.size()).query("t");
  changed.append("more");
  for (std::size_t i = 0; i < list.size(); ++i) {
    const std::string expected = i % 2 == 0 ? texts[i / 2 % texts.size()] : std::string(1, '\0');
    EXPECT_EQ(list.at<AttributeMap>(i).query("t"), AttributeValue(expected)) << i;
  }
  const AttributeValue kept = list.at<AttributeMap>(4 * texts.size()).query("t");
  list.set_null();
  EXPECT_EQ(kept, AttributeValue("a"));
}

TEST(JsonReading, SmallMapsAndShortStringsShareAllocations) {
  std::string json = "[";
  for (int i = 0; i < 80; ++i)
    json += R"({"name": "value )" + std::to_string(i) +
            R"(", "number": 7, "other": "longer text", "type": "text", "a": 1, "b": 2, "c": 3},)";
  json.back() = ']';
  static_cast<void>(read(json));  // makes what is made once
  const std::uint64_t made = ovtest::allocations_of([&json] { static_cast<void>(read(json)); });
  EXPECT_LE(made, 80u + 160 / 8 + 20);
}

}  // namespace
}  // namespace ovattribute
