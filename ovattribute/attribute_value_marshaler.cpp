// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value_marshaler.h"

#include <utility>

#include "ovattribute/attribute.h"
#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/impl/nested_value.h"
#include "ovattribute/impl/value_reading.h"
#include "ovattribute/impl/value_writing.h"
#include "ovcore/error_composer.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/reader.h"
#include "ovserialize/writer.h"

namespace ovattribute {
namespace {

using MapHolder = AttributeMapBase::MapHolder;
using impl::ValueReading;
using ovserialize::Reader;
using ovserialize::Savepoint;
using ovserialize::Writer;

impl::ValueWriting<impl::PlainNameWriter> writing(Writer& writer) noexcept {
  return {writer, impl::PlainNameWriter()};
}
impl::ValueWriting<AttributeNameEncoderFunctor> writing(Writer& writer,
                                                        IAttributeNameEncoder& encoder) noexcept {
  return {writer, AttributeNameEncoderFunctor(encoder)};
}

}  // namespace

void write_attribute_value(Writer& writer, const AttributeValue& value) {
  writing(writer).write_whole(value);
}

void write_attribute_value(Writer& writer, IAttributeNameEncoder& encoder,
                           const AttributeValue& value) {
  writing(writer, encoder).write_whole(value);
}

void read_attribute_value(Reader& reader, AttributeValue& value) {
  value = ValueReading(reader).read();
}

void read_attribute_value(Reader& reader, IAttributeNameDecoder& decoder, AttributeValue& value) {
  value = ValueReading(reader, decoder).read();
}

AttributeValue read_attribute_value(Reader& reader) {
  return ValueReading(reader).read();
}

AttributeValue read_attribute_value(Reader& reader, IAttributeNameDecoder& decoder) {
  return ValueReading(reader, decoder).read();
}

AttributeValue impl::read_nested_value(Reader& reader, std::size_t level) {
  return ValueReading(reader, level).read();
}

void impl::write_nested_value(Writer& writer, const AttributeValue& value, std::size_t level) {
  ValueWriting(writer, PlainNameWriter(), level).write(value);
}

void impl::throw_writing_too_deep(std::size_t limit) {
  ovcore::ErrorComposer("Writing maps nested deeper than {@limit}")
      .add("limit", limit)
      .throw_error(
          ovserialize::error::ovserialize_writer_depth,
          {"ovattribute/attribute_value_marshaler", "ovattribute::write_attribute_value()", 0});
}

Writer& operator<<(Writer& writer, const AttributeValue& value) {
  write_attribute_value(writer, value);
  return writer;
}

Reader& operator>>(Reader& reader, AttributeValue& value) {
  read_attribute_value(reader, value);
  return reader;
}

void AttributeName::write(Writer& writer) const {
  writer.write_string_key(m_key);
}

void AttributeName::write(Writer& writer, IAttributeNameEncoder& encoder) const {
  Savepoint whole(writer);
  encoder.write_attribute_name(writer, *this);
  whole.commit();
}

void AttributeName::read(Reader& reader) {
  *this = AttributeName(reader.read_string_key());
}

void AttributeName::read(Reader& reader, IAttributeNameDecoder& decoder) {
  *this = decoder.read_attribute_name(reader);
}

Writer& operator<<(Writer& writer, const AttributeName& name) {
  name.write(writer);
  return writer;
}

Reader& operator>>(Reader& reader, AttributeName& name) {
  name.read(reader);
  return reader;
}

void Attribute::write(Writer& writer) const {
  Savepoint whole(writer);
  m_name.write(writer);
  writing(writer).write(m_value);
  whole.commit();
}

void Attribute::write(Writer& writer, IAttributeNameEncoder& encoder) const {
  Savepoint whole(writer);
  encoder.write_attribute_name(writer, m_name);
  writing(writer).write(m_value);
  whole.commit();
}

void Attribute::read(Reader& reader) {
  AttributeName name(reader.read_string_key());
  m_value = read_attribute_value(reader);
  m_name.swap(name);
}

void Attribute::read(Reader& reader, IAttributeNameDecoder& decoder) {
  AttributeName name = decoder.read_attribute_name(reader);
  m_value = read_attribute_value(reader);
  m_name.swap(name);
}

Writer& operator<<(Writer& writer, const Attribute& attribute) {
  attribute.write(writer);
  return writer;
}

Reader& operator>>(Reader& reader, Attribute& attribute) {
  attribute.read(reader);
  return reader;
}

MapHolder::MapHolder(Reader& reader) {
  ValueReading(reader).read_entries(map);
}

MapHolder::MapHolder(Reader& reader, IAttributeNameDecoder& decoder) {
  ValueReading(reader, decoder).read_entries(map);
}

void MapHolder::write(Writer& writer) const {
  writing(writer).write_whole_map(map);
}

void MapHolder::write(Writer& writer, IAttributeNameEncoder& encoder) const {
  writing(writer, encoder).write_whole_map(map);
}

void AttributeMapBase::write(Writer& writer) const {
  writing(writer).write_whole_map(map());
}

void AttributeMapBase::write(Writer& writer, IAttributeNameEncoder& encoder) const {
  writing(writer, encoder).write_whole_map(map());
}

void AttributeMapBase::write_element_aux(Writer& writer, const value_type& entry) {
  Savepoint whole(writer);
  writing(writer).write_entry(entry);
  whole.commit();
}

void AttributeMapBase::write_element_aux(Writer& writer, IAttributeNameEncoder& encoder,
                                         const value_type& entry) {
  Savepoint whole(writer);
  writing(writer, encoder).write_entry(entry);
  whole.commit();
}

AttributeMap::AttributeMap(Reader& reader) : AttributeMap(ValueReading(reader).read_map()) {}

AttributeMap::AttributeMap(Reader& reader, IAttributeNameDecoder& decoder)
    : AttributeMap(ValueReading(reader, decoder).read_map()) {}

void MutableAttributeMap::read(Reader& reader) {
  m_pImpl = ValueReading(reader).read_map();
}

void MutableAttributeMap::read(Reader& reader, IAttributeNameDecoder& decoder) {
  m_pImpl = ValueReading(reader, decoder).read_map();
}

Writer& operator<<(Writer& writer, const AttributeMapBase& map) {
  map.write(writer);
  return writer;
}

Reader& operator>>(Reader& reader, AttributeMap& map) {
  map = AttributeMap(reader);
  return reader;
}

Reader& operator>>(Reader& reader, MutableAttributeMap& map) {
  map.read(reader);
  return reader;
}

void write_binary_value(Writer& writer, const BinaryValue& value) {
  writer.write_binary(value.data(), value.size());
}

void read_binary_value(Reader& reader, BinaryValue& value) {
  value.set(*reader.read_binary_stream());
}

}  // namespace ovattribute
