// SPDX-License-Identifier: Apache-2.0
// The examples of docs/format.md, executed.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/ovserialize/items.h"

namespace ovserialize {
namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

double nan_of(std::uint64_t bits) {
  return std::bit_cast<double>(bits);
}
auto absolute_time(std::int64_t microseconds) {
  return ovcore::AbsoluteTime::from_microseconds(microseconds);
}
auto relative_time(std::int64_t microseconds) {
  return ovcore::RelativeTime::from_microseconds(microseconds);
}
auto uuid(const char* text) {
  return ovcore::Uuid::parse(text);
}
template <class... Elements>
void sequence(Writer& writer, std::uint64_t count, const Elements&... elements) {
  writer.begin_sequence(count);
  [[maybe_unused]] bool first = true;
  [[maybe_unused]] const auto next = [&](const auto& element) {
    if (!first) writer.next_element();
    first = false;
    writer << element;
  };
  (next(elements), ...);
  writer.end_sequence();
}
template <class... Items>
void structure(Writer& writer, const Items&... items) {
  writer.begin_structure();
  ((writer << items), ...);
  writer.end_structure();
}

using Call = std::function<void(Writer&)>;
#define CALL(...)                                      \
  {                                                    \
#__VA_ARGS__, [](Writer & writer) { __VA_ARGS__; } \
  }
const std::map<std::string, Call> calls{
    CALL(writer.write_null()),
    CALL(writer << false),
    CALL(writer << true),
    CALL(writer << 0),
    CALL(writer << 23),
    CALL(writer << 24),
    CALL(writer << 1000),
    CALL(writer << 1000000),
    CALL(writer << 1000000000000L),
    CALL(writer << std::numeric_limits<long long>::max()),
    CALL(writer << -1),
    CALL(writer << -1000LL),
    CALL(writer << std::numeric_limits<long>::min()),
    CALL(writer.write_uint(0)),
    CALL(writer.write_uint(12)),
    CALL(writer.write_uint(15)),
    CALL(writer.write_uint(16)),
    CALL(writer << 100u),
    CALL(writer << 239UL),
    CALL(writer << 240ULL),
    CALL(writer << std::numeric_limits<unsigned long>::max()),
    CALL(writer << 0.0),
    CALL(writer << 2.0),
    CALL(writer << -4.1),
    CALL(writer << 1e5),
    CALL(writer << 0.001),
    CALL(writer << 18446744073709551616.0),
    CALL(writer << 1e300),
    CALL(writer << infinity),
    CALL(writer << -infinity),
    CALL(writer << nan),
    CALL(writer << nan_of(0x7ff8000000000001)),
    CALL(writer << ""),
    CALL(writer << "name"),
    CALL(writer << "\u00fc\u20ac\"\n"),
    CALL(writer << "\xff"),
    CALL(writer.write_string_key("name")),
    CALL(writer << absolute_time(0)),
    CALL(writer << absolute_time(1363896240500000)),
    CALL(writer << absolute_time(-1)),
    CALL(writer << relative_time(5000003)),
    CALL(writer << uuid("00112233-4455-6677-8899-aabbccddeeff")),
    CALL(writer.write_binary("", 0)),
    CALL(writer.write_binary("\1\2\3\4", 4)),
    CALL(sequence(writer, 0)),
    CALL(sequence(writer, 0, "a", true)),
    CALL(sequence(writer, 2, true, false)),
    CALL(sequence(writer, 1, -7)),
    CALL(structure(writer)),
    CALL(structure(writer, "a", 12u)),
};
#undef CALL

struct Example {
  std::string call;
  std::string bytes;
  std::string text;
};

std::vector<Example> examples() {
  std::vector<Example> result;
  std::ifstream page(OV_SOURCE_ROOT "/docs/format.md");
  bool started = false;
  for (std::string line; std::getline(page, line);) {
    if (line == "| call | bytes | text |") started = true;
    if (!started || !line.starts_with("| `")) continue;
    std::vector<std::string> cells;
    for (std::size_t at = 0; (at = line.find('`', at)) != line.npos;) {
      const std::size_t end = line.find('`', at + 1);
      cells.push_back(line.substr(at + 1, end - at - 1));
      at = end + 1;
    }
    if (cells.size() != 3) throw std::runtime_error("not three cells: " + line);
    result.push_back({cells[0], cells[1], cells[2]});
  }
  return result;
}

TEST(FormatPage, ExamplesAreWhatWritersWrite) {
  std::size_t executed = 0;
  for (const Example& example : examples()) {
    SCOPED_TRACE(example.call);
    const auto call = calls.find(example.call);
    ASSERT_NE(call, calls.end());
    MemoryWriter writer;
    call->second(writer);
    EXPECT_EQ(to_hex(text_of(*writer.detach())), example.bytes);
    ++executed;
  }
  EXPECT_EQ(executed, calls.size());
}

TEST(FormatPage, ExamplesAreTheSameAsText) {
  for (const Example& example : examples()) {
    SCOPED_TRACE(example.call);
    std::string text;
    StringTextTarget target(text);
    TextWriter text_writer(target);
    calls.at(example.call)(text_writer);
    text_writer.close();
    EXPECT_EQ(text, example.text);
    ovcore::MemoryReadStream source{ovcore::SourceString(example.text)};
    TextReader reader(source);
    MemoryWriter writer;
    copy_items(reader, writer);
    EXPECT_EQ(to_hex(text_of(*writer.detach())), example.bytes);
  }
}

TEST(FormatPage, ExamplesAreRead) {
  for (const Example& example : examples()) {
    SCOPED_TRACE(example.call);
    const std::string bytes = from_hex(example.bytes);
    MemoryReader reader(bytes.data(), bytes.size());
    MemoryWriter writer;
    copy_items(reader, writer);
    EXPECT_EQ(to_hex(text_of(*writer.detach())), example.bytes);
  }
}

}  // namespace
}  // namespace ovserialize
