// SPDX-License-Identifier: Apache-2.0
// The reading of values, common to all ways of reading names.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/impl/map_access.h"
#include "ovattribute/impl/string_maker.h"
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
#include "ovuri/uri_stream.h"

namespace ovattribute::impl {

struct PlainNameReader {
  AttributeName operator()(ovserialize::Reader& reader) const { return reader.read_string_key(); }
};

/// Reads one value or map with everything inside. `level`: the maps around it.
template <class ReadName>
class ValueReading {
  using Holder = ovcore::RefCountPtr<AttributeMapBase::MapHolder>;
  template <class T>
  using Elements = std::unique_ptr<RefCountedValueImpl<T>>;

 public:
  ValueReading(ovserialize::Reader& reader, ReadName read_name, std::size_t level = 0) noexcept
      : m_reader(reader), m_read_name(read_name), m_level(level) {}

  AttributeValue read() { return ValueAccess::adopt(read_storage()); }

  [[gnu::noinline]] Holder read_map() {
    const std::uint64_t count = begin_map();
    const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(count, first_room));
    auto holder = AttributeMapBase::MapHolder::make(room);
    read_entries(holder->map, count, room);
    MapAccess::trim(holder);
    return holder;
  }

  void read_entries(AttributeMapBase::Map& map) {
    const std::uint64_t count = begin_map();
    read_entries(map, count, make_room(map, count, first_room));
  }

 private:
  // Maps within maps recurse over `read_map` and `read_maps`, whose frames are all that a level
  // takes of the stack: what needs more of it stands in functions that are not inlined, and those
  // between the two end in a jump to the next. The caller gets a reference to what they return.
  ValueBase* read_storage() {
    const int kind = m_reader.item_kind();
    return is_native(kind) ? read_native(kind) : read_tagged();
  }

  std::uint64_t begin_map() {
    if (++m_level > m_limit) throw_too_deep();
    return m_reader.begin_sequence();
  }

  [[gnu::always_inline]] void read_entries(AttributeMapBase::Map& map, std::uint64_t count,
                                           std::size_t room) {
    while (m_reader.has_next_element()) {
      if (map.size() == room) room = make_room(map, count, 4 * room + 8);
      AttributeName name = m_read_name(m_reader);
      AttributeValue value = read();
      add_entry(map, name, value);
    }
    --m_level;
  }

  [[gnu::noinline]] static void add_entry(AttributeMapBase::Map& map, AttributeName& name,
                                          AttributeValue& value) {
    map.add_new(std::move(name), std::move(value));
  }

  [[gnu::noinline]] ValueBase* read_maps() {
    const std::uint64_t count = m_reader.begin_sequence();
    const std::size_t reserved = count > 1 ? to_reserve<AttributeMap>(count) : 0;
    Elements<AttributeMap> list = count > 1 ? make_list<AttributeMap>(reserved) : nullptr;
    Holder only;
    while (m_reader.has_next_element()) {
      Holder map = read_map();
      if (list == nullptr && only == nullptr) {
        only.swap(map);
      } else {
        add_map(list, only, map);
      }
    }
    m_reservable += reserved;
    return finish_maps(list, only);
  }

  static AttributeMap map_of(Holder& holder) {
    return holder->map.empty() ? AttributeMap() : MapAccess::adopt(std::move(holder));
  }

  /// Adds a map to the list, or makes one of the only map so far and this.
  [[gnu::noinline]] static void add_map(Elements<AttributeMap>& list, Holder& only, Holder& map) {
    if (list == nullptr) list = std::make_unique<RefCountedValueImpl<AttributeMap>>(map_of(only));
    list->push_back(map_of(map));
  }

  [[gnu::noinline]] static ValueBase* finish_maps(Elements<AttributeMap>& list, Holder& only) {
    if (list != nullptr) return finish(std::move(list));
    if (only == nullptr) return ValueFactory<AttributeMap>::create_value();
    return storage_of(map_of(only));
  }

  // Elements that are believed from an announced count.
  static constexpr std::size_t max_reserve = 4096;
  // As many entries cost no more than a small map does anyway.
  static constexpr std::size_t first_room = 6;

  template <class T>
  static ValueBase* storage_of(T&& element) {
    using Stored = std::remove_cvref_t<T>;
    return ValueFactory<Stored>::create_value(std::forward<T>(element));
  }

  template <class T>
  ValueBase* read_scalar() {
    return storage_of(read_element<T>());
  }

  static bool is_native(int kind) noexcept {
    return kind >= ovserialize::item_null && kind <= ovserialize::item_binary &&
           kind != ovserialize::item_unsigned;
  }

