// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <bit>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "ovserialize/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/stream_writer.h"
#include "tests/ovserialize/items.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"
#include "tests/support/table.h"

namespace ovserialize {
namespace {

MemoryReader reader_of(std::string_view bytes, const Limits& limits = {}) {
  return MemoryReader(bytes.data(), bytes.size(), limits);
}

TEST(Binary, ItemsSurviveInSegmentsOfAnySize) {
  const Items items = all_items();
  const std::string bytes = to_binary(items);
  for (const std::size_t size : {1, 2, 3, 8, 31, 0}) {
    SCOPED_TRACE(size);
    MemoryWriter writer({.segment_size = size});
    write(writer, items);
    EXPECT_EQ(writer.size(), bytes.size());
    const auto list = writer.memory_list();
    EXPECT_EQ(text_of(*list), bytes);
    MemoryReader reader(list);
    EXPECT_EQ(read_all(reader), items);
    EXPECT_EQ(reader.offset(), bytes.size());
    EXPECT_EQ(*reader.memory_list(), *list);
  }
  EXPECT_EQ(from_binary(bytes), items);
}

TEST(Binary, ItemsSurviveInPiecesOfAnySize) {
  const Items items = all_items();
  const std::string bytes = to_binary(items);
  for (const std::size_t buffer : {1, 33, 100, 16384}) {
    std::string written;
    ovcore::StringWriteStream target(written);
    StreamWriter writer(target, {}, buffer);
    write(writer, items);
    writer.flush();
    ASSERT_EQ(written, bytes);
    for (const std::size_t piece : {1, 2, 3, 7, 1000}) {
      ovtest::PieceStream source(bytes, {piece});
      StreamReader reader(source, {}, buffer);
      EXPECT_EQ(read_all(reader), items);
      EXPECT_EQ(reader.offset(), bytes.size());
    }
  }
}

TEST(Binary, EverySplitReadsTheSame) {
  std::mt19937 random(1);
  for (int i = 0; i < 20; ++i) {
    const Items items = random_items(random);
    const std::string bytes = to_binary(items).substr(0, 5000);
    ovtest::for_each_split(bytes, [&](const auto& stream) {
      StreamReader reader(*stream);
      EXPECT_EQ(read_all(reader), items);
    });
  }
}

TEST(Binary, ReadsTheFormsThatWritersDoNotChoose) {
  for (const ovtest::Row& row : ovtest::read_table("items/binary_read.txt", 2))
    EXPECT_EQ(to_hex(to_binary(from_binary(from_hex(row[0])))), row[1]) << row[0];
}

TEST(Binary, KindsAreSeenWithoutReading) {
  const std::map<std::string, int> kinds = {
      {"none", item_none},          {"null", item_null},
      {"boolean", item_boolean},    {"integer", item_integer},
      {"unsigned", item_unsigned},  {"double", item_double},
      {"string", item_string},      {"absolute time", item_absolute_time},
      {"uuid", item_uuid},          {"relative time", item_relative_time},
      {"binary", item_binary},      {"sequence", item_sequence},
      {"structure", item_structure}};
  for (const ovtest::Row& row : ovtest::read_table("items/binary_kinds.txt", 2)) {
    SCOPED_TRACE(row[0]);
    const std::string bytes = from_hex(row[0]);
    EXPECT_EQ(reader_of(bytes).item_kind(), kinds.at(row[1]));
    ovtest::for_each_split(bytes, [&](const auto& stream) {
      StreamReader reader(*stream);
      EXPECT_EQ(reader.item_kind(), kinds.at(row[1]));
      EXPECT_EQ(reader.offset(), 0u);
    });
  }
}

TEST(Binary, AnItemOfAnotherKindStaysTheNext) {
  const std::string bytes = from_hex("182aff");
  auto reader = reader_of(bytes);
  std::string text = "before";
  const auto info = ovtest::error_of([&] { reader >> text; });
  ovtest::expect_error(info, error::ovserialize_reader_kind,
                       "Expected a string at offset 0, found an integer");
  EXPECT_EQ(*info->parameter("offset"), "0");
  EXPECT_EQ(text, "before");
  EXPECT_ERROR(reader.read_null(), error::ovserialize_reader_kind,
               "Expected null at offset 0, found an integer");
  int number = 0;
  reader >> number;
  EXPECT_EQ(number, 42);
  EXPECT_ERROR(reader.read_null(), error::ovserialize_reader_kind,
               "Expected null at offset 2, found the end of a sequence");
  EXPECT_EQ(reader.offset(), 2u);
}

TEST(Binary, NumbersAreNeverCut) {
  const auto range_error = [](auto target, const char* digits, const char* kind) {
    const std::string bytes = from_hex(digits);
    auto reader = reader_of(bytes);
    const auto before = target;
    EXPECT_ERROR(
        reader >> target, error::ovserialize_reader_range,
        std::string("The value of ") + kind + " at offset 0 is beyond the range of its type");
    EXPECT_EQ(target, before);
  };
  range_error(7, "1a80000000", "an integer");
  range_error(7, "3a80000000", "an integer");
  range_error(7L, "1b8000000000000000", "an integer");
  range_error(7LL, "3b8000000000000000", "an integer");
  range_error(7u, "d995491b0000000100000000", "an unsigned integer");
  range_error(ovcore::AbsoluteTime(), "d903e9a1011b7fffffffffffffff", "an absolute time");
  range_error(ovcore::RelativeTime(), "d903eaa1013bffffffffffffffff", "an integer");
  const std::string token = from_hex("d995491b0000000100000000");
  auto reader = reader_of(token);
  EXPECT_ERROR(reader.read_uint(), error::ovserialize_reader_range,
               "The value of an unsigned integer at offset 0 is beyond the range of its type");
  unsigned long long wide = 0;
  reader >> wide;
  EXPECT_EQ(wide, 1ull << 32);
}

TEST(Binary, ASequenceOfOneMayBeAskedTwiceBeforeItIsRead) {
  const std::string bytes = from_hex("f0f0f6f6");
  auto reader = reader_of(bytes);
  EXPECT_EQ(reader.begin_sequence(), 1u);
  EXPECT_TRUE(reader.has_next_element());
  EXPECT_EQ(reader.begin_sequence(), 1u);
  EXPECT_TRUE(reader.has_next_element());
  EXPECT_FALSE(reader.has_next_element());
  EXPECT_EQ(reader.depth(), 1u);
  reader.read_null();
  EXPECT_FALSE(reader.has_next_element());
  EXPECT_EQ(reader.depth(), 0u);
  EXPECT_ERROR(reader.has_next_element(), error::ovserialize_reader_sequence,
               "No sequence is open at offset 3");
  reader.read_null();
  EXPECT_TRUE(reader.at_end());
}

TEST(Binary, OtherSequencesAnswerAsOftenAsAsked) {
  const std::string bytes = from_hex("9f00f6ff9f1a000f4240f6ff");
  auto reader = reader_of(bytes);
  for (const std::uint64_t count : {0, 1'000'000}) {
    EXPECT_EQ(reader.begin_sequence(), count);
    for (int i = 0; i < 3; ++i)
      EXPECT_TRUE(reader.has_next_element());
    reader.read_null();
    EXPECT_FALSE(reader.has_next_element());
  }
  EXPECT_TRUE(reader.at_end());
}

TEST(Binary, StructuresEndWhereTheirItemsEnd) {
  const std::string bytes = from_hex("f1f6f2");
  auto reader = reader_of(bytes);
  EXPECT_ERROR(reader.end_structure(), error::ovserialize_reader_structure,
               "No structure is open at offset 0");
  reader.begin_structure();
  EXPECT_ERROR(reader.end_structure(), error::ovserialize_reader_kind,
               "Expected the end of a structure at offset 1, found null");
  EXPECT_ERROR(reader.has_next_element(), error::ovserialize_reader_sequence,
               "No sequence is open at offset 1");
  reader.read_null();
  reader.end_structure();
  EXPECT_TRUE(reader.at_end());
}

TEST(Binary, WritersCheckTheirFrames) {
  MemoryWriter writer;
  EXPECT_ERROR(writer.next_element(), error::ovserialize_writer_sequence,
               "A next element where no sequence is open");
  EXPECT_ERROR(writer.end_sequence(), error::ovserialize_writer_sequence,
               "The end of a sequence where none is open");
  EXPECT_ERROR(writer.end_structure(), error::ovserialize_writer_structure,
               "The end of a structure where none is open");
  writer.begin_sequence(1);
  EXPECT_ERROR(writer.end_sequence(), error::ovserialize_writer_sequence,
               "No element in a sequence announced with one");
  writer.begin_sequence(1);
  EXPECT_ERROR(writer.end_structure(), error::ovserialize_writer_structure,
               "The end of a structure where none is open");
  writer.write_null();
  EXPECT_ERROR(writer.next_element(), error::ovserialize_writer_sequence,
               "A second element in a sequence announced with one");
  EXPECT_ERROR(writer.memory_list(), error::ovserialize_writer_sequence,
               "A sequence is still open");
  writer.end_sequence();
  writer.end_sequence();
  writer.begin_structure();
  EXPECT_ERROR(writer.end_sequence(), error::ovserialize_writer_sequence,
               "The end of a sequence where none is open");
  EXPECT_ERROR(writer.detach(), error::ovserialize_writer_structure, "A structure is still open");
  writer.end_structure();
  EXPECT_EQ(to_hex(text_of(*writer.detach())), "f0f0f6f1f2");
  EXPECT_TRUE(writer.detach()->empty());
}

TEST(Binary, NestingIsLimitedOnBothSides) {
  for (const std::size_t limit : {0, 1, 3, 1040}) {
    const Limits limits{.max_depth = limit};
    const Limits wider{.max_depth = limit + 1};
    const std::string message =
        "More than " + std::to_string(limit) + " nested sequences and structures";
    for (const int kind : {0, 1, 2}) {
      const auto open = [kind](Writer& writer) {
        if (kind == 2) return writer.begin_structure();
        writer.begin_sequence(static_cast<std::uint64_t>(kind));
      };
      MemoryWriter writer({}, limits);
      MemoryWriter wide_writer({}, wider);
      for (std::size_t i = 0; i < limit; ++i)
        open(writer);
      EXPECT_ERROR(open(writer), error::ovserialize_writer_depth, message);
      for (std::size_t i = 0; i <= limit; ++i)
        open(wide_writer);
      wide_writer.write_null();
      for (std::size_t i = 0; i <= limit; ++i)
        kind == 2 ? wide_writer.end_structure() : wide_writer.end_sequence();
      const std::string bytes = text_of(*wide_writer.detach());
      EXPECT_EQ(to_binary(from_binary(bytes, wider), wider), bytes);
      const std::size_t at = limit * (kind == 0 ? 2 : 1);
      EXPECT_ERROR(from_binary(bytes, limits), error::ovserialize_reader_depth,
                   message + " at offset " + std::to_string(at));
    }
  }
  // Beside one another they do not count.
  const std::string row = from_hex("f1f2f1f2f0f6f0f69f00ff9f00ff");
  EXPECT_EQ(to_binary(from_binary(row, {.max_depth = 1})), row);
}

TEST(Binary, SizesAreLimitedOnBothSides) {
  const Limits limits{.max_string = 5, .max_binary = 3};
  MemoryWriter writer({}, limits);
  EXPECT_ERROR(writer << "123456", error::ovserialize_writer_size,
               "Writing a string of 6 bytes, the limit is 5");
  EXPECT_ERROR(writer.write_binary("1234", 4), error::ovserialize_writer_size,
               "Writing a binary block of 4 bytes, the limit is 3");
  EXPECT_ERROR(writer.write_memory_list_as_binary(MemoryList::create_copy("1234", 4)),
               error::ovserialize_writer_size, "Writing a binary block of 4 bytes, the limit is 3");
  writer << "12345"
         << "\xff\xff\xff\xff\xff";
  writer.write_binary("123", 3);
  writer.write_memory_list_as_binary(MemoryList::create_copy("123", 3));
  writer.write_memory_list_as_binary({});
  const std::string bytes = text_of(*writer.detach());
  EXPECT_EQ(to_binary(from_binary(bytes, limits)), bytes);

  // The length alone decides, with and without the bytes.
  struct Case {
    const char* bytes;
    const char* message;
  };
  for (const Case& c :
       {Case{"66", "Reading a string of 6 bytes at offset 0, the limit is 5"},
        {"d9954a46", "Reading a string of 6 bytes at offset 0, the limit is 5"},
        {"7bffffffffffffffff",
         "Reading a string of 18446744073709551615 bytes at offset 0, the limit is 5"},
        {"44", "Reading a binary block of 4 bytes at offset 0, the limit is 3"},
        {"5bffffffffffffffff",
         "Reading a binary block of 18446744073709551615 bytes at offset 0, the limit is 3"}}) {
    for (const char* rest : {"", "313233343536373839"}) {
      const std::string data = from_hex(std::string(c.bytes) + rest);
      EXPECT_ERROR(from_binary(data, limits), error::ovserialize_reader_size, c.message);
      auto reader = reader_of(data, limits);
      if (reader.item_kind() == item_binary) {
        EXPECT_ERROR(reader.read_binary_stream(), error::ovserialize_reader_size, c.message);
      } else {
        EXPECT_ERROR(reader.read_string_key(), error::ovserialize_reader_size, c.message);
      }
    }
  }
}

TEST(Binary, DefaultLimitsLetThroughWhatTheyName) {
  const Limits limits;
  EXPECT_EQ(limits.max_depth, 1040u);
  EXPECT_EQ(limits.max_binary, 16777216u);
  EXPECT_EQ(limits.max_string, 134217728u);
  const std::string block(limits.max_binary, 'b');
  MemoryWriter writer;
  writer.write_binary(block.data(), block.size());
  EXPECT_ERROR(writer.write_binary(block.data(), block.size() + 1), error::ovserialize_writer_size,
               "Writing a binary block of 16777217 bytes, the limit is 16777216");
  MemoryReader reader(writer.detach());
  EXPECT_EQ(text_of(*reader.read_memory_list_as_binary()), block);
}

TEST(Binary, NamesReadAgainCostNothing) {
  MemoryWriter writer({.reserve = 10000});
  const std::string names[] = {"first name", "second", "x", "a name that is longer than 16 bytes"};
  for (int i = 0; i < 100; ++i) {
    for (const std::string& name : names)
      writer.write_string_key(name);
  }
  MemoryReader reader(writer.detach());
  for (int i = 0; i < 10; ++i) {
    for (const std::string& name : names)
      EXPECT_EQ(reader.read_string_key(), ovcore::StringKey(name));
  }
  EXPECT_EQ(ovtest::allocations_of([&] {
              for (int i = 0; i < 90; ++i) {
                for (std::size_t n = 0; n < 4; ++n)
                  static_cast<void>(reader.read_string_key());
              }
            }),
            0u);
  EXPECT_TRUE(reader.at_end());
}

TEST(Binary, FailedAllocationsLeaveTheTargetAsItWas) {
  const Items items = all_items();
  const std::string long_text(1000, 'x');
  for (const std::size_t size : {1, 100, 0}) {
    MemoryWriter writer({.segment_size = size});
    write(writer, items);
    const auto all = writer.detach();
    EXPECT_GT(ovtest::for_each_failed_allocation(
                  [&] {
                    MemoryReader reader(all);
                    EXPECT_EQ(read_all(reader).size(), items.size());
                  },
                  [] {}),
              30u);
    writer << long_text;
    const auto one = writer.detach();
    std::string target;
    ovtest::for_each_failed_allocation(
        [&] {
          target = "before";
          MemoryReader reader(one);
          reader >> target;
          target.clear();
          target.shrink_to_fit();
        },
        [&] { EXPECT_EQ(target, "before"); });
  }
}

// Whatever fails, the stream stays a row of whole items.
TEST(Binary, FailedAllocationsLeaveNoPartOfAnItem) {
  const std::string long_text(1000, 'x');
  const auto list = MemoryList::create_copy(long_text.data(), long_text.size());
  for (const std::size_t size : {1, 100, 0}) {
    MemoryWriter writer({.segment_size = size});
    Items expected;
    std::uint64_t failures = 0;
    for (std::uint64_t n = 0; n < 40; ++n) {
      try {
        const ovtest::FailAllocations fail(n % 20);
        writer << long_text;
        ++failures;
        writer.write_memory_list_as_binary(list);
        writer.begin_sequence(0);
        writer.end_sequence();
        --failures;
      } catch (const std::bad_alloc&) {
        while (writer.depth() > 0)
          writer.end_sequence();
      }
      for (const Item& item : from_binary(text_of(*writer.memory_list())))
        EXPECT_TRUE(item.kind == item_sequence || item.bytes == long_text);
    }
  }
}

}  // namespace
}  // namespace ovserialize
