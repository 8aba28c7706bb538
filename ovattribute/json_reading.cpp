// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/impl/json_serialized.h"
#include "ovattribute/json_marshaler.h"
#include "ovjson/error_codes.h"
#include "ovjson/reader.h"

namespace ovattribute {
namespace {

using Kind = ovjson::Reader::Kind;
using Value = ovjson::Reader::Value;
using ValuePtr = ovjson::Reader::ValuePtr;
template <class T>
using Elements = impl::RefCountedValueImpl<T>;

constexpr std::string_view serialized_name = "ovserialize";
constexpr double two_to_63 = 9223372036854775808.0;

/// The Integer that a number stands for, if it is one.
std::optional<long long> integral(double d) {
  if (d != 0 && !std::isnormal(d)) return std::nullopt;
  if (d < -two_to_63 || d >= two_to_63) return std::nullopt;
  const auto i = static_cast<long long>(d);
  if (static_cast<double>(i) != d) return std::nullopt;
  return i;
}

bool held_by_double(long long i) {
  constexpr long long limit = 1LL << 53;
  return (i >= -limit && i <= limit) || (static_cast<double>(i) < two_to_63 &&
                                         static_cast<long long>(static_cast<double>(i)) == i);
}

class JsonReading {
 public:
  JsonReading(ovjson::Reader& reader, const JsonReadOptions& options) noexcept
      : m_reader(reader), m_options(options) {}

  AttributeValue read_root() {
    ValuePtr value = m_reader.current_value();
    if (value && value->kind() == Kind::root) value = m_reader.next_value();
    if (!value) raise("Expecting JSON value", "read_attribute_value()");
    return read(value);
  }

 private:
  [[noreturn]] void raise(ovcore::SourceString message, const char* function,
                          std::initializer_list<ovcore::ErrorInfo::Parameter> parameters = {}) {
    m_reader.raise_error(ovjson::error::ovjson_reader, message, parameters,
                         {"ovattribute/json_marshaler", function, 0});
  }

  AttributeValue read(const ValuePtr& value) {
    switch (value->kind()) {
      case Kind::boolean:
        return value->as_bool();
      case Kind::number:
        return read_number(*value);
      case Kind::string:
        return value->take_string();
      case Kind::object:
        return read_object(value);
      case Kind::array:
        return read_array(value);
      case Kind::root:
      case Kind::null:
        break;
    }
    return {};
  }

  /// The number as Integer when it is written as one: in the exact mode, or where a double says the
  /// same.
  std::optional<long long> literal(const Value& value) const {
    const std::optional<std::int64_t> exact = value.as_integer();
    if (exact && (m_options.exact_integers || held_by_double(*exact))) return *exact;
    return std::nullopt;
  }

  AttributeValue read_number(const Value& value) {
    if (const auto exact = literal(value)) return *exact;
    const double d = value.as_double();
    if (const auto i = integral(d)) return *i;
    return d;
  }

  AttributeValue read_object(const ValuePtr& object) {
    ValuePtr member = m_reader.next_child(object);
    if (!member || member->member_name() != serialized_name) return read_members(object, member);
    AttributeValue result = impl::read_serialized_attribute_value(m_reader, member);
    do {
      member.reset();
      member = m_reader.next_child(object);
    } while (member);
    return result;
  }

  AttributeMap read_members(const ValuePtr& object, ValuePtr& member) {
    MutableAttributeMap map;
    while (member) {
      const AttributeName name(member->member_key());
      if (m_options.refuse_repeated_names && map.exists(name)) refuse_repeated(name, *member);
      map.add(name, read(member));
      member.reset();  // a value that nobody holds is used again
      member = m_reader.next_child(object);
    }
    return map;
  }

  [[noreturn]] void refuse_repeated(const AttributeName& name, const Value& member) {
    m_reader.raise_error_at(
        member.name_position(), ovjson::error::ovjson_reader, "Repeated member name '{@name}'",
        {{"name", name.value()}},
        {"ovattribute/json_marshaler", "ovattribute::impl::read_json_object()", 0});
  }

  AttributeValue read_array(const ValuePtr& array) {
    const ValuePtr first = m_reader.next_child(array);
    if (!first) return AttributeValue(ValueTypeId::typeString);
    switch (first->kind()) {
      case Kind::object:
        return read_elements<AttributeMap>(array, first, [this](const ValuePtr& element) {
          ValuePtr member = m_reader.next_child(element);
          return read_members(element, member);
        });
      case Kind::boolean:
        return read_elements<bool>(array, first,
                                   [](const ValuePtr& element) { return element->as_bool(); });
      case Kind::string:
        return read_elements<std::string>(
            array, first, [](const ValuePtr& element) { return element->take_string(); });
      case Kind::number:
        return read_numbers(array, first);
      case Kind::array:
        raise("Array of Array elements not supported.", array_function);
      case Kind::null:
      case Kind::root:
        break;
    }
    raise("Array of null elements not supported.", array_function);
  }

  template <class F>
  void for_each_element(const ValuePtr& array, ValuePtr element, F&& f) {
    const Kind expected = element->kind();
    do {
      if (element->kind() != expected) {
        raise(
            "All array elements must be of same type.  Expecting '{@expected}' found '{@actual}'.",
            array_function,
            {{"expected", ovjson::Reader::kind_name(expected)},
             {"actual", ovjson::Reader::kind_name(element->kind())}});
      }
      f(element);
      element.reset();
      element = m_reader.next_child(array);
    } while (element);
  }

  template <class T, class F>
  AttributeValue read_elements(const ValuePtr& array, ValuePtr first, F&& read_element) {
    auto elements = std::make_unique<Elements<T>>();
    for_each_element(array, std::move(first),
                     [&](const ValuePtr& element) { elements->push_back(read_element(element)); });
    return adopt(std::move(elements));
  }

  /// Integers as long as every number is one, then all of them as Doubles.
  AttributeValue read_numbers(const ValuePtr& array, ValuePtr first) {
    auto integers = std::make_unique<Elements<long long>>();
    std::unique_ptr<Elements<double>> doubles;
    bool lossy = false;  // an Integer read exactly that no double holds
    for_each_element(array, std::move(first), [&](const ValuePtr& element) {
      std::optional<long long> i = literal(*element);
      const double d = i ? static_cast<double>(*i) : element->as_double();
      lossy = lossy || (i && !held_by_double(*i));
      if (!i) i = integral(d);
      if (!i && !doubles) {
        doubles = std::make_unique<Elements<double>>();
        for (const long long before : integers->elements()) {
          doubles->push_back(static_cast<double>(before));
        }
      }
      if (doubles && lossy) {
        raise("Array holds a fraction and an integer that no Double can hold.", array_function);
      }
      if (doubles) {
        doubles->push_back(d);
      } else {
        integers->push_back(*i);
      }
    });
    return doubles ? adopt(std::move(doubles)) : adopt(std::move(integers));
  }

  template <class T>
  static AttributeValue adopt(std::unique_ptr<Elements<T>> elements) {
    elements->trim();
    return impl::ValueAccess::adopt(elements.release());
  }

  static constexpr const char* array_function = "ovattribute::impl::read_json_array()";

  ovjson::Reader& m_reader;
  const JsonReadOptions m_options;
};

}  // namespace

AttributeValue read_attribute_value(ovjson::Reader& reader, const JsonReadOptions& options) {
  return JsonReading(reader, options).read_root();
}

void read_attribute_value(ovjson::Reader& reader, AttributeValue& value,
                          const JsonReadOptions& options) {
  AttributeValue result = read_attribute_value(reader, options);
  value.swap(result);
}

}  // namespace ovattribute
