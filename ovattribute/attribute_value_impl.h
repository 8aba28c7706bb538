// SPDX-License-Identifier: Apache-2.0
// The storage behind `AttributeValue`: polymorphic objects, shared by reference count where copying
// costs (lists, strings, blocks), owned by one handle where it is cheap (one small element), or
// constants of the process. No promise is made on anything in this namespace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "ovattribute/attribute_value_type.h"
#include "ovcore/error_info.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/static_instance.h"

namespace ovcore {
class AbsoluteTime;
class RelativeTime;
class SimpleDateTime;
class Uuid;
}  // namespace ovcore
namespace ovuri {
class UriReference;
}

namespace ovattribute {

class AttributeMap;
class AttributeValue;
class BinaryValue;
class MutableAttributeMap;
class SecuredValue;
class SerializedValue;
class TraceFormatter;

namespace impl {

/// The stored type of Null values: no data.
struct OV_EXPORT NullValueType {};

struct ValueAccess;

using ErrorInfoPtr = ovcore::RefCountPtr<const ovcore::ErrorInfo>;

[[noreturn]] OV_EXPORT void throw_get_on_multi_value_attribute();
[[noreturn]] OV_EXPORT void throw_array_empty_error();

/// Abstract storage. The order of the virtual operations is fixed.
class OV_EXPORT ValueBase {
 public:
  ValueBase(const ValueBase&) = delete;
  ValueBase& operator=(const ValueBase&) = delete;

  [[nodiscard]] const ValueTypeId& type() const noexcept { return *m_type; }

  /// Drops the caller's reference.
  virtual void release() noexcept = 0;
  /// A storage of equal content that the caller owns a reference of; shared storage returns itself.
  [[nodiscard]] virtual ValueBase* clone() = 0;
  /// Replaces the owner's storage by a private copy when it is shared.
  virtual void make_unique(AttributeValue& owner) = 0;
  /// Replaces the owner's storage by a `RefCountedValueImpl` of the same elements.
  virtual void make_growable(AttributeValue& owner) = 0;
  /// New storage of the elements from `first` on.
  [[nodiscard]] virtual ValueBase* subrange(std::size_t first) = 0;
  [[nodiscard]] virtual ValueBase* subrange(std::size_t first, std::size_t count) = 0;
  /// Removes all elements of the owner's value.
  virtual void clear(AttributeValue& owner) = 0;
  [[nodiscard]] virtual bool equal(const ValueBase& other) const = 0;
  [[nodiscard]] virtual int compare(const ValueBase& other) const = 0;
  [[nodiscard]] virtual bool empty() const noexcept = 0;
  [[nodiscard]] virtual std::size_t size() const noexcept = 0;
  [[nodiscard]] virtual std::size_t hash() const = 0;
  virtual void write_trace(std::ostream& out, const TraceFormatter& formatter,
                           unsigned level) const = 0;

  static void* operator new(std::size_t size);
  static void operator delete(void* memory, std::size_t size) noexcept;

 protected:
  explicit constexpr ValueBase(const ValueTypeId& type) noexcept : m_type(&type) {}
  ~ValueBase() = default;

  /// Installs `storage`, of which the caller hands over a reference, and releases the old one,
  /// which may be this object.
  static void replace(AttributeValue& owner, ValueBase* storage) noexcept;
  [[noreturn]] static void throw_at_range_error();
  [[noreturn]] static void throw_subrange_range_error();

 private:
  const ValueTypeId* const m_type;
};

/// What the elements of one type need: order, equality, hash, trace.
template <class T>
struct ValueTypeTraitsBase {
  using Type = T;

