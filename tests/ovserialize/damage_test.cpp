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
  struct Case {
    const char* bytes;
    const ovcore::ErrorCode& code;
    const char* message;
  };
  const auto& malformed = error::ovserialize_reader_malformed;
  const auto& truncated = error::ovserialize_reader_truncated;
  for (const Case& c : {
           Case{"f61c", malformed, "Malformed item at offset 1: a reserved initial byte"},
           {"f63f", malformed, "Malformed item at offset 1: a reserved initial byte"},
           {"f6fc", malformed, "Malformed item at offset 1: a reserved initial byte"},
           {"80", malformed, "Malformed item at offset 0: an array of definite length"},
           {"9a00000001f6", malformed, "Malformed item at offset 0: an array of definite length"},
           {"a0", malformed, "Malformed item at offset 0: a map"},
           {"bfff", malformed, "Malformed item at offset 0: a map"},
           {"5f4161ff", malformed, "Malformed item at offset 0: a string of indefinite length"},
           {"7f6161ff", malformed, "Malformed item at offset 0: a string of indefinite length"},
           {"f7", malformed, "Malformed item at offset 0: an unused simple value"},
           {"f3", malformed, "Malformed item at offset 0: an unused simple value"},
           {"f81f", malformed, "Malformed item at offset 0: an unused simple value"},
           {"c001", malformed, "Malformed item at offset 0: an unknown tag"},
           {"d903eba10100", malformed, "Malformed item at offset 0: an unknown tag"},
           {"9fff", malformed, "Malformed item at offset 1: a sequence without a count"},
           {"9f6161ff", malformed, "Malformed item at offset 1: a sequence without a count"},
           {"9fe3ff", malformed, "Malformed item at offset 1: a sequence without a count"},
           {"9f20ff", malformed, "Malformed item at offset 1: a negative count"},
           {"9f01f6ff", malformed,
            "Malformed item at offset 1: a sequence of one in the form for others"},
           {"9f1b0000000000000001f6ff", malformed,
            "Malformed item at offset 1: a sequence of one in the form for others"},
           {"9f00f6f2", malformed,
            "Malformed item at offset 3: the end of a structure in a sequence"},
           {"f1f6ff", malformed,
            "Malformed item at offset 2: the end of a sequence in a structure"},
           {"d9954918ef", malformed,
            "Malformed item at offset 3: not an unsigned integer that needs its tag"},
           {"d9954939ffff", malformed,
            "Malformed item at offset 3: not an unsigned integer that needs its tag"},
           {"d9954a6161", malformed,
            "Malformed item at offset 3: not a byte string behind its tag"},
           {"d9954a4161", malformed,
            "Malformed item at offset 0: UTF-8 behind the tag for other text"},
           {"f661ff", malformed, "Malformed item at offset 1: text that is not UTF-8"},
           {"63eda080", malformed, "Malformed item at offset 0: text that is not UTF-8"},
           {"62c080", malformed, "Malformed item at offset 0: text that is not UTF-8"},
           {"64f4908080", malformed, "Malformed item at offset 0: text that is not UTF-8"},
           {"61c3", malformed, "Malformed item at offset 0: text that is not UTF-8"},
           {"d8254100", malformed, "Malformed item at offset 2: a UUID that is not 16 bytes long"},
           {"d825f6", malformed, "Malformed item at offset 2: not a byte string behind its tag"},
           {"d903e980", malformed, "Malformed item at offset 3: not the map of a time"},
           {"d903e9a0", malformed, "Malformed item at offset 3: not the map of a time"},
           {"d903e9a3", malformed, "Malformed item at offset 3: not the map of a time"},
           {"d903e9a10200", malformed, "Malformed item at offset 4: not the map of a time"},
           {"d903e9a10160", malformed, "Malformed item at offset 5: not the map of a time"},
           {"d903e9a225030105", malformed, "Malformed item at offset 4: not the map of a time"},
           {"d903e9a201002403", malformed, "Malformed item at offset 6: not the map of a time"},
           {"d903e9a201002500", malformed,
            "Malformed item at offset 7: microseconds that are not 1 to 999999"},
           {"d903e9a20100251a000f4240", malformed,
            "Malformed item at offset 7: microseconds that are not 1 to 999999"},
           {"ff", error::ovserialize_reader_kind,
            "Expected null at offset 0, found the end of a sequence"},
           {"f0f2", error::ovserialize_reader_kind,
            "Expected null at offset 1, found the end of a structure"},
           {"f0", truncated, "The stream ends too early, at offset 1"},
           {"9f", truncated, "The stream ends too early, at offset 1"},
           {"9f00f6", truncated, "The stream ends too early, at offset 3"},
           {"f1", truncated, "The stream ends too early, at offset 1"},
           {"7a0000", truncated, "The stream ends too early, at offset 3"},
           {"7903e86161", truncated, "The stream ends too early, at offset 5"},
           {"5903e86161", truncated, "The stream ends too early, at offset 5"},
           {"d903", truncated, "The stream ends too early, at offset 2"},
       }) {
    SCOPED_TRACE(c.bytes);
    const auto info = error_in(from_hex(c.bytes));
    ASSERT_TRUE(info);
    ovtest::expect_error(info, c.code, c.message);
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
