// SPDX-License-Identifier: Apache-2.0
#include "ovjson/reader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovjson/error_codes.h"
#include "tests/ovjson/json_testing.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"

namespace ovjson {
namespace {

using Kind = Reader::Kind;
using ValuePtr = Reader::ValuePtr;

// A reader and the text that it reads.
struct Document {
  explicit Document(std::string_view text, std::string_view uri = {},
                    const ReaderOptions& options = {})
      : source(ovcore::SourceString(text)), reader(source, ovcore::SourceString(uri), options) {}

  ovcore::MemoryReadStream source;
  Reader reader;
};

void walk(auto&& reader) {
  while (reader.next_value()) {
  }
}

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

TEST(Reader, LimitsNesting) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_EQ(ovtest::rewrite(nested(512)), nested(512));
  const std::string too_deep = nested(513);
  EXPECT_ERROR(walk(Document(too_deep).reader), error::ovjson_reader,
               "Objects and arrays nest deeper than 512 [line 1, pos 513]");
  EXPECT_EQ(ovtest::rewrite("[{\"a\":1}]", {.max_depth = 2}), "[{\"a\":1}]");
  EXPECT_ERROR(walk(Document("[{\"a\":[]}]", "", {.max_depth = 2}).reader), error::ovjson_reader,
               "Objects and arrays nest deeper than 2 [line 1, pos 7]");
  EXPECT_EQ(ovtest::rewrite("1", {.max_depth = 0}), "1");