  [[nodiscard]] static int compare(const T& a, const T& b) { return a < b ? -1 : b < a ? 1 : 0; }
  [[nodiscard]] static bool equal(const T& a, const T& b) { return a == b; }
  [[nodiscard]] static std::size_t hash(const T& a) { return a.hash(); }
  using DefaultHolder = ovcore::StaticInstance<T>;
  /// A default-built element, shared and never destroyed.
  [[nodiscard]] OV_EXPORT static const T& default_value();
  /// Writes a whole value of the type.
  OV_EXPORT static void write_trace(std::ostream& out, const TraceFormatter& formatter,
                                    unsigned level, std::span<const T> elements);
};

/// Plain types: passed by value.
template <class T>
struct PodValueTypeTraits : ValueTypeTraitsBase<T> {
  using AssignArg = T;
  static constexpr bool shared = false;
};

/// Object types: passed by reference. `Shared` types are always stored with a reference count.
template <class T, bool Shared = false>
struct ObjValueTypeTraits : ValueTypeTraitsBase<T> {
  using AssignArg = const T&;
  static constexpr bool shared = Shared;
};

template <class T>
struct ValueTypeTraits;

#define OV_VALUE_TYPE(name)                                           \
  static constexpr ValueTypeId::EId id = ValueTypeId::id##name;       \
  [[nodiscard]] static constexpr const ValueTypeId& type() noexcept { \
    return ValueTypeId::type##name;                                   \
  }

template <>
struct OV_EXPORT ValueTypeTraits<NullValueType> : PodValueTypeTraits<NullValueType> {
  OV_VALUE_TYPE(Null)
  [[nodiscard]] static int compare(NullValueType, NullValueType) { return 0; }
  [[nodiscard]] static bool equal(NullValueType, NullValueType) { return true; }
  [[nodiscard]] static std::size_t hash(NullValueType) { return 0; }
};
template <>
struct OV_EXPORT ValueTypeTraits<bool> : PodValueTypeTraits<bool> {
  OV_VALUE_TYPE(Boolean)
  [[nodiscard]] static int compare(bool a, bool b) { return int{a} - int{b}; }
  [[nodiscard]] static std::size_t hash(bool a) { return a; }
};
template <>
struct OV_EXPORT ValueTypeTraits<long long> : PodValueTypeTraits<long long> {
  OV_VALUE_TYPE(Integer)
  [[nodiscard]] static std::size_t hash(long long a) {
    return static_cast<std::size_t>(a ^ (a >> 32));
  }
};
template <>
struct OV_EXPORT ValueTypeTraits<std::string> : ObjValueTypeTraits<std::string, true> {
  OV_VALUE_TYPE(String)
  [[nodiscard]] static int compare(const std::string& a, const std::string& b) {
    return a.compare(b);
  }
  [[nodiscard]] static std::size_t hash(const std::string& a);
};
/// A NaN is ordered as equal to everything and equal to nothing.
template <>
struct OV_EXPORT ValueTypeTraits<double> : PodValueTypeTraits<double> {
  OV_VALUE_TYPE(Double)
  [[nodiscard]] static std::size_t hash(double a);
};
template <>
struct OV_EXPORT ValueTypeTraits<ovcore::Uuid> : ObjValueTypeTraits<ovcore::Uuid> {
  OV_VALUE_TYPE(Uuid)
};
template <>
struct OV_EXPORT ValueTypeTraits<ovuri::UriReference> : ObjValueTypeTraits<ovuri::UriReference> {
  OV_VALUE_TYPE(Uri)
};
template <>
struct OV_EXPORT ValueTypeTraits<ovcore::AbsoluteTime> : ObjValueTypeTraits<ovcore::AbsoluteTime> {
  OV_VALUE_TYPE(AbsoluteTime)
};
template <>
struct OV_EXPORT ValueTypeTraits<ovcore::RelativeTime> : ObjValueTypeTraits<ovcore::RelativeTime> {
  OV_VALUE_TYPE(RelativeTime)
};
template <>
struct OV_EXPORT ValueTypeTraits<ovcore::SimpleDateTime>
    : ObjValueTypeTraits<ovcore::SimpleDateTime> {
  OV_VALUE_TYPE(SimpleDateTime)
};
template <>
struct OV_EXPORT ValueTypeTraits<BinaryValue> : ObjValueTypeTraits<BinaryValue, true> {
  OV_VALUE_TYPE(Binary)
  [[nodiscard]] static int compare(const BinaryValue& a, const BinaryValue& b);
};
template <>
struct OV_EXPORT ValueTypeTraits<SerializedValue> : ObjValueTypeTraits<SerializedValue, true> {
  OV_VALUE_TYPE(Serialized)
  [[nodiscard]] static int compare(const SerializedValue& a, const SerializedValue& b);
};
template <>
struct OV_EXPORT ValueTypeTraits<AttributeMap> : ObjValueTypeTraits<AttributeMap> {
  OV_VALUE_TYPE(AttributeMap)
  [[nodiscard]] static int compare(const AttributeMap& a, const AttributeMap& b);
};
template <>
struct OV_EXPORT ValueTypeTraits<SecuredValue> : ObjValueTypeTraits<SecuredValue, true> {
  OV_VALUE_TYPE(Secured)
  [[nodiscard]] static int compare(const SecuredValue& a, const SecuredValue& b);
};
template <>
struct OV_EXPORT ValueTypeTraits<ErrorInfoPtr> : ObjValueTypeTraits<ErrorInfoPtr> {
  OV_VALUE_TYPE(ErrorInfo)
  [[nodiscard]] static int compare(const ErrorInfoPtr& a, const ErrorInfoPtr& b);
  [[nodiscard]] static bool equal(const ErrorInfoPtr& a, const ErrorInfoPtr& b);
  [[nodiscard]] static std::size_t hash(const ErrorInfoPtr& a);
};
#undef OV_VALUE_TYPE

template <class T>
concept StoredType = requires {
  ValueTypeTraits<T>::id;
};

/// Storage whose elements are of type `T`: a range of them, wherever they lie.
template <class T>
class OV_EXPORT TypedValue : public ValueBase {
 public:
  using AssignArg = typename ValueTypeTraits<T>::AssignArg;

