// SPDX-License-Identifier: Apache-2.0
// A stream that is much larger than the memory it is read in.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <span>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/stream_reader.h"

namespace ovattribute {
namespace {

constexpr std::uint64_t mebibyte = 1 << 20;

/// One value after another, each with its coded names, up to a size.
class GeneratedStream final : public ovcore::IReadStream {
 public:
  GeneratedStream(std::string first, std::string each, std::uint64_t size)
      : m_part(std::move(first)), m_each(std::move(each)), m_left(size) {}

  std::size_t read(void* buffer, std::size_t size) override {
    std::size_t got = 0;
    while (got < size) {
      const std::size_t more = read_some(static_cast<char*>(buffer) + got, size - got);
      if (more == 0) break;
      got += more;
    }
    return got;
  }
  std::size_t read_some(void* buffer, std::size_t size) override {
    if (m_next == m_part.size()) {
      if (m_left < m_each.size()) return 0;
      m_left -= m_each.size();
      m_part = m_each;
      m_next = 0;
    }
    size = std::min(size, m_part.size() - m_next);
    std::memcpy(buffer, m_part.data() + m_next, size);
    m_next += size;
    return size;
  }
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  std::string m_part;
  const std::string m_each;
  std::size_t m_next = 0;
  std::uint64_t m_left;
};

/// The most memory that the process had since `forget_peak`, in bytes.
std::uint64_t peak_memory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    if (word != "VmHWM:") continue;
    std::uint64_t kibibytes = 0;
    status >> kibibytes;
    return kibibytes << 10;
  }
  return 0;
}
void forget_peak() {
  std::ofstream("/proc/self/clear_refs") << "5";
}

std::string text_of(ovserialize::MemoryWriter& writer) {
  std::string bytes;
  writer.detach()->for_each_span([&bytes](std::span<const unsigned char> span) {
    bytes.append(reinterpret_cast<const char*>(span.data()), span.size());
  });
  return bytes;
}

TEST(LongStream, IsReadInLittleMemory) {
  const char* const wanted = std::getenv("OVATTRIBUTE_LONG_STREAM_MIB");
  const std::uint64_t size =
      mebibyte * (wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : 128);

  MutableAttributeMap map;
  for (int i = 0; i < 20; ++i)
    map.add("name" + std::to_string(i), std::string(static_cast<std::size_t>(i) * 100, 'x'));
  map.add("block", BinaryValue(65536));
  map.add("inner", AttributeMap{{"numbers", AttributeValue{1, 2, 3}}});
  const AttributeValue value(map);
  const auto set = AttributeNamePackageSet::create(
      AttributeNamePackage::create({"name0", "name1", "block", "inner", "numbers"}));
  AttributeNameEncoder encoder(set);
  ovserialize::MemoryWriter writer;
  write_attribute_value(writer, encoder, value);
  const std::string first = text_of(writer);
  write_attribute_value(writer, encoder, value);
  const std::string each = text_of(writer);

  forget_peak();
  GeneratedStream source(first, each, size);
  ovserialize::StreamReader reader(source);
  AttributeNameDecoder decoder(set, true);
  AttributeValue read;
  std::uint64_t count = 0;
  for (; !reader.at_end(); ++count) {
    read_attribute_value(reader, decoder, read);
    if (count % 1000 == 0) {
      ASSERT_EQ(read, value);
    }
  }
  EXPECT_EQ(count, 1 + size / each.size());
  EXPECT_GE(reader.offset(), size - each.size());
  const std::uint64_t peak = peak_memory();
  ASSERT_NE(peak, 0u);
  EXPECT_LT(peak, 64 * mebibyte);
  RecordProperty("bytes", std::to_string(reader.offset()));
  RecordProperty("peak", std::to_string(peak));
  std::cout << count << " values in " << reader.offset() << " bytes, at most " << peak
            << " bytes of memory\n";
}

}  // namespace
}  // namespace ovattribute
