// SPDX-License-Identifier: Apache-2.0
#include "ovjson/writer.h"

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "ovjson/error_codes.h"
#include "tests/ovjson/json_testing.h"
#include "tests/support/error_matcher.h"
#include "tests/support/table.h"

namespace ovjson {
namespace {

// One operation a character: brackets; k name, s string, t true, 0 null, i integer, d double,
// # number in text; < begins a streamed string, - is data, > its end.
void perform(Writer& writer, char operation) {
  switch (operation) {
    case '{':
      return writer.begin_object();
    case '}':
      return writer.end_object();
    case '[':
      return writer.begin_array();
    case ']':
      return writer.end_array();
    case 'k':
      return writer.member_name("k");
    case 's':
      return writer.string_value("s");
    case 't':
      return writer.boolean_value(true);
    case '0':
      return writer.null_value();
    case 'i':
      return writer.integer_value(7);
    case 'd':
      return writer.double_value(0.5);
    case '#':
      return writer.number_value("1e2");
    case '<':
      return writer.begin_streamed_string();
    case '-':
      return writer.string_data("x");
    case '>':
      return writer.end_streamed_string();
    default:
      FAIL() << operation;
  }
}

void perform(Writer& writer, std::string_view script) {
  for (const char operation : script)
    perform(writer, operation);
}

// A writer and the text that it wrote.
struct Output {
  explicit Output(const TextWriterOptions& options = {}) : target(text), writer(target, options) {}
  const std::string& closed() {
    writer.close();
    return text;
  }

