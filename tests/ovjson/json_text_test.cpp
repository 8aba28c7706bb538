// SPDX-License-Identifier: Apache-2.0
// What is JSON and what is not: tables of texts, damaged texts, real documents, and Python's view.
#include <gtest/gtest.h>

#include <bit>
#include <filesystem>
#include <random>

#include "ovcore/error_codes.h"
#include "ovcore/exception.h"
#include "ovjson/error_codes.h"
#include "tests/ovjson/json_testing.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"
#include "tests/support/table.h"

namespace ovjson {
namespace {

using ovtest::rewrite;

class TemporaryFile {
 public:
  explicit TemporaryFile(std::string_view text = {})
      : m_path(testing::TempDir() + "ovjson_" +
               testing::UnitTest::GetInstance()->current_test_info()->name() + ".json") {
    std::ofstream(m_path, std::ios::binary) << text;
  }
  ~TemporaryFile() { std::filesystem::remove(m_path); }
  [[nodiscard]] const std::string& path() const { return m_path; }

 private:
  std::string m_path;
};

// The document rewritten, or the error's code and message.
std::string outcome(ovcore::IReadStream& source, const ReaderOptions& options = {}) {
  try {
    return rewrite(source, options);
  } catch (const ovcore::Exception& e) {
    EXPECT_TRUE(e.code().is_a(error::ovjson_reader)) << e.code();
    return e.code().text().str() + ": " + e.what();
  }
}

std::string outcome(std::string_view text, std::size_t buffer_size = 65'536) {
  ovcore::MemoryReadStream source{ovcore::SourceString(text)};
  return outcome(source, {.buffer_size = buffer_size});
}

void expect_outcome(const std::string& text, const std::string& expected) {
  SCOPED_TRACE(text);
  for (const std::size_t size : ovtest::buffer_sizes)
    EXPECT_EQ(outcome(text, size), expected) << size;
  ovtest::for_each_split(text, [&expected](const ovcore::RefCountPtr<ovcore::IReadStream>& source) {
    EXPECT_EQ(outcome(*source), expected);
  });
}

TEST(JsonText, GoodTextsAreReadHoweverTheyArrive) {
  for (const auto& row : ovtest::read_table("json/good.txt", 2))
    expect_outcome(row.at(0), row.at(1));
}

TEST(JsonText, BadTextsAreRefusedHoweverTheyArrive) {
  for (const auto& row : ovtest::read_table("json/bad.txt", 3)) {
    const std::string code = row.at(1).empty() ? "" : "." + row.at(1);
    expect_outcome(row.at(0), "error.ovjson.reader" + code + ": " + row.at(2));
  }
}

TEST(JsonText, PythonAgreesOnBothTables) {
  EXPECT_TRUE(ovtest::judge("table " OV_TEST_DATA "/json/good.txt"));
  EXPECT_TRUE(ovtest::judge("refuse " OV_TEST_DATA "/json/bad.txt"));
}

constexpr std::string_view document =
    "{\"a\\u00e9\":[1,-2.5e+3,true,null],b$:{\"\xe2\x82\xac\":\"x\\ud83d\\ude00y\"},\r\n"
    " \"\xf0\x9f\x98\x80 more than eight\":\"\"}";

TEST(JsonText, TruncationIsAlwaysSaidAndPlaced) {
  for (std::size_t size = 1; size < document.size(); ++size) {
    const std::string_view text = document.substr(0, size);
    const auto info = ovtest::error_of([text] { rewrite(text); });
    ASSERT_TRUE(info);
    const std::string& message = info->message();
    EXPECT_TRUE(message.starts_with("Unexpected end of text inside a") ||
                message.starts_with("End of document reached without all objects") ||
                message.starts_with("End of document reached without all arrays") ||
                message.starts_with("Unexpected tokenizer token: eToken_DocumentEnd"))
        << text << " " << message;
    EXPECT_EQ(*info->parameter("sourcePos"), std::to_string(size)) << text;
    for (const std::size_t buffer_size : ovtest::buffer_sizes)
      EXPECT_NE(outcome(text, buffer_size).find(message), std::string::npos) << buffer_size;
  }
}

TEST(JsonText, NoBadByteBreaksTheReader) {
  std::string text(document);
  for (std::size_t i = 0; i < text.size(); ++i) {
    for (int byte = 0; byte < 256; ++byte) {
      text[i] = static_cast<char>(byte);
      ASSERT_EQ(outcome(text, 1), outcome(text)) << i << " " << byte;
    }
    text[i] = document[i];
  }
}

TEST(JsonText, RealDocumentsComeOutAsTheyWent) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(OV_ISO_CODES)) {
    const std::string path = entry.path().string();
    SCOPED_TRACE(path);
    const std::string text = ovtest::read_file(path);
    const TemporaryFile compact(rewrite(text));
    EXPECT_TRUE(ovtest::judge("same " + path + " " + compact.path()));
    // The data files are what Python's json.dump(indent=2) writes; the schemas are made by hand.
    if (entry.path().filename().string().starts_with("iso_")) {
      EXPECT_TRUE(rewrite(text, {.buffer_size = 64}, {.indent = 2}) + "\n" == text);
    }
    ++files;
  }
  EXPECT_GE(files, 8);
}