  /// Of an item that says its type.
  [[gnu::noinline]] ValueBase* read_native(int kind) {
    switch (kind) {
      case ovserialize::item_boolean:
        return read_scalar<bool>();
      case ovserialize::item_integer:
        return read_scalar<long long>();
      case ovserialize::item_double:
        return read_scalar<double>();
      case ovserialize::item_string:
        return m_strings.make(read_element<std::string>());
      case ovserialize::item_absolute_time:
        return read_scalar<ovcore::AbsoluteTime>();
      case ovserialize::item_relative_time:
        return read_scalar<ovcore::RelativeTime>();
      case ovserialize::item_uuid:
        return read_scalar<ovcore::Uuid>();
      case ovserialize::item_binary:
        return read_scalar<BinaryValue>();
      default:
        m_reader.read_null();
        return null_storage();
    }
  }

  [[gnu::noinline]] ValueBase* read_tagged() {
    const ValueTypeId::EId type = read_type_tag(m_reader);
    return type == ValueTypeId::idAttributeMap ? read_maps() : read_flat(type);
  }

  /// What follows the tag of another type than maps.
  [[gnu::noinline]] ValueBase* read_flat(ValueTypeId::EId type) {
    return visit_type(type, [this]<class T>(std::type_identity<T>) -> ValueBase* {
      if constexpr (std::same_as<T, NullValueType> || std::same_as<T, AttributeMap>) {
        return null_storage();
      } else {
        return this->read_elements<T>();
      }
    });
  }

  template <class T>
  [[gnu::noinline]] ValueBase* read_elements() {
    if (m_reader.item_kind() != ovserialize::item_sequence) return read_scalar<T>();
    const std::uint64_t count = m_reader.begin_sequence();
    if (count > 1) return read_list<T>(count);
    return count == 1 ? read_list_of_one<T>() : read_list_of_some<T>();
  }

  template <class T>
  [[gnu::noinline]] static Elements<T> make_list(std::size_t reserved) {
    Elements<T> list = std::make_unique<RefCountedValueImpl<T>>();
    list->reserve(reserved);
    return list;
  }

  template <class T>
  ValueBase* read_list(std::uint64_t count) {
    Elements<T> list = make_list<T>(to_reserve<T>(count));
    while (m_reader.has_next_element())
      list->push_back(read_element<T>());
    return finish(std::move(list));
  }

  /// A frame of one is closed by the second question already, before its element is read.
  template <class T>
  ValueBase* read_list_of_one() {
    static_cast<void>(m_reader.has_next_element());
    static_cast<void>(m_reader.has_next_element());
    Elements<T> list = std::make_unique<RefCountedValueImpl<T>>(read_element<T>());
    return finish(std::move(list));
  }

  /// Of an unknown number, where one is a scalar.
  template <class T>
  ValueBase* read_list_of_some() {
    if (!m_reader.has_next_element()) return ValueFactory<T>::create_value();
    T first = read_element<T>();
    if (!m_reader.has_next_element()) return storage_of(std::move(first));
    Elements<T> list = std::make_unique<RefCountedValueImpl<T>>(std::move(first));
    do {
      list->push_back(read_element<T>());
    } while (m_reader.has_next_element());
    return finish(std::move(list));
  }

  template <class T>
  static ValueBase* finish(Elements<T> list) {
    if (list->empty()) return ValueFactory<T>::create_value();
    list->trim();
    return list.release();
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
  [[gnu::noinline]] static std::size_t make_room(AttributeMapBase::Map& map, std::uint64_t count,
                                                 std::size_t wanted) {
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
    } else if constexpr (std::same_as<T, ErrorInfoPtr>) {
      return ovserialize::read_error_info(m_reader);
    } else {
      T element{};
      m_reader >> element;
      return element;
    }
  }

  [[noreturn, gnu::noinline]] void throw_too_deep() const {
    ovcore::ErrorComposer("Reading maps nested deeper than {@limit} at offset {@offset}")
        .add("limit", m_limit)
        .add("offset", m_reader.offset())
        .throw_error(
            ovserialize::error::ovserialize_reader_depth,
            {"ovattribute/attribute_value_marshaler", "ovattribute::read_attribute_value()", 0});
  }

  ovserialize::Reader& m_reader;
  const ReadName m_read_name;
  std::size_t m_level;
  const std::size_t m_limit = nesting_limit();
  std::size_t m_reservable = 2 * max_reserve;  // elements of lists of maps
  StringMaker m_strings;
};

}  // namespace ovattribute::impl