  std::string text;
  ovcore::StringWriteStream target;
  TextWriter writer;
};

TEST(TextWriter, LaysDocumentsOut) {
  struct Case {
    const char* script;
    const char* compact;
    const char* indented;
  };
  for (const Case& c : {
           Case{"s", "\"s\"", "\"s\""},
           Case{"[]", "[]", "[]"},
           Case{"{}", "{}", "{}"},
           Case{"[id#t0s]", "[7,0.5,1e2,true,null,\"s\"]",
                "[\n  7,\n  0.5,\n  1e2,\n  true,\n  null,\n  \"s\"\n]"},
           Case{"{kik<-->k{k[]k{}}}", R"({"k":7,"k":"xx","k":{"k":[],"k":{}}})",
                "{\n  \"k\": 7,\n  \"k\": \"xx\",\n  \"k\": {\n    \"k\": [],\n    \"k\": {}\n  "
                "}\n}"},
           Case{"[[[]i]{ki}<>]", R"([[[],7],{"k":7},""])",
                "[\n  [\n    [],\n    7\n  ],\n  {\n    \"k\": 7\n  },\n  \"\"\n]"},
       }) {
    for (const std::size_t size : ovtest::buffer_sizes) {
      Output compact({.buffer_size = size});
      perform(compact.writer, c.script);
      EXPECT_EQ(compact.closed(), c.compact);
      Output indented({.indent = 2, .buffer_size = size});
      perform(indented.writer, c.script);
      EXPECT_EQ(indented.closed(), c.indented);
    }
  }
}

TEST(TextWriter, EndsWhateverTheIndentIs) {
  for (const std::size_t indent : {std::size_t{65}, SIZE_MAX / 2, SIZE_MAX}) {
    Output out({.indent = indent});
    perform(out.writer, "[s[s]]");
    const std::string blanks(64, ' ');
    EXPECT_EQ(out.closed(), "[\n" + blanks + "\"s\",\n" + blanks + "[\n" + blanks + blanks +
                                "\"s\"\n" + blanks + "]\n]");
  }
}

TEST(TextWriter, RefusesCallsOutOfOrderAndGoesOn) {
  for (const ovtest::Row& row : ovtest::read_table("json/writer_order.txt", 5)) {
    SCOPED_TRACE(row[0] + " " + row[1]);
    Output expected;
    perform(expected.writer, row[0]);
    perform(expected.writer, row[4]);
    Output out;
    perform(out.writer, row[0]);
    EXPECT_ERROR(perform(out.writer, row[1][0]),
                 ovtest::code_of("error.ovjson.writer.unexpected", row[2]), row[3]);
    perform(out.writer, row[4]);
    EXPECT_EQ(out.closed(), expected.closed());
  }
}

TEST(TextWriter, RefusesValuesThatJsonCannotHold) {
  constexpr double inf = std::numeric_limits<double>::infinity();
  Output out;
  TextWriter& writer = out.writer;
  writer.begin_array();
  EXPECT_ERROR(writer.double_value(inf), error::ovjson_writer_unsupported_value_inf,
               "JSON has no infinite numbers",
               {"ovjson/writer", "ovjson::TextWriter::double_value()", 0});
  EXPECT_ERROR(writer.double_value(-inf), error::ovjson_writer_unsupported_value_inf,
               "JSON has no infinite numbers");
  EXPECT_ERROR(writer.double_value(inf - inf), error::ovjson_writer_unsupported_value_nan,
               "JSON has no number that is none");
  for (const char* text :
       {"", "-", "01", "1.", "+1", ".5", "1e", "1 ", " 1", "0x1", "NaN", "1,2"}) {
    EXPECT_ERROR(writer.number_value(text), error::ovjson_writer_unexpected_number,
                 "Text is not a JSON number");
  }
  writer.begin_object();
  EXPECT_ERROR(writer.member_name(""), error::ovjson_writer_unexpected_name,
               "A member name cannot be empty");
  EXPECT_ERROR(writer.member_name("a\xff"), error::ovjson_writer_unexpected_character,
               "Invalid UTF-8 at byte 1");
  writer.end_object();
  EXPECT_ERROR(writer.string_value("12345678\xc3"), error::ovjson_writer_unexpected_character,
               "Invalid UTF-8 at byte 8");
  writer.end_array();
  EXPECT_EQ(out.closed(), "[{}]");
}

TEST(TextWriter, WritesNumbers) {
  Output out;
  TextWriter& writer = out.writer;
  writer.begin_array();
  writer.integer_value(std::numeric_limits<std::int64_t>::min());
  writer.integer_value(std::numeric_limits<std::uint64_t>::max());
  writer.integer_value(-1);
  writer.integer_value(1u);
  for (const double number : {2.0, -0.0, 0.1, 1e300, 5e-324, 123456789.0})
    writer.double_value(number);
  writer.number_value("-0.0E+00");
  writer.end_array();
  EXPECT_EQ(out.closed(),
            "[-9223372036854775808,18446744073709551615,-1,1,2.0,-0.0,0.1,1e+300,5e-324,"
            "123456789.0,-0.0E+00]");
}

TEST(TextWriter, EscapesWhatMustBe) {
  constexpr char literal[] =
      "\"\\/\b\f\n\r\t\x01\x1f\x7f\0 plain text of some length \n \xe2\x82\xac";
  const std::string text(literal, sizeof literal - 1);
  const std::string expected =
      "\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\\u001f\x7f\\u0000 plain text of some length \\n "
      "\xe2\x82\xac\"";
  for (const std::size_t size : ovtest::buffer_sizes) {
    Output out({.buffer_size = size});
    out.writer.begin_object();
    out.writer.member_name(ovcore::SourceString(text));
    out.writer.string_value(ovcore::SourceString(text));
    out.writer.end_object();
    EXPECT_EQ(out.closed(), "{" + expected + ":" + expected + "}");
  }
  // An escape at each place of a word, found wherever it stands.
  for (std::size_t length = 0; length < 20; ++length) {
    for (std::size_t i = 0; i < length; ++i) {
      std::string padded(length, 'a');
      padded[i] = '\n';
      Output out;
      out.writer.string_value(ovcore::SourceString(padded));
      EXPECT_EQ(out.closed(), "\"" + padded.replace(i, 1, "\\n") + "\"");
    }
  }
}

// Text is looked at in blocks; each of these bytes may stand anywhere in one.
TEST(TextWriter, EscapesEveryByteWhereverItStands) {
  for (int byte = 0; byte < 0x80; ++byte) {
    std::string expected(1, static_cast<char>(byte));
    const std::size_t place = std::string_view("\b\f\n\r\t\"\\").find(expected);
    if (place != std::string_view::npos) {
      expected = std::string("\\") + "bfnrt\"\\"[place];
    } else if (byte < 0x20) {
      expected = std::string("\\u00") + (byte < 0x10 ? "0" : "1") + "0123456789abcdef"[byte % 16];
    }
    for (std::size_t size = 1; size < 40; ++size) {
      for (std::size_t at = 0; at < size; at += 1 + at / 17) {
        std::string text(size, 'x');
        text[at] = static_cast<char>(byte);
        const std::string quoted =
            "\"" + std::string(at, 'x') + expected + std::string(size - 1 - at, 'x') + "\"";
        Output whole;
        whole.writer.string_value(text);
        ASSERT_EQ(whole.closed(), quoted);
        Output tight({.buffer_size = size + 2});
        tight.writer.begin_object();
        tight.writer.member_name(text);
        tight.writer.null_value();
        tight.writer.end_object();
        ASSERT_EQ(tight.closed(), "{" + quoted + ":null}");
      }
    }
  }
}

TEST(TextWriter, StreamedStringsMayBeCutAnywhere) {
  const std::string_view text = "a\n\xc3\xa9\xe2\x82\xac\"\xf0\x9f\x98\x80z";
  Output whole;
  whole.writer.string_value(ovcore::SourceString(text));
  whole.writer.close();
  for (std::size_t i = 0; i <= text.size(); ++i) {
    for (std::size_t j = i; j <= text.size(); ++j) {
      Output out;
      out.writer.begin_streamed_string();
      out.writer.string_data(ovcore::SourceString(text.substr(0, i)));
      out.writer.string_data(ovcore::SourceString(text.substr(i, j - i)));
      out.writer.string_data("");
      out.writer.string_data(ovcore::SourceString(text.substr(j)));
      out.writer.end_streamed_string();
      EXPECT_EQ(out.closed(), whole.text) << i << " " << j;
    }
  }
  Output bytes;
  bytes.writer.begin_streamed_string();
  for (const char& c : text)
    bytes.writer.string_data(&c, 1);
  bytes.writer.end_streamed_string();
  EXPECT_EQ(bytes.closed(), whole.text);
}

TEST(TextWriter, RefusesInvalidUtf8InPieces) {
  Output out;
  TextWriter& writer = out.writer;
  writer.begin_streamed_string();
  EXPECT_ERROR(writer.string_data("ab\x80"), error::ovjson_writer_unexpected_character,
               "Invalid UTF-8 at byte 2");
  writer.string_data("\xe2\x82");
  EXPECT_ERROR(writer.string_data("ab"), error::ovjson_writer_unexpected_character,
               "Invalid UTF-8 at byte 0");
  EXPECT_ERROR(writer.end_streamed_string(), error::ovjson_writer_unexpected_character,
               "Invalid UTF-8 at the end of a streamed string");
  EXPECT_ERROR(writer.string_data("\xac\xff"), error::ovjson_writer_unexpected_character,
               "Invalid UTF-8 at byte 1");
  writer.string_data("\xac!");
  writer.end_streamed_string();
  EXPECT_EQ(out.closed(), "\"\xe2\x82\xac!\"");
}

TEST(TextWriter, ReplacesInvalidUtf8WhenAsked) {
  struct Case {
    const char* text;
    const char* expected;  // "?" for U+FFFD, as Python's errors="replace" does
  };
  for (const Case& c : {
           Case{"a\xff"
                "b",
                "a?b"},
           Case{"\xc3", "?"},
           Case{"\xe2\x82", "?"},
           Case{"\xe2\x82z\n", "?z\\n"},
           Case{"\xf0\x9f\x98", "?"},
           Case{"\xf0\x9f\xc3\xa9", "?\xc3\xa9"},
           Case{"\xed\xa0\x80", "???"},
           Case{"\xc0\x80", "??"},
           Case{"\xf4\x90\x80\x80", "????"},
           Case{"\xe2\xe2\x82\xac\x80", "?\xe2\x82\xac?"},
       }) {
    std::string expected = "\"";
    for (const char e : std::string_view(c.expected))
      e == '?' ? expected += "\xef\xbf\xbd" : expected += e;
    expected += '"';
    const std::string_view text = c.text;
    Output out({.replace_invalid_utf8 = true});
    out.writer.string_value(ovcore::SourceString(text));
    EXPECT_EQ(out.closed(), expected);
    for (std::size_t i = 0; i <= text.size(); ++i) {
      Output pieces({.replace_invalid_utf8 = true});
      pieces.writer.begin_streamed_string();
      pieces.writer.string_data(ovcore::SourceString(text.substr(0, i)));
      pieces.writer.string_data(ovcore::SourceString(text.substr(i)));
      pieces.writer.end_streamed_string();
      EXPECT_EQ(pieces.closed(), expected) << i;
    }
  }
}

TEST(TextWriter, LimitsDepthAndSize) {
  Output deep;
  perform(deep.writer, std::string(1040, '['));
  EXPECT_ERROR(deep.writer.begin_array(), error::ovjson_writer_unexpected_container_begin,
               "Objects and arrays nest deeper than 1040");
  perform(deep.writer, std::string(1040, ']'));
  EXPECT_EQ(ovtest::rewrite(deep.closed()), deep.text);

  Output out({.max_value_size = 4});
  TextWriter& writer = out.writer;
  writer.begin_array();
  const std::string message = "Value exceeds 4 bytes of character data";
  EXPECT_ERROR(writer.string_value("abcde"), error::ovjson_writer_unexpected_string, message);
  EXPECT_ERROR(writer.number_value("12345"), error::ovjson_writer_unexpected_number, message);
  writer.string_value("abcd");
  writer.begin_streamed_string();
  writer.string_data("abc");
  EXPECT_ERROR(writer.string_data("de"), error::ovjson_writer_unexpected_string_data, message);
  writer.string_data("d");
  writer.end_streamed_string();
  writer.begin_object();
  EXPECT_ERROR(writer.member_name("abcde"), error::ovjson_writer_unexpected_name, message);
  writer.end_object();
  writer.end_array();
  EXPECT_EQ(out.closed(), "[\"abcd\",\"abcd\",{}]");

  // What we write, we can read: the default is the reader's.
  Output large;
  const std::string block(1 << 26, 'x');
  large.writer.begin_streamed_string();
  large.writer.string_data(ovcore::SourceString(block));
  large.writer.string_data(ovcore::SourceString(block));
  EXPECT_ERROR(large.writer.string_data("x"), error::ovjson_writer_unexpected_string_data,
               "Value exceeds 134217728 bytes of character data");
}

TEST(TextWriter, ClosesCompleteDocumentsOnly) {
  struct Case {
    const char* script;
    const char* message;
  };
  for (const Case& c : {Case{"[", "Objects or arrays are still open"},
                        Case{"{k", "Objects or arrays are still open"},
                        Case{"<", "A streamed string is still open"}}) {
    Output out;
    perform(out.writer, c.script);
    EXPECT_ERROR(out.writer.close(), error::ovjson_writer_unexpected_container, c.message);
    EXPECT_ERROR(out.writer.next_document(), error::ovjson_writer_unexpected_container, c.message);
  }
  Output lines;
  EXPECT_ERROR(lines.writer.next_document(), error::ovjson_writer_unexpected_container,
               "The document has no value");
  perform(lines.writer, "{k[]}");
  lines.writer.next_document();
  lines.writer.flush();
  EXPECT_EQ(lines.text, "{\"k\":[]}\n");
  perform(lines.writer, "i");
  lines.writer.next_document();
  EXPECT_EQ(lines.closed(), "{\"k\":[]}\n7\n");
}

TEST(TextWriter, StaysFailedAfterItsTarget) {
  class Broken final : public ovcore::IWriteStream {
   public:
    void write(const void*, std::size_t) override { throw std::runtime_error("full"); }
  } target;
  TextWriter writer(target, {.buffer_size = 4});
  EXPECT_THROW(writer.string_value("long enough"), std::runtime_error);
  constexpr const char* message = "Nothing can be written after the target failed";
  for (const char operation : std::string_view("{}[]st0id#<"))
    EXPECT_ERROR(perform(writer, operation), error::ovjson_writer, message);
  EXPECT_ERROR(writer.flush(), error::ovjson_writer, message);
  EXPECT_ERROR(writer.close(), error::ovjson_writer, message);
}

}  // namespace
}  // namespace ovjson
