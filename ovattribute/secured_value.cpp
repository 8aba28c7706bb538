// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/secured_value.h"

#include <functional>
#include <string_view>

#include "ovattribute/impl/module_anchor.h"
#include "ovcore/source_string.h"
#include "ovcore/to_string.h"
#include "ovserialize/reader.h"
#include "ovserialize/savepoint.h"
#include "ovserialize/writer.h"

namespace ovattribute {
namespace {

std::size_t hash_of(const std::string& text) noexcept {
  return std::hash<std::string_view>()(text);
}

int sign(std::strong_ordering order) noexcept {
  return order < 0 ? -1 : order > 0 ? 1 : 0;
}

/// A null list is an empty one.
int compare_lists(const SecuredValue::MemoryListPtr& a,
                  const SecuredValue::MemoryListPtr& b) noexcept {
  if (a && b) return a->compare(*b);
  return int{a && !a->empty()} - int{b && !b->empty()};
}

}  // namespace

void SecuredValue::KeyId::swap(KeyId& other) noexcept {
  m_category.swap(other.m_category);
  std::swap(m_instance_id, other.m_instance_id);
}

std::size_t SecuredValue::KeyId::hash() const noexcept {
  return impl::combine_hash(impl::combine_hash(0, hash_of(m_category)), m_instance_id.hash());
}

void SecuredValue::KeyId::write(ovserialize::Writer& writer) const {
  ovserialize::Savepoint whole(writer);
  writer.begin_structure();
  writer << m_category << m_instance_id;
  writer.end_structure();
  whole.commit();
}

void SecuredValue::KeyId::read(ovserialize::Reader& reader) {
  KeyId result;
  reader.begin_structure();
  reader >> result.m_category >> result.m_instance_id;
  reader.end_structure();
  swap(result);
}

void SecuredValue::swap(SecuredValue& other) noexcept {
  m_annotation.swap(other.m_annotation);
  m_cipher_id.swap(other.m_cipher_id);
  m_key_id.swap(other.m_key_id);
  m_data.swap(other.m_data);
  std::swap(m_hash, other.m_hash);
}

int SecuredValue::compare(const SecuredValue& other) const noexcept {
  if (const int order = compare_lists(m_data, other.m_data); order != 0) return order;
  if (const auto order = m_annotation <=> other.m_annotation; order != 0) return sign(order);
  if (const auto order = m_cipher_id <=> other.m_cipher_id; order != 0) return sign(order);
  return sign(m_key_id <=> other.m_key_id);
}

std::size_t SecuredValue::calc_hash_aux() const noexcept {
  std::size_t hash = impl::combine_hash(0, hash_of(m_annotation));
  hash = impl::combine_hash(hash, hash_of(m_cipher_id));
  hash = impl::combine_hash(hash, m_key_id.hash());
  if (hash != 0) return hash;
  return m_data ? m_data->hash() : 0;
}

std::size_t impl::equality_hash(const SecuredValue& value) noexcept {
  return combine_hash(value.hash(), value.data_size() == 0 ? 0 : value.m_data->hash());
}

void SecuredValue::write(ovserialize::Writer& writer) const {
  ovserialize::Savepoint whole(writer);
  writer.begin_structure();
  writer << m_annotation << m_cipher_id;
  m_key_id.write(writer);
  writer.write_memory_list_as_binary(m_data);
  writer.end_structure();
  whole.commit();
}

void SecuredValue::read(ovserialize::Reader& reader) {
  SecuredValue result;
  reader.begin_structure();
  reader >> result.m_annotation >> result.m_cipher_id;
  result.m_key_id.read(reader);
  result.m_data = reader.read_memory_list_as_binary();
  reader.end_structure();
  swap(result);
}

std::ostream& operator<<(std::ostream& out, const SecuredValue::KeyId& id) {
  return out << ovcore::SourceString(id.category()) << ':' << id.instance_id();
}

std::ostream& operator<<(std::ostream& out, const SecuredValue& value) {
  out.width(0);
  return out << "(cipher=" << ovcore::SourceString(value.cipher_id())
             << ", keyid=" << value.key_id()
             << ", datasize=" << ovcore::SourceString(ovcore::NumberText(value.data_size()).view())
             << ')';
}

}  // namespace ovattribute