  const std::string text = nested(1'000'000);
  Document deep(text, "", {.max_depth = 1'000'000});
  const auto root = deep.reader.current_value();
  EXPECT_EQ(deep.reader.next_child(root)->depth(), 1u);
  EXPECT_EQ(deep.reader.next_child(root), nullptr);
}

TEST(Reader, LimitsCharacterDataEvenWhenItIsSkipped) {
  for (const char* text : {"[\"abcd\", 1]", "{\"abcd\":1}", "{abcd:1}", "[1234, 1]"})
    EXPECT_NO_THROW(walk(Document(text, "", {.max_value_size = 4}).reader));
  for (const auto& c : std::initializer_list<std::pair<const char*, int>>{
           {"[\"abcde\", 1]", 3}, {"{\"abcde\":1}", 3}, {"{abcde:1}", 2}, {"[12345, 1]", 2}}) {
    EXPECT_ERROR(walk(Document(c.first, "", {.max_value_size = 4}).reader),
                 error::ovjson_reader_unexpected_size,
                 "Node value exceeds 4bytes of character data [line 1, pos " +
                     std::to_string(c.second) + "]");
  }
}

TEST(Reader, HoldsNoMoreThanItsBufferOfLongTexts) {
  // 128 MiB fit, one byte more does not. Neither is ever in memory.
  const std::string block(1 << 20, 'x');
  for (const char* tail : {"\"]", "x\"]"}) {
    ovtest::RepeatStream source("[\"", block, 128, tail);
    const ovtest::AllocationCounts before = ovtest::allocation_counts();
    Reader reader(source);
    reader.next_value();
    const auto stream = reader.next_value()->as_stream();
    std::uint64_t size = 0;
    const auto read = [&] {
      char buffer[4096];
      while (const std::size_t got = stream->read(buffer, sizeof buffer))
        size += got;
    };
    if (tail[0] == '"') {
      read();
      EXPECT_EQ(size, 134'217'728u);
      EXPECT_EQ(reader.next_value(), nullptr);
    } else {
      EXPECT_ERROR(read(), error::ovjson_reader_unexpected_size,
                   "Node value exceeds 134217728bytes of character data [line 1, pos 134217731]");
    }
    EXPECT_LT(ovtest::allocation_counts().bytes - before.bytes, 4u << 20);
  }
}

TEST(Reader, AllocatesNothingForEachValue) {
  const auto allocations = [](std::uint64_t times) {
    ovtest::RepeatStream source(
        "[0", ",{\"alpha\":\"short\",b:[1,2.5,\"\\u20ac\",true],\"c\":{\"d\":null}}", times, "]");
    return ovtest::allocations_of([&source] {
      Reader reader(source);
      const auto array = reader.next_value();
      while (const auto child = reader.next_child(array)) {
        if (child->kind() != Kind::object) continue;
        while (const auto member = reader.next_child(child)) {
          static_cast<void>(member->member_key());
          if (member->kind() == Kind::string) {
            EXPECT_EQ(member->as_string(), "short");
          }
          if (member->kind() != Kind::array) continue;
          reader.next_child(member);
          EXPECT_EQ(reader.next_child(member)->as_double(), 2.5);
        }
      }
    });
  };
  const ovcore::StringKey names[] = {"alpha", "b", "c"};
  EXPECT_EQ(allocations(10'000), allocations(10));
}

TEST(Reader, AnswersBeforeMoreIsSent) {
  // What is delivered when each byte is there, by index.
  const std::string_view text = R"([{"a":"b\n"},12,true,[],""])";
  struct Case {
    std::size_t size;
    Kind kind;
  };
  ovtest::FailingStream<int> source(text, 0);
  class Counting final : public ovcore::IReadStream {
   public:
    explicit Counting(std::string_view t) : m_text(t) {}
    std::size_t read(void* buffer, std::size_t size) override { return read_some(buffer, size); }
    std::size_t read_some(void* buffer, std::size_t) override {
      return m_text.copy(static_cast<char*>(buffer), 1, count++);
    }
    [[nodiscard]] std::uint64_t remaining() const override { return unknown; }
    std::size_t count = 0;

   private:
    std::string_view m_text;
  } counting(text);

  Reader reader(counting);
  const auto root = reader.current_value();
  const auto array = reader.next_child(root);
  EXPECT_EQ(counting.count, 1u);
  auto object = reader.next_child(array);
  EXPECT_EQ(counting.count, 2u);
  const auto member = reader.next_child(object);
  EXPECT_EQ(counting.count, 7u) << "a string is there with its quotation mark";
  EXPECT_EQ(member->as_string(), "b\n");
  EXPECT_EQ(counting.count, 11u) << "and is complete with the other one";
  EXPECT_EQ(reader.next_child(object), nullptr);
  EXPECT_EQ(counting.count, 12u) << "an object is closed with its bracket";
  EXPECT_EQ(reader.next_child(array)->as_double(), 12);
  EXPECT_EQ(counting.count, 16u) << "a number needs the byte behind";
  EXPECT_TRUE(reader.next_child(array)->as_bool());
  EXPECT_EQ(counting.count, 21u);
  const auto empty = reader.next_child(array);
  EXPECT_EQ(reader.next_child(empty), nullptr);
  EXPECT_EQ(counting.count, 23u);
  EXPECT_EQ(reader.next_child(array)->as_string(), "");
  EXPECT_EQ(counting.count, 26u);
  EXPECT_EQ(reader.next_child(array), nullptr);
  EXPECT_EQ(counting.count, text.size());
}

TEST(Reader, TellsAFailingSourceFromTheEnd) {
  const std::string_view text = R"({"a":[12,"b\u00e9",true],c:"d"})";
  const ovcore::Exception failure(
      ovcore::ErrorComposer("cable cut").compose(ovcore::error::ovcore_stream_read, {}));
  for (std::size_t size = 0; size < text.size(); ++size) {
    ovtest::FailingStream source(text.substr(0, size), failure);
    Reader reader(source);
    const auto info = ovtest::error_of([&reader] { walk(reader); });
    ovtest::expect_error(info, error::ovjson_reader_tokenizer_stream,
                         "Reading the text failed [line 1, pos " + std::to_string(size + 1) + "]");
    EXPECT_EQ(info->cause(), failure.info()) << size;
    EXPECT_ERROR(
        walk(reader), error::ovjson_reader,
        "Value cannot be read after a parse error [line 1, pos " + std::to_string(size + 1) + "]");
  }
  ovtest::FailingStream foreign(text.substr(0, 3), std::runtime_error("smoke"));
  Reader reader(foreign);
  const auto info = ovtest::error_of([&reader] { walk(reader); });
  EXPECT_EQ(info->cause()->message(), "smoke");
}

TEST(Reader, SurvivesFailedAllocations) {
  const std::string text = R"({"a":"a string that is longer than what needs no allocation",)"
                           R"("a name that is longer than what needs no allocation":[[1],2],)"
                           R"(b:"streamed"})";
  const auto source_of = [&text] {
    return ovcore::make_ref_counted<ovtest::PieceStream>(text, std::vector<std::size_t>{7});
  };
  const auto read = [&source_of] {
    Reader reader(source_of(), "uri", {.buffer_size = 16});
    const auto object = reader.next_value();
    std::string seen;
    while (const auto member = reader.next_child(object)) {
      seen += member->member_key().value();
      if (member->member_name() == "b") {
        char buffer[8];
        seen.append(buffer, member->as_stream()->read(buffer, sizeof buffer));
      } else if (member->kind() == Kind::string) {
        seen += member->as_string();
      }
    }
    EXPECT_EQ(seen,
              "aa string that is longer than what needs no allocation"
              "a name that is longer than what needs no allocationbstreamed");
  };
  EXPECT_GT(ovtest::for_each_failed_allocation(read, [] {}), 10u);

  // A reader whose allocation failed amid the text does not go on with half of it.
  Reader reader(source_of());
  const auto object = reader.next_value();
  const auto member = reader.next_child(object);
  {
    const ovtest::FailAllocations fail(0);
    EXPECT_THROW(static_cast<void>(member->as_string()), std::bad_alloc);
  }
  EXPECT_ERROR(member->as_string(), error::ovjson_reader_value,
               "The character data of the current value was already given out [line 1, pos 6]");
  EXPECT_EQ(reader.next_child(object)->kind(), Kind::array);
}

}  // namespace
}  // namespace ovjson
