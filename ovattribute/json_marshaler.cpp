// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/json_marshaler.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/impl/json_serialized.h"
#include "ovattribute/impl/map_access.h"
#include "ovattribute/impl/nested_value.h"
#include "ovattribute/impl/string_maker.h"
#include "ovattribute/impl/text_order.h"
#include "ovattribute/nesting.h"
#include "ovcore/exception.h"
#include "ovcore/impl/at_load.h"
#include "ovcore/static_instance.h"
#include "ovcore/to_string.h"
#include "ovcore/utf8.h"
#include "ovjson/error_codes.h"
#include "ovjson/impl/item_walk.h"
#include "ovjson/impl/number.h"
#include "ovjson/reader.h"
#include "ovjson/writer.h"

namespace ovattribute {
namespace {

using impl::ValueBase;
using Kind = ovjson::Reader::Kind;
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

/// Reads the reader's current value. What is read next is the item of the walk.
class JsonReading {
 public:
  JsonReading(ovjson::Reader& reader, const JsonReadOptions& options) noexcept
      : m_reader(reader), m_options(options), m_walk(reader) {}

  AttributeValue read() { return impl::ValueAccess::adopt(read_storage()); }

 private:
  // The elements of an array mostly have about as many members as the one before.
  static constexpr std::size_t default_room = AttributeMapBase::Map::default_room;
  static constexpr std::size_t most_room = 16;

  [[noreturn]] void raise(ovcore::SourceString message,
                          std::initializer_list<ovcore::ErrorInfo::Parameter> parameters = {},
                          const char* function = "ovattribute::impl::read_json_array()") {
    m_walk.make_current();
    m_reader.raise_error(ovjson::error::ovjson_reader, message, parameters,
                         {"ovattribute/json_marshaler", function, 0});
  }

  ValueBase* read_storage() {
    const Kind kind = m_walk.kind();
    if (kind == Kind::object) return read_object();
    return kind == Kind::array ? read_array() : read_flat();
  }

  [[gnu::noinline]] ValueBase* read_flat() {
    switch (m_walk.kind()) {
      case Kind::boolean:
        return storage_of(m_walk.boolean());
      case Kind::number:
        return read_number();
      case Kind::string:
        return read_string();
      default:
        return impl::null_storage();
    }
  }

  ValueBase* read_string() {
    std::string_view text;
    return m_walk.take_plain_text(text) ? m_strings.make_or_share(text)
                                        : m_strings.make(m_walk.take_text());
  }

  std::string read_element() {
    std::string_view text;
    return m_walk.take_plain_text(text) ? std::string(text) : m_walk.take_text();
  }

  /// The number as Integer when it is written as one: in the exact mode, or where a double says the
  /// same.
  std::optional<long long> literal() const {
    const auto exact = ovjson::impl::number_as_integer(m_walk.number_text());
    if (exact && (m_options.exact_integers || held_by_double(*exact))) return *exact;
    return std::nullopt;
  }

  double as_double() {
    const std::optional<double> d = ovjson::impl::number_as_double(m_walk.number_text());
    return d ? *d : m_walk.make_current()->as_double();  // which raises the reader's error
  }

  /// The double that stands for a number that is no `literal`.
  double as_rounded() {
    const double d = as_double();
    if (m_options.exact_integers && std::abs(d) >= two_to_63) check_digits(d);
    return d;
  }

  /// In the exact mode an integer literal beyond 64 bits must be what the double holds, digit by
  /// digit.
  void check_digits(double d) {
    const std::string_view number = m_walk.number_text();
    if (number.find_first_of(".eE") != std::string_view::npos) return;
    char digits[std::numeric_limits<double>::max_exponent10 + 2];  // and the sign
    const auto end = std::to_chars(digits, std::end(digits), d, std::chars_format::fixed, 0).ptr;
    if (number == std::string_view(digits, end)) return;
    raise("Integer {@number} fits neither 64 bits nor a Double exactly",
          {{"number", std::string(number)}}, "ovattribute::impl::read_json_number()");
  }

  ValueBase* read_number() {
    if (const auto exact = literal()) return storage_of(*exact);
    const double d = as_rounded();
    if (const auto i = integral(d)) return storage_of(*i);
    return storage_of(d);
  }

