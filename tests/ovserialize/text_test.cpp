// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "ovcore/error_codes.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/ovserialize/items.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"
#include "tests/support/table.h"

namespace ovserialize {
namespace {

std::string to_text(const Items& items, const TextOptions& options = {}) {
  std::string text;
  StringTextTarget target(text);
  TextWriter writer(target, options);
  write(writer, items);
  writer.close();
  return text;
}

Items from_text(std::string_view text, const Limits& limits = {}) {
  ovcore::MemoryReadStream source{ovcore::SourceString(text)};
  TextReader reader(source, limits);
  return read_all(reader);
}

TEST(Text, CarriesWhatTheBinaryFormCarries) {
  const Items items = all_items();
  for (const bool one_line : {true, false}) {
    const std::string text = to_text(items, {.one_line = one_line});
    EXPECT_EQ(from_text(text), items);
    // And straight from one form to the other, both ways.
    ovcore::MemoryReadStream source{ovcore::SourceString(text)};
    TextReader text_reader(source);
    MemoryWriter binary;
    copy_items(text_reader, binary);
    const auto list = binary.detach();
    EXPECT_EQ(text_of(*list), to_binary(items));
    MemoryReader binary_reader(list);
    std::string copied;
    StringTextTarget target(copied);
    TextWriter writer(target, {.one_line = one_line});
    copy_items(binary_reader, writer);
    writer.close();
    EXPECT_EQ(copied, text);
  }
}

TEST(Text, EverySplitReadsTheSame) {
  std::mt19937 random(5);
  for (int i = 0; i < 12; ++i) {
    const Items items = random_items(random);
    const std::string text = to_text(items, {.one_line = i % 2 == 0});
    if (text.size() > 4000) continue;
    ovtest::for_each_split(text, [&](const auto& stream) {
      TextReader reader(*stream);
      EXPECT_EQ(read_all(reader), items);
    });
    for (const std::size_t buffer : {1, 2, 3, 100}) {
      ovcore::MemoryReadStream source{ovcore::SourceString(text)};
      TextReader reader(source, {}, buffer);
      EXPECT_EQ(read_all(reader), items);
      EXPECT_EQ(reader.offset(), text.size());
    }
  }
}

TEST(Text, LaysOutWithLineBreaks) {
  MemoryWriter writer;
  writer.write_uint(12);
  writer.begin_sequence(1);
  writer.begin_sequence(2);
  writer << "a" << 1;
  writer.next_element();
  writer << "b";
  writer.begin_structure();
  writer << true;
  writer.begin_sequence(0);
  writer.end_sequence();
  writer.end_structure();
  writer.end_sequence();
  writer.end_sequence();
  const Items items = from_binary(text_of(*writer.detach()));
  EXPECT_EQ(to_text(items),
            "simple(12), simple(16), [_ 2, \"a\", 1, \"b\", simple(17), true, [_ 0], simple(18)]");
  EXPECT_EQ(to_text(items, {.one_line = false}),
            "simple(12),\n"
            "simple(16),\n"
            "[_ 2,\n"
            "  \"a\",\n"
            "  1,\n"
            "  \"b\",\n"
            "  simple(17),\n"
            "    true,\n"
            "    [_ 0],\n"
            "  simple(18)\n"
            "]\n");
  EXPECT_EQ(to_text({}), "");
  EXPECT_EQ(to_text({}, {.one_line = false}), "");
  EXPECT_EQ(to_text(from_text("[_ 2, 1, 2]"), {.one_line = false, .indent = UINT_MAX}),
            "[_ 2,\n" + std::string(64, ' ') + "1,\n" + std::string(64, ' ') + "2\n]\n");
}

TEST(Text, IsReadFreely) {
  for (const ovtest::Row& row : ovtest::read_table("items/text_read.txt", 2))
    EXPECT_EQ(to_text(from_text(row[0])), row[1]) << row[0];
}

TEST(Text, SaysWhatIsWrongAndWhere) {
  for (const ovtest::Row& row : ovtest::read_table("items/text_bad.txt", 3)) {
    SCOPED_TRACE(row[0]);
    const auto info = ovtest::error_of([&] { from_text(row[0]); });
    ASSERT_TRUE(info);
    ovtest::expect_error(info, ovtest::code_of("error.ovserialize.reader", row[1]), row[2]);
    EXPECT_TRUE(info->parameter("offset") && info->parameter("line") && info->parameter("column"));
  }
}

// What is cut is never taken for the whole, save where a number is cut to a shorter one.
TEST(Text, TruncationIsFoundAtEveryCharacter) {
  for (const Item& item : all_items()) {
    const std::string text = to_text({item});
    for (std::size_t size = 1; size < text.size(); ++size) {
      const std::string cut = text.substr(0, size);
      try {
        from_text(cut);
        EXPECT_TRUE(cut.find_first_not_of("-.0123456789e+") == cut.npos) << cut;
      } catch (const ovcore::Exception& e) {
        EXPECT_EQ(e.code(), error::ovserialize_reader_truncated) << text.substr(0, size);
        EXPECT_EQ(*e.info()->parameter("offset"), std::to_string(size));
      }
    }
  }
}

TEST(Text, EveryFlippedBitIsAnErrorOrAnotherStream) {
  std::size_t errors = 0;
  std::size_t others = 0;
  for (const Item& item : all_items()) {
    const std::string text = to_text({item});
    if (text.size() > 100) continue;
    for (std::size_t bit = 0; bit < 8 * text.size(); ++bit) {
      std::string flipped = text;
      flipped[bit / 8] = static_cast<char>(flipped[bit / 8] ^ 1 << bit % 8);
      try {
        const Items read = from_text(flipped);
        ++others;
        EXPECT_EQ(from_text(to_text(read)), read) << flipped;
        EXPECT_EQ(from_binary(to_binary(read)), read) << flipped;
      } catch (const ovcore::Exception& e) {
        ++errors;
        EXPECT_TRUE(e.code().is_a(error::ovserialize_reader)) << flipped;
      }
    }
  }
  EXPECT_GT(errors, 1000u);
  EXPECT_GT(others, 1000u);
}

TEST(Text, AnItemOfAnotherKindStaysTheNext) {
  ovcore::MemoryReadStream source("\n  42");
  TextReader reader(source);
  std::string text = "before";
  EXPECT_ERROR(reader >> text, error::ovserialize_reader_kind,
               "Expected a string at line 2, column 3, found an integer");
  EXPECT_EQ(text, "before");
  EXPECT_EQ(reader.item_kind(), item_integer);
  EXPECT_EQ(reader.offset(), 3u);
  int number = 0;
  reader >> number;
  EXPECT_EQ(number, 42);
  EXPECT_TRUE(reader.at_end());
  EXPECT_EQ(reader.item_kind(), item_none);
}

TEST(Text, WhatIsNoItemHasNoKind) {
  for (const char* text : {"", "]", "simple(18)", "{", "undefined", "simple(", "1003(", "/"}) {
    ovcore::MemoryReadStream source(text);
    TextReader reader(source);
    EXPECT_EQ(reader.item_kind(), item_none) << text;
    EXPECT_EQ(reader.item_kind(), item_none) << text;
    EXPECT_EQ(reader.at_end(), *text == '\0') << text;
  }
}

TEST(Text, ASequenceOfOneMayBeAskedTwiceBeforeItIsRead) {
  ovcore::MemoryReadStream source("simple(16), simple(16), null, null");
  TextReader reader(source);
  EXPECT_EQ(reader.begin_sequence(), 1u);
  EXPECT_TRUE(reader.has_next_element());
  EXPECT_EQ(reader.begin_sequence(), 1u);
  EXPECT_TRUE(reader.has_next_element());
  EXPECT_FALSE(reader.has_next_element());
  reader.read_null();
  EXPECT_FALSE(reader.has_next_element());
  EXPECT_ERROR(reader.has_next_element(), error::ovserialize_reader_sequence,
               "No sequence is open at line 1, column 29");
  EXPECT_ERROR(reader.end_structure(), error::ovserialize_reader_structure,
               "No structure is open at line 1, column 29");
  reader.read_null();
  EXPECT_TRUE(reader.at_end());
}

TEST(Text, BlocksAreReadAsStreams) {
  ovcore::MemoryReadStream source("h'616263', h'', 1");
  TextReader reader(source);
  const auto stream = reader.read_binary_stream();
  EXPECT_EQ(stream->remaining(), 3u);
  EXPECT_EQ(reader.read_binary_stream()->remaining(), 0u);
  char bytes[4];
  EXPECT_EQ(stream->read(bytes, 4), 3u);
  EXPECT_EQ(std::string(bytes, 3), "abc");
  EXPECT_EQ(reader.item_kind(), item_integer);
}

TEST(Text, LimitsHoldOnBothSides) {
  const Limits limits{.max_depth = 2, .max_string = 5, .max_binary = 3};
  std::string text;
  StringTextTarget target(text);
  TextWriter writer(target, {}, limits);
  writer << "12345";
  EXPECT_ERROR(writer << "123456", error::ovserialize_writer_size,
               "Writing a string of 6 bytes, the limit is 5");
  writer.write_binary("123", 3);
  EXPECT_ERROR(writer.write_binary("1234", 4), error::ovserialize_writer_size,
               "Writing a binary block of 4 bytes, the limit is 3");
  EXPECT_ERROR(writer.write_memory_list_as_binary(MemoryList::create_copy("1234", 4)),
               error::ovserialize_writer_size, "Writing a binary block of 4 bytes, the limit is 3");
  writer.begin_structure();
  writer.begin_sequence(0);
  EXPECT_ERROR(writer.begin_sequence(1), error::ovserialize_writer_depth,
               "More than 2 nested sequences and structures");
  EXPECT_ERROR(writer.close(), error::ovserialize_writer_sequence, "A sequence is still open");
  EXPECT_ERROR(writer.end_structure(), error::ovserialize_writer_structure,
               "The end of a structure where none is open");
  writer.end_sequence();
  EXPECT_ERROR(writer.next_element(), error::ovserialize_writer_sequence,
               "A next element where no sequence is open");
  writer.end_structure();
  EXPECT_ERROR(writer.end_sequence(), error::ovserialize_writer_sequence,
               "The end of a sequence where none is open");
  writer.begin_sequence(1);
  EXPECT_ERROR(writer.end_sequence(), error::ovserialize_writer_sequence,
               "No element in a sequence announced with one");
  writer.write_null();
  EXPECT_ERROR(writer.next_element(), error::ovserialize_writer_sequence,
               "A second element in a sequence announced with one");
  writer.end_sequence();
  writer.close();
  EXPECT_EQ(text, "\"12345\", h'313233', simple(17), [_ 0], simple(18), simple(16), null");
  EXPECT_EQ(from_text(text, limits).size(), 4u);
  EXPECT_ERROR(writer.write_null(), error::ovserialize_writer_closed, "The writer is closed");
  EXPECT_ERROR(writer.close(), error::ovserialize_writer_closed, "The writer is closed");

  EXPECT_ERROR(from_text("1, \"123456\"", limits), error::ovserialize_reader_size,
               "Reading a string of too many bytes at line 1, column 4, the limit is 5");
  EXPECT_ERROR(from_text("38218(h'ffffffffffff')", limits), error::ovserialize_reader_size,
               "Reading a string of too many bytes at line 1, column 1, the limit is 5");
  EXPECT_ERROR(from_text("h'00010203'", limits), error::ovserialize_reader_size,
               "Reading a binary block of too many bytes at line 1, column 1, the limit is 3");
  EXPECT_ERROR(from_text("simple(16), [_ 0, simple(17)", limits), error::ovserialize_reader_depth,
               "More than 2 nested sequences and structures at line 1, column 19");
}

/// Takes some characters, then fails.
class FailingTarget final : public ITextTarget {
 public:
  explicit FailingTarget(std::size_t size) : m_left(size) {}
  void put(char c) override { write(&c, 1); }
  void write(const char*, std::size_t size) override {
    if (size > m_left) ovcore::throw_error(ovcore::error::ovcore_stream_write, "full", {});
    m_left -= size;
  }

 private:
  std::size_t m_left;
};

TEST(Text, ATargetThatFailsEndsTheWriting) {
  for (std::size_t size = 0; size < 300; size += 7) {
    FailingTarget target(size);
    TextWriter writer(target);
    EXPECT_ERROR(write(writer, all_items()), ovcore::error::ovcore_stream_write, "full");
    EXPECT_ERROR(writer.write_null(), error::ovserialize_writer_closed,
                 "The writer's target has failed");
    EXPECT_ERROR(writer.close(), error::ovserialize_writer_closed,
                 "The writer's target has failed");
  }
}

TEST(Text, GoesToStreamsInBlocks) {
  const std::string text = to_text(all_items());
  std::string written;
  ovcore::StringWriteStream stream(written);
  StreamTextTarget target(stream);
  target.put('(');
  TextWriter writer(target);
  write(writer, all_items());
  writer.close();
  target.write(std::string(10000, 'x').data(), 10000);
  target.put(')');
  target.flush();
  EXPECT_EQ(written, "(" + text + std::string(10000, 'x') + ")");
}

}  // namespace
}  // namespace ovserialize
