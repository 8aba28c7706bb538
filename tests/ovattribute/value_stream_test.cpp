// SPDX-License-Identifier: Apache-2.0
// Streams of values of all types, with coders and without: as JSON, for another decoder, damaged.
#include <gtest/gtest.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/json_marshaler.h"
#include "ovcore/exception.h"
#include "ovcore/utf8.h"
#include "ovjson/reader.h"
#include "ovjson/writer.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_writer.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/ovserialize/items.h"
#include "tests/ovserialize/judge.h"

namespace ovattribute {
namespace {

using PackageSet = AttributeNamePackageSet;
using ovserialize::MemoryReader;
using ovserialize::MemoryWriter;
using ovserialize::Writer;

template <class F>
std::string bytes_of(F&& write) {
  MemoryWriter writer;
  write(writer);
  return ovserialize::text_of(*writer.detach());
}

std::string bytes_of_value(const AttributeValue& value) {
  return bytes_of([&](Writer& writer) { write_attribute_value(writer, value); });
}

std::string bytes_of_values(const std::vector<AttributeValue>& values) {
  std::string bytes;
  for (const AttributeValue& value : values)
    bytes += bytes_of_value(value);
  return bytes;
}

AttributeValue within_maps(AttributeValue value, int depth) {
  for (int i = 0; i < depth; ++i)
    value = AttributeValue(AttributeMap{{"inner", value}});
  return value;
}

bool has_bytes(const AttributeValue& value) {
  if (value.type() != ValueTypeId::typeString) return false;
  const auto texts = value.elements<std::string>();
  return std::any_of(texts.begin(), texts.end(),
                     [](const std::string& text) { return !ovcore::is_utf8(text); });
}

TEST(ValueStream, EveryValueSurvivesAsJsonAtAnyDepth) {
  std::size_t kept = 0;
  for (const AttributeValue& sample : sample_values()) {
    if (has_bytes(sample)) continue;
    for (const int depth : {0, 4}) {
      const AttributeValue value = within_maps(sample, depth);
      const std::string json = to_json(value);
      SCOPED_TRACE(json.substr(0, 100));
      const AttributeValue read = parse_json(json);
      EXPECT_EQ(read.type(), value.type());
      EXPECT_EQ(bytes_of_value(read), bytes_of_value(value));
      EXPECT_EQ(to_json(read), json);
      ++kept;
    }
  }
  EXPECT_GT(kept, 100u);
}

/// Some values by an encoder, of whose packages one is announced in advance.
class CodedStream {
 public:
  CodedStream()
      : m_packages(PackageSet::create(AttributeNamePackage::create({"a", "b", "inner"}))) {
    MutableAttributeMap small;
    for (const AttributeValue& value : sample_values()) {
      if (bytes_of_value(value).size() < 40) small.add("v" + std::to_string(small.size()), value);
    }
    const auto more = m_packages->create_union(AttributeNamePackage::create({"v1", "v2", "v3"}));
    m_values = {within_maps(AttributeValue(small), 2), AttributeValue(AttributeMap{{"b", "x"}})};
    m_packages = more;
  }

  void write(Writer& writer, bool announce) const {
    AttributeNameEncoder encoder(m_packages);
    if (announce) encoder.write_encoder_mappings(writer);
    for (const AttributeValue& value : m_values)
      write_attribute_value(writer, encoder, value);
  }

  /// All values of the stream; raises what is wrong with it.
  [[nodiscard]] std::vector<AttributeValue> read(std::string_view bytes) const {
    MemoryReader reader(bytes.data(), bytes.size());
    AttributeNameDecoder decoder(m_packages, true);
    std::vector<AttributeValue> values;
    while (!reader.at_end()) {
      if (reader.item_kind() == ovserialize::item_structure) decoder.read_decoder_mappings(reader);
      values.push_back(read_attribute_value(reader, decoder));
    }
    return values;
  }

  [[nodiscard]] const std::vector<AttributeValue>& values() const noexcept { return m_values; }

 private:
  PackageSet::Ptr m_packages;
  std::vector<AttributeValue> m_values;
};

TEST(ValueStream, AnotherDecoderReadsEveryType) {
  const CodedStream coded;
  std::vector<AttributeValue> values = sample_values();
  values.emplace_back(nested_samples(4));
  const auto write = [&](Writer& writer) {
    for (const AttributeValue& value : values)
      write_attribute_value(writer, value);
    coded.write(writer, false);
    coded.write(writer, true);
  };
  // What the text form carries of the same calls is what cbor2 must find in the binary form.
  std::string text;
  ovserialize::StringTextTarget target(text);
  ovserialize::TextWriter writer(target);
  write(writer);
  writer.close();
  ovcore::MemoryReadStream source{ovcore::SourceString(text)};
  ovserialize::TextReader reader(source);
  ovserialize::expect_python_reads(bytes_of(write), ovserialize::read_all(reader));
}

TEST(ValueStream, DamageOfNamesGivesAnErrorOrValuesThatCanBeWritten) {
  const CodedStream stream;
  for (const bool announce : {false, true}) {
    const std::string bytes = bytes_of([&](Writer& writer) { stream.write(writer, announce); });
    ASSERT_EQ(bytes_of_values(stream.read(bytes)), bytes_of_values(stream.values()));
    std::size_t whole = 0;
    for (std::size_t size = 1; size < bytes.size(); ++size) {
      try {
        whole += stream.read(std::string_view(bytes).substr(0, size)).size();
      } catch (const ovcore::Exception&) {
      }
    }
    EXPECT_EQ(whole, 1u);  // between the two values
    std::size_t readable = 0;
    for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
      std::string damaged = bytes;
      damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
      std::vector<AttributeValue> values;
      try {
        values = stream.read(damaged);
      } catch (const ovcore::Exception&) {
        continue;
      }
      ++readable;
      for (const AttributeValue& value : values) {
        const std::string again = bytes_of_value(value);
        MemoryReader reader(again.data(), again.size());
        ASSERT_EQ(bytes_of_value(read_attribute_value(reader)), again) << bit;
      }
    }
    EXPECT_GT(readable, bytes.size());
  }
}

}  // namespace
}  // namespace ovattribute
