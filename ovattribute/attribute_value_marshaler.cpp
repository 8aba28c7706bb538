// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value_marshaler.h"

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "ovattribute/attribute.h"
#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/impl/type_tag.h"
#include "ovattribute/impl/visit_elements.h"
#include "ovattribute/nesting.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_composer.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/error_info_stream.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/reader.h"
#include "ovserialize/simple_date_time_stream.h"
#include "ovserialize/writer.h"
#include "ovuri/uri_stream.h"

namespace ovattribute {

/// For readers, which build maps themselves.
struct impl::MapAccess {
  static const AttributeMapBase::Map& entries(const AttributeMap& map) noexcept {
    return map.map();
  }
  static AttributeMap adopt(
      const ovcore::RefCountPtr<AttributeMapBase::MapHolder>& holder) noexcept {
    return AttributeMap(holder);
  }
};

namespace {

using Map = AttributeMapBase::Map;
using MapHolder = AttributeMapBase::MapHolder;
using ovserialize::Reader;
using ovserialize::Writer;

ovcore::SourceLocation location(const char* function) {
  return {"ovattribute/attribute_value_marshaler", function, 0};
}

/// Types whose scalars are written without a tag, since the item says the type.
template <class T>
constexpr bool is_native = std::same_as<T, bool> || std::same_as<T, long long> ||
                           std::same_as<T, std::string> || std::same_as<T, double> ||
                           std::same_as<T, ovcore::Uuid> || std::same_as<T, ovcore::AbsoluteTime> ||
                           std::same_as<T, ovcore::RelativeTime> || std::same_as<T, BinaryValue>;

struct PlainNameWriter {
  void operator()(Writer& writer, const AttributeName& name) const {
    writer.write_string_key(name.key());
  }
};

struct PlainNameReader {
  AttributeName operator()(Reader& reader) const { return reader.read_string_key(); }
};

/// Writes one value or map with everything inside.
template <class WriteName>
class Writing {
 public:
  Writing(Writer& writer, WriteName write_name) noexcept
      : m_writer(writer), m_write_name(write_name) {}

  void write(const AttributeValue& value) {
    impl::visit_elements(value, [this]<class T>(std::span<const T> elements) {
      if constexpr (std::same_as<T, impl::NullValueType>) {
        m_writer.write_null();
      } else if (!std::same_as<T, AttributeMap> && elements.size() == 1) {
        if constexpr (!is_native<T>) m_writer.write_uint(impl::ValueTypeTraits<T>::id);
        write_element(elements.front());
      } else {
        m_writer.write_uint(impl::ValueTypeTraits<T>::id);
        write_list(elements);
      }
    });
  }

  void write_map(const Map& map) {
    if (++m_level > m_limit) throw_too_deep();
    m_writer.begin_sequence(map.size());
    for (auto entry = map.begin(); entry != map.end(); ++entry) {
      if (entry != map.begin()) m_writer.next_element();
      write_entry(*entry);
    }
    m_writer.end_sequence();
    --m_level;
  }

  void write_entry(const Map::value_type& entry) {
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
  void write_element(const impl::ErrorInfoPtr& element) {
    ovserialize::write_error_info(m_writer, element);
  }
  void write_element(const AttributeMap& element) { write_map(impl::MapAccess::entries(element)); }

  [[noreturn]] void throw_too_deep() const {
    ovcore::ErrorComposer("Writing maps nested deeper than {@limit}")
        .add("limit", m_limit)
        .throw_error(ovserialize::error::ovserialize_writer_depth,
                     location("ovattribute::write_attribute_value()"));
  }

  Writer& m_writer;
  const WriteName m_write_name;
  std::size_t m_level = 0;
  const std::size_t m_limit = nesting_limit();
};

/// Reads one value or map with everything inside.
template <class ReadName>
class Reading {
 public:
  Reading(Reader& reader, ReadName read_name) noexcept : m_reader(reader), m_read_name(read_name) {}

  AttributeValue read() {
    switch (m_reader.item_kind()) {
      case ovserialize::item_null:
        m_reader.read_null();
        return {};
      case ovserialize::item_boolean:
        return read_scalar<bool>();
      case ovserialize::item_integer:
        return read_scalar<long long>();
      case ovserialize::item_double:
        return read_scalar<double>();
      case ovserialize::item_string:
        return read_scalar<std::string>();
      case ovserialize::item_absolute_time:
        return read_scalar<ovcore::AbsoluteTime>();
      case ovserialize::item_relative_time:
        return read_scalar<ovcore::RelativeTime>();
      case ovserialize::item_uuid:
        return read_scalar<ovcore::Uuid>();
      case ovserialize::item_binary:
        return read_scalar<BinaryValue>();
      default:
        return read_tagged();
    }
  }

