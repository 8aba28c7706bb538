// SPDX-License-Identifier: Apache-2.0
// The reading of values.
#pragma once

#include <algorithm>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/impl/entry_rows.h"
#include "ovattribute/impl/map_access.h"
#include "ovattribute/impl/string_maker.h"
#include "ovattribute/impl/type_tag.h"
#include "ovattribute/impl/visit_elements.h"
#include "ovattribute/nesting.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_composer.h"
#include "ovcore/string_key.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/error_info_stream.h"
#include "ovserialize/impl/window.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/reader.h"
#include "ovserialize/simple_date_time_stream.h"
#include "ovuri/uri_stream.h"

namespace ovattribute::impl {

/// Reads one value or map with everything inside. `level`: the maps around it.
class ValueReading {
  using Holder = MapAccess::Holder;
  template <class T>
  using Elements = std::unique_ptr<RefCountedValueImpl<T>>;

 public:
  explicit ValueReading(ovserialize::Reader& reader, std::size_t level = 0) noexcept
      : m_reader(reader), m_window(reader), m_level(level) {}
  ValueReading(ovserialize::Reader& reader, IAttributeNameDecoder& decoder) noexcept
      : ValueReading(reader) {
    m_decoder = &decoder;
    if (typeid(decoder) == typeid(AttributeNameDecoder)) {
      m_known_decoder = static_cast<AttributeNameDecoder*>(&decoder);
    }
  }

  AttributeValue read() { return ValueAccess::adopt(read_storage()); }

  [[gnu::noinline]] Holder read_map() {
    const std::size_t first = read_rows();
    const bool take_names = first == 0 && m_decoder == nullptr && m_window.end_first_map();
    return m_rows.take_map(first, take_names);
  }

  void read_entries(AttributeMapBase::Map& map) { m_rows.move_to(map, read_rows()); }

 private:
  // Maps within maps recurse over `read_map` and `read_maps`, whose frames are all that a level
  // takes of the stack: what needs more of it stands in functions that are not inlined, and those
  // between the two end in a jump to the next. The caller gets a reference to what they return.

  /// Adds the entries of a map to the rows; returns the number of those before.
  std::size_t read_rows() {
    if (++m_level > m_limit) throw_too_deep();
    const bool counted = begin_sequence() != 1;
    const std::size_t first = m_rows.begin_map();
    while (has_element(counted)) {
      m_rows.push(*read_name());
      m_rows.set_value(read_storage());
    }
    --m_level;
    return first;
  }

  std::uint64_t begin_sequence() {
    std::uint64_t count;
    return m_window.begin_sequence(count) ? count : m_reader.begin_sequence();
  }
  /// `counted`: in a sequence that was not announced with 1.
  bool has_element(bool counted) {
    if (counted && m_window.has_element()) return true;
    return !(counted && m_window.end_sequence()) && m_reader.has_next_element();
  }

  /// The name is held by its package or by the window.
  [[gnu::noinline]] const ovcore::StringKey* read_name() {
    if (std::uint64_t token; m_known_decoder != nullptr && m_window.read_unsigned(token)) {
      const AttributeName* const name = m_known_decoder->find_in_last(token);
      return name != nullptr ? &name->key() : name_of(token);
    }
    return m_decoder == m_known_decoder ? read_text_name() : read_other_name();
  }
  [[gnu::noinline]] const ovcore::StringKey* read_text_name() {
    const ovcore::StringKey* const name = m_window.read_name();
    return name != nullptr ? name : read_other_name();
  }
  [[gnu::noinline]] const ovcore::StringKey* name_of(std::uint64_t token) {
    return hold(m_known_decoder->name_of(token));
  }
  /// What does not stand whole in the window, is neither a text nor a number, or is an error.
  [[gnu::noinline]] const ovcore::StringKey* read_other_name() {
    return hold(m_decoder != nullptr ? m_decoder->read_attribute_name(m_reader)
                                     : AttributeName(m_reader.read_string_key()));
  }
  const ovcore::StringKey* hold(const AttributeName& name) { return &m_window.hold(name.key()); }

  [[gnu::noinline]] ValueBase* read_storage() {
    const int kind = m_window.kind();
    return kind != ovserialize::item_none ? read_item(kind) : read_item_ahead();
  }
  /// Of a kind that more than the first byte tells.
  [[gnu::noinline]] ValueBase* read_item_ahead() { return read_item(m_reader.item_kind()); }
  [[gnu::always_inline]] ValueBase* read_item(int kind) {
    switch (kind) {
      case ovserialize::item_null:
        return read_null();
      case ovserialize::item_boolean:
        return read_scalar<bool>();
      case ovserialize::item_integer:
        return read_scalar<long long>();
      case ovserialize::item_double:
        return read_scalar<double>();
      case ovserialize::item_string:
        return read_string();
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
  [[gnu::noinline]] ValueBase* read_null() {
    m_reader.read_null();
    return null_storage();
  }
  [[gnu::noinline]] ValueBase* read_string() {
    std::string_view text;
    return m_window.read(text) ? m_strings.make(text) : m_strings.make(read_element<std::string>());
  }
  template <class T>
  ValueBase* read_scalar() {
    if constexpr (std::is_arithmetic_v<T>) {
      if (T value; m_window.read(value)) return storage_of(value);
    }
    return read_other_scalar<T>();
  }
  template <class T>
  [[gnu::noinline]] ValueBase* read_other_scalar() {
    return storage_of(read_element<T>());
  }

  [[gnu::noinline]] ValueBase* read_maps() {
    const std::uint64_t count = begin_sequence();
    const bool counted = count != 1;
    const std::size_t reserved = count > 1 ? to_reserve<AttributeMap>(count) : 0;
    Elements<AttributeMap> list = count > 1 ? make_list<AttributeMap>(reserved) : nullptr;
    Holder only;
    while (has_element(counted)) {
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

  template <class T>
  static ValueBase* storage_of(T&& element) {
    using Stored = std::remove_cvref_t<T>;
    return ValueFactory<Stored>::create_value(std::forward<T>(element));
  }

  [[gnu::noinline]] ValueBase* read_tagged() {
    const ValueTypeId::EId type = read_type_tag(m_reader);
    return type == ValueTypeId::idAttributeMap ? read_maps() : read_flat(type);
  }

  /// What follows the tag of another type than maps.
  ValueBase* read_flat(ValueTypeId::EId type);

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
    while (has_element(true))
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
      if constexpr (std::is_arithmetic_v<T>) {
        if (m_window.read(element)) return element;
      }
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
  ovserialize::impl::Window m_window;
  IAttributeNameDecoder* m_decoder = nullptr;             // null where names are texts
  const AttributeNameDecoder* m_known_decoder = nullptr;  // the same, if it is of this class
  std::size_t m_level;
  const std::size_t m_limit = nesting_limit();
  std::size_t m_reservable = 2 * max_reserve;  // elements of lists of maps
  EntryRows m_rows;
  StringMaker m_strings;
};

// Behind the class, since clang 14 calls no templates of an unfinished one from a generic lambda.
inline ValueBase* ValueReading::read_flat(ValueTypeId::EId type) {
  return visit_type(type, [this]<class T>(std::type_identity<T>) -> ValueBase* {
    if constexpr (std::same_as<T, NullValueType> || std::same_as<T, AttributeMap>) {
      return null_storage();
    } else {
      return this->read_elements<T>();
    }
  });
}

}  // namespace ovattribute::impl