  // Maps within maps recurse over `read_members` and one of the other two, whose frames are all
  // that a level takes of the stack: what needs more of it stands in functions that are not
  // inlined, and those between end in a jump to the next. The caller gets a reference to what they
  // return.
  [[gnu::noinline]] ValueBase* read_object() {
    const std::size_t depth = m_walk.depth();
    if (!m_walk.next()) return storage_of(no_members());
    if (m_walk.name().value() == serialized_name) return read_lossless(depth);
    return storage_of(read_members(default_room));
  }

  [[gnu::noinline]] ValueBase* read_objects() {
    auto elements = std::make_unique<Elements<AttributeMap>>();
    std::size_t room = default_room;
    do {
      check_element(Kind::object);
      elements->push_back(m_walk.next() ? read_members(room) : no_members());
      room = std::min(elements->end()[-1].size() + 1, most_room);
    } while (m_walk.next());
    return finish(std::move(elements));
  }

  /// From the first member on; `room` is for so many.
  [[gnu::noinline]] AttributeMap read_members(std::size_t room) {
    enter_map();
    auto holder = AttributeMapBase::MapHolder::make(room);
    do {
      AttributeName name(m_walk.name());
      if (m_options.refuse_repeated_names && holder->map.count(name) > 0) refuse_repeated(name);
      AttributeValue value = read();
      set(holder->map, name, value);
    } while (m_walk.next());
    --m_level;
    impl::MapAccess::trim(holder);
    return impl::MapAccess::adopt(std::move(holder));
  }

  AttributeMap no_members() {
    enter_map();
    --m_level;
    return {};
  }

  [[gnu::noinline]] ValueBase* read_lossless(std::size_t depth) {
    AttributeValue result =
        impl::read_serialized_attribute_value(m_reader, m_walk.make_current(), m_level);
    m_walk.leave(depth);
    return impl::ValueAccess::release(result);
  }

  [[gnu::noinline]] static void set(AttributeMapBase::Map& map, AttributeName& name,
                                    AttributeValue& value) {
    map.set(std::move(name), value);
  }

  void enter_map() {
    if (++m_level > m_limit) refuse_level();
  }

  [[noreturn, gnu::noinline]] void refuse_level() {
    m_walk.make_current();
    m_reader.raise_error(
        ovjson::error::ovjson_reader, "Maps nest deeper than {@limit}",
        {{"limit", ovcore::to_string(m_limit)}},
        {"ovattribute/json_marshaler", "ovattribute::impl::read_json_object()", 0});
  }

  [[noreturn, gnu::noinline]] void refuse_repeated(const AttributeName& name) {
    m_walk.make_current();
    m_reader.raise_error_at(
        m_walk.name_position(), ovjson::error::ovjson_reader, "Repeated member name '{@name}'",
        {{"name", name.value()}},
        {"ovattribute/json_marshaler", "ovattribute::impl::read_json_object()", 0});
  }

  [[gnu::noinline]] ValueBase* read_array() {
    if (!m_walk.next()) return impl::ValueFactory<std::string>::create_value();
    return m_walk.kind() == Kind::object ? read_objects() : read_flat_array();
  }

  [[gnu::noinline]] ValueBase* read_flat_array() {
    switch (m_walk.kind()) {
      case Kind::boolean:
        return read_elements<bool>([this] { return m_walk.boolean(); });
      case Kind::string:
        return read_elements<std::string>([this] { return read_element(); });
      case Kind::number:
        return read_numbers();
      case Kind::array:
        raise("Array of Array elements not supported.");
      default:
        raise("Array of null elements not supported.");
    }
  }

  /// From the first element on.
  template <class F>
  void for_each_element(F&& f) {
    const Kind expected = m_walk.kind();
    do {
      check_element(expected);
      f();
    } while (m_walk.next());
  }

  void check_element(Kind expected) {
    if (m_walk.kind() != expected) refuse_element(expected);
  }

  [[noreturn, gnu::noinline]] void refuse_element(Kind expected) {
    raise("All array elements must be of same type.  Expecting '{@expected}' found '{@actual}'.",
          {{"expected", ovjson::Reader::kind_name(expected)},
           {"actual", ovjson::Reader::kind_name(m_walk.kind())}});
  }

