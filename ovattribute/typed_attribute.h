// SPDX-License-Identifier: Apache-2.0
// Ready-made accessors: a name and the type of its value, declared once.
//
//   const TypedAttribute<std::string> caller{"callerName"};
//   const TypedAttribute<int> attempts{"attempts"};
//
//   caller.set(map, "alice");
//   if (attempts.get_or(map, 0) > 3) throw TooMany(caller.get(map));
#pragma once

#include <span>
#include <type_traits>
#include <utility>

#include "ovattribute/attribute_map.h"

namespace ovattribute {

namespace impl {

struct MapChecks : AttributeMapBase {
  using AttributeMapBase::check_attribute_of_type;
  using AttributeMapBase::check_default_of_type;
  using AttributeMapBase::check_scalar_of_type;
  using AttributeMapBase::throw_attribute_not_found;
};

}  // namespace impl

/// `T` is a stored type of `AttributeValue`, or another integer type, for whose range `get` and
/// `get_or` then check (`ovattribute_value_conversion_data`); `find` and `elements` show the
/// `long long` that is stored. Immutable; may be shared by threads and made during static
/// initialisation.
///
/// A value of another type raises `ovattribute_value_type_mismatch`, a list where one element is
/// asked for `ovattribute_value_cardinality_expectSingle`.
template <class T>
requires impl::StoredType<T> || IntegerType<T>
class TypedAttribute {
 public:
  using Stored = impl::StoredAsType<T>;
  /// A reference into the map for stored types, a number for other integer types.
  using Result = std::conditional_t<impl::StoredType<T>, const T&, T>;

  TypedAttribute(AttributeName name) noexcept : m_name(std::move(name)) {}
  TypedAttribute(const char* name) : m_name(name) {}

  [[nodiscard]] const AttributeName& name() const noexcept { return m_name; }

  /// The element. Raises `ovattribute_map_attributeNotFound` when the map has no such name.
  [[nodiscard]] Result get(const AttributeMapBase& map) const { return scalar(present(map)); }
  /// The element, or the default when the map has no such name.
  [[nodiscard]] T get_or(const AttributeMapBase& map, T default_value) const {
    const AttributeValue* value = map.query_ptr(m_name);
    return value != nullptr ? T(scalar(*value)) : std::move(default_value);
  }
  /// The value, or a default value of the attribute's type, which may be a list. A default of
  /// another type raises `ovattribute_value_type_mismatch` even if it is not needed.
  [[nodiscard]] AttributeValue value_or(const AttributeMapBase& map,
                                        const AttributeValue& default_value) const {
    impl::MapChecks::check_default_of_type(m_name, default_value, type());
    const AttributeValue* value = map.query_ptr(m_name);
    if (value == nullptr) return default_value;
    impl::MapChecks::check_attribute_of_type(m_name, *value, type());
    return *value;
  }
  /// The element, or null when the map has no such name.
  [[nodiscard]] const Stored* find(const AttributeMapBase& map) const {
    const AttributeValue* value = map.query_ptr(m_name);
    return value != nullptr ? &element(*value) : nullptr;
  }
  /// All elements, of a scalar too; they lie in the map. Raises
  /// `ovattribute_map_attributeNotFound`.
  [[nodiscard]] std::span<const Stored> elements(const AttributeMapBase& map) const {
    const AttributeValue& value = present(map);
    impl::MapChecks::check_attribute_of_type(m_name, value, type());
    return value.template elements<Stored>();
  }
  /// Sets the attribute to one element.
  void set(MutableAttributeMap& map, T element) const {
    map.add(m_name, AttributeValue(std::move(element)));
  }

 private:
  static const ValueTypeId& type() noexcept { return impl::ValueTypeTraits<Stored>::type(); }

  const AttributeValue& present(const AttributeMapBase& map) const {
    const AttributeValue* value = map.query_ptr(m_name);
    if (value == nullptr) impl::MapChecks::throw_attribute_not_found(m_name);
    return *value;
  }

  const Stored& element(const AttributeValue& value) const {
    if (value.type().id() == impl::ValueTypeTraits<Stored>::id) {
      const std::span<const Stored> elements = value.template elements<Stored>();
      if (elements.size() == 1) return elements.front();
    }
    impl::MapChecks::check_scalar_of_type(m_name, value, type());  // raises
    return value.template at<Stored>(0);
  }
  Result scalar(const AttributeValue& value) const {
    const Stored& stored = element(value);
    if constexpr (impl::StoredType<T>) {
      return stored;
    } else {
      return value.template get<T>();
    }
  }

  const AttributeName m_name;
};

}  // namespace ovattribute
