// SPDX-License-Identifier: Apache-2.0
// A typed value: one element, or a list of elements, of one of fifteen types.
#pragma once

#include <compare>
#include <concepts>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <limits>
#include <memory>
#include <ostream>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ovattribute/attribute_value_impl.h"
#include "ovattribute/attribute_value_type.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"
#include "ovcore/to_string.h"
#include "ovcore/transfer_source.h"

namespace ovattribute {

/// Integer types in the sense of numbers: neither Boolean nor characters, of at most 64 bits.
template <class I>
concept IntegerType = std::integral<I> && sizeof(I) <= sizeof(long long) &&
                      !std::same_as<I, bool> && !std::same_as<I, char> &&
                      !std::same_as<I, wchar_t> && !std::same_as<I, char8_t> &&
                      !std::same_as<I, char16_t> && !std::same_as<I, char32_t>;

namespace impl {

template <class C>
concept NotANumber = std::integral<C> && !std::same_as<C, bool> && !IntegerType<C>;

/// The type in which an element given as `T` is stored.
template <class T>
struct StoredAs {};
template <StoredType T>
struct StoredAs<T> {
  using Type = T;
};
template <IntegerType I>
requires(!StoredType<I>) struct StoredAs<I> {
  using Type = long long;
};
template <>
struct StoredAs<float> {
  using Type = double;
};
template <>
struct StoredAs<const char*> {
  using Type = std::string;
};
template <>
struct StoredAs<std::string_view> {
  using Type = std::string;
};
template <>
struct StoredAs<ovcore::SourceString> {
  using Type = std::string;
};
template <class T>
using StoredAsType = typename StoredAs<T>::Type;

template <class T>
concept ElementType = requires {
  typename StoredAs<T>::Type;
};

[[noreturn]] OV_EXPORT void throw_integer_conversion(std::string_view value);

/// Integers that do not fit raise `ovattribute_value_conversion_data`.
template <IntegerType I>
constexpr long long to_integer(I value) {
  if constexpr (std::unsigned_integral<I> && sizeof(I) >= sizeof(long long)) {
    if (value > static_cast<I>(std::numeric_limits<long long>::max())) {
      throw_integer_conversion(ovcore::NumberText(value).view());
    }
  }
  return static_cast<long long>(value);
}

/// The one pointer of an `AttributeValue`, never null.
class ValueHolder {
 public:
  explicit constexpr ValueHolder(ValueBase* storage) noexcept : m_storage(storage) {}
  ValueHolder(const ValueHolder&) = delete;
  ValueHolder& operator=(const ValueHolder&) = delete;
  ~ValueHolder() { m_storage->release(); }

  [[nodiscard]] ValueBase* get() const noexcept { return m_storage; }
  ValueBase* operator->() const noexcept { return m_storage; }
  /// Takes over a reference and releases the one held.
  void attach(ValueBase* storage) noexcept { std::exchange(m_storage, storage)->release(); }
  /// Hands the reference out; what is left is Null.
  [[nodiscard]] ValueBase* detach() noexcept { return std::exchange(m_storage, null_storage()); }
  void swap(ValueHolder& other) noexcept { std::swap(m_storage, other.m_storage); }

 private:
  ValueBase* m_storage;
};

struct ValueAttachTag {};

}  // namespace impl

/// A handle of one pointer. Scalars of the small types are copied with it, the most common Booleans
/// and Integers (-1 to 7) and empty lists are constants that cost nothing, everything else is
/// shared by an atomic count and copied before its first change. One handle is used by one thread
/// at a time; storage is shared between threads freely.
///
/// Element types `T` below are those of the table (`impl::StoredType`): `bool`, `long long`,
/// `std::string`, `double`, `Uuid`, `UriReference`, `AbsoluteTime`, `RelativeTime`,
/// `SimpleDateTime`, `BinaryValue`, `SerializedValue`, `AttributeMap`, `SecuredValue` and
/// `RefCountPtr<const ErrorInfo>`. Where an element is given, every integer type, `float` and every
/// text type is taken too. Access as another type than the stored one raises
/// `ovattribute_value_type_mismatch`. After an error the value is as it was.
class OV_EXPORT AttributeValue {
 public:
  /// The Null value, for whoever needs one to refer to.
  static const AttributeValue null;

