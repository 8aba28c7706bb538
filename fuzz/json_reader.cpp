// SPDX-License-Identifier: Apache-2.0
// The pull reader: pieces walk as the whole does, in any way of walking.
#include <memory>

#include "fuzz/fuzzing.h"
#include "ovcore/to_string.h"
#include "ovjson/reader.h"
#include "tests/support/splits.h"

using namespace ovfuzz;
using Reader = ovjson::Reader;

namespace {

/// Everything that a value says, in one line.
void log(std::string& to, const Reader::Value& value) {
  to += Reader::kind_name(value.kind()) + ' ' + ovcore::to_string(value.depth()) + ' ' +
        ovcore::to_string(value.position().line) + ':' +
        ovcore::to_string(value.position().line_pos) + ' ' + std::string(value.member_name());
  switch (value.kind()) {
    case Reader::Kind::boolean:
      to += value.as_bool() ? " true" : " false";
      break;
    case Reader::Kind::number:
      to += ' ' + std::string(value.number_text());
      to += failure_of([&] { to += ' ' + ovcore::to_string(value.as_double()); });
      break;
    case Reader::Kind::string:
      to += ' ' + value.as_string();
      break;
    default:
      break;
  }
  to += '\n';
}

/// Walks with `next_value`, or only over every other child when it `skips`.
std::string walk(ovcore::IReadStream& stream, bool skips, const ovjson::ReaderOptions& options) {
  std::string result;
  result += failure_of([&] {
    Reader reader(stream, "fuzz", options);
    if (!skips) {
      while (const Reader::ValuePtr value = reader.next_value())
        log(result, *value);
      return;
    }
    const Reader::ValuePtr top = reader.next_child(reader.current_value());
    if (!top) return;
    log(result, *top);
    while (const Reader::ValuePtr child = reader.next_child(top)) {
      log(result, *child);
      if (const Reader::ValuePtr inner = reader.next_child(child)) log(result, *inner);
    }
    if (reader.next_value()) result += "more";
  });
  return result;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t settings = input.byte();
  const std::string_view text = input.rest();
  ovjson::ReaderOptions options;
  options.allow_comments = settings & 1;
  options.max_depth = 16;
  options.max_value_size = 64;
  const bool skips = settings & 2;

  ovcore::MemoryReadStream whole(text.data(), text.size());
  const std::string expected = walk(whole, skips, options);
  options.buffer_size = settings / 8 + 1u;
  ovtest::PieceStream pieces(text, {settings / 4 % 8 + 1u});
  require(walk(pieces, skips, options) == expected, "pieces walk as the whole does");
  return 0;
}