TEST(JsonText, PythonReadsEveryCharacterWeWrite) {
  std::string all;
  for (char32_t c = 0; c < 0x110000; ++c) {
    if (c >= 0xd800 && c < 0xe000) continue;
    if (c < 0x80) {
      all += static_cast<char>(c);
    } else {
      const int tails = c < 0x800 ? 1 : c < 0x10000 ? 2 : 3;
      all += static_cast<char>("\x00\xc0\xe0\xf0"[tails] | static_cast<int>(c >> 6 * tails));
      for (int i = tails - 1; i >= 0; --i)
        all += static_cast<char>(0x80 | (c >> 6 * i & 0x3f));
    }
  }
  std::string text;
  ovcore::StringWriteStream target(text);
  TextWriter writer(target);
  writer.string_value(ovcore::SourceString(all));
  writer.close();
  const TemporaryFile file(text);
  EXPECT_TRUE(ovtest::judge("characters " + file.path()));

  ovcore::MemoryReadStream source{ovcore::SourceString(text)};
  Reader reader(source);
  EXPECT_TRUE(reader.next_value()->as_string() == all);
}

std::string bits_of(double number) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx",
                static_cast<unsigned long long>(std::bit_cast<std::uint64_t>(number)));
  return text;
}

TEST(JsonText, PythonReadsTheDoublesWeWrite) {
  std::string text;
  ovcore::StringWriteStream target(text);
  TextWriter writer(target);
  std::mt19937_64 random(1);
  writer.begin_array();
  for (int i = 0; i < 2000; ++i) {
    const double number = i < 100 ? (i - 50) / 4.0 : std::bit_cast<double>(random());
    if (number - number != 0) continue;
    writer.begin_array();
    writer.double_value(number);
    writer.string_value(bits_of(number));
    writer.end_array();
  }
  writer.end_array();
  writer.close();
  const TemporaryFile file(text);
  EXPECT_TRUE(ovtest::judge("doubles " + file.path()));
}

TEST(JsonText, DoublesAreRoundedAsPythonDoes) {
  const TemporaryFile file;
  ASSERT_TRUE(ovtest::judge("numbers " + file.path()));
  const std::string text = ovtest::read_file(file.path());
  ovcore::MemoryReadStream source{ovcore::SourceString(text)};
  Reader reader(source);
  const auto pairs = reader.next_value();
  int count = 0;
  while (const auto pair = reader.next_child(pairs)) {
    const auto number = reader.next_child(pair);
    const std::string spelling(number->number_text());
    const std::string bits = bits_of(number->as_double());
    EXPECT_EQ(bits, reader.next_child(pair)->as_string()) << spelling;
    ++count;
  }
  EXPECT_GT(count, 1000);
}

}  // namespace
}  // namespace ovjson