  /// Null.
  constexpr AttributeValue() noexcept : m_holder(impl::null_storage()) {}
  explicit constexpr AttributeValue(impl::NullValueType) noexcept : AttributeValue() {}
  /// The empty value of a type.
  explicit AttributeValue(const ValueTypeId& type);
  AttributeValue(std::same_as<bool> auto value)
      : m_holder(impl::ValueFactory<bool>::create_value(value)) {}
  /// Raises `ovattribute_value_conversion_data` beyond 2^63 - 1.
  template <IntegerType I>
  AttributeValue(I value)
      : m_holder(impl::ValueFactory<long long>::create_value(impl::to_integer(value))) {}
  AttributeValue(double value) : m_holder(impl::ValueFactory<double>::create_value(value)) {}
  AttributeValue(float value) : AttributeValue(double{value}) {}
  AttributeValue(const std::string& text) : AttributeValue(std::string_view(text)) {}
  AttributeValue(std::string&& text);
  AttributeValue(const char* text);
  AttributeValue(const char* text, std::size_t size);
  AttributeValue(std::string_view text);
  AttributeValue(ovcore::SourceString text) : AttributeValue(text.view()) {}
  AttributeValue(const ovcore::Uuid& value);
  AttributeValue(const ovuri::UriReference& value);
  AttributeValue(const ovcore::AbsoluteTime& value);
  AttributeValue(const ovcore::RelativeTime& value);
  AttributeValue(const ovcore::SimpleDateTime& value);
  AttributeValue(BinaryValue value);
  AttributeValue(SerializedValue value);
  AttributeValue(AttributeMap value);
  AttributeValue(MutableAttributeMap value);
  AttributeValue(SecuredValue value);
  AttributeValue(impl::ErrorInfoPtr value);
  /// Characters and pointers are neither integers nor truth values, and 128 bits do not fit.
  AttributeValue(std::nullptr_t) = delete;
  AttributeValue(const void*) = delete;
  template <impl::NotANumber C>
  AttributeValue(C) = delete;

  /// A list: `AttributeValue{1, 2, 3}`, `AttributeValue{"a", "b"}`. One element makes a list of
  /// one.
  template <impl::ElementType T>
  AttributeValue(std::initializer_list<T> elements) : AttributeValue(list_of(elements)) {}
  /// A list of the elements of a range, also when it has one or none; the type is the range's.
  template <std::ranges::input_range R>
  requires impl::ElementType<std::ranges::range_value_t<R>>
  [[nodiscard]] static AttributeValue list_of(R&& range);

  AttributeValue(const AttributeValue& other) : m_holder(other.m_holder->clone()) {}
  /// Leaves the source Null.
  AttributeValue(AttributeValue&& other) noexcept : m_holder(other.m_holder.detach()) {}
  AttributeValue(ovcore::TransferSource<AttributeValue> other) noexcept
      : AttributeValue(other.take()) {}
  AttributeValue& operator=(const AttributeValue& other) {
    if (m_holder.get() != other.m_holder.get()) m_holder.attach(other.m_holder->clone());
    return *this;
  }
  AttributeValue& operator=(AttributeValue&& other) noexcept {
    if (this != &other) m_holder.attach(other.m_holder.detach());
    return *this;
  }
  ~AttributeValue() = default;

  [[nodiscard]] const ValueTypeId& type() const noexcept { return m_holder->type(); }
  [[nodiscard]] bool is_null() const noexcept { return type().id() == ValueTypeId::idNull; }
  /// The number of elements: 1 for a scalar, 0 for Null.
  [[nodiscard]] std::size_t size() const noexcept { return m_holder->size(); }
  [[nodiscard]] bool empty() const noexcept { return m_holder->empty(); }
  /// More than one element.
  [[nodiscard]] bool is_multivalue() const noexcept { return size() > 1; }

