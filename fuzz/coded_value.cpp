// SPDX-License-Identifier: Apache-2.0
// Values whose names are coded: any input, decoded strictly or not; what was read travels again
// under an encoder of the same packages.
#include "fuzz/fuzzing.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_name_package.h"

using namespace ovfuzz;
using namespace ovattribute;

namespace {

const AttributeNamePackageSet::Ptr& packages() {
  static const AttributeNamePackageSet::Ptr set =
      AttributeNamePackageSet::create(AttributeNamePackage::create({"a", "b", "name"}))
          ->create_union(AttributeNamePackage::create({"b", "c"}));
  return set;
}

std::string coded(const AttributeValue& value, bool announce) {
  ovserialize::MemoryWriter writer;
  AttributeNameEncoder encoder(packages());
  if (announce) encoder.write_encoder_mappings(writer);
  write_attribute_value(writer, encoder, value);
  return text_of(*writer.memory_list());
}

AttributeValue decoded(std::string_view bytes, bool announced, AttributeNameDecoder decoder) {
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  if (announced) decoder.read_decoder_mappings(reader);
  return read_attribute_value(reader, decoder);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t settings = input.byte();
  const bool strict = settings & 1;
  const bool announced = settings & 2;
  const bool knows_packages = settings & 4;

  AttributeValue value(7);
  const std::string failure = failure_of([&] {
    value = decoded(input.rest(), announced,
                    AttributeNameDecoder(knows_packages ? packages() : nullptr, strict));
  });
  if (!failure.empty()) return 0;
  const std::string again = coded(value, announced);
  const AttributeValue back = decoded(again, announced, AttributeNameDecoder(packages(), true));
  require(back.compare(value) == 0, "what is coded decodes to the same value");
  require(coded(back, announced) == again, "what was decoded codes to the same bytes");
  return 0;
}