  void read_entries(Map& map) {
    if (++m_level > m_limit) throw_too_deep();
    const std::uint64_t count = m_reader.begin_sequence();
    std::size_t room = make_room(map, count, first_room);
    while (m_reader.has_next_element()) {
      if (map.size() == room) room = make_room(map, count, 4 * room + 8);
      AttributeName name = m_read_name(m_reader);
      AttributeValue value = read();
      map.try_emplace(std::move(name), std::move(value));
    }
    --m_level;
  }

 private:
  // Elements that are believed from an announced count.
  static constexpr std::size_t max_reserve = 4096;
  // As many entries cost no more than a small map does anyway.
  static constexpr std::size_t first_room = 6;

  template <class T>
  static AttributeValue adopt(T&& element) {
    using Stored = std::remove_cvref_t<T>;
    return impl::ValueAccess::adopt(
        impl::ValueFactory<Stored>::create_value(std::forward<T>(element)));
  }

  template <class T>
  AttributeValue read_scalar() {
    return adopt(read_element<T>());
  }

  [[gnu::noinline]] AttributeValue read_tagged() {
    return impl::visit_type(impl::read_type_tag(m_reader),
                            [this]<class T>(std::type_identity<T>) -> AttributeValue {
                              if constexpr (std::same_as<T, impl::NullValueType>) {
                                return {};
                              } else {
                                return this->read_elements<T>();
                              }
                            });
  }

  /// What follows the tag.
  template <class T>
  [[gnu::noinline]] AttributeValue read_elements() {
    if (m_reader.item_kind() != ovserialize::item_sequence) return read_scalar<T>();
    const std::uint64_t count = m_reader.begin_sequence();
    if (count > 1) return read_list<T>(count);
    if (count == 1 && !std::same_as<T, AttributeMap>) return read_list_of_one<T>();
    return read_list_of_some<T>();
  }

  template <class T>
  AttributeValue read_list(std::uint64_t count) {
    Elements<T> list = std::make_unique<impl::RefCountedValueImpl<T>>();
    const std::size_t reserved = to_reserve<T>(count);
    list->reserve(reserved);
    while (m_reader.has_next_element())
      list->push_back(read_element<T>());
    if constexpr (std::same_as<T, AttributeMap>) m_reservable += reserved;
    return finish(std::move(list));
  }

  /// A frame of one is closed by the second question already, before its element is read.
  template <class T>
  AttributeValue read_list_of_one() {
    static_cast<void>(m_reader.has_next_element());
    static_cast<void>(m_reader.has_next_element());
    Elements<T> list = std::make_unique<impl::RefCountedValueImpl<T>>(read_element<T>());
    return finish(std::move(list));
  }

  /// Of an unknown number, where one is a scalar; so are frames of one map, unlike the others.
  template <class T>
  AttributeValue read_list_of_some() {
    if (!m_reader.has_next_element()) return AttributeValue(impl::ValueTypeTraits<T>::type());
    T first = read_element<T>();
    if (!m_reader.has_next_element()) return adopt(std::move(first));
    Elements<T> list = std::make_unique<impl::RefCountedValueImpl<T>>(std::move(first));
    do {
      list->push_back(read_element<T>());
    } while (m_reader.has_next_element());
    return finish(std::move(list));
  }

  template <class T>
  using Elements = std::unique_ptr<impl::RefCountedValueImpl<T>>;

  template <class T>
  static AttributeValue finish(Elements<T> list) {
    if (list->empty()) return AttributeValue(impl::ValueTypeTraits<T>::type());
    list->trim();
    return impl::ValueAccess::adopt(list.release());
  }

  /// Lists of maps are inside one another; together they believe in two times the maximum.
  template <class T>
  std::size_t to_reserve(std::uint64_t count) noexcept {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, max_reserve));
    if constexpr (!std::same_as<T, AttributeMap>) return wanted;
    const std::size_t reserved = std::min(wanted, m_reservable);
    m_reservable -= reserved;
    return reserved;
  }

  /// Returns the number of entries that now have room in one piece.
  static std::size_t make_room(Map& map, std::uint64_t count, std::size_t wanted) {
    const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(count, wanted));
    if (room > map.size()) map.reserve(room);
    return room;
  }

