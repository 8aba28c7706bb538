// SPDX-License-Identifier: Apache-2.0
#include "ovjson/reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovjson/error_codes.h"
#include "tests/ovjson/json_testing.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"

namespace ovjson {
namespace {

using Kind = Reader::Kind;
using ValuePtr = Reader::ValuePtr;
using ovtest::Document;
using ovtest::walk;

TEST(Reader, WalksInDocumentOrder) {
  Document d(R"({"a":[1,{"b":"x"}],c:{},"d":true,"e":null})");
  EXPECT_EQ(d.reader.current_value()->kind(), Kind::root);
  EXPECT_EQ(d.reader.current_value()->depth(), 0u);
  std::string seen;
  while (const auto value = d.reader.next_value()) {
    EXPECT_EQ(d.reader.current_value(), value);
    seen += std::to_string(value->depth()) + Reader::kind_name(value->kind()) + "(" +
            std::string(value->member_name()) + ") ";
  }
  EXPECT_EQ(seen,
            "1Object() 2Array(a) 3Number() 3Object() 4String(b) 2Object(c) 2Boolean(d) 2Null(e) ");
  EXPECT_EQ(d.reader.current_value(), nullptr);
  EXPECT_EQ(d.reader.next_value(), nullptr);
}

TEST(Reader, SkipsWhatIsUnreadOfTheChildBefore) {
  Document d(R"([{"a":[[],{"b":1}]}, "long \u0041 string", [2,[3]], 4] )");
  const auto root = d.reader.current_value();
  const auto array = d.reader.next_child(root);
  const auto object = d.reader.next_child(array);
  const auto inner = d.reader.next_child(object);
  EXPECT_EQ(inner->member_name(), "a");
  d.reader.next_value();

  EXPECT_EQ(d.reader.next_child(array)->kind(), Kind::string);
  const auto last = d.reader.next_child(array);
  EXPECT_EQ(last->kind(), Kind::array);
  EXPECT_EQ(d.reader.next_child(object), nullptr) << "closed by now, and at an open one's depth";
  EXPECT_EQ(d.reader.next_child(inner), nullptr);
  EXPECT_EQ(d.reader.next_child(last)->as_double(), 2);
  EXPECT_EQ(d.reader.next_child(array)->as_double(), 4);
  EXPECT_EQ(d.reader.next_child(array), nullptr);
  EXPECT_EQ(d.reader.current_value(), nullptr);
  EXPECT_EQ(d.reader.next_child(array), nullptr);
  EXPECT_EQ(d.reader.next_child(root), nullptr);
}

TEST(Reader, FindsNothingInAnEmptyText) {
  for (const char* text : {"", " \n", "\xef\xbb\xbf"}) {
    Document d(text);
    EXPECT_EQ(d.reader.next_value(), nullptr);
    EXPECT_EQ(d.reader.current_value(), nullptr);
    Document again(text);
    EXPECT_EQ(again.reader.next_child(again.reader.current_value()), nullptr);
  }
}

TEST(Reader, ScalarsHaveNoChildren) {
  Document d(R"(["a", 1])");
  d.reader.next_value();
  const auto text = d.reader.next_value();
  EXPECT_EQ(d.reader.next_child(text), nullptr);
  EXPECT_EQ(text->as_string(), "a");
}

TEST(Reader, ReadsNumbers) {
  constexpr double too_large = std::numeric_limits<double>::infinity();
  struct Case {
    const char* text;
    double number;
    std::optional<std::int64_t> integer;
  };
  for (const Case& c : {
           Case{"0", 0, 0},
           Case{"-0", -0.0, 0},
           Case{"-17", -17, -17},
           Case{"1.0", 1, {}},
           Case{"1e2", 100, {}},
           Case{"9007199254740993", 9007199254740992, 9007199254740993},
           Case{"9223372036854775807", 9223372036854775808.0, 9223372036854775807},
           Case{"9223372036854775808", 9223372036854775808.0, {}},
           Case{"-9223372036854775808", -9223372036854775808.0, INT64_MIN},
           Case{"0.1", 0.1, {}},
           Case{"1.7976931348623157e308", 1.7976931348623157e308, {}},
           Case{"4.9406564584124654e-324", 4.9406564584124654e-324, {}},
           Case{"1e-324", 0, {}},
           Case{"-1e-999999999999999999999", -0.0, {}},
           Case{"0e999999999999999999999", 0, {}},
           Case{"0.000000000000000000001e330", too_large, {}},
           Case{"1e309", too_large, {}},
           Case{"-1e999999999999999999999", too_large, {}},
       }) {
    SCOPED_TRACE(c.text);
    Document d(c.text);
    const auto value = d.reader.next_value();
    EXPECT_EQ(value->number_text(), c.text);
    EXPECT_EQ(value->as_integer(), c.integer);
    if (c.number == too_large) {
      EXPECT_ERROR(value->as_double(), error::ovjson_reader_value,
                   "The current value is too large for a double [line 1, pos 1]");
    } else {
      EXPECT_EQ(value->as_double(), c.number);
      EXPECT_EQ(std::signbit(value->as_double()), std::signbit(c.number));
    }
    EXPECT_EQ(d.reader.next_value(), nullptr);
  }
  // Zeros on either side do not make a number large or small.
  const std::string zeros(400, '0');
  EXPECT_EQ(Document("1" + zeros + "e-400").reader.next_value()->as_double(), 1);
  EXPECT_EQ(Document("0." + zeros + "1e401").reader.next_value()->as_double(), 1);
  EXPECT_EQ(Document("0." + zeros + "1").reader.next_value()->as_double(), 0);
  EXPECT_ERROR(Document("1" + zeros).reader.next_value()->as_double(), error::ovjson_reader_value,
               "The current value is too large for a double [line 1, pos 1]");
}

TEST(Reader, GivesStringsOnceOrAgain) {
  Document d(R"(["a\nb", "taken", "streamed", "both", "left"])");
  d.reader.next_value();
  auto value = d.reader.next_value();
  const std::string* const text = &value->as_string();
  EXPECT_EQ(*text, "a\nb");
  EXPECT_EQ(&value->as_string(), text);
  EXPECT_EQ(value->take_string(), "a\nb");

  constexpr const char* given_out = "The character data of the current value was already given out";
  value = d.reader.next_value();
  EXPECT_EQ(value->take_string(), "taken");
  EXPECT_ERROR(value->take_string(), error::ovjson_reader_value,
               std::string(given_out) + " [line 1, pos 10]");

  char buffer[16];
  value = d.reader.next_value();
  auto stream = value->as_stream();
  EXPECT_ERROR(value->as_string(), error::ovjson_reader_value,
               std::string(given_out) + " [line 1, pos 19]");
  EXPECT_EQ(stream->read(buffer, 3), 3u);
  EXPECT_EQ(std::string(buffer, stream->read(buffer, 16)), "eamed");
  EXPECT_EQ(stream->read(buffer, 16), 0u);
  EXPECT_EQ(stream->remaining(), ovcore::IReadStream::unknown);

  value = d.reader.next_value();
  EXPECT_EQ(value->as_string(), "both");
  stream = value->as_stream();
  EXPECT_EQ(std::string(buffer, stream->read(buffer, 16)), "both");

  value = d.reader.next_value();
  stream = value->as_stream();
  EXPECT_EQ(stream->read_some(buffer, 1), 1u);
  EXPECT_EQ(d.reader.next_value(), nullptr);
  EXPECT_ERROR(stream->read_some(buffer, 1), error::ovjson_reader_value,
               "The current value is no longer available [line 1, pos 46]");
}

TEST(Reader, StreamsGiveWhatIsThere) {
  const std::string_view text = R"("ab\u20acd")";
  const auto source =
      ovcore::make_ref_counted<ovtest::PieceStream>(text, std::vector<std::size_t>{2});
  Reader reader(source);
  const auto stream = reader.next_value()->as_stream();
  std::string result;
  char buffer[100];
  std::string sizes;
  while (const std::size_t size = stream->read_some(buffer, sizeof buffer)) {
    result.append(buffer, size);
    sizes += std::to_string(size);
  }
  EXPECT_EQ(result,
            "ab\xe2\x82\xac"
            "d");
  EXPECT_EQ(sizes, "1131");
}

TEST(Reader, InternsNames) {
  Document d(
      R"({"name":1,"n\u0061me":2,"name too long to be kept in mind, which takes sixty-six bytes.....":3})");
  const auto object = d.reader.next_value();
  EXPECT_TRUE(object->member_key().empty());
  EXPECT_EQ(d.reader.next_child(object)->member_key(), ovcore::StringKey("name"));
  EXPECT_EQ(d.reader.next_child(object)->member_key(), ovcore::StringKey("name"));
  const auto last = d.reader.next_child(object);
  EXPECT_EQ(last->member_key().value(), last->member_name());
  EXPECT_EQ(last->member_name().size(), 66u);
}

TEST(Reader, KeepsOldValuesApartFromNewOnes) {
  ValuePtr kept;
  {
    Document d(R"({"first":1, "second":2})");
    d.reader.next_value();
    kept = d.reader.next_value();
    const auto next = d.reader.next_value();
    EXPECT_EQ(kept->member_name(), "first");
    EXPECT_EQ(kept->kind(), Kind::number);
    EXPECT_EQ(kept->position(), (Position{1, 10, 9}));
    EXPECT_EQ(kept->name_position(), (Position{1, 2, 1}));
    EXPECT_ERROR(kept->as_double(), error::ovjson_reader_value,
                 "The current value is no longer available [line 1, pos 22]");
    EXPECT_EQ(next->as_double(), 2);
  }
  EXPECT_EQ(kept->member_name(), "first");
  EXPECT_ERROR(kept->as_double(), error::ovjson_reader_value,
               "The current value is no longer available [line 1, pos 22]");
}

TEST(Reader, RaisesTheErrorsOfItsCallersWithThePosition) {
  Document d("[\n  {\"name\": 12}]", "file.json");
  d.reader.next_value();
  d.reader.next_value();
  const auto value = d.reader.next_value();
  const auto cause = ovcore::ErrorComposer("why").compose(ovcore::error::ovcore, {});
  const ovcore::SourceLocation location{"client", "read()", 7};

  auto info = ovtest::error_of([&] {
    d.reader.raise_error(error::ovjson_reader, "Bad '{@what}'", {{"what", "thing"}}, location,
                         cause);
  });
  ovtest::expect_error(info, error::ovjson_reader, "Bad 'thing' [line 2, pos 12, uri <file.json>]",
                       location);
  EXPECT_EQ(*info->parameter("line"), "2");
  EXPECT_EQ(*info->parameter("linePos"), "12");
  EXPECT_EQ(*info->parameter("sourcePos"), "13");
  EXPECT_EQ(*info->parameter("uri"), "file.json");
  EXPECT_EQ(info->cause(), cause);

  info = ovtest::error_of([&] {
    d.reader.raise_error_at(value->name_position(), error::ovjson_reader, "Bad name", {}, location);
  });
  ovtest::expect_error(info, error::ovjson_reader, "Bad name [line 2, pos 4, uri <file.json>]",
                       location);
}

TEST(Reader, RefusesToReadOneKindAsAnother) {
  struct Case {
    const char* text;
    const char* kind;
  };
  for (const Case& c : {Case{"{}", "Object"}, Case{"[]", "Array"}, Case{"null", "Null"},
                        Case{"true", "Boolean"}, Case{"1", "Number"}, Case{"\"\"", "String"}}) {
    Document d(c.text);
    const std::string kind = c.kind;
    const auto value = d.reader.next_value();
    const auto message = [&kind](const char* as) {
      return "Cannot return current value type <" + kind + "> as a" + as + " [line 1, pos 1]";
    };
    if (kind != "Boolean") {
      EXPECT_ERROR(value->as_bool(), error::ovjson_reader_value, message(" bool"));
    }
    if (kind != "Number") {
      EXPECT_ERROR(value->as_double(), error::ovjson_reader_value, message(" double"));
      EXPECT_ERROR(value->as_integer(), error::ovjson_reader_value, message("n integer"));
      EXPECT_ERROR(value->number_text(), error::ovjson_reader_value, message(" number"));
    }
    if (kind != "String") {
      EXPECT_ERROR(value->as_string(), error::ovjson_reader_value, message(" string"));
      EXPECT_ERROR(value->take_string(), error::ovjson_reader_value, message(" string"));
      EXPECT_ERROR(value->as_stream(), error::ovjson_reader_value, message(" string"));
      const auto info = ovtest::error_of([&] { static_cast<void>(value->as_string()); });
      EXPECT_EQ(*info->parameter("type"), kind);
    }
  }
  EXPECT_ERROR(Document("1").reader.current_value()->as_bool(), error::ovjson_reader_value,
               "Cannot return current value type <Root> as a bool [line 1, pos 1]");
  EXPECT_EQ(Reader::kind_name(static_cast<Kind>(7)), "##InvalidType(7)");
  EXPECT_EQ(Reader::kind_name(static_cast<Kind>(-1)), "##InvalidType(-1)");
}

TEST(Reader, RefusesParentsThatAreNone) {
  Document d("[]");
  EXPECT_ERROR(d.reader.next_child(nullptr), error::ovjson_reader,
               "Parent parameter cannot be NULL [line 1, pos 1]");
  EXPECT_ERROR(d.reader.next_child(Document("[]").reader.current_value()), error::ovjson_reader,
               "Parent parameter belongs to another reader [line 1, pos 1]");
  walk(d.reader);
}

TEST(Reader, StaysFailedAfterAnError) {
  struct Case {
    const char* text;
    const char* line_pos;  // of what was read last
  };
  for (const Case& c :
       {Case{"[1 \"a\", x]", "4"}, {"[1, \"\xff\"]", "6"}, {"[1, ", "5"}, {"[1, {if:2}]", "8"}}) {
    Document d(c.text, "u");
    const auto root = d.reader.current_value();
    d.reader.next_value();
    const auto value = d.reader.next_value();
    static_cast<void>(ovtest::error_of([&d] { walk(d.reader); }));
    const std::string message = "Value cannot be read after a parse error [line 1, pos " +
                                std::string(c.line_pos) + ", uri <u>]";
    EXPECT_ERROR(d.reader.next_value(), error::ovjson_reader, message);
    EXPECT_ERROR(d.reader.next_child(root), error::ovjson_reader, message);
    EXPECT_ERROR(d.reader.current_value(), error::ovjson_reader, message);
    EXPECT_ERROR(value->as_double(), error::ovjson_reader_value, message);
    EXPECT_ERROR(value->as_string(), error::ovjson_reader_value, message);
    EXPECT_ERROR(d.reader.raise_error(error::ovjson_reader, "m", {}, {}), error::ovjson_reader,
                 "m" + message.substr(message.find(" [")));
  }
}

TEST(Reader, RefusesEveryReservedWordAsAnUnquotedName) {
  constexpr std::string_view words =
      "break do instanceof typeof case else new var catch finally return void continue for switch "
      "while debugger function this with default if throw delete in try class enum extends super "
      "const export import implements let private public yield interface package protected static ";
  int count = 0;
  for (std::string_view left = words; !left.empty(); ++count) {
    const std::string word(left.substr(0, left.find(' ')));
    left.remove_prefix(word.size() + 1);
    for (const std::size_t size : ovtest::buffer_sizes) {
      const ReaderOptions options{.buffer_size = size};
      EXPECT_ERROR(walk(Document("{" + word + ": 1}", "", options).reader), error::ovjson_reader,
                   "Invalid member name [line 1, pos 2]");
      EXPECT_EQ(ovtest::rewrite("{" + word + "s: 1}", options), "{\"" + word + "s\":1}");
      EXPECT_EQ(ovtest::rewrite("{\"" + word + "\": 1}", options), "{\"" + word + "\":1}");
    }
  }
  EXPECT_EQ(count, 42);
}

}  // namespace
}  // namespace ovjson
