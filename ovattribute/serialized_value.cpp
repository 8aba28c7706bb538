// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/serialized_value.h"

#include <functional>
#include <string_view>

#include "ovattribute/impl/module_anchor.h"
#include "ovcore/impl/wiped_text.h"
#include "ovserialize/memory_writer.h"
#include "ovserialize/reader.h"
#include "ovserialize/savepoint.h"
#include "ovserialize/writer.h"

namespace ovattribute {

void SerializedValue::set(const std::string& type, const ovserialize::MemoryWriter& writer) {
  set(type, writer.memory_list());
}

void SerializedValue::set(const std::string& type, const ovserialize::MemoryReader& reader) {
  set(type, reader.memory_list());
}

ovserialize::MemoryReader SerializedValue::memory_reader() const {
  return ovserialize::MemoryReader(m_data);
}

void SerializedValue::swap(SerializedValue& other) noexcept {
  m_type.swap(other.m_type);
  m_data.swap(other.m_data);
  std::swap(m_hash, other.m_hash);
}

int SerializedValue::compare(const SerializedValue& other) const noexcept {
  if (empty() || other.empty()) return int{other.empty()} - int{empty()};
  const int order = m_type.compare(other.m_type);
  if (order != 0) return order < 0 ? -1 : 1;
  return m_data->compare(*other.m_data);
}

std::size_t SerializedValue::aux_calc_hash() const noexcept {
  const std::size_t type = std::hash<std::string_view>()(m_type);
  return impl::combine_hash(type, empty() ? 0 : m_data->hash());
}

void write_serialized_value(ovserialize::Writer& writer, const SerializedValue& value) {
  ovserialize::Savepoint whole(writer);
  writer.begin_structure();
  writer.begin_structure();
  writer << value.type();
  writer.end_structure();
  writer.write_memory_list_as_binary(value.memory_list());
  writer.end_structure();
  whole.commit();
}

void read_serialized_value(ovserialize::Reader& reader, SerializedValue& value) {
  ovcore::impl::WipedText type;
  reader.begin_structure();
  reader.begin_structure();
  reader >> *type;
  reader.end_structure();
  SerializedValue result(*type, reader.read_memory_list_as_binary());
  reader.end_structure();
  value.swap(result);
}

}  // namespace ovattribute
