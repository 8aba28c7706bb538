// SPDX-License-Identifier: Apache-2.0
// The text of values and maps for people, byte for byte.
#include <gtest/gtest.h>

#include <fstream>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/impl/visit_elements.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/trace_formatter.h"
#include "ovcore/read_stream.h"
#include "ovjson/reader.h"
#include "ovserialize/memory_list.h"

namespace ovattribute {
namespace {

using Composer = TraceFormatter::Composer;
using List = TraceFormatter::ListParams;
using Strings = std::vector<std::string>;

std::string golden(const std::string& name) {
  std::ifstream file(OV_TEST_DATA "/golden/" + name, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

template <class T>
std::string trace(const T& value, const TraceFormatter& formatter, unsigned level = 0) {
  std::ostringstream out;
  value.write_trace(out, formatter, level);
  return out.str();
}

TEST(Trace, RendersADocument) {
  const std::string text = golden("document.json");
  ovcore::MemoryReadStream source{ovcore::SourceString(text)};
  ovjson::Reader reader(source);
  const AttributeValue document = read_attribute_value(reader);
  const TraceFormatter formatter = Composer().order_names_by_text(true).compose();
  EXPECT_EQ(trace(document, formatter) + "\n", golden("document.txt"));
  EXPECT_EQ(trace(document.get<AttributeMap>(), formatter) + "\n", golden("document.txt"));
}

template <class T>
void add_type(MutableAttributeMap& map, const T& a, const T& b) {
  const ValueTypeId& type = impl::ValueTypeTraits<T>::type();
  map.add(type.name() + " 0", AttributeValue(type));
  map.add(type.name() + " 1", a);
  map.add(type.name() + " 2", AttributeValue{a, b});
}

TEST(Trace, RendersEveryType) {
  const unsigned char bytes[] = {0, 15, 255};
  const auto error = ovcore::ErrorInfo::create(
      ovcore::ErrorCode("error.a", true), "No {@name}\nin y", {{"name", "x"}},
      {"source", "ns::f()", 7},
      ovcore::ErrorInfo::create(ovcore::ErrorCode("error.b", true), "Why", {}, {}));
  MutableAttributeMap map{{"Null", {}}};
  add_type<bool>(map, true, false);
  add_type<long long>(map, 9223372036854775807, -9223372036854775807 - 1);
  add_type<std::string>(map, "", "\u00fc");
  add_type<double>(map, 0.5, -1e300);
  add_type<ovcore::Uuid>(map, ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff"), {});
  add_type<ovuri::UriReference>(map, ovuri::UriReference("http://example.org/a?b#c"), {});
  add_type<ovcore::AbsoluteTime>(map, {}, ovcore::AbsoluteTime::from_microseconds(-500'000));
  add_type<ovcore::RelativeTime>(map, {}, ovcore::RelativeTime::from_microseconds(-500'000));
  add_type<ovcore::SimpleDateTime>(map, {2024, 2, 29, 12, 34, 56, 500'000},
                                   {1999, 1, 1, 0, 0, 0, 0});
  add_type<BinaryValue>(map, {bytes, 3}, {});
  add_type<SerializedValue>(
      map, SerializedValue("t", ovserialize::MemoryList::create_copy("abc", 3)), {});
  add_type<AttributeMap>(map, {}, AttributeMap{{"b", 1}, {"a", {}}});
  add_type<SecuredValue>(map, {}, {});
  add_type<impl::ErrorInfoPtr>(map, nullptr, error);
  EXPECT_EQ(trace(map, Composer().order_names_by_text(true).compose()) + "\n", golden("types.txt"));
}

struct Case {
  const char* what;
  AttributeValue value;
  TraceFormatter formatter;
  unsigned level;
  std::string text;
};

AttributeValue counted(int n) {
  std::vector<int> numbers;
  for (int i = 1; i <= n; ++i)
    numbers.push_back(i);
  return AttributeValue::list_of(numbers);
}

AttributeValue binary(std::size_t size) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i)
    bytes += static_cast<char>(0xa0 + i);
  return BinaryValue(reinterpret_cast<const unsigned char*>(bytes.data()), size);
}

void check_cases(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(trace(c.value, c.formatter, c.level), c.text);
  }
}

TEST(Trace, LaysOutLists) {
  const Composer d;
  const auto change = [&d] { return Composer(d); };
  const TraceFormatter bare = change().list_default(List("<", ";", ">", false)).compose();
  std::string first_32 = "1";
  for (int i = 2; i <= 32; ++i)
    first_32 += ", " + std::to_string(i);
  check_cases({
      {"no type", counted(2), change().show_type(false).compose(), 0, "{1, 2}"},
      {"Null always has one", {}, change().show_type(false).compose(), 3, "[Null]"},
      {"as many as shown", counted(32), {}, 0, "[Integer: {" + first_32 + "}]"},
      {"more", counted(40), {}, 0, "[Integer: {" + first_32 + "...(+8)}]"},
      {"all left out", counted(3), change().max_multivalue_count(0).compose(), 0,
       "[Integer: {...(+3)}]"},
      {"one left out", AttributeValue(7), change().max_multivalue_count(0).compose(), 0,
       "[Integer: {...(+1)}]"},
      {"none to leave out", counted(0), change().max_multivalue_count(0).compose(), 0,
       "[Integer: {}]"},
      {"bare scalar", AttributeValue(7), bare, 0, "[Integer: 7]"},
      {"bare list of one", counted(1), bare, 0, "[Integer: 1]"},
      {"no bare list of none", counted(0), bare, 0, "[Integer: <>]"},
      {"no bare list of two", counted(2), bare, 0, "[Integer: <1;2>]"},
      {"breaks in brackets", counted(2),
       change().list_default(List("(\n", "\r\n|", "\n)", true)).compose(), 2,
       "[Integer: (\n     1\n     |2\n     )]"},
      {"indentation", counted(1),
       change().line_prefix("\n>").indent("--").list_default(List("\n", "", "", true)).compose(), 3,
       "[Integer: \n>------1]"},
      {"maps", AttributeValue{AttributeMap{{"a", 1}}, AttributeMap()},
       change()
           .show_type(false)
           .list_map(List("(", "|", ")", true))
           .map_element_prefix("<")
           .map_name_value_separator("\n=")
           .map_element_suffix("\n>")
           .compose(),
       0, "(<a\n   ={1}\n   >|)"},
      {"a bare map", AttributeMap{{"a", 1}},
       change().list_map(List("\n {", "\n ,", "\n }", false)).compose(), 0,
       "[AttributeMap: \n   'a' => [Integer: {1}]]"},
      {"errors", AttributeValue{impl::ErrorInfoPtr(), impl::ErrorInfoPtr()},
       change().error_info_null("-\n").list_error_info(List("(", "|", ")", true)).compose(), 0,
       "[ErrorInfo: (-\n |-\n )]"},
      {"error lines",
       ovcore::ErrorInfo::create(ovcore::ErrorCode("error.a", true), "m", {{"p", "v"}}, {}),
       change().error_info_line_prefix("#").compose(), 0,
       "[ErrorInfo: \n  {#error.a: m#  p='v'\n  }]"},
      {"error line breaks",
       ovcore::ErrorInfo::create(ovcore::ErrorCode("error\na", true), "m", {{"p\nq", "v\nw"}},
                                 {"f\ng", "h\r\ni", 3}),
       change().error_info_line_prefix("#").compose(), 0,
       "[ErrorInfo: \n  {#error#a: m#  p#q='v#w'#  at h#i, f#g:3\n  }]"},
  });
}

TEST(Trace, LaysOutTexts) {
  const auto change = [] { return Composer().show_type(false); };
  const auto cut = [&](std::uint32_t size) { return change().max_string_len(size).compose(); };
  const TraceFormatter plain = change().compose();
  const std::string long_200(200, 'x');
  const std::string at_127(127, 'x');
  const std::string at_128(128, 'x');
  const std::string at_4096(4096, 'x');
  const auto lines = [](const std::string& a, const std::string& b) {
    return "\n  {\n   \"" + a + "\"\n  , \n   \"" + b + "\"\n  }";
  };
  const std::string euro = "abc\u20acd";  // three bytes from the fourth on
  check_cases({
      {"one long text", long_200, plain, 0, "{\"" + long_200 + "\"}"},
      {"two long texts", AttributeValue{long_200, long_200}, plain, 0, lines(long_200, long_200)},
      {"the first is not measured", AttributeValue{long_200, at_127}, plain, 0,
       "{\"" + long_200 + "\", \"" + at_127 + "\"}"},
      {"the second at the threshold", AttributeValue{std::string("a"), at_128}, plain, 0,
       lines("a", at_128)},
      {"threshold 0 and one text", "", change().multiline_length_threshold(0).compose(), 0,
       "{\"\"}"},
      {"threshold 0 and two", AttributeValue{"", ""},
       change().multiline_length_threshold(0).compose(), 0, lines("", "")},
      {"a break in the first", AttributeValue{"\n", "b"}, plain, 1,
       "\n    {\n     \"\"\n     \"\"\n    , \n     \"b\"\n    }"},
      {"returns", "a\r\n\r\r\nb\rc\r", plain, 0, "\n  {\n   \"a\"\n   \"\r\"\n   \"b\rc\r\"\n  }"},
      {"all of the limit", at_4096, plain, 0, "{\"" + at_4096 + "\"}"},
      {"beyond", std::string(5000, 'x'), plain, 0, "{\"" + at_4096 + "\"...(+904)}"},
      {"no character is split", at_4096.substr(1) + "\u20ac", plain, 0,
       "{\"" + at_4096.substr(1) + "\"...(+3)}"},
      {"before one", euro, cut(3), 0, "{\"abc\"...(+4)}"},
      {"behind its first byte", euro, cut(4), 0, "{\"abc\"...(+4)}"},
      {"behind its second", euro, cut(5), 0, "{\"abc\"...(+4)}"},
      {"behind its last", euro, cut(6), 0, "{\"abc\u20ac\"...(+1)}"},
      {"at the end", euro, cut(7), 0, "{\"" + euro + "\"}"},
      {"nothing is left", euro, cut(0), 0, "{\"\"...(+7)}"},
      {"only continuation bytes", "\x80\x80\x80", cut(2), 0, "{\"\"...(+3)}"},
      {"cut in the second line", "ab\ncd", cut(4), 0, "\n  {\n   \"ab\"\n   \"c\"...(+1)\n  }"},
      {"cut before the break", "ab\ncd", cut(2), 0, "\n  {\n   \"ab\"...(+3)\n  }"},
      {"cut within the break", "ab\r\ncd", cut(3), 0, "\n  {\n   \"ab\r\"...(+3)\n  }"},
      {"own texts", AttributeValue{"a\nb", "c"},
       change()
           .list_string_multiline(List("(", "|", ")", true))
           .multiline_string_prefix("<\n")
           .multiline_string_newline("/\n")
           .multiline_string_suffix("\n>")
           .compose(),
       1, "(<\n   a/\n   b\n   >|<\n   c\n   >)"},
      {"own simple list", AttributeValue{"a", "b"},
       change().list_string_simple(List("(", "\n", ")", true)).compose(), 1, "(\"a\"\n   \"b\")"},
  });
}

TEST(Trace, LaysOutBlocks) {
  const auto change = [] { return Composer().show_type(false); };
  const auto own = [&](std::uint32_t line, std::uint32_t max) {
    return change()
        .list_binary_value_dump(List("(", "|", ")", true))
        .binary_value_dump_prefix("<\n")
        .binary_value_dump_newline("/\n")
        .binary_value_dump_suffix("\n>")
        .binary_value_dump_line_size(line)
        .max_binary_value_dump_bytes(max)
        .compose();
  };
  check_cases({
      {"line by line", binary(5), own(2, 100), 1, "(<\n   a0 a1/\n   a2 a3/\n   a4\n   >)"},
      {"full lines", binary(4), own(2, 4), 0, "(<\n a0 a1/\n a2 a3\n >)"},
      {"cut", binary(7), own(4, 3), 0, "(<\n a0 a1 a2\n >...(+4))"},
      {"two", AttributeValue{BinaryValue(1), BinaryValue(2)}, own(4, 4), 0,
       "(<\n 00\n >|<\n 00 00\n >)"},
      {"no line", AttributeValue{BinaryValue(7), BinaryValue()}, own(0, 3), 0,
       "{<size=7>, <size=0>}"},
      {"no bytes", binary(7), own(4, 0), 0, "{<size=7>}"},
      {"the default line", BinaryValue(33), change().compose(), 0,
       "\n  {\n   00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
       "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00\n   00\n  }"},
  });
  EXPECT_TRUE(
      trace(AttributeValue(BinaryValue(257)), TraceFormatter()).ends_with("00...(+1)\n  }]"));
}

TEST(Trace, IndentsWhatFollowsALineBreak) {
  const TraceFormatter f = Composer().line_prefix("\n>").indent("--").compose();
  const std::pair<std::string, std::string> cases[] = {
      {"", ""},
      {"a", "a"},
      {"a\nb", "a\n>--b"},
      {"a\r\nb", "a\n>--b"},
      {"\n", "\n>--"},
      {"\r\n", "\n>--"},
      {"a\r", "a\r"},
      {"\r\r\n\n", "\r\n>--\n>--"},
      {"a\rb", "a\rb"},
      {std::string("\0\n", 2), std::string("\0\n>--", 5)},
  };
  for (const auto& [text, rendered] : cases) {
    std::ostringstream out;
    f.render_indented(out, 1, text);
    EXPECT_EQ(out.str(), rendered);
    f.render_indented(out, 1, text.data(), text.size());
    EXPECT_EQ(out.str(), rendered + rendered);
  }
  std::ostringstream out;
  EXPECT_EQ(&f.indented(f.indented(out, 0), 3), &out);
  EXPECT_EQ(out.str(), "\n>\n>------");
}

TEST(Trace, FramesMapsAsTheCallerAsks) {
  const AttributeName low = std::min(AttributeName("p"), AttributeName("q"));
  const AttributeName high = std::max(AttributeName("p"), AttributeName("q"));
  const AttributeMap map{{low, AttributeMap{{"in", 1}}}, {high, "a\nb"}};
  const auto framed = [&](const AttributeMap& m, const char* prefix, const char* separator) {
    std::ostringstream out;
    m.write_trace(out, prefix, separator);
    return out.str();
  };
  EXPECT_EQ(framed(AttributeMap(), "\n# ", ";"), "");
  // Names in nested maps lose their first quotation mark to the changed prefix.
  EXPECT_EQ(framed(map, "\n# ", ";"),
            "\n# '" + low.value() +
                "' => [AttributeMap: \n#  {\n#   in' => [Integer: {1}]\n#  }];" + "\n# '" +
                high.value() + "' => [String: \n#  {\n#   \"a\"\n#   \"b\"\n#  }]");
  EXPECT_EQ(framed(map, "", ", "), "'" + low.value() +
                                       "' => [AttributeMap:  {in' => [Integer: {1}] }], '" +
                                       high.value() + "' => [String:  {  \"a\"  \"b\" }]");
}

TEST(Trace, FormattersDoNotChangeOnceComposed) {
  Composer composer;
  const TraceFormatter before = composer.compose();
  Composer copy = composer.indent("first");
  const TraceFormatter first = composer.compose();
  composer.indent("second").show_type(false);
  EXPECT_EQ(before.indent(), TraceFormatter().indent());
  EXPECT_EQ(first.indent(), "first");
  EXPECT_EQ(copy.compose().indent(), "first");
  copy = composer;
  EXPECT_EQ(copy.compose().indent(), "second");
  EXPECT_EQ(Composer(first).compose().indent(), "first");
  EXPECT_FALSE(composer.compose().show_type());
  List a("1", "2", "3", true), b("4", "5", "6", false);
  a.swap(b);
  EXPECT_EQ(a.prefix() + a.separator() + a.suffix() + b.suffix(), "4563");
  EXPECT_FALSE(a.show_for_scalar());
}

TEST(Trace, TakesNothingFromTheStreamsFlags) {
  std::ostringstream out;
  out << std::hex << std::showpos << std::showbase << std::boolalpha << std::setfill('*');
  const auto wide = std::setw(20);
  const AttributeMap map{{"a", 16}};
  out << wide << AttributeValue{255, -1} << wide << AttributeValue{true} << AttributeValue(0.5)
      << wide << map << wide << Attribute("b", "x") << wide;
  AttributeValue("y").write_trace(out, TraceFormatter::Composer().show_type(false).compose(), 0);
  out << wide;
  map.write_trace(out, "> ", ";");
  EXPECT_EQ(out.str(),
            "[Integer: {255, -1}][Boolean: {true}][Double: {0.5}]"
            "[AttributeMap: \n  {\n   'a' => [Integer: {16}]\n  }]"
            "'b' => [String: {\"x\"}]{\"y\"}> 'a' => [Integer: {16}]");
}

}  // namespace
}  // namespace ovattribute