  [[nodiscard]] const T* begin() const noexcept { return m_begin; }
  [[nodiscard]] const T* end() const noexcept { return m_end; }
  [[nodiscard]] std::span<const T> elements() const noexcept { return {m_begin, m_end}; }
  /// Raises `std::out_of_range`.
  [[nodiscard]] const T& at(std::size_t i) const {
    if (i >= elements().size()) throw_at_range_error();
    return m_begin[i];
  }

  [[nodiscard]] ValueBase* subrange(std::size_t first) final;
  [[nodiscard]] ValueBase* subrange(std::size_t first, std::size_t count) final;
  [[nodiscard]] bool equal(const ValueBase& other) const final;
  [[nodiscard]] int compare(const ValueBase& other) const final;
  [[nodiscard]] bool empty() const noexcept final;
  [[nodiscard]] std::size_t size() const noexcept final;
  [[nodiscard]] std::size_t hash() const final;
  void write_trace(std::ostream& out, const TraceFormatter& formatter, unsigned level) const final;
  virtual ~TypedValue() = default;
  /// Makes the value one element, in place where the storage is the owner's alone.
  virtual void assign(AssignArg element, AttributeValue& owner) = 0;

 protected:
  constexpr TypedValue(T* begin, T* end) noexcept
      : ValueBase(ValueTypeTraits<T>::type()), m_begin(begin), m_end(end) {}

  T* m_begin;
  T* m_end;
};

/// Where a storage lies in a `StorageBlock`: bytes from its beginning; 0 on the heap.
struct InBlock {
  std::uint16_t offset = 0;
};

/// Any number of elements, shared between handles. The first element has its place inside the
/// object, so that a scalar string is one allocation besides its text.
template <class T>
class OV_EXPORT RefCountedValueImpl final : public TypedValue<T> {
 public:
  // Member functions must not be called before the base exists.
  explicit RefCountedValueImpl(InBlock place = {}) noexcept
      : TypedValue<T>(reinterpret_cast<T*>(m_local), reinterpret_cast<T*>(m_local)),
        m_refs(1, place.offset) {}
  explicit RefCountedValueImpl(T element) noexcept
      : RefCountedValueImpl(std::in_place, std::move(element)) {}
  /// One element, made in place.
  template <class Arg>
  RefCountedValueImpl(std::in_place_t, Arg&& arg)
      : RefCountedValueImpl(InBlock(), std::forward<Arg>(arg)) {}
  template <class Arg>
  RefCountedValueImpl(InBlock place, Arg&& arg) : RefCountedValueImpl(place) {
    std::construct_at(local(), std::forward<Arg>(arg));
    ++this->m_end;
  }
  explicit RefCountedValueImpl(std::span<const T> elements);
  ~RefCountedValueImpl() override;

  void release() noexcept override;
  [[nodiscard]] ValueBase* clone() noexcept override;
  void make_unique(AttributeValue& owner) override;
  void make_growable(AttributeValue& owner) override;
  void clear(AttributeValue& owner) override;
  void assign(typename TypedValue<T>::AssignArg element, AttributeValue& owner) override;

  [[nodiscard]] bool is_shared() const noexcept { return !m_refs.has_unique_ref(); }

  // For the only holder.
  void reserve(std::size_t capacity);
  void push_back(T element);
  /// Gives spare capacity back, where memory for the exact copy can be had.
  void trim() noexcept;

