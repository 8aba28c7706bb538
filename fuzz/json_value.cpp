// SPDX-License-Identifier: Apache-2.0
// The JSON form of values: what was read writes and reads back, and the binary form agrees.
#include "fuzz/fuzzing.h"
#include "ovattribute/json_marshaler.h"

using namespace ovfuzz;
using ovattribute::AttributeValue;

namespace {

/// JSON holds a list of one as its element; so does what reads it.
void check_round_trip(const AttributeValue& value, bool exact) {
  std::string text;
  // Not all that has a value has JSON: it may nest too deep.
  if (!failure_of([&] { text = to_json(value, {.exact_integers = exact}); }).empty()) return;
  const AttributeValue back = ovattribute::parse_json(text, {.exact_integers = exact});
  require(back.compare(value) == 0, "what is written as JSON reads back");
  require(to_json(back, {.exact_integers = exact}) == text, "what reads back writes the same");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t settings = input.byte();
  const bool exact = settings & 1;
  AttributeValue value;
  if (settings & 4) {
    if (!failure_of([&] { value = value_of(input.rest()); }).empty()) return 0;
  } else {
    const auto options = ovattribute::JsonReadOptions{.exact_integers = exact,
                                                      .refuse_repeated_names = (settings & 2) != 0};
    if (!failure_of([&] { value = ovattribute::parse_json(input.rest(), options); }).empty())
      return 0;
    require(binary_of(value_of(binary_of(value))) == binary_of(value), "it has a binary form");
  }
  check_round_trip(value, exact);
  return 0;
}
