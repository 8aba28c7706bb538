// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_value_impl.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <iterator>
#include <limits>
#include <new>
#include <stdexcept>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/impl/map_step.h"
#include "ovattribute/impl/string_maker.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/exception.h"
#include "ovcore/impl/at_load.h"
#include "ovcore/impl/small_memory.h"
#include "ovcore/simple_date_time.h"
#include "ovcore/static_instance.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovuri/uri_reference.h"

namespace ovattribute::impl {
namespace {

template <class T>
constexpr bool has_constants = std::same_as<T, bool> || std::same_as<T, long long>;

template <class T>
constinit NeverDestroyed<EmptySingleton<T>> g_empty;

constinit NeverDestroyed<SingleValueSingleton<bool>> g_false(false);
constinit NeverDestroyed<SingleValueSingleton<bool>> g_true(true);

template <long long N>
constinit NeverDestroyed<SingleValueSingleton<long long>> g_integer(N);

// Ascending, without a gap.
constexpr ValueBase* integer_constants[] = {
    &g_integer<-1>.value, &g_integer<0>.value, &g_integer<1>.value,
    &g_integer<2>.value,  &g_integer<3>.value, &g_integer<4>.value,
    &g_integer<5>.value,  &g_integer<6>.value, &g_integer<7>.value};

// Shared by all empty values of a type without constants; the static reference keeps it.
template <class T>
RefCountedValueImpl<T>& shared_empty() {
  static ovcore::StaticInstance<RefCountedValueImpl<T>> empty;
  return *empty;
}

template <class T>
bool remembers(const TypedValue<T>& value) noexcept {
  if constexpr (!std::same_as<T, AttributeMap>) return false;
  // A single map, the common case, lies right behind the base.
  const bool is_single = value.begin() == reinterpret_cast<const T*>(&value + 1);
  return !is_single && MapStep::remembers(value);
}

RefCountedValueImpl<std::string>& shared_empty_string() {
  static ovcore::StaticInstance<RefCountedValueImpl<std::string>> empty{std::string()};
  return *empty;
}

RefCountedValueImpl<BinaryValue>& shared_empty_block() {
  static ovcore::StaticInstance<RefCountedValueImpl<BinaryValue>> empty{BinaryValue()};
  return *empty;
}

}  // namespace

constinit NeverDestroyed<NullSingleton> g_null_storage;

void throw_get_on_multi_value_attribute() {
  ovcore::throw_error(error::ovattribute_value_cardinality_expectSingle,
                      "Attribute value 'get' invoked on multi-value attribute",
                      {"ovattribute/attribute_value_impl",
                       "ovattribute::impl::throw_get_on_multi_value_attribute()", 347});
}

void throw_array_empty_error() {
  ovcore::throw_error(
      error::ovattribute_value_cardinality_expectNonzero, "Expecting non-empty attribute value",
      {"ovattribute/attribute_value_impl", "ovattribute::impl::throw_array_empty_error()", 338});
}

void* ValueBase::operator new(std::size_t size) {
  return ovcore::impl::SmallMemory::take(size);
}

void ValueBase::operator delete(void* memory, std::size_t size) noexcept {
  ovcore::impl::SmallMemory::give(memory, size);
}

void ValueBase::replace(AttributeValue& owner, ValueBase* storage) noexcept {
  owner.m_holder.attach(storage);
}

void ValueBase::throw_at_range_error() {
  throw std::out_of_range("ovattribute::TypedValue<>::at");
}

void ValueBase::throw_subrange_range_error() {
  throw std::out_of_range("ovattribute::TypedValue<>::subrange");
}

template <class T>
const T& ValueTypeTraitsBase<T>::default_value() {
  static const DefaultHolder value;
  return *value;
}

std::size_t ValueTypeTraits<std::string>::hash(const std::string& a) {
  std::uint32_t h = 0;
  for (const char c : a)
    h = h * 5 + static_cast<std::uint32_t>(static_cast<signed char>(c));
  return h;
}

std::size_t ValueTypeTraits<double>::hash(double a) {
  return std::bit_cast<std::uint64_t>(a);
}

int ValueTypeTraits<BinaryValue>::compare(const BinaryValue& a, const BinaryValue& b) {
  return a.compare(b);
}

int ValueTypeTraits<SerializedValue>::compare(const SerializedValue& a, const SerializedValue& b) {
  return a.compare(b);
}

int ValueTypeTraits<AttributeMap>::compare(const AttributeMap& a, const AttributeMap& b) {
  return a.compare(b);
}

int ValueTypeTraits<SecuredValue>::compare(const SecuredValue& a, const SecuredValue& b) {
  return a.compare(b);
}

int ValueTypeTraits<ErrorInfoPtr>::compare(const ErrorInfoPtr& a, const ErrorInfoPtr& b) {
  if (a && b) return a->compare(*b);
  return int{static_cast<bool>(a)} - int{static_cast<bool>(b)};
}

bool ValueTypeTraits<ErrorInfoPtr>::equal(const ErrorInfoPtr& a, const ErrorInfoPtr& b) {
  return a == b || (a && b && *a == *b);
}

std::size_t ValueTypeTraits<ErrorInfoPtr>::hash(const ErrorInfoPtr& a) {
  return a ? a->hash() : 0;
}

template <class T>
ValueBase* TypedValue<T>::subrange(std::size_t first) {
  const std::size_t n = elements().size();
  if (first == 0) return this->clone();
  if (first > n) this->throw_subrange_range_error();
  return ValueFactory<T>::create_list(elements().subspan(first));
}

template <class T>
ValueBase* TypedValue<T>::subrange(std::size_t first, std::size_t count) {
  const std::size_t n = elements().size();
  if (first == 0 && count == n) return this->clone();
  if (first > n || count >= n || count > n - first) this->throw_subrange_range_error();
  return ValueFactory<T>::create_list(elements().subspan(first, count));
}

template <class T>
bool TypedValue<T>::equal(const ValueBase& other) const {
  if (other.type().id() != ValueTypeTraits<T>::id) return false;
  // A NaN is not equal to itself, all else is.
  if (!std::same_as<T, double> && &other == this) return true;
  const auto& typed = static_cast<const TypedValue&>(other);
  const bool remember = remembers(*this) || remembers(typed);
  if (remember && MapStep::find(this, &other) != nullptr) return true;
  const bool same =
      std::equal(m_begin, m_end, typed.m_begin, typed.m_end, ValueTypeTraits<T>::equal);
  if (remember && same) MapStep::remember(0, this, &other);
  return same;
}

template <class T>
int TypedValue<T>::compare(const ValueBase& other) const {
  if (&other == this) return 0;
  if (other.type().id() != ValueTypeTraits<T>::id) return this->type().compare(other.type());
  const auto& typed = static_cast<const TypedValue&>(other);
  const bool remember = remembers(*this) || remembers(typed);
  if (remember && MapStep::find(this, &other) != nullptr) return 0;
  const T* a = m_begin;
  const T* b = typed.m_begin;
  for (; a != m_end && b != typed.m_end; ++a, ++b) {
    const int order = ValueTypeTraits<T>::compare(*a, *b);
    if (order != 0) return order;
  }
  const int order = int{a != m_end} - int{b != typed.m_end};
  if (remember && order == 0) MapStep::remember(0, this, &other);
  return order;
}

template <class T>
bool TypedValue<T>::empty() const noexcept {
  return m_begin == m_end;
}

template <class T>
std::size_t TypedValue<T>::size() const noexcept {
  return static_cast<std::size_t>(m_end - m_begin);
}

template <class T>
std::size_t TypedValue<T>::hash() const {
  const bool remember = remembers(*this);
  if (remember) {
    if (const std::size_t* const known = MapStep::find(this)) return *known;
  }
  std::size_t h = 0;
  for (const T& element : elements())
    h = h * 5 + ValueTypeTraits<T>::hash(element);
  if (remember) MapStep::remember(h, this);
  return h;
}

template <class T>
void TypedValue<T>::write_trace(std::ostream& out, const TraceFormatter& formatter,
                                unsigned level) const {
  ValueTypeTraits<T>::write_trace(out, formatter, level, elements());
}

// Delegates first, so that the destructor runs when a copy fails.
template <class T>
RefCountedValueImpl<T>::RefCountedValueImpl(std::span<const T> elements) : RefCountedValueImpl() {
  reserve(elements.size());
  for (const T& element : elements) {
    std::construct_at(this->m_end, element);
    ++this->m_end;
  }
}

template <class T>
RefCountedValueImpl<T>::~RefCountedValueImpl() {
  remove_all();
  ::operator delete(outside());
}

template <class T>
void RefCountedValueImpl<T>::release() noexcept {
  if (m_refs.decrement()) destroy();
}

template <class T>
void RefCountedValueImpl<T>::destroy() noexcept {
  const std::size_t offset = m_refs.kept();
  if (offset == 0) {
    delete this;
    return;
  }
  this->~RefCountedValueImpl();
  StorageBlock::around(this, offset)->let_go(1);
}

template <class T>
ValueBase* RefCountedValueImpl<T>::clone() noexcept {
  m_refs.increment();
  return this;
}

template <class T>
void RefCountedValueImpl<T>::make_unique(AttributeValue& owner) {
  if (m_refs.has_unique_ref()) return;
  this->replace(owner, new RefCountedValueImpl(this->elements()));
}

template <class T>
void RefCountedValueImpl<T>::make_growable(AttributeValue&) {}

template <class T>
void RefCountedValueImpl<T>::clear(AttributeValue& owner) {
  if (m_refs.has_unique_ref()) {
    remove_all();
  } else {
    this->replace(owner, ValueFactory<T>::create_value());
  }
}

template <class T>
void RefCountedValueImpl<T>::assign(typename TypedValue<T>::AssignArg element,
                                    AttributeValue& owner) {
  if (!m_refs.has_unique_ref()) {
    this->replace(owner, ValueFactory<T>::create_value(element));
    return;
  }
  T copy(element);  // before anything goes: the element may be one of ours
  remove_all();
  push_back(std::move(copy));
}

template <class T>
void RefCountedValueImpl<T>::reserve(std::size_t wanted) {
  if (wanted > capacity()) relocate(wanted);
}

template <class T>
void RefCountedValueImpl<T>::push_back(T element) {
  const std::size_t room = capacity();
  if (this->elements().size() == room) relocate(std::max<std::size_t>(4, 2 * room));
  std::construct_at(this->m_end, std::move(element));
  ++this->m_end;
}

template <class T>
void RefCountedValueImpl<T>::trim() noexcept {
  const std::size_t size = this->elements().size();
  if (this->m_begin == local() || size == capacity()) return;
  try {
    relocate(size);
  } catch (const std::bad_alloc&) {
  }
}

template <class T>
void RefCountedValueImpl<T>::relocate(std::size_t wanted) {
  static_assert(std::is_nothrow_move_constructible_v<T> && alignof(T) <= sizeof(std::size_t));
  T* target = local();
  if (wanted > 1) {
    constexpr std::size_t most = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(T);
    if (wanted > most) throw std::bad_array_new_length();
    void* const memory = ::operator new(sizeof(std::size_t) + wanted * sizeof(T));
    target = reinterpret_cast<T*>(::new (memory) std::size_t(wanted) + 1);
  }
  T* const end = std::uninitialized_move(this->m_begin, this->m_end, target);
  std::destroy(this->m_begin, this->m_end);
  ::operator delete(outside());
  this->m_begin = target;
  this->m_end = end;
}

template <class T>
void RefCountedValueImpl<T>::remove_all() noexcept {
  std::destroy(this->m_begin, this->m_end);
  this->m_end = this->m_begin;
}

template <class T>
ValueBase* SingleValueImpl<T>::clone() {
  return this->empty() ? ValueFactory<T>::create_value() : ValueFactory<T>::create_value(*this);
}

template <class T>
void SingleValueImpl<T>::make_growable(AttributeValue& owner) {
  auto storage = std::make_unique<RefCountedValueImpl<T>>();
  if (!this->empty()) storage->push_back(std::move(m_element));
  this->replace(owner, storage.release());
}

template <class T>
void SingleValueImpl<T>::assign(typename TypedValue<T>::AssignArg element, AttributeValue&) {
  T copy(element);
  remove();
  std::construct_at(this->m_begin, std::move(copy));
  this->m_end = this->m_begin + 1;
}

template <class T>
void EmptySingleton<T>::make_unique(AttributeValue& owner) {
  this->replace(owner, new RefCountedValueImpl<T>());
}

template <class T>
void EmptySingleton<T>::make_growable(AttributeValue& owner) {
  make_unique(owner);
}

template <class T>
void EmptySingleton<T>::assign(typename TypedValue<T>::AssignArg element, AttributeValue& owner) {
  this->replace(owner, ValueFactory<T>::create_value(element));
}

template <class T>
void SingleValueSingleton<T>::make_unique(AttributeValue& owner) {
  this->replace(owner, new SingleValueImpl<T>(m_element));
}

template <class T>
void SingleValueSingleton<T>::make_growable(AttributeValue& owner) {
  this->replace(owner, new RefCountedValueImpl<T>(m_element));
}

template <class T>
void SingleValueSingleton<T>::clear(AttributeValue& owner) {
  this->replace(owner, ValueFactory<T>::create_value());
}

template <class T>
void SingleValueSingleton<T>::assign(typename TypedValue<T>::AssignArg element,
                                     AttributeValue& owner) {
  this->replace(owner, ValueFactory<T>::create_value(element));
}

template <class T>
ValueBase* ValueFactory<T>::create_value() {
  if constexpr (has_constants<T>) {
    return &g_empty<T>.value;
  } else {
    return shared_empty<T>().clone();
  }
}

template <class T>
ValueBase* ValueFactory<T>::create_value(T element) {
  if constexpr (std::same_as<T, bool>) {
    return element ? &g_true.value : &g_false.value;
  } else if constexpr (std::same_as<T, long long>) {
    if (element >= -1 && element <= 7) return integer_constants[element + 1];
    return new SingleValueImpl<T>(element);
  } else if constexpr (std::same_as<T, std::string>) {
    if (element.empty()) return shared_empty_string().clone();
    return new RefCountedValueImpl<T>(std::move(element));
  } else if constexpr (std::same_as<T, BinaryValue>) {
    if (element.empty()) return shared_empty_block().clone();
    return new RefCountedValueImpl<T>(std::move(element));
  } else if constexpr (ValueTypeTraits<T>::shared) {
    return new RefCountedValueImpl<T>(std::move(element));
  } else {
    return new SingleValueImpl<T>(std::move(element));
  }
}

ValueBase* create_string(std::string_view text) {
  if (text.empty()) return shared_empty_string().clone();
  return new RefCountedValueImpl<std::string>(std::in_place, text);
}

template <class T>
ValueBase* ValueFactory<T>::create_value(const SingleValueImpl<T>& other) {
  return create_value(*other.begin());
}

template <class T>
ValueBase* ValueFactory<T>::create_list(std::span<const T> elements) {
  if (elements.empty()) return create_value();
  return new RefCountedValueImpl<T>(elements);
}

template <>
OV_EXPORT ValueBase* ValueFactory<NullValueType>::create_value() {
  return null_storage();
}

template <>
OV_EXPORT ValueBase* ValueFactory<NullValueType>::create_value(NullValueType) {
  return null_storage();
}

template <>
OV_EXPORT ValueBase* ValueFactory<NullValueType>::create_list(std::span<const NullValueType>) {
  return null_storage();
}

template const NullValueType& ValueTypeTraitsBase<NullValueType>::default_value();
template class TypedValue<NullValueType>;
static_assert(sizeof(RefCountedValueImpl<std::string>) == 72);

#define OV_INSTANTIATE(T)                                    \
  template const T& ValueTypeTraitsBase<T>::default_value(); \
  template class TypedValue<T>;                              \
  template class RefCountedValueImpl<T>;                     \
  template struct ValueFactory<T>;
OV_INSTANTIATE(bool)
OV_INSTANTIATE(long long)
OV_INSTANTIATE(std::string)
OV_INSTANTIATE(double)
OV_INSTANTIATE(ovcore::Uuid)
OV_INSTANTIATE(ovuri::UriReference)
OV_INSTANTIATE(ovcore::AbsoluteTime)
OV_INSTANTIATE(ovcore::RelativeTime)
OV_INSTANTIATE(ovcore::SimpleDateTime)
OV_INSTANTIATE(BinaryValue)
OV_INSTANTIATE(SerializedValue)
OV_INSTANTIATE(AttributeMap)
OV_INSTANTIATE(SecuredValue)
OV_INSTANTIATE(ErrorInfoPtr)
#undef OV_INSTANTIATE

namespace {

template <class... T>
void make_shared_values() {
  (static_cast<void>(ValueTypeTraitsBase<T>::default_value()), ...);
  (ValueFactory<T>::create_value()->release(), ...);
}

[[maybe_unused]] const bool g_values_ready = ovcore::impl::at_load([] {
  make_shared_values<bool, long long, std::string, double, ovcore::Uuid, ovuri::UriReference,
                     ovcore::AbsoluteTime, ovcore::RelativeTime, ovcore::SimpleDateTime,
                     BinaryValue, SerializedValue, AttributeMap, SecuredValue, ErrorInfoPtr>();
  shared_empty_string();
});

}  // namespace
}  // namespace ovattribute::impl
