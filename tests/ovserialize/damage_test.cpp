// SPDX-License-Identifier: Apache-2.0
// What readers say to bytes that no writer wrote.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "ovserialize/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/stream_reader.h"
#include "tests/ovserialize/items.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"
#include "tests/support/table.h"

namespace ovserialize {
namespace {

/// Items in the binary form, for damaging.
class Damage {
 public:
  explicit Damage(const Items& items) : m_bytes(to_binary(items)) {}

  [[nodiscard]] std::size_t size() const { return m_bytes.size(); }
  [[nodiscard]] std::string cut(std::size_t size) const { return m_bytes.substr(0, size); }
  [[nodiscard]] std::string flipped(std::size_t bit) const {
    std::string bytes = m_bytes;
    bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ 1 << bit % 8);
    return bytes;
  }

 private:
  std::string m_bytes;
};

/// The error from reading everything, null when there is none. A reader over memory, one over
/// segments of two bytes and one over a stream must agree.
ovcore::RefCountPtr<const ovcore::ErrorInfo> error_in(std::string_view bytes) {
  const auto read = [](auto&& make_reader) -> ovcore::RefCountPtr<const ovcore::ErrorInfo> {
    try {
      make_reader();
    } catch (const ovcore::Exception& e) {
      return e.info();
    }
    return nullptr;
  };
  const auto error = read([&] { from_binary(bytes); });
  const auto in_segments = read([&] {
    const auto list = MemoryList::create({.segment_size = 2});
    list->append(bytes.data(), bytes.size());
    MemoryReader reader(list);
    read_all(reader);
  });
  const auto in_pieces = read([&] {
    ovtest::PieceStream source(bytes, {3});
    StreamReader reader(source, {}, 32);
    read_all(reader);
  });
  for (const auto& other : {in_segments, in_pieces}) {
    EXPECT_EQ(error == nullptr, other == nullptr) << to_hex(bytes);
    if (error && other) {
      EXPECT_EQ(*error, *other) << to_hex(bytes) << error->message() << other->message();
    }
  }
  return error;
}

TEST(Damage, IsFoundWhereItIs) {
  for (const ovtest::Row& row : ovtest::read_table("items/binary_bad.txt", 3)) {
    SCOPED_TRACE(row[0]);
    const auto info = error_in(from_hex(row[0]));
    ASSERT_TRUE(info);
    ovtest::expect_error(info, ovtest::code_of("error.ovserialize.reader", row[1]), row[2]);
    EXPECT_TRUE(
        info->message().ends_with(*info->parameter("offset")) ||
        info->message().find("offset " + *info->parameter("offset") + ":") != std::string::npos ||
        info->message().find("offset " + *info->parameter("offset") + ",") != std::string::npos);
  }
}

TEST(Damage, TruncationIsFoundAtEveryByte) {
  for (const Item& item : all_items()) {
    const Damage damage({item});
    for (std::size_t size = 1; size < damage.size(); ++size) {
      const auto info = error_in(damage.cut(size));
      ASSERT_TRUE(info) << to_hex(damage.cut(size));
      ovtest::expect_error(info, error::ovserialize_reader_truncated,
                           "The stream ends too early, at offset " + std::to_string(size));
    }
  }
}

TEST(Damage, EveryFlippedBitIsAnErrorOrAnotherStream) {
  std::mt19937 random(2);
  std::size_t errors = 0;
  std::size_t others = 0;
  const auto flip_all = [&](const Items& items) {
    const Damage damage(items);
    for (std::size_t bit = 0; bit < 8 * damage.size(); ++bit) {
      const std::string bytes = damage.flipped(bit);
      if (const auto info = error_in(bytes)) {
        ++errors;
        EXPECT_TRUE(info->code().is_a(error::ovserialize_reader)) << to_hex(bytes);
        EXPECT_LE(std::stoull(*info->parameter("offset")), bytes.size());
        continue;
      }
      ++others;
      const Items read = from_binary(bytes);
      EXPECT_EQ(from_binary(to_binary(read)), read) << to_hex(bytes);
    }
  };
  for (const Item& item : all_items()) {
    if (item.bytes.size() < 30) flip_all({item});
  }
  for (int i = 0; i < 3; ++i)
    flip_all(random_items(random));
  EXPECT_GT(errors, 1000u);
  EXPECT_GT(others, 1000u);
}

TEST(Damage, RandomBytesAreAnErrorOrAStream) {
  std::mt19937 random(3);
  for (int i = 0; i < 20000; ++i) {
    std::string bytes(random() % 24, '\0');
    for (char& byte : bytes)
      byte = static_cast<char>(random());
    try {
      const Items items = from_binary(bytes);
      EXPECT_EQ(from_binary(to_binary(items)), items);
    } catch (const ovcore::Exception& e) {
      EXPECT_TRUE(e.code().is_a(error::ovserialize_reader)) << to_hex(bytes);
    }
  }
}

TEST(Damage, LyingLengthsCostNoMemory) {
  const Limits wide{.max_string = ~std::size_t{0} / 2, .max_binary = ~std::size_t{0} / 2};
  for (const char* head : {"7a07ffffff", "7b00ffffffffffffff", "d9954a5b00ffffffffffffff",
                           "5a00ffffff", "5b00ffffffffffffff"}) {
    const std::string bytes = from_hex(head) + std::string(1000, 'x');
    ovtest::PieceStream source(bytes, {100});
    const auto before = ovtest::allocation_counts().bytes;
    try {
      StreamReader reader(source, wide, 64);
      read_all(reader);
      ADD_FAILURE() << head;
    } catch (const ovcore::Exception& e) {
      EXPECT_EQ(e.code(), error::ovserialize_reader_truncated);
    }
    EXPECT_LT(ovtest::allocation_counts().bytes - before, 12000u);
    EXPECT_EQ(error_in(from_hex(head))->code().is_a(error::ovserialize_reader), true);
  }
  // A count reserves nothing here, however large.
  const std::string bytes = from_hex("9f1bffffffffffffffffff");
  MemoryReader reader(bytes.data(), bytes.size());
  EXPECT_EQ(reader.begin_sequence(), ~std::uint64_t{0});
  EXPECT_FALSE(reader.has_next_element());
}

}  // namespace
}  // namespace ovserialize
