// SPDX-License-Identifier: Apache-2.0
// Trace text of any value under any formatter: no crash, and nothing that depends on what was
// printed before.
#include <iomanip>
#include <sstream>

#include "fuzz/fuzzing.h"
#include "ovattribute/trace_formatter.h"

using namespace ovfuzz;
using namespace ovattribute;

namespace {

std::string printed(const AttributeValue& value, const TraceFormatter& formatter, unsigned level) {
  std::ostringstream out;
  value.write_trace(out, formatter, level);
  return out.str();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t flags = input.byte();
  const auto formatter = TraceFormatter::Composer()
                             .show_type(flags & 1)
                             .order_names_by_text(flags & 2)
                             .max_multivalue_count(input.byte())
                             .multiline_length_threshold(input.byte())
                             .max_string_len(input.byte())
                             .max_binary_value_dump_bytes(input.byte())
                             .binary_value_dump_line_size(input.byte())
                             .indent(ovcore::SourceString(input.bytes(flags >> 6)))
                             .compose();
  AttributeValue value;
  if (!failure_of([&] { value = value_of(input.rest()); }).empty()) return 0;
  const std::string first = printed(value, formatter, flags >> 4 & 3);
  std::ostringstream base;
  base << std::hex << std::uppercase << std::setw(20) << std::setfill('*');
  value.write_trace(base, formatter, flags >> 4 & 3);
  require(base.str() == first, "the stream's own settings change nothing");
  require(printed(value, formatter, flags >> 4 & 3) == first, "the same prints the same");
  return 0;
}