  /// Raises `ovattribute_value_type_mismatch` unless the types are equal.
  void throw_if_not_type(const ValueTypeId& expected) const {
    if (type().id() != expected.id()) raise_type_error(expected);
  }
  /// The one element. Raises `ovattribute_value_cardinality_expectNonzero` when there is none,
  /// `ovattribute_value_cardinality_expectSingle` when there are more.
  template <impl::StoredType T>
  [[nodiscard]] const T& get() const {
    const impl::TypedValue<T>& storage = typed<T>();
    if (storage.elements().size() != 1) [[unlikely]] {
      if (storage.elements().empty()) impl::throw_array_empty_error();
      impl::throw_get_on_multi_value_attribute();
    }
    return *storage.begin();
  }
  /// The one Integer as another integer type. Raises `ovattribute_value_conversion_data` too, when
  /// the number does not fit.
  template <IntegerType I>
  requires(!impl::StoredType<I>) [[nodiscard]] I get() const {
    const long long value = get<long long>();
    if (!std::in_range<I>(value)) {
      impl::throw_integer_conversion(ovcore::NumberText(value).view());
    }
    return static_cast<I>(value);
  }
  /// The element at an index. Raises `std::out_of_range`.
  template <impl::StoredType T>
  [[nodiscard]] const T& at(std::size_t index) const {
    return typed<T>().at(index);
  }
  /// All elements; valid until the value is changed or gone.
  template <impl::StoredType T>
  [[nodiscard]] std::span<const T> elements() const {
    return typed<T>().elements();
  }

  /// Make the value one element of the type given.
  template <impl::ElementType T>
  void set(const T& element) {
    set_element<impl::StoredAsType<T>>(stored(element));
  }
  void set(const char* text) { set_string(text); }
  void set(std::nullptr_t) = delete;
  void set_string(const std::string& text) { set_element<std::string>(text); }
  void set_string(const char* text) { set_string(std::string(ovcore::SourceString(text).view())); }
  void set_string(const char* text, std::size_t size) { set_string(std::string(text, size)); }
  void set_null() noexcept { m_holder.attach(impl::null_storage()); }
  /// Adds an element at the end. The value has the element's type already, if only as an empty
  /// list.
  template <impl::ElementType T>
  void append(T element) {
    append_element<impl::StoredAsType<T>>(stored(std::move(element)));
  }
  void append(const char* text) { append(std::string(ovcore::SourceString(text).view())); }
  void append(std::nullptr_t) = delete;
  /// Removes all elements and keeps the type.
  void clear() { m_holder->clear(*this); }
  void swap(AttributeValue& other) noexcept { m_holder.swap(other.m_holder); }
  friend void swap(AttributeValue& a, AttributeValue& b) noexcept { a.swap(b); }
  [[nodiscard]] ovcore::TransferSource<AttributeValue> transfer() noexcept {
    return ovcore::TransferSource<AttributeValue>(*this);
  }

  /// The elements from `first` on, or `count` of them. The whole shares the storage. Raises
  /// `std::out_of_range`.
  [[nodiscard]] AttributeValue subrange(std::size_t first) const {
    return AttributeValue(m_holder->subrange(first), impl::ValueAttachTag());
  }
  [[nodiscard]] AttributeValue subrange(std::size_t first, std::size_t count) const {
    return AttributeValue(m_holder->subrange(first, count), impl::ValueAttachTag());
  }

  /// By type number, then element by element; a prefix sorts first. Negative, 0 or positive. A NaN
  /// is ordered as equal to every Double.
  [[nodiscard]] int compare(const AttributeValue& other) const {
    return m_holder->compare(*other.m_holder.get());
  }
  /// `compare` with ASCII letters of either case taken as equal, when both values are Strings.
  [[nodiscard]] int compare_nocase_ascii(const AttributeValue& other) const;
  /// Of the elements in order, h = h * 5 + element hash; the type takes no part. Unlike `std::hash`
  /// it tells 0.0 from -0.0. The hash of names differs from process to process.
  [[nodiscard]] std::size_t hash() const { return m_holder->hash(); }

  /// Equal types and elements. A NaN equals nothing, itself included.
  friend bool operator==(const AttributeValue& a, const AttributeValue& b) {
    return a.m_holder->equal(*b.m_holder.get());
  }
  friend bool operator<(const AttributeValue& a, const AttributeValue& b) {
    return a.compare(b) < 0;
  }
  friend bool operator<=(const AttributeValue& a, const AttributeValue& b) {
    return a.compare(b) <= 0;
  }
  friend bool operator>(const AttributeValue& a, const AttributeValue& b) {
    return a.compare(b) > 0;
  }
  friend bool operator>=(const AttributeValue& a, const AttributeValue& b) {
    return a.compare(b) >= 0;
  }