 private:
  T* local() noexcept { return reinterpret_cast<T*>(m_local); }
  /// More than one element lie in memory that begins with their capacity.
  std::size_t* outside() noexcept {
    return this->m_begin == local() ? nullptr : reinterpret_cast<std::size_t*>(this->m_begin) - 1;
  }
  std::size_t capacity() noexcept { return outside() == nullptr ? 1 : *outside(); }
  void relocate(std::size_t capacity);
  void remove_all() noexcept;
  [[gnu::noinline]] void destroy() noexcept;

  ovcore::AtomicRefCount m_refs;  // keeps the offset in the block
  alignas(T) std::byte m_local[sizeof(T)];
};

/// One element or none, inline, owned by exactly one handle.
template <class T>
class OV_EXPORT SingleValueImpl final : public TypedValue<T> {
 public:
  explicit SingleValueImpl(T element) noexcept
      : TypedValue<T>(std::addressof(m_element), std::addressof(m_element) + 1),
        m_element(std::move(element)) {}
  ~SingleValueImpl() override { remove(); }

  void release() noexcept override { delete this; }
  [[nodiscard]] ValueBase* clone() override;
  void make_unique(AttributeValue&) override {}
  void make_growable(AttributeValue& owner) override;
  void clear(AttributeValue&) override { remove(); }
  void assign(typename TypedValue<T>::AssignArg element, AttributeValue& owner) override;

 private:
  void remove() noexcept {
    if (this->m_begin == this->m_end) return;
    std::destroy_at(this->m_begin);
    this->m_end = this->m_begin;
  }

  union {
    T m_element;
  };
};

/// The empty value of a plain type.
template <class T>
class OV_EXPORT EmptySingleton final : public TypedValue<T> {
 public:
  constexpr EmptySingleton() noexcept : TypedValue<T>(nullptr, nullptr) {}

  void release() noexcept override {}
  [[nodiscard]] ValueBase* clone() noexcept override { return this; }
  void make_unique(AttributeValue& owner) override;
  void make_growable(AttributeValue& owner) override;
  void clear(AttributeValue&) override {}
  void assign(typename TypedValue<T>::AssignArg element, AttributeValue& owner) override;
};

/// A common scalar of a plain type.
template <class T>
class OV_EXPORT SingleValueSingleton final : public TypedValue<T> {
 public:
  explicit constexpr SingleValueSingleton(T element) noexcept
      : TypedValue<T>(&m_element, &m_element + 1), m_element(element) {}

  void release() noexcept override {}
  [[nodiscard]] ValueBase* clone() noexcept override { return this; }
  void make_unique(AttributeValue& owner) override;
  void make_growable(AttributeValue& owner) override;
  void clear(AttributeValue& owner) override;
  void assign(typename TypedValue<T>::AssignArg element, AttributeValue& owner) override;

 private:
  T m_element;
};

/// Makes storage; the caller gets a reference.
template <class T>
struct OV_EXPORT ValueFactory {
  /// The shared empty value of the type.
  [[nodiscard]] static ValueBase* create_value();
  [[nodiscard]] static ValueBase* create_value(T element);
  /// A copy.
  [[nodiscard]] static ValueBase* create_value(const SingleValueImpl<T>& other);
  /// A list, also for one element.
  [[nodiscard]] static ValueBase* create_list(std::span<const T> elements);
};
/// The same as from a string, copying the text once.
[[nodiscard]] OV_EXPORT ValueBase* create_string(std::string_view text);

/// The one storage of Null.
class OV_EXPORT NullSingleton final : public TypedValue<NullValueType> {
 public:
  constexpr NullSingleton() noexcept : TypedValue<NullValueType>(nullptr, nullptr) {}

  void release() noexcept override {}
  [[nodiscard]] ValueBase* clone() noexcept override { return this; }
  void make_unique(AttributeValue&) override {}
  void make_growable(AttributeValue&) override {}
  void clear(AttributeValue&) override {}
  void assign(NullValueType, AttributeValue&) override {}
};

/// A constant of the process: initialised before any code runs, never destroyed.
template <class T>
union NeverDestroyed {
  constexpr NeverDestroyed() noexcept : value() {}
  explicit constexpr NeverDestroyed(auto argument) noexcept : value(argument) {}
  ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default): a default would be deleted

  T value;
};

OV_EXPORT extern NeverDestroyed<NullSingleton> g_null_storage;

[[nodiscard]] constexpr ValueBase* null_storage() noexcept {
  return &g_null_storage.value;
}

}  // namespace impl
}  // namespace ovattribute
