// SPDX-License-Identifier: Apache-2.0
// The text form of item streams: pieces read as the whole does, what was read is well-formed binary
// that gives the same text again, and a value in it is the same in both forms.
#include "fuzz/fuzzing.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/support/splits.h"

using namespace ovfuzz;

namespace {

constexpr ovserialize::Limits limits{.max_depth = 32, .max_string = 64, .max_binary = 64};

std::string binary_form(ovcore::IReadStream& stream, std::size_t buffer) {
  ovserialize::TextReader reader(stream, limits, buffer);
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

/// Reads the items as a value, from the text and from their binary form, if they have one.
void check_value(std::string_view text, const std::string* binary) {
  ovattribute::AttributeValue of_text;
  const std::string text_failure = failure_of([&] {
    ovcore::MemoryReadStream stream(text.data(), text.size());
    ovserialize::TextReader reader(stream, limits);
    of_text = ovattribute::read_attribute_value(reader);
  });
  if (binary == nullptr) return;
  ovattribute::AttributeValue of_binary;
  const std::string binary_failure = failure_of([&] {
    ovserialize::MemoryReader reader(binary->data(), binary->size(), limits);
    of_binary = ovattribute::read_attribute_value(reader);
  });
  require(text_failure.empty() == binary_failure.empty(), "both forms hold a value or none");
  require(of_text.compare(of_binary) == 0, "both forms hold the same value");
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
  check_value(text, failure.empty() ? &binary : nullptr);
  if (!failure.empty()) return 0;
  require(binary == cut_binary, "whole and pieces read the same items");

  const std::string again = text_form(binary, {.one_line = (settings & 1) != 0});
  ovcore::MemoryReadStream stream(again.data(), again.size());
  require(binary_form(stream, 4096) == binary, "what is written as text reads back");
  return 0;
}
