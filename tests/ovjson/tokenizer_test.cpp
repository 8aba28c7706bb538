// SPDX-License-Identifier: Apache-2.0
#include "ovjson/tokenizer.h"

#include <gtest/gtest.h>

#include <string>

#include "ovcore/error_codes.h"
#include "ovcore/exception.h"
#include "tests/ovjson/json_testing.h"
#include "tests/support/splits.h"
#include "tests/support/table.h"

namespace ovjson {
namespace {

using Source = ovcore::RefCountPtr<ovcore::IReadStream>;

Source stream_of(std::string_view text) {
  return ovcore::make_ref_counted<ovcore::MemoryReadStream>(ovcore::SourceString(text));
}

bool is_whole(std::string_view run) {
  int missing = 0;
  for (const char c : run) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte & 0xc0) == 0x80) {
      --missing;
    } else {
      if (missing != 0) return false;
      missing = byte < 0xc0 ? 0 : byte < 0xe0 ? 1 : byte < 0xf0 ? 2 : 3;
    }
  }
  return missing == 0;
}

// All tokens in short: names without "eToken_", runs put together and checked to be whole.
std::string tokens_of(Source source, const TokenizerOptions& options) {
  Tokenizer tokenizer(std::move(source), options);
  std::string result;
  bool in_run = false;
  for (;;) {
    const Token token = tokenizer.next();
    const bool run = token == Token::char_data;
    if (in_run && !run) result += ')';
    if (!run || !in_run) result += (result.empty() ? "" : " ") + token_name(token).substr(7);
    if (run && !in_run) result += '(';
    if (run || token == Token::number || token == Token::punctuator) result += tokenizer.text();
    EXPECT_TRUE(!run || is_whole(tokenizer.text())) << tokenizer.text();
    if (token == Token::error) return result + ": " + tokenizer.fault().message;
    if (token == Token::document_end) return result;
    in_run = run;
  }
}

TEST(Tokenizer, GivesTheSameTokensHoweverTheTextArrives) {
  for (const bool comments : {false, true}) {
    const auto* file = comments ? "json/tokens_comments.txt" : "json/tokens.txt";
    for (const ovtest::Row& row : ovtest::read_table(file, 2)) {
      SCOPED_TRACE(row[0]);
      for (const std::size_t size : ovtest::buffer_sizes) {
        const TokenizerOptions options{.allow_comments = comments, .buffer_size = size};
        EXPECT_EQ(tokens_of(stream_of(row[0]), options), row[1]) << size;
      }
      ovtest::for_each_split(row[0], [&](const Source& source) {
        EXPECT_EQ(tokens_of(source, {.allow_comments = comments}), row[1]);
      });
    }
  }
}

TEST(Tokenizer, CountsLinesAndBytes) {
  const std::string_view text =
      "\xef\xbb\xbf[\n1,\r\n 2,\r\t3,\n\r\"\xc3\xa9\", 4,/*\n\n*/ 5, // \r\n\n   ] ";
  const Position expected[] = {
      {1, 1, 3},  {2, 1, 5},  {2, 2, 6},  {3, 2, 10},  {3, 3, 11},  {4, 2, 14},
      {4, 3, 15}, {6, 1, 18}, {6, 2, 19}, {6, 4, 21},  {6, 5, 22},  {6, 7, 24},
      {6, 8, 25}, {8, 4, 33}, {8, 5, 34}, {10, 4, 45}, {10, 6, 47},
  };
  for (const std::size_t size : ovtest::buffer_sizes) {
    Tokenizer tokenizer(stream_of(text), {.allow_comments = true, .buffer_size = size});
    EXPECT_EQ(tokenizer.next(), Token::document_start);
    for (const Position& p : expected) {
      const Token token = tokenizer.next();
      EXPECT_EQ(tokenizer.position().line, p.line) << token_name(token) << p.source_pos;
      EXPECT_EQ(tokenizer.position().line_pos, p.line_pos) << token_name(token) << p.source_pos;
      EXPECT_EQ(tokenizer.position().source_pos, p.source_pos) << token_name(token);
    }
    EXPECT_EQ(tokenizer.token(), Token::document_end);
  }
}

TEST(Tokenizer, LimitsStringsNamesAndNumbers) {
  for (const auto& [text, fits] : std::initializer_list<std::pair<const char*, bool>>{
           {"\"abcd\"", true},
           {"\"abcde\"", false},
           {"\"\\u00e9\\u00e9\"", true},
           {"\"\\u00e9\\u00e9\\n\"", false},
           {"{abcd:1}", true},
           {"{abcde:1}", false},
           {"-123", true},
           {"-1234", false},
       }) {
    for (const std::size_t size : ovtest::buffer_sizes) {
      Tokenizer tokenizer(stream_of(text), {.max_value_size = 4, .buffer_size = size});
      Token token;
      do {
        token = tokenizer.next();
      } while (token != Token::document_end && token != Token::error);
      EXPECT_EQ(token == Token::document_end, fits) << text << size;
      EXPECT_EQ(tokenizer.fault().kind == Tokenizer::Fault::Kind::size, !fits) << text << size;
    }
  }
}

TEST(Tokenizer, StaysAtTheEndAndAtErrors) {
  Tokenizer ended(stream_of("1"));
  while (ended.next() != Token::document_end) {
  }
  EXPECT_EQ(ended.next(), Token::document_end);

  Tokenizer failed(stream_of("? 1"));
  failed.next();
  EXPECT_EQ(failed.next(), Token::error);
  EXPECT_EQ(failed.fault().found, "'?'");
  EXPECT_EQ(failed.next(), Token::error);
}

TEST(Tokenizer, NamesItsTokens) {
  constexpr const char* names[] = {
      "eToken_Unknown",     "eToken_DocumentStart",   "eToken_DocumentEnd",
      "eToken_Error",       "eToken_IdentifierBegin", "eToken_IdentifierEnd",
      "eToken_StringBegin", "eToken_StringEnd",       "eToken_CharData",
      "eToken_True",        "eToken_False",           "eToken_Number",
      "eToken_Null",        "eToken_Punctuator",      "##InvalidToken(14)"};
  for (int i = 0; i < 15; ++i)
    EXPECT_EQ(token_name(static_cast<Token>(i)), names[i]);
  EXPECT_EQ(token_name(static_cast<Token>(-1)), "##InvalidToken(-1)");
}

}  // namespace
}  // namespace ovjson
