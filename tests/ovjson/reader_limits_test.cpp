// SPDX-License-Identifier: Apache-2.0
// What a reader asks of its surroundings: memory, stack, the bytes of its source.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovjson/error_codes.h"
#include "ovjson/reader.h"
#include "tests/ovjson/json_testing.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"

namespace ovjson {
namespace {

using Kind = Reader::Kind;
using ovtest::Document;
using ovtest::walk;

TEST(ReaderLimits, LimitsNesting) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_EQ(ovtest::rewrite(nested(1040)), nested(1040));
  const std::string too_deep = nested(1041);
  EXPECT_ERROR(walk(Document(too_deep).reader), error::ovjson_reader,
               "Objects and arrays nest deeper than 1040 [line 1, pos 1041]");
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

TEST(ReaderLimits, CountsPlacesFromWhereItsTextStarts) {
  const Position start{.line = 7, .line_pos = 3, .source_pos = 100};
  Document document(" {\"a\":\n 01}", "", {.start = start});
  EXPECT_EQ(document.reader.next_value()->position(), (Position{7, 4, 101}));
  EXPECT_ERROR(walk(document.reader), error::ovjson_reader_tokenizer_syntaxError,
               "Invalid number: unexpected '1' [line 8, pos 3]");
  EXPECT_EQ(document.reader.position(), (Position{8, 3, 109}));
}

TEST(ReaderLimits, LimitsCharacterDataEvenWhenItIsSkipped) {
  for (const char* text : {"[\"abcd\", 1]", "{\"abcd\":1}", "{abcd:1}", "[1234, 1]"})
    EXPECT_NO_THROW(walk(Document(text, "", {.max_value_size = 4}).reader));
  for (const auto& c : std::initializer_list<std::pair<const char*, int>>{
           {"[\"abcde\", 1]", 7}, {"{\"abcde\":1}", 7}, {"{abcde:1}", 6}, {"[12345, 1]", 2}}) {
    for (const std::size_t buffer : {64, 3, 1}) {
      const ReaderOptions options{.max_value_size = 4, .buffer_size = buffer};
      EXPECT_ERROR(walk(Document(c.first, "", options).reader),
                   error::ovjson_reader_unexpected_size,
                   "Node value exceeds 4bytes of character data [line 1, pos " +
                       std::to_string(c.second) + "]");
    }
  }
}

TEST(ReaderLimits, HoldsNoMoreThanItsBufferOfLongTexts) {
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

TEST(ReaderLimits, AllocatesNothingForEachValue) {
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

/// Gives one byte at a time and counts them.
class CountingStream final : public ovcore::IReadStream {
 public:
  explicit CountingStream(std::string_view text) : m_text(text) {}

  std::size_t read(void* buffer, std::size_t size) override { return read_some(buffer, size); }
  std::size_t read_some(void* buffer, std::size_t) override {
    return m_text.copy(static_cast<char*>(buffer), 1, count++);
  }
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

  std::size_t count = 0;

 private:
  std::string_view m_text;
};

TEST(ReaderLimits, AnswersBeforeMoreIsSent) {
  const std::string_view text = R"([{"a":"b\n"},12,true,[],""])";
  CountingStream counting(text);
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

TEST(ReaderLimits, TellsAFailingSourceFromTheEnd) {
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

TEST(ReaderLimits, SurvivesFailedAllocations) {
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