  template <class T>
  T read_element() {
    if constexpr (std::same_as<T, BinaryValue>) {
      T element;
      read_binary_value(m_reader, element);
      return element;
    } else if constexpr (std::same_as<T, ovuri::UriReference>) {
      return ovuri::read_uri(m_reader);
    } else if constexpr (std::same_as<T, ovcore::SimpleDateTime>) {
      return ovserialize::read_simple_date_time(m_reader);
    } else if constexpr (std::same_as<T, SerializedValue>) {
      T element;
      read_serialized_value(m_reader, element);
      return element;
    } else if constexpr (std::same_as<T, SecuredValue>) {
      return T(m_reader);
    } else if constexpr (std::same_as<T, impl::ErrorInfoPtr>) {
      return ovserialize::read_error_info(m_reader);
    } else if constexpr (std::same_as<T, AttributeMap>) {
      auto holder = ovcore::make_ref_counted<MapHolder>();
      read_entries(holder->map);
      return holder->map.empty() ? AttributeMap() : impl::MapAccess::adopt(holder);
    } else {
      T element{};
      m_reader >> element;
      return element;
    }
  }

  [[noreturn]] void throw_too_deep() const {
    ovcore::ErrorComposer("Reading maps nested deeper than {@limit} at offset {@offset}")
        .add("limit", m_limit)
        .add("offset", m_reader.offset())
        .throw_error(ovserialize::error::ovserialize_reader_depth,
                     location("ovattribute::read_attribute_value()"));
  }

  Reader& m_reader;
  const ReadName m_read_name;
  std::size_t m_level = 0;
  const std::size_t m_limit = nesting_limit();
  std::size_t m_reservable = 2 * max_reserve;  // elements of lists of maps
};

Writing<PlainNameWriter> writing(Writer& writer) noexcept {
  return {writer, PlainNameWriter()};
}
Writing<AttributeNameEncoderFunctor> writing(Writer& writer,
                                             IAttributeNameEncoder& encoder) noexcept {
  return {writer, AttributeNameEncoderFunctor(encoder)};
}
Reading<PlainNameReader> reading(Reader& reader) noexcept {
  return {reader, PlainNameReader()};
}
Reading<AttributeNameDecoderFunctor> reading(Reader& reader,
                                             IAttributeNameDecoder& decoder) noexcept {
  return {reader, AttributeNameDecoderFunctor(decoder)};
}

}  // namespace

void write_attribute_value(Writer& writer, const AttributeValue& value) {
  writing(writer).write(value);
}

void write_attribute_value(Writer& writer, IAttributeNameEncoder& encoder,
                           const AttributeValue& value) {
  writing(writer, encoder).write(value);
}

void read_attribute_value(Reader& reader, AttributeValue& value) {
  value = reading(reader).read();
}

void read_attribute_value(Reader& reader, IAttributeNameDecoder& decoder, AttributeValue& value) {
  value = reading(reader, decoder).read();
}

AttributeValue read_attribute_value(Reader& reader) {
  return reading(reader).read();
}

AttributeValue read_attribute_value(Reader& reader, IAttributeNameDecoder& decoder) {
  return reading(reader, decoder).read();
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
  encoder.write_attribute_name(writer, *this);
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
  m_name.write(writer);
  write_attribute_value(writer, m_value);
}

void Attribute::write(Writer& writer, IAttributeNameEncoder& encoder) const {
  m_name.write(writer, encoder);
  write_attribute_value(writer, m_value);
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

MapHolder::MapHolder(Reader& reader) {
  reading(reader).read_entries(map);
}

MapHolder::MapHolder(Reader& reader, IAttributeNameDecoder& decoder) {
  reading(reader, decoder).read_entries(map);
}

void MapHolder::write(Writer& writer) const {
  writing(writer).write_map(map);
}

void MapHolder::write(Writer& writer, IAttributeNameEncoder& encoder) const {
  writing(writer, encoder).write_map(map);
}

void AttributeMapBase::write(Writer& writer) const {
  writing(writer).write_map(map());
}

void AttributeMapBase::write(Writer& writer, IAttributeNameEncoder& encoder) const {
  writing(writer, encoder).write_map(map());
}

void AttributeMapBase::write_element_aux(Writer& writer, const value_type& entry) {
  writing(writer).write_entry(entry);
}

void AttributeMapBase::write_element_aux(Writer& writer, IAttributeNameEncoder& encoder,
                                         const value_type& entry) {
  writing(writer, encoder).write_entry(entry);
}

AttributeMap::AttributeMap(Reader& reader)
    : AttributeMap(ovcore::make_ref_counted<MapHolder>(reader)) {}

AttributeMap::AttributeMap(Reader& reader, IAttributeNameDecoder& decoder)
    : AttributeMap(ovcore::make_ref_counted<MapHolder>(reader, decoder)) {}

void MutableAttributeMap::read(Reader& reader) {
  m_pImpl = ovcore::make_ref_counted<MapHolder>(reader);
}

void MutableAttributeMap::read(Reader& reader, IAttributeNameDecoder& decoder) {
  m_pImpl = ovcore::make_ref_counted<MapHolder>(reader, decoder);
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