  template <class T, class F>
  ValueBase* read_elements(F&& read_element) {
    auto elements = std::make_unique<Elements<T>>();
    for_each_element([&] { elements->push_back(read_element()); });
    return finish(std::move(elements));
  }

  /// Integers as long as every number is one, then all of them as Doubles.
  ValueBase* read_numbers() {
    auto integers = std::make_unique<Elements<long long>>();
    std::unique_ptr<Elements<double>> doubles;
    std::vector<std::size_t> minus_zeros;  // places of those among the integers
    bool lossy = false;                    // an Integer read exactly that no double holds
    for_each_element([&] {
      std::optional<long long> i = literal();
      const double d = !i ? as_rounded() : *i != 0 ? static_cast<double>(*i) : as_double();
      lossy = lossy || (i && !held_by_double(*i));
      if (!i) i = integral(d);
      if (!i && !doubles) doubles = as_doubles(*integers, minus_zeros);
      if (doubles && lossy) {
        raise("Array holds a fraction and an integer that no Double can hold.");
      }
      if (doubles) {
        doubles->push_back(d);
        return;
      }
      if (d == 0 && std::signbit(d)) minus_zeros.push_back(integers->size());
      integers->push_back(*i);
    });
    return doubles ? finish(std::move(doubles)) : finish(std::move(integers));
  }

  static std::unique_ptr<Elements<double>> as_doubles(const Elements<long long>& integers,
                                                      const std::vector<std::size_t>& minus_zeros) {
    auto doubles = std::make_unique<Elements<double>>();
    auto minus_zero = minus_zeros.begin();
    for (const long long integer : integers.elements()) {
      const bool is_minus_zero = minus_zero != minus_zeros.end() && *minus_zero == doubles->size();
      if (is_minus_zero) ++minus_zero;
      doubles->push_back(is_minus_zero ? -0.0 : static_cast<double>(integer));
    }
    return doubles;
  }

  template <class T>
  static ValueBase* finish(std::unique_ptr<Elements<T>> elements) {
    elements->trim();
    return elements.release();
  }

  template <class T>
  static ValueBase* storage_of(T element) {
    return impl::ValueFactory<T>::create_value(std::move(element));
  }

  ovjson::Reader& m_reader;
  const JsonReadOptions m_options;
  ovjson::impl::ItemWalk m_walk;
  impl::StringMaker m_strings;
  std::size_t m_level = 0;  // maps that are being read
  const std::size_t m_limit = nesting_limit();
};

// The integers that every JSON reader holds exactly: those of a double.
constexpr long long exact_limit = 1LL << 53;

const AttributeName& serialized_member() {
  static const ovcore::StaticInstance<AttributeName> name(serialized_name);
  return *name;
}

[[maybe_unused]] const bool g_json_ready = ovcore::impl::at_load([] { serialized_member(); });

class JsonWriting {
 public:
  JsonWriting(ovjson::Writer& writer, const JsonWriteOptions& options) noexcept
      : m_writer(writer), m_options(options) {}

  void write(const AttributeValue& value) {
    const bool maps = value.type().id() == ValueTypeId::idAttributeMap;
    maps ? write_maps(value) : write_flat(value);
  }

 private:
  // Recurses over `write`. Its frame is all that a level of maps takes of the stack, so what needs
  // more of it stands in functions that are not inlined.
  [[gnu::noinline]] void write_maps(const AttributeValue& value) {
    const auto maps = value.elements<AttributeMap>();
    if (maps.empty() || has_unreadable_name(maps)) return write_serialized(value);
    if (maps.size() != 1) m_writer.begin_array();
    for (const AttributeMap& map : maps) {
      begin_map();
      impl::EntryWalk walk(map, m_options.order_names_by_text);
      while (const AttributeMap::value_type* entry = walk.next()) {
        m_writer.member_name(entry->first.value());
        write(entry->second);
      }
      m_writer.end_object();
      --m_level;
    }
    if (maps.size() != 1) m_writer.end_array();
  }

  void begin_map() {
    if (++m_level > m_limit) impl::throw_writing_too_deep(m_limit);
    m_writer.begin_object();
  }

  [[gnu::noinline]] void write_flat(const AttributeValue& value) {
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
        write_strings(value, value.elements<std::string>());
        break;
      default:
        write_serialized(value);
    }
  }

