// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include "ovserialize/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovuri/error_codes.h"
#include "ovuri/uri_stream.h"
#include "tests/support/error_matcher.h"

namespace ovuri {
namespace {

TEST(UriStream, IsTheText) {
  for (const char* text : {"", "http://a/b?c#d", "../x"}) {
    ovserialize::MemoryWriter writer;
    write_uri(writer, UriReference(text));
    const auto list = writer.detach();
    std::string item;
    ovserialize::MemoryReader(list) >> item;
    EXPECT_EQ(item, text);
    ovserialize::MemoryReader reader(list);
    EXPECT_EQ(read_uri(reader), UriReference(text));
  }
}

TEST(UriStream, OtherTextsAreMalformed) {
  ovserialize::MemoryWriter writer;
  writer.write_null();
  writer << "a b";
  ovserialize::MemoryReader reader(writer.detach());
  reader.read_null();
  const auto info = ovtest::error_of([&] { static_cast<void>(read_uri(reader)); });
  ovtest::expect_error(info, ovserialize::error::ovserialize_reader_malformed,
                       "Malformed URI reference at offset 1");
  ASSERT_TRUE(info && info->cause());
  EXPECT_EQ(info->cause()->code(), error::ovuri_syntax);
}

}  // namespace
}  // namespace ovuri
