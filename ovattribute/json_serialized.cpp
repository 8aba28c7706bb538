// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/impl/json_serialized.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "ovattribute/impl/nested_value.h"
#include "ovcore/exception.h"
#include "ovjson/error_codes.h"
#include "ovjson/writer.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"

namespace ovattribute::impl {
namespace {

ovcore::SourceLocation json_location() {
  return {"ovattribute/json_marshaler", "ovattribute::impl::read_serialized_attribute_value()", 0};
}

AttributeValue read_text(ovcore::IReadStream& text, std::size_t level) {
  ovserialize::TextReader reader(text, {}, 4096);
  AttributeValue value = read_nested_value(reader, level);
  if (!reader.at_end()) {
    ovcore::throw_error(ovserialize::error::ovserialize_reader_malformed,
                        "Text is left over behind the value", json_location());
  }
  return value;
}

/// Passes text on as string data, in pieces of 2,048 bytes.
class TextWriterTarget final : public ovserialize::ITextTarget {
 public:
  explicit TextWriterTarget(ovjson::Writer& writer) noexcept : m_writer(writer) {}

  void put(char character) override {
    m_buffer[m_count++] = character;
    if (m_count == sizeof m_buffer) flush();
  }
  void write(const char* text, std::size_t size) override {
    const std::size_t taken = std::min(size, sizeof m_buffer - m_count);
    std::memcpy(m_buffer + m_count, text, taken);
    m_count += taken;
    if (m_count < sizeof m_buffer) return;
    flush();
    text += taken;
    size -= taken;
    if (size >= sizeof m_buffer) {
      m_writer.string_data(text, size);
    } else {
      std::memcpy(m_buffer, text, size);
      m_count = size;
    }
  }
  void flush() {
    if (m_count > 0) m_writer.string_data(m_buffer, m_count);
    m_count = 0;
  }

 private:
  ovjson::Writer& m_writer;
  std::size_t m_count = 0;
  char m_buffer[2048];
};

}  // namespace

AttributeValue read_serialized_attribute_value(ovjson::Reader& reader,
                                               const ovjson::Reader::ValuePtr& member,
                                               std::size_t level) {
  if (member->kind() != ovjson::Reader::Kind::string) {
    reader.raise_error(ovjson::error::ovjson_reader,
                       "Value of \"ovserialize\" property must be of type 'String'.", {},
                       json_location());
  }
  try {
    return read_text(*member->as_stream(), level);
  } catch (const ovcore::Exception& e) {
    if (e.info()->code().is_a(ovjson::error::ovjson_reader)) throw;  // of the JSON around the text
    reader.raise_error(ovjson::error::ovjson_reader,
                       "String value is not a valid ovserialize Text serialized AttributeValue.",
                       {}, json_location(), e.info());
  }
}

void write_serialized_attribute_value(ovjson::Writer& writer, const AttributeValue& value,
                                      std::size_t level) {
  writer.begin_object();
  writer.member_name("ovserialize");
  writer.begin_streamed_string();
  TextWriterTarget target(writer);
  ovserialize::TextWriter text(target);
  write_nested_value(text, value, level);
  text.close();
  target.flush();
  writer.end_streamed_string();
  writer.end_object();
}

}  // namespace ovattribute::impl