  [[gnu::noinline]] void write_serialized(const AttributeValue& value) {
    impl::write_serialized_attribute_value(m_writer, value, m_level);
  }

  bool has_inexact(std::span<const long long> elements) const {
    return !m_options.exact_integers && std::ranges::any_of(elements, [](long long i) {
      return i < -exact_limit || i > exact_limit;
    });
  }

  /// JSON is UTF-8, a String may hold any bytes.
  [[gnu::noinline]] void write_strings(const AttributeValue& value,
                                       std::span<const std::string> elements) {
    if (elements.size() != 1) {
      const bool utf8 = std::ranges::all_of(
          elements, [](const std::string& text) { return ovcore::is_utf8(text); });
      return write_elements(value, elements, !utf8);
    }
    // The writer checks the bytes in any case, and writes a string whole or not at all.
    try {
      write_element(elements.front());
    } catch (const ovcore::Exception& e) {
      if (e.info()->code() != ovjson::error::ovjson_writer_unexpected_character) throw;
      write_serialized(value);
    }
  }

  /// A name that JSON cannot hold, that the reader would refuse, or take for the lossless form.
  [[gnu::noinline]] static bool has_unreadable_name(std::span<const AttributeMap> maps) {
    const AttributeName& serialized = serialized_member();
    return std::ranges::any_of(maps, [&serialized](const AttributeMap& map) {
      return std::ranges::any_of(map, [&serialized](const AttributeMap::value_type& entry) {
        const AttributeName& name = entry.first;
        return name.empty() || name == serialized || !ovcore::is_utf8(name.value());
      });
    });
  }

  template <class T>
  void write_elements(const AttributeValue& value, std::span<const T> elements, bool serialized) {
    if (serialized) return write_serialized(value);
    if (elements.size() == 1) return write_element(elements.front());
    m_writer.begin_array();
    for (const T& element : elements)
      write_element(element);
    m_writer.end_array();
  }

  void write_element(bool element) { m_writer.boolean_value(element); }
  void write_element(long long element) { m_writer.integer_value(std::int64_t{element}); }
  void write_element(const std::string& element) { m_writer.string_value(element); }
  ovjson::Writer& m_writer;
  const JsonWriteOptions m_options;
  std::size_t m_level = 0;  // maps that are being written
  const std::size_t m_limit = nesting_limit();
};

}  // namespace

AttributeValue read_attribute_value(ovjson::Reader& reader, const JsonReadOptions& options) {
  ovjson::Reader::ValuePtr value = reader.current_value();
  if (value && value->kind() == Kind::root) value = reader.next_value();
  if (!value) {
    reader.raise_error(ovjson::error::ovjson_reader, "Expecting JSON value", {},
                       {"ovattribute/json_marshaler", "read_attribute_value()", 0});
  }
  if (value->kind() == Kind::string) return value->take_string();  // some may have been read
  return JsonReading(reader, options).read();
}

void read_attribute_value(ovjson::Reader& reader, AttributeValue& value,
                          const JsonReadOptions& options) {
  AttributeValue result = read_attribute_value(reader, options);
  value.swap(result);
}

void write_attribute_value(ovjson::Writer& writer, const AttributeValue& value,
                           const JsonWriteOptions& options) {
  ovjson::Savepoint whole(writer);
  JsonWriting(writer, options).write(value);
  whole.commit();
}

AttributeValue parse_json(ovcore::SourceString text, const JsonReadOptions& options) {
  ovcore::MemoryReadStream source(text);
  // A buffer that takes the whole text, unless it is long.
  const ovjson::ReaderOptions whole{
      .buffer_size = std::clamp<std::size_t>(text.size(), 1, ovjson::ReaderOptions().buffer_size)};
  ovjson::Reader reader(source, {}, whole);
  AttributeValue value = read_attribute_value(reader, options);
  static_cast<void>(reader.next_value());  // raises when anything follows
  return value;
}

std::string to_json(const AttributeValue& value, const JsonWriteOptions& options) {
  std::string text;
  ovcore::StringWriteStream target(text);
  ovjson::TextWriter writer(target);
  write_attribute_value(writer, value, options);
  writer.close();
  return text;
}

}  // namespace ovattribute
