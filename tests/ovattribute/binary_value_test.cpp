// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/binary_value.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ovattribute/error_codes.h"
#include "ovcore/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using ovtest::allocation_counts;
using ovtest::allocations_of;

BinaryValue of(std::string_view text) {
  return BinaryValue(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

std::string text_of(const BinaryValue& value) {
  return std::string(reinterpret_cast<const char*>(value.data()), value.size());
}

std::uint64_t bytes_allocated_by(auto&& f) {
  const std::uint64_t before = allocation_counts().bytes;
  f();
  return allocation_counts().bytes - before;
}

/// Announces one number of bytes, delivers another, and notes what was asked of it.
class TestStream final : public ovcore::IReadStream {
 public:
  TestStream(std::uint64_t announced, std::size_t delivered)
      : m_announced(announced), m_left(delivered) {}

  std::size_t read(void* buffer, std::size_t size) override {
    reads.push_back(size);
    EXPECT_NE(buffer, nullptr);
    if (reads.size() == failing_read) {
      ovcore::throw_error(ovcore::error::ovcore_stream_read, "no more", {});
    }
    const std::size_t got = std::min(size, m_left);
    for (std::size_t i = 0; i < got; ++i)
      static_cast<unsigned char*>(buffer)[i] = byte_at(m_next++);
    m_left -= got;
    return got;
  }
  std::size_t read_some(void*, std::size_t) override {
    ADD_FAILURE();
    return 0;
  }
  [[nodiscard]] std::uint64_t remaining() const override { return m_announced; }

  static unsigned char byte_at(std::size_t i) { return static_cast<unsigned char>(i % 251); }

  std::vector<std::size_t> reads;
  std::size_t failing_read = 0;  // 1: the first

 private:
  const std::uint64_t m_announced;
  std::size_t m_next = 0;
  std::size_t m_left;
};

void expect_stream_bytes(const BinaryValue& value, std::size_t size) {
  ASSERT_EQ(value.size(), size);
  for (std::size_t i = 0; i < size; ++i)
    ASSERT_EQ(value.data()[i], TestStream::byte_at(i)) << i;
}

TEST(BinaryValue, IsABlockOfItsOwn) {
  EXPECT_EQ(text_of(BinaryValue(3)), std::string(3, '\0'));
  BinaryValue a = of("abc");
  BinaryValue b = a;
  EXPECT_NE(a.data(), b.data());
  b.data()[0] = 'x';
  EXPECT_EQ(text_of(a), "abc");

  const unsigned char* const data = b.data();
  BinaryValue taken = std::move(b);
  EXPECT_EQ(taken.data(), data);
  EXPECT_EQ(b.data(), nullptr);
  EXPECT_TRUE(b.empty());
  BinaryValue from_source{ovcore::TransferSource<BinaryValue>(taken)};
  EXPECT_EQ(from_source.data(), data);
  EXPECT_EQ(taken.data(), nullptr);
  swap(taken, from_source);
  EXPECT_EQ(text_of(taken), "xbc");
  EXPECT_TRUE(from_source.empty());
  taken = *&taken;
  EXPECT_EQ(text_of(taken), "xbc");
  taken.clear();
  EXPECT_EQ(taken.data(), nullptr);
  EXPECT_EQ(taken.size(), 0u);
}

TEST(BinaryValue, SetAllocatesOnlyWhenTheLengthChanges) {
  BinaryValue value = of("abc");
  const auto* const data = reinterpret_cast<const unsigned char*>("defghi");
  EXPECT_EQ(allocations_of([&] { value.set(data, 3); }), 0u);
  EXPECT_EQ(text_of(value), "def");
  EXPECT_EQ(bytes_allocated_by([&] { value.set(data, 6); }), 6u);
  EXPECT_EQ(text_of(value), "defghi");
  value.set(value.data() + 2, 3);  // of its own bytes
  EXPECT_EQ(text_of(value), "fgh");
  EXPECT_EQ(allocations_of([&] { value.set(nullptr, 0); }), 0u);
  EXPECT_EQ(value.data(), nullptr);
  // What streams may not announce may be set.
  const BinaryValue large(BinaryValue::max_stream_size + 1);
  value.set(large.data(), large.size());
  EXPECT_EQ(value, large);
}

TEST(BinaryValue, ResizesToTheByte) {
  struct Case {
    std::size_t size;
    std::string_view bytes;
  };
  using namespace std::literals;
  for (const Case& c : {Case{5, "ab\0\0\0"sv}, Case{3, "ab\0"sv}, Case{1, "a"sv}}) {
    BinaryValue value = of("ab");
    EXPECT_EQ(bytes_allocated_by([&] { value.resize(c.size); }), c.size);
    EXPECT_EQ(text_of(value), c.bytes);
  }
  BinaryValue value = of("ab");
  EXPECT_EQ(allocations_of([&] { value.resize(2); }), 0u);
  EXPECT_EQ(allocations_of([&] { value.resize(0); }), 0u);
  EXPECT_TRUE(value.empty());
  EXPECT_EQ(value.data(), nullptr);
}

TEST(BinaryValue, OrdersByUnsignedBytesThenLength) {
  using namespace std::literals;
  const std::string_view ascending[] = {"",  "\0"sv, "ab",   "abc", "abd",
                                        "b", "\x7f", "\x80", "\xff"};
  for (const std::string_view& x : ascending) {
    for (const std::string_view& y : ascending) {
      const BinaryValue a = of(x);
      const BinaryValue b = of(y);
      EXPECT_EQ(a.compare(b) < 0, &x < &y);
      EXPECT_EQ(a.compare(b) > 0, &x > &y);
      EXPECT_EQ(a == b, &x == &y);
      EXPECT_EQ(a != b, &x != &y);
      EXPECT_EQ(a < b, &x < &y);
      EXPECT_EQ(a <= b, &x <= &y);
      EXPECT_EQ(a > b, &x > &y);
      EXPECT_EQ(a >= b, &x >= &y);
    }
  }
  EXPECT_EQ(of("ab").compare(of("abc")), -1);
  EXPECT_EQ(of("abc").compare(of("ab")), 1);
}

TEST(BinaryValue, HashesOn32Bits) {
  struct Case {
    std::string bytes;
    std::size_t hash;
  };
  // Computed with Python's integers.
  for (const Case& c :
       {Case{"", 0}, Case{"\xff", 255}, Case{"\x01\x02", 7}, Case{std::string(4, '\0'), 0},
        Case{std::string(20, '\xff'), 1530713716}, Case{"attribute", 49203356}}) {
    EXPECT_EQ(of(c.bytes).hash(), c.hash);
  }
}

TEST(BinaryValue, ReadsStreamsOfKnownLengthAtOnce) {
  struct Case {
    std::size_t announced;
    std::size_t delivered;
    std::size_t kept;
  };
  constexpr std::size_t max = 16'777'216;
  for (const Case& c : {Case{0, 0, 0}, Case{5, 5, 5}, Case{10, 4, 4}, Case{10, 0, 0},
                        Case{4, 10, 4}, Case{max, max, max}}) {
    TestStream stream(c.announced, c.delivered);
    BinaryValue value = of("before");
    EXPECT_EQ(bytes_allocated_by([&] { value.set(stream); }) / 1024, c.announced / 1024);
    expect_stream_bytes(value, c.kept);
    EXPECT_EQ(stream.reads, std::vector<std::size_t>{c.announced});
    // The buffer is as long as announced; the value ends where the stream did.
    EXPECT_EQ(BinaryValue(value), value);
  }
}

TEST(BinaryValue, RefusesLongerAnnouncements) {
  for (const std::uint64_t announced :
       {std::uint64_t{16'777'217}, std::uint64_t{1} << 40, ~std::uint64_t{1}}) {
    TestStream stream(announced, 3);
    BinaryValue value = of("before");
    const auto info = ovtest::error_of([&] { value.set(stream); });
    ovtest::expect_error(info, error::ovattribute_value_binary_size,
                         "Attribute value BLOB cannot be larger than 16777216 bytes.",
                         {"ovattribute/binary_value", "ovattribute::BinaryValue::set()", 87});
    ASSERT_TRUE(info);
    EXPECT_EQ(info->message_template(),
              "Attribute value BLOB cannot be larger than {@maxSize} bytes.");
    EXPECT_EQ(info->parameters(),
              (std::vector<ovcore::ErrorInfo::Parameter>{{"maxSize", "16777216"},
                                                         {"size", std::to_string(announced)}}));
    EXPECT_EQ(text_of(value), "before");
    EXPECT_TRUE(stream.reads.empty());
  }
}

TEST(BinaryValue, ReadsStreamsOfUnknownLengthToTheEnd) {
  struct Case {
    std::size_t size;
    std::vector<std::size_t> reads;
    std::uint64_t allocated;
  };
  constexpr std::size_t max = 16'777'216;
  const Case cases[] = {{0, {4096}, 0},
                        {1, {4096}, 1},
                        {4095, {4096}, 4095},
                        {4096, {4096, 4096}, 8192 + 4096},
                        {8191, {4096, 4096}, 8192 + 8191},
                        {8192, {4096, 4096, 8192}, 8192 + 16384 + 8192},
                        {16384, {4096, 4096, 8192, 16384}, 8192 + 16384 + 32768 + 16384}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.size);
    TestStream stream(ovcore::IReadStream::unknown, c.size);
    stream.reads.reserve(8);
    BinaryValue value;
    EXPECT_EQ(bytes_allocated_by([&] { value.set(stream); }), c.allocated);
    expect_stream_bytes(value, c.size);
    EXPECT_EQ(stream.reads, c.reads);
  }
  TestStream stream(ovcore::IReadStream::unknown, max + 1);
  EXPECT_EQ(BinaryValue(stream).size(), max + 1);

  // A buffer of the right length is used again.
  BinaryValue value(100);
  const unsigned char* const data = value.data();
  TestStream as_long(ovcore::IReadStream::unknown, 100);
  value.set(as_long);
  EXPECT_EQ(value.data(), data);
  expect_stream_bytes(value, 100);
}

TEST(BinaryValue, IsUnchangedWhenAStreamFails) {
  struct Case {
    std::uint64_t announced;
    std::size_t failing_read;
  };
  for (const Case& c :
       {Case{100, 1}, Case{ovcore::IReadStream::unknown, 1}, Case{ovcore::IReadStream::unknown, 2},
        Case{ovcore::IReadStream::unknown, 4}}) {
    TestStream stream(c.announced, 100'000);
    stream.failing_read = c.failing_read;
    BinaryValue value = of("before");
    EXPECT_ERROR(value.set(stream), ovcore::error::ovcore_stream_read, "no more");
    EXPECT_EQ(text_of(value), "before");
  }
}

TEST(BinaryValue, IsOneBlockInAnItemStream) {
  for (const std::string& bytes : {std::string(), std::string("abc"), std::string(70'000, 'x')}) {
    ovserialize::MemoryWriter writer;
    write_binary_value(writer, of(bytes));
    ovserialize::MemoryReader reader(writer.detach());
    EXPECT_EQ(reader.item_kind(), 10);
    BinaryValue value = of("before");
    read_binary_value(reader, value);
    EXPECT_EQ(text_of(value), bytes);
    EXPECT_TRUE(reader.at_end());
  }
}

}  // namespace
}  // namespace ovattribute
