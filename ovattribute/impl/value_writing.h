// SPDX-License-Identifier: Apache-2.0
// The writing of values, common to all ways of writing names.
#pragma once

#include <concepts>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/impl/nested_value.h"
#include "ovattribute/impl/visit_elements.h"
#include "ovattribute/nesting.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovserialize/error_info_stream.h"
#include "ovserialize/savepoint.h"
#include "ovserialize/simple_date_time_stream.h"
#include "ovserialize/writer.h"
#include "ovuri/uri_stream.h"

namespace ovattribute::impl {

/// Types whose scalars are written without a tag, since the item says the type.
template <class T>
constexpr bool is_native = std::same_as<T, bool> || std::same_as<T, long long> ||
                           std::same_as<T, std::string> || std::same_as<T, double> ||
                           std::same_as<T, ovcore::Uuid> || std::same_as<T, ovcore::AbsoluteTime> ||
                           std::same_as<T, ovcore::RelativeTime> || std::same_as<T, BinaryValue>;

inline bool is_one_item(const AttributeValue& value) noexcept {
  constexpr unsigned native_types = 1U << ValueTypeId::idBoolean | 1U << ValueTypeId::idInteger |
                                    1U << ValueTypeId::idString | 1U << ValueTypeId::idDouble |
                                    1U << ValueTypeId::idUuid | 1U << ValueTypeId::idAbsoluteTime |
                                    1U << ValueTypeId::idRelativeTime | 1U << ValueTypeId::idBinary;
  return value.is_null() || ((native_types >> value.type().id() & 1) != 0 && value.size() == 1);
}

struct PlainNameWriter {
  void operator()(ovserialize::Writer& writer, const AttributeName& name) const {
    writer.write_string_key(name.key());
  }
};

/// Writes one value or map with everything inside. `level`: the maps around it.
template <class WriteName>
class ValueWriting {
 public:
  ValueWriting(ovserialize::Writer& writer, WriteName write_name, std::size_t level = 0) noexcept
      : m_writer(writer), m_write_name(write_name), m_level(level) {}

  /// All of the value or nothing.
  void write_whole(const AttributeValue& value) {
    if (is_one_item(value)) return write(value);
    ovserialize::Savepoint whole(m_writer);
    write(value);
    whole.commit();
  }
  template <class Map>
  void write_whole_map(const Map& map) {
    ovserialize::Savepoint whole(m_writer);
    write_map(map);
    whole.commit();
  }

  void write(const AttributeValue& value) {
    visit_elements(value, [this]<class T>(std::span<const T> elements) {
      if constexpr (std::same_as<T, NullValueType>) {
        m_writer.write_null();
      } else if (!std::same_as<T, AttributeMap> && elements.size() == 1) {
        if constexpr (!is_native<T>) m_writer.write_uint(ValueTypeTraits<T>::id);
        write_element(elements.front());
      } else {
        m_writer.write_uint(ValueTypeTraits<T>::id);
        write_list(elements);
      }
    });
  }

  /// Of a map or its storage.
  template <class Map>
  void write_map(const Map& map) {
    if (++m_level > m_limit) throw_writing_too_deep(m_limit);
    m_writer.begin_sequence(map.size());
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
      if (entry != map.begin()) m_writer.next_element();
      write_entry(*entry);
    }
    m_writer.end_sequence();
    --m_level;
  }

  void write_entry(const AttributeMapBase::value_type& entry) {
    m_write_name(m_writer, entry.first);
    write(entry.second);
  }

 private:
  template <class T>
  [[gnu::noinline]] void write_list(std::span<const T> elements) {
    m_writer.begin_sequence(elements.size());
    bool first = true;
    for (const T& element : elements) {
      if (!std::exchange(first, false)) m_writer.next_element();
      write_element(element);
    }
    m_writer.end_sequence();
  }

  template <class T>
  void write_element(const T& element) {
    m_writer << element;
  }
  void write_element(const BinaryValue& element) { write_binary_value(m_writer, element); }
  void write_element(const ovuri::UriReference& element) { ovuri::write_uri(m_writer, element); }
  void write_element(const ovcore::SimpleDateTime& element) {
    ovserialize::write_simple_date_time(m_writer, element);
  }
  void write_element(const SerializedValue& element) { write_serialized_value(m_writer, element); }
  void write_element(const SecuredValue& element) { element.write(m_writer); }
  void write_element(const ErrorInfoPtr& element) {
    ovserialize::write_error_info(m_writer, element);
  }
  void write_element(const AttributeMap& element) { write_map(element); }

  ovserialize::Writer& m_writer;
  const WriteName m_write_name;
  std::size_t m_level;
  const std::size_t m_limit = nesting_limit();
};

}  // namespace ovattribute::impl
