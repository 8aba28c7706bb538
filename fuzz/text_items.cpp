// SPDX-License-Identifier: Apache-2.0
// The text form of item streams: pieces read as the whole does, and what was read is well-formed
// binary that gives the same text again.
#include "fuzz/fuzzing.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/support/splits.h"

using namespace ovfuzz;

namespace {

std::string binary_form(ovcore::IReadStream& stream, std::size_t buffer) {
  ovserialize::TextReader reader(stream, {}, buffer);
  ovserialize::MemoryWriter writer;
  ovserialize::copy_items(reader, writer);
  return text_of(*writer.memory_list());
}

std::string text_form(std::string_view binary, const ovserialize::TextOptions& options) {
  std::string text;
  ovserialize::StringTextTarget target(text);
  ovserialize::MemoryReader reader(binary.data(), binary.size());
  ovserialize::TextWriter writer(target, options);
  ovserialize::copy_items(reader, writer);
  writer.close();
  return text;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t settings = input.byte();
  const std::string_view text = input.rest();

  std::string binary;
  const std::string failure = failure_of([&] {
    ovcore::MemoryReadStream stream(text.data(), text.size());
    binary = binary_form(stream, 4096);
  });
  std::string cut_binary;
  const std::string cut_failure = failure_of([&] {
    ovtest::PieceStream stream(text, {settings / 2 + 1u});
    cut_binary = binary_form(stream, 16);
  });
  require(failure == cut_failure, "whole and pieces fail alike");
  if (!failure.empty()) return 0;
  require(binary == cut_binary, "whole and pieces read the same items");

  const std::string again = text_form(binary, {.one_line = (settings & 1) != 0});
  ovcore::MemoryReadStream stream(again.data(), again.size());
  require(binary_form(stream, 4096) == binary, "what is written as text reads back");
  return 0;
}
