// SPDX-License-Identifier: Apache-2.0
// Errors and dates in item streams.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ovcore/error_codes.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/error_info_stream.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/simple_date_time_stream.h"
#include "tests/ovserialize/items.h"
#include "tests/support/error_matcher.h"

namespace ovserialize {
namespace {

using ovcore::ErrorCode;
using ovcore::ErrorInfo;
using ErrorPtr = ovcore::RefCountPtr<const ErrorInfo>;

std::string bytes_of(const ErrorPtr& error) {
  MemoryWriter writer;
  write_error_info(writer, error);
  return text_of(*writer.detach());
}
ErrorPtr error_from(std::string_view bytes) {
  MemoryReader reader(bytes.data(), bytes.size());
  ErrorPtr error = read_error_info(reader);
  EXPECT_TRUE(reader.at_end());
  return error;
}

ErrorPtr error_of(std::vector<ErrorInfo::Parameter> parameters, ErrorPtr cause = {}) {
  return ErrorInfo::create(ErrorCode("error.a", true), "t {@n}", std::move(parameters),
                           {"f", "g()", 300}, std::move(cause));
}
ErrorPtr chain_of(std::size_t length) {
  ErrorPtr error;
  for (std::size_t i = 0; i < length; ++i)
    error = error_of({{"n", std::to_string(i)}}, std::move(error));
  return error;
}
ErrorPtr with_marks(std::size_t marks) {
  std::string text;
  for (std::size_t i = 0; i < marks; ++i)
    text += "{@n}";
  return ErrorInfo::create(ErrorCode("error.a", true), text, {{"n", "1"}}, {});
}

TEST(ErrorInfoStream, HasThisForm) {
  const std::string head =
      "676572726f722e61"
      "6674207b406e7d";  // "error.a", "t {@n}"
  const std::string place =
      "6166"
      "63672829"
      "d9954919012c";  // "f", "g()", 300
  struct Case {
    ErrorPtr error;
    std::string bytes;
  };
  for (const Case& c :
       {Case{nullptr, "f6"},
        {error_of({}), "f1" + head + "9f00ff" + place + "f2"},
        {error_of({{"n", "v"}}), "f1" + head + "f0616e6176" + place + "f2"},
        {error_of({{"n", "v"}, {"n", ""}}), "f1" + head + "9f02616e6176616e60ff" + place + "f2"},
        // The cause comes first.
        {error_of({}, ErrorInfo::create({}, "", {}, {})),
         "f1" + std::string("60609f00ff6060e0") + head + "9f00ff" + place + "f2"}}) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(to_hex(bytes_of(c.error)), c.bytes);
    const ErrorPtr read = error_from(from_hex(c.bytes));
    ASSERT_EQ(read == nullptr, c.error == nullptr);
    if (read) {
      EXPECT_EQ(*read, *c.error);
    }
  }
}

TEST(ErrorInfoStream, ChainsAndMarksAreLimited) {
  const ErrorPtr longest = chain_of(max_error_chain);
  EXPECT_EQ(*error_from(bytes_of(longest)), *longest);
  const ErrorPtr most = with_marks(max_error_marks);
  EXPECT_EQ(*error_from(bytes_of(most)), *most);

  MemoryWriter writer;
  EXPECT_ERROR(write_error_info(writer, chain_of(max_error_chain + 1)),
               error::ovserialize_writer_depth, "An error with more than 511 causes");
  EXPECT_ERROR(write_error_info(writer, error_of({}, with_marks(max_error_marks + 1))),
               error::ovserialize_writer_size, "A message template with more than 32 marks");
  EXPECT_EQ(writer.size(), 0u);

  // One link and one mark more than was written; the last link has 34 bytes.
  std::string bytes = bytes_of(longest);
  bytes.insert(1, from_hex("60609f00ff6060e0"));
  EXPECT_ERROR(error_from(bytes), error::ovserialize_reader_depth,
               "An error with more than 511 causes at offset " + std::to_string(bytes.size() - 35));
  bytes = bytes_of(most);
  bytes.replace(bytes.find("\x78\x80{@n}"), 2, "\x78\x84{@n}");
  EXPECT_ERROR(error_from(bytes), error::ovserialize_reader_size,
               "Reading a message template at offset 9 with more than 32 marks");
}

TEST(ErrorInfoStream, DamageIsAnErrorOfTheReader) {
  const std::string bytes = bytes_of(error_of({{"n", "v"}, {"m", ""}}, chain_of(2)));
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    SCOPED_TRACE(size);
    const auto info =
        ovtest::error_of([&] { static_cast<void>(error_from(bytes.substr(0, size))); });
    ASSERT_TRUE(info);
    EXPECT_EQ(info->code(), error::ovserialize_reader_truncated);
  }
  EXPECT_ERROR(error_from(from_hex("f1f2")), error::ovserialize_reader_kind,
               "Expected a string at offset 1, found the end of a structure");
}

TEST(SimpleDateTimeStream, IsTheTextOfRfc3339) {
  MemoryWriter writer;
  write_simple_date_time(writer, ovcore::SimpleDateTime(2024, 2, 29, 12, 34, 56, 500000));
  const std::string bytes = text_of(*writer.detach());
  EXPECT_EQ(bytes,
            "\x75"
            "2024-02-29T12:34:56.5");
  MemoryReader reader(bytes.data(), bytes.size());
  EXPECT_EQ(read_simple_date_time(reader).as_string(), "2024-02-29T12:34:56.5");
}

TEST(SimpleDateTimeStream, OtherTextsAreMalformed) {
  for (const char* text : {"", "2024-02-30T00:00:00", "2024-02-28T00:00:00Z"}) {
    SCOPED_TRACE(text);
    MemoryWriter writer;
    writer.write_null();
    writer << text;
    MemoryReader reader(writer.detach());
    reader.read_null();
    const auto info = ovtest::error_of([&] { static_cast<void>(read_simple_date_time(reader)); });
    ovtest::expect_error(info, error::ovserialize_reader_malformed, "Malformed date at offset 1");
    ASSERT_TRUE(info && info->cause());
    EXPECT_TRUE(info->cause()->code().is_a(ovcore::error::ovcore_time));
  }
}

}  // namespace
}  // namespace ovserialize
