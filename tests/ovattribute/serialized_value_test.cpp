// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/serialized_value.h"
#include "ovserialize/error_codes.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using ovserialize::MemoryList;
using ovserialize::MemoryReader;
using ovserialize::MemoryWriter;

SerializedValue value_of(const char* type, std::string_view bytes) {
  return SerializedValue(type, MemoryList::create_copy(bytes.data(), bytes.size()));
}

TEST(SerializedValue, IsMadeOfWritersReadersAndLists) {
  MemoryWriter writer;
  writer << 7 << "x";
  const std::string bytes = "\x07\x61x";
  MemoryReader reader(bytes.data(), bytes.size());
  int read = 0;
  reader >> read;
  const SerializedValue::MemoryListPtr list = writer.memory_list();
  for (const SerializedValue& value :
       {SerializedValue("t", writer), SerializedValue("t", reader), SerializedValue("t", list)}) {
    EXPECT_EQ(value.type(), "t");
    EXPECT_EQ(value.size(), 3u);
    EXPECT_EQ(text_of(*value.memory_list()), bytes);
    int number = 0;
    std::string text;
    value.memory_reader() >> number >> text;
    EXPECT_EQ(number, 7);
    EXPECT_EQ(text, "x");
  }
  EXPECT_EQ(SerializedValue("t", list).memory_list(), list);
  for (const SerializedValue& value :
       {SerializedValue(writer), SerializedValue(reader), SerializedValue(list)}) {
    EXPECT_EQ(value.type(), "");
    EXPECT_EQ(value.size(), 3u);
  }
  SerializedValue value;
  EXPECT_TRUE(value.memory_reader().at_end());
  value.set("t", writer);
  EXPECT_EQ(value, SerializedValue("t", list));
  value.set(reader);
  EXPECT_EQ(value, SerializedValue(list));
  value.set("u", list);
  EXPECT_EQ(value, SerializedValue("u", list));

  writer.begin_structure();
  EXPECT_ERROR(value.set("v", writer), ovserialize::error::ovserialize_writer_structure,
               "A structure is still open");
  EXPECT_EQ(value, SerializedValue("u", list));
}

TEST(SerializedValue, EmptyOnesAreEqualAndSortFirst) {
  // In order, with what is equal in one row.
  const std::vector<std::vector<SerializedValue>> rows{
      {SerializedValue(), value_of("z", ""), SerializedValue("a", MemoryWriter())},
      {value_of("", "a")},
      {value_of("", "b"), value_of("", "b")},
      {value_of("a", "a")},
      {value_of("a", "aa")},
      {value_of("a", "a\xff")},
      {value_of("b", "a")}};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    for (std::size_t j = 0; j < rows.size(); ++j) {
      for (const SerializedValue& a : rows[i]) {
        for (const SerializedValue& b : rows[j]) {
          SCOPED_TRACE(std::to_string(i) + " " + std::to_string(j));
          EXPECT_EQ(a.compare(b), i < j ? -1 : i > j ? 1 : 0);
          EXPECT_EQ(a == b, i == j);
          EXPECT_EQ(a < b, i < j);
          if (i == j && !a.empty()) {
            EXPECT_EQ(a.hash(), b.hash());
          }
          if (i == j) {
            EXPECT_EQ(std::hash<AttributeValue>()(a), std::hash<AttributeValue>()(b));
          }
        }
      }
    }
  }
  EXPECT_TRUE(rows[0][2].empty());
  EXPECT_EQ(rows[0][2].size(), 0u);
}

TEST(SerializedValue, CopiesShareBytesAndHash) {
  SerializedValue value = value_of("t", "bytes");
  const std::size_t hash = value.hash();
  EXPECT_NE(hash, value_of("u", "bytes").hash());
  EXPECT_NE(hash, value_of("t", "bytez").hash());
  const SerializedValue copy(value);
  EXPECT_EQ(copy.memory_list(), value.memory_list());
  EXPECT_EQ(copy.hash(), hash);
  SerializedValue moved(std::move(value));
  EXPECT_EQ(moved.hash(), hash);
  EXPECT_EQ(value.hash(), SerializedValue().hash());
  value.swap(moved);
  EXPECT_EQ(value.hash(), hash);
  EXPECT_EQ(moved.hash(), SerializedValue().hash());
  value.clear();
  EXPECT_EQ(value.type(), "");
  EXPECT_EQ(value.hash(), SerializedValue().hash());
  EXPECT_EQ(text_of(*copy.memory_list()), "bytes");
}

TEST(SerializedValue, ThreadsMayAskForTheHashAtOnce) {
  const SerializedValue value = value_of("t", std::string(10000, 'x'));
  std::size_t other = 0;
  std::thread thread([&] { other = value.hash(); });
  const std::size_t hash = value.hash();
  thread.join();
  EXPECT_EQ(other, hash);
}

TEST(SerializedValue, TypeStandsInAStructureOfItsOwn) {
  struct Case {
    SerializedValue value;
    const char* bytes;
  };
  for (const Case& c : {Case{SerializedValue(), "f1 f1 60 f2 40 f2"},
                        {value_of("t", ""), "f1 f1 6174 f2 40 f2"},
                        {value_of("t", "ab"), "f1 f1 6174 f2 426162 f2"}}) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(to_hex(bytes_of([&](auto& writer) { write_serialized_value(writer, c.value); })),
              without_blanks(c.bytes));
    SerializedValue read = value_of("before", "before");
    static_cast<void>(read.hash());
    read_from(from_hex(c.bytes),
              [&](auto& reader) { return read_serialized_value(reader, read), 0; });
    EXPECT_EQ(read, c.value);
    EXPECT_EQ(read.type(), c.value.type());
    EXPECT_EQ(read.hash(), c.value.hash());
  }
}

TEST(SerializedValue, IsUnchangedByWhatCannotBeRead) {
  const SerializedValue before = value_of("before", "before");
  SerializedValue target = before;
  const std::string bytes = from_hex("f1f16174f2426162f2");
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    MemoryReader reader(bytes.data(), size);
    const auto info = ovtest::error_of([&] { read_serialized_value(reader, target); });
    ASSERT_TRUE(info);
    EXPECT_EQ(info->code(), ovserialize::error::ovserialize_reader_truncated);
    EXPECT_EQ(target, before);
  }
}

TEST(SerializedValue, TraceShowsTypeAndSize) {
  std::ostringstream out;
  out << AttributeValue(value_of("t", "abc"));
  EXPECT_EQ(out.str(), "[Serialized: {<type='t', size=3>}]");
}

}  // namespace
}  // namespace ovattribute
