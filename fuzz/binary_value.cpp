// SPDX-License-Identifier: Apache-2.0
// The binary form of values: memory and stream read the same, what was read writes and reads back,
// and the text form agrees.
#include "fuzz/fuzzing.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/support/splits.h"

using namespace ovfuzz;
using ovattribute::AttributeValue;

namespace {

std::string text_form(std::string_view binary) {
  std::string text;
  ovserialize::StringTextTarget target(text);
  ovserialize::MemoryReader reader(binary.data(), binary.size());
  ovserialize::TextWriter writer(target);
  ovserialize::copy_items(reader, writer);
  writer.close();
  return text;
}

std::string binary_form(std::string_view text) {
  ovcore::MemoryReadStream stream(text.data(), text.size());
  ovserialize::TextReader reader(stream);
  ovserialize::MemoryWriter writer;
  ovserialize::copy_items(reader, writer);
  return text_of(*writer.memory_list());
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::size_t piece = input.byte() + 1u;
  const std::string_view bytes = input.rest();

  AttributeValue value(7);
  const std::string failure = failure_of([&] {
    ovserialize::MemoryReader reader(bytes.data(), bytes.size());
    read_attribute_value(reader, value);
  });
  AttributeValue streamed(7);
  ovtest::PieceStream pieces(bytes, {piece});
  const std::string stream_failure = failure_of([&] {
    ovserialize::StreamReader reader(pieces, {}, 32);
    read_attribute_value(reader, streamed);
  });
  require(failure == stream_failure, "memory and stream fail alike");
  if (!failure.empty()) {
    require(value == AttributeValue(7) && streamed == AttributeValue(7),
            "a failed read leaves its target");
    return 0;
  }
  const std::string written = binary_of(value);
  require(written == binary_of(streamed), "memory and stream read the same value");
  require(binary_of(value_of(written)) == written, "what is written reads back");
  require(value_of(written).compare(value) == 0, "what reads back compares equal");
  require(binary_form(text_form(written)) == written, "the text form loses nothing");
  return 0;
}
