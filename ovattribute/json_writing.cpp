// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/impl/json_serialized.h"
#include "ovattribute/impl/text_order.h"
#include "ovattribute/json_marshaler.h"
#include "ovcore/static_instance.h"
#include "ovjson/writer.h"

namespace ovattribute {
namespace {

// The integers that every JSON reader holds exactly: those of a double.
constexpr long long exact_limit = 1LL << 53;

const AttributeName& serialized_name() {
  static const ovcore::StaticInstance<AttributeName> name("ovserialize");
  return *name;
}

class JsonWriting {
 public:
  JsonWriting(ovjson::Writer& writer, const JsonWriteOptions& options) noexcept
      : m_writer(writer), m_options(options) {}

  void write(const AttributeValue& value) {
    switch (value.type().id()) {
      case ValueTypeId::idNull:
        m_writer.null_value();
        break;
      case ValueTypeId::idBoolean:
        write_elements(value, value.elements<bool>(), value.empty());
        break;
      case ValueTypeId::idInteger: {
        const auto elements = value.elements<long long>();
        write_elements(value, elements, elements.empty() || has_inexact(elements));
        break;
      }
      case ValueTypeId::idString:
        write_elements(value, value.elements<std::string>(), false);
        break;
      case ValueTypeId::idAttributeMap: {
        const auto elements = value.elements<AttributeMap>();
        write_elements(value, elements, elements.empty() || has_unreadable_name(elements));
        break;
      }
      default:
        impl::write_serialized_attribute_value(m_writer, value);
    }
  }

 private:
  bool has_inexact(std::span<const long long> elements) const {
    return !m_options.exact_integers && std::ranges::any_of(elements, [](long long i) {
      return i < -exact_limit || i > exact_limit;
    });
  }

  /// A name that the reader would refuse, or take for the lossless form.
  static bool has_unreadable_name(std::span<const AttributeMap> maps) {
    return std::ranges::any_of(maps, [](const AttributeMap& map) {
      // The empty name is the first of all.
      return map.exists(serialized_name()) || (!map.empty() && map.begin()->first.empty());
    });
  }

  template <class T>
  void write_elements(const AttributeValue& value, std::span<const T> elements, bool serialized) {
    if (serialized) return impl::write_serialized_attribute_value(m_writer, value);
    if (elements.size() == 1) return write_element(elements.front());
    m_writer.begin_array();
    for (const T& element : elements)
      write_element(element);
    m_writer.end_array();
  }

  void write_element(bool element) { m_writer.boolean_value(element); }
  void write_element(long long element) { m_writer.integer_value(std::int64_t{element}); }
  void write_element(const std::string& element) { m_writer.string_value(element); }
  void write_element(const AttributeMap& map) {
    m_writer.begin_object();
    impl::for_each_entry(map, m_options.order_names_by_text,
                         [this](const AttributeMap::value_type& entry) {
                           m_writer.member_name(entry.first.value());
                           write(entry.second);
                         });
    m_writer.end_object();
  }

  ovjson::Writer& m_writer;
  const JsonWriteOptions m_options;
};

}  // namespace

void write_attribute_value(ovjson::Writer& writer, const AttributeValue& value,
                           const JsonWriteOptions& options) {
  JsonWriting(writer, options).write(value);
}

}  // namespace ovattribute
