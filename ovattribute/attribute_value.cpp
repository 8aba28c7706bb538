// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value.h"

#include <algorithm>

#include "ovattribute/attribute_map.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/impl/map_step.h"
#include "ovattribute/impl/visit_elements.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_composer.h"
#include "ovcore/impl/mix_hash.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"

namespace ovattribute {
namespace {

impl::ValueBase* empty_storage(const ValueTypeId& type) {
  return impl::visit_type(type.id(), []<class T>(std::type_identity<T>) -> impl::ValueBase* {
    if constexpr (std::same_as<T, impl::NullValueType>) {
      return impl::null_storage();
    } else {
      return impl::ValueFactory<T>::create_value();
    }
  });
}

char ascii_lower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

int compare_nocase(const std::string& a, const std::string& b) noexcept {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    const auto x = static_cast<unsigned char>(ascii_lower(a[i]));
    const auto y = static_cast<unsigned char>(ascii_lower(b[i]));
    if (x != y) return x < y ? -1 : 1;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

}  // namespace

constinit const AttributeValue AttributeValue::null;

AttributeValue::AttributeValue(const ValueTypeId& type) : m_holder(empty_storage(type)) {}
AttributeValue::AttributeValue(std::string&& text)
    : m_holder(impl::ValueFactory<std::string>::create_value(std::move(text))) {}
AttributeValue::AttributeValue(const char* text)
    : AttributeValue(ovcore::SourceString(text).view()) {}
AttributeValue::AttributeValue(const char* text, std::size_t size)
    : AttributeValue(std::string_view(text, size)) {}
AttributeValue::AttributeValue(std::string_view text) : m_holder(impl::create_string(text)) {}
AttributeValue::AttributeValue(const ovcore::Uuid& value)
    : m_holder(impl::ValueFactory<ovcore::Uuid>::create_value(value)) {}
AttributeValue::AttributeValue(const ovuri::UriReference& value)
    : m_holder(impl::ValueFactory<ovuri::UriReference>::create_value(value)) {}
AttributeValue::AttributeValue(const ovcore::AbsoluteTime& value)
    : m_holder(impl::ValueFactory<ovcore::AbsoluteTime>::create_value(value)) {}
AttributeValue::AttributeValue(const ovcore::RelativeTime& value)
    : m_holder(impl::ValueFactory<ovcore::RelativeTime>::create_value(value)) {}
AttributeValue::AttributeValue(const ovcore::SimpleDateTime& value)
    : m_holder(impl::ValueFactory<ovcore::SimpleDateTime>::create_value(value)) {}
AttributeValue::AttributeValue(BinaryValue value)
    : m_holder(impl::ValueFactory<BinaryValue>::create_value(std::move(value))) {}
AttributeValue::AttributeValue(SerializedValue value)
    : m_holder(impl::ValueFactory<SerializedValue>::create_value(std::move(value))) {}
AttributeValue::AttributeValue(AttributeMap value)
    : m_holder(impl::ValueFactory<AttributeMap>::create_value(std::move(value))) {}
AttributeValue::AttributeValue(MutableAttributeMap value)
    : AttributeValue(AttributeMap(std::move(value))) {}
AttributeValue::AttributeValue(SecuredValue value)
    : m_holder(impl::ValueFactory<SecuredValue>::create_value(std::move(value))) {}
AttributeValue::AttributeValue(impl::ErrorInfoPtr value)
    : m_holder(impl::ValueFactory<impl::ErrorInfoPtr>::create_value(std::move(value))) {}

void AttributeValue::raise_type_error(const ValueTypeId& expected) const {
  ovcore::ErrorComposer(
      "Attribute value type mismatch.  Expected={@expectedType}, ActualType={@actualType}")
      .add("expectedType", expected.name())
      .add("actualType", type().name())
      .throw_error(error::ovattribute_value_type_mismatch,
                   {"ovattribute/attribute_value", "ovattribute::raise_type_error()", 137});
}

void impl::throw_integer_conversion(std::string_view value) {
  ovcore::ErrorComposer("Integer out of range: {@value}")
      .add("value", value)
      .throw_error(error::ovattribute_value_conversion_data,
                   {"ovattribute/attribute_value", "ovattribute::AttributeValue::get()", 0});
}

int AttributeValue::compare_nocase_ascii(const AttributeValue& other) const {
  if (type().id() != ValueTypeId::idString || other.type().id() != ValueTypeId::idString) {
    return compare(other);
  }
  const auto a = elements<std::string>();
  const auto b = other.elements<std::string>();
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    const int order = compare_nocase(a[i], b[i]);
    if (order != 0) return order;
  }
  return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

namespace {

/// Of one element. What is equal has the same, and what is not rarely has.
template <class T>
std::size_t equality_hash_of(const T& element) {
  if constexpr (std::same_as<T, long long>) {
    return ovcore::impl::mix_hash(static_cast<std::uint64_t>(element));
  } else if constexpr (std::same_as<T, std::string>) {
    return std::hash<std::string>()(element);
  } else if constexpr (std::same_as<T, double>) {
    return std::hash<double>()(element == 0 ? 0.0 : element);
  } else if constexpr (std::same_as<T, BinaryValue>) {
    return std::hash<std::string_view>()(
        {reinterpret_cast<const char*>(element.data()), element.size()});
  } else if constexpr (std::same_as<T, SerializedValue>) {
    return element.empty() ? 0 : element.hash();
  } else if constexpr (std::same_as<T, AttributeMap> || std::same_as<T, SecuredValue>) {
    return impl::equality_hash(element);
  } else {
    return impl::ValueTypeTraits<T>::hash(element);
  }
}

}  // namespace

std::size_t impl::equality_hash(const AttributeValue& value) {
  return visit_elements(value, [&value]<class T>(std::span<const T> elements) {
    [[maybe_unused]] const ValueBase* remembered = nullptr;
    if constexpr (std::same_as<T, AttributeMap>) {
      if (MapStep::remembers(ValueAccess::storage(value)))
        remembered = &ValueAccess::storage(value);
      if (remembered != nullptr) {
        if (const std::size_t* const known = MapStep::find(remembered)) return *known;
      }
    }
    std::size_t h = value.type().id() + 16 * elements.size();
    for (const T& element : elements)
      h = ovcore::impl::mix_hash(h) ^ equality_hash_of(element);
    h = ovcore::impl::mix_hash(h);
    if (remembered != nullptr) MapStep::remember(h, remembered);
    return h;
  });
}

}  // namespace ovattribute