  void write_trace(std::ostream& out, const TraceFormatter& formatter, unsigned level) const {
    m_holder->write_trace(out, formatter, level);
  }

 private:
  friend class impl::ValueBase;
  friend struct impl::ValueAccess;

  AttributeValue(impl::ValueBase* storage, impl::ValueAttachTag) noexcept : m_holder(storage) {}

  [[noreturn]] void raise_type_error(const ValueTypeId& expected) const;

  template <class T>
  const impl::TypedValue<T>& typed() const {
    if (type().id() != impl::ValueTypeTraits<T>::id) [[unlikely]] {
      raise_type_error(impl::ValueTypeTraits<T>::type());
    }
    return static_cast<const impl::TypedValue<T>&>(*m_holder.get());
  }

  template <class T>
  static decltype(auto) stored(T&& element) {
    using Plain = std::remove_cvref_t<T>;
    if constexpr (impl::StoredType<Plain>) {
      return std::forward<T>(element);
    } else if constexpr (IntegerType<Plain>) {
      return impl::to_integer(element);
    } else if constexpr (std::floating_point<Plain>) {
      return double{element};
    } else {
      return std::string(ovcore::SourceString(element).view());
    }
  }

  template <class T>
  void set_element(typename impl::TypedValue<T>::AssignArg element) {
    if (type().id() == impl::ValueTypeTraits<T>::id) {
      static_cast<impl::TypedValue<T>&>(*m_holder.get()).assign(element, *this);
    } else {
      m_holder.attach(impl::ValueFactory<T>::create_value(element));
    }
  }

  template <class T>
  void append_element(T element) {
    static_cast<void>(typed<T>());
    if constexpr (!std::same_as<T, impl::NullValueType>) {
      m_holder->make_growable(*this);
      m_holder->make_unique(*this);
      static_cast<impl::RefCountedValueImpl<T>&>(*m_holder.get()).push_back(std::move(element));
    }
  }

  impl::ValueHolder m_holder;
};

namespace impl {

/// Unlike `hash`, agrees with `==`.
[[nodiscard]] OV_EXPORT std::size_t equality_hash(const AttributeValue& value);

/// For readers, which build storage themselves, and for maps.
struct ValueAccess {
  /// Takes over a reference.
  static AttributeValue adopt(ValueBase* storage) noexcept { return {storage, ValueAttachTag()}; }
  static const ValueBase& storage(const AttributeValue& value) noexcept {
    return *value.m_holder.get();
  }
  /// Hands the reference out to the caller and leaves Null.
  static ValueBase* release(AttributeValue& value) noexcept { return value.m_holder.detach(); }
  /// Begins to load the storage, which is needed soon.
  static void prefetch(const AttributeValue& value) noexcept {
    __builtin_prefetch(value.m_holder.get());
  }
};

}  // namespace impl

/// Writes the trace text with the default formatter at level 0.
OV_EXPORT std::ostream& operator<<(std::ostream& out, const AttributeValue& value);
/// What GoogleTest prints in its messages: the trace text, hardly cut, maps in the order of their
/// names' texts. As it finds the function by its name, there is nothing to include or to call.
OV_EXPORT void PrintTo(const AttributeValue& value, std::ostream* out);

template <std::ranges::input_range R>
requires impl::ElementType<std::ranges::range_value_t<R>> AttributeValue
AttributeValue::list_of(R&& range) {
  using T = impl::StoredAsType<std::ranges::range_value_t<R>>;
  AttributeValue result{impl::ValueTypeTraits<T>::type()};
  if constexpr (!std::same_as<T, impl::NullValueType>) {
    auto storage = std::make_unique<impl::RefCountedValueImpl<T>>();
    if constexpr (std::ranges::sized_range<R>) storage->reserve(std::ranges::size(range));
    for (auto&& element : range) {
      storage->push_back(stored(std::ranges::range_value_t<R>(element)));
    }
    if (storage->begin() != storage->end()) result.m_holder.attach(storage.release());
  }
  return result;
}

}  // namespace ovattribute

template <>
struct std::hash<ovattribute::AttributeValue> {
  std::size_t operator()(const ovattribute::AttributeValue& value) const {
    return ovattribute::impl::equality_hash(value);
  }
};
