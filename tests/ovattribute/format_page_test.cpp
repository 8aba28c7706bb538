// SPDX-License-Identifier: Apache-2.0
// The examples of values in docs/format.md, executed.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_info.h"
#include "ovcore/simple_date_time.h"
#include "ovuri/uri_reference.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/ovattribute/sealing.h"

namespace ovattribute {
namespace {

using ovserialize::Reader;
using ovserialize::Writer;

/// Writes an example, and reads it back as the value that it is and writes that again.
struct Example {
  std::function<void(Writer&)> write;
  std::function<void(Reader&, Writer&)> copy;
};

Example plain(const AttributeValue& value) {
  return {[value](Writer& writer) { writer << value; },
          [value](Reader& reader, Writer& writer) {
            const AttributeValue read = read_attribute_value(reader);
            EXPECT_EQ(read, value);
            writer << read;
          }};
}

/// By coders that have met `before`.
Example coded(const AttributeNamePackageSet::Ptr& set, const AttributeValue& before,
              const AttributeValue& value) {
  const auto encoded_before = [=](AttributeNameEncoder& encoder) {
    return bytes_of([&](Writer& writer) { write_attribute_value(writer, encoder, before); });
  };
  const auto write = [=](Writer& writer) {
    AttributeNameEncoder encoder(set);
    encoded_before(encoder);
    write_attribute_value(writer, encoder, value);
  };
  return {write, [=](Reader& reader, Writer& writer) {
            AttributeNameEncoder encoder(set);
            AttributeNameDecoder decoder(set, true);
            read_from(encoded_before(encoder),
                      [&](Reader& r) { return read_attribute_value(r, decoder); });
            EXPECT_EQ(read_attribute_value(reader, decoder), value);
            write(writer);
          }};
}

std::map<std::string, Example> examples() {
  const auto package = AttributeNamePackage::create({"a", AttributeName("b")});
  const auto set = AttributeNamePackageSet::create(package);
  const AttributeMap nested{{"a", AttributeMap{{"b", 1}}}};
  const unsigned char block[] = {1, 2};
  FixedRandom nonce(std::string(16, '\1'));
  const auto error = ovcore::ErrorInfo::create(ovcore::ErrorCode("e", true), "{@n}", {{"n", "v"}},
                                               {"f", "g()", 7});
  return {
      {"Null", plain({})},
      {"Boolean true", plain(true)},
      {"Booleans true, false", plain({true, false})},
      {"Integer 7", plain(7)},
      {"Integers, none", plain(AttributeValue(ValueTypeId::typeInteger))},
      {"String \"name\"", plain("name")},
      {"Strings \"a\", \"b\"", plain(AttributeValue::list_of(std::vector{"a", "b"}))},
      {"Double 2", plain(2.0)},
      {"URI a:b", plain(ovuri::UriReference("a:b"))},
      {"SimpleDateTime", plain(ovcore::SimpleDateTime(2024, 2, 29))},
      {"Binary 01 02", plain(BinaryValue(block, 2))},
      {"Serialized of type \"t\", 01 02",
       plain(SerializedValue("t", ovserialize::MemoryList::create_copy(block, 2)))},
      {"map, empty", plain(AttributeMap())},
      {"map of a: 1", plain(AttributeMap{{"a", 1}})},
      {"maps of a: 1 and b: 2", plain({AttributeMap{{"a", 1}}, AttributeMap{{"b", 2}}})},
      {"map of a: map of b: 1", plain(nested)},
      {"Secured, without anything", plain(SecuredValue())},
      // The ciphertext is Botan's.
      {"Secured, Integer 7 by EAX_AES128 with key 16 times 00, nonce 16 times 01, annotation n, "
       "category k",
       plain(SecuredValue(AttributeValue(7), "n", {"k", {}}, key_of(std::string(16, '\0')),
                          *cipher_of("EAX_AES128"), nonce))},
      {"ErrorInfo, none", plain(impl::ErrorInfoPtr())},
      {"ErrorInfo of code e, template \"{@n}\", n = \"v\", in f, g(), line 7", plain(error)},
      {"package {a, b}",
       {[=](Writer& writer) { writer << package; },
        [](Reader& reader, Writer& writer) { writer << AttributeNamePackage::create(reader); }}},
      {"set of the package {a, b}",
       {[=](Writer& writer) { writer << set; },
        [](Reader& reader, Writer& writer) { writer << AttributeNamePackageSet::create(reader); }}},
      {"map of a: map of b: 1, coded", coded(set, {}, nested)},
      {"the same again, by the same coder", coded(set, nested, nested)},
      {"reference to {a, b} in advance",
       {[=](Writer& writer) { AttributeNameEncoder(set).write_encoder_mappings(writer); },
        [=](Reader& reader, Writer& writer) {
          AttributeNameDecoder(set, true).read_decoder_mappings(reader);
          AttributeNameEncoder(set).write_encoder_mappings(writer);
        }}},
  };
}

TEST(FormatPage, ExamplesOfValuesAreWhatIsWrittenAndRead) {
  const std::map<std::string, Example> known = examples();
  std::ifstream page(OV_SOURCE_ROOT "/docs/format.md");
  std::size_t executed = 0;
  bool started = false;
  for (std::string line; std::getline(page, line);) {
    if (line == "| value | bytes |") started = true;
    const std::size_t end = line.find(" | `");
    if (!started || end == line.npos) continue;
    SCOPED_TRACE(line);
    const auto example = known.find(line.substr(2, end - 2));
    ASSERT_NE(example, known.end());
    const std::string bytes = line.substr(end + 4, line.rfind('`') - end - 4);
    EXPECT_EQ(to_hex(bytes_of(example->second.write)), bytes);
    EXPECT_EQ(to_hex(bytes_of([&](Writer& writer) {
                read_from(from_hex(bytes),
                          [&](Reader& reader) { return example->second.copy(reader, writer), 0; });
              })),
              bytes);
    ++executed;
  }
  EXPECT_EQ(executed, known.size());
}

}  // namespace
}  // namespace ovattribute
