// SPDX-License-Identifier: Apache-2.0
// Intrusive reference counting. Objects carry their own atomic count, so that a handle is one
// pointer and a copy one increment. Handles are not synchronised (one thread per handle);
// the object behind them is shared freely as long as nobody changes it while it is shared.
#pragma once

#include <atomic>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "ovcore/export.h"

namespace ovcore {

/// A reference count that starts at one, above 16 bits that its owner keeps there for good. Its 48
/// bits cannot overflow: each reference is a pointer in memory, whose addresses have 47 bits.
class AtomicRefCount {
 public:
  constexpr AtomicRefCount() noexcept = default;
  explicit constexpr AtomicRefCount(std::uint64_t count, std::uint16_t kept = 0) noexcept
      : m_word(count * one + kept) {}
  AtomicRefCount(const AtomicRefCount&) = delete;
  AtomicRefCount& operator=(const AtomicRefCount&) = delete;

  [[nodiscard]] std::uint16_t kept() const noexcept {
    return static_cast<std::uint16_t>(m_word.load(std::memory_order_relaxed));
  }
  void increment() noexcept { m_word.fetch_add(one, std::memory_order_relaxed); }

  /// True when the count reached zero: the caller now owns the object alone.
  [[nodiscard]] bool decrement() noexcept {
    // The only holder needs no atomic write: nobody else is left who could change the count.
    if (has_unique_ref()) return true;
    return m_word.fetch_sub(one, std::memory_order_acq_rel) < 2 * one;
  }

  /// True when the caller holds the only reference. Acquires what other holders did before they
  /// let go, so that the object may then be changed in place.
  [[nodiscard]] bool has_unique_ref() const noexcept {
    return m_word.load(std::memory_order_acquire) < 2 * one;
  }

 private:
  static constexpr std::uint64_t one = 1 << 16;

  std::atomic<std::uint64_t> m_word{one};
};

/// Base of objects that are shared through `RefCountPtr`. A new object has one reference.
class OV_EXPORT RefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  void add_ref() const noexcept { m_refs.increment(); }
  void release() const noexcept {
    if (m_refs.decrement()) delete this;
  }
  [[nodiscard]] bool has_unique_ref() const noexcept { return m_refs.has_unique_ref(); }

 protected:
  constexpr RefCounted() noexcept = default;
  /// A static object that is never destroyed has a reference of its own, besides those in handles.
  explicit constexpr RefCounted(std::uint64_t references) noexcept : m_refs(references) {}
  virtual ~RefCounted() = default;

 private:
  mutable AtomicRefCount m_refs;
};

struct AdoptReference {};

/// Counted pointer to anything with `add_ref()` and `release()`.
template <class T>
class OV_EXPORT RefCountPtr {
 public:
  using element_type = T;

  constexpr RefCountPtr() noexcept = default;
  constexpr RefCountPtr(std::nullptr_t) noexcept {}
  /// Shares `object`, adding a reference.
  explicit RefCountPtr(T* object) noexcept : m_object(object) {
    if (m_object != nullptr) m_object->add_ref();
  }
  RefCountPtr(const RefCountPtr& other) noexcept : RefCountPtr(other.m_object) {}
  RefCountPtr(RefCountPtr&& other) noexcept : m_object(other.detach()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> RefCountPtr(const RefCountPtr<U>& other)
  noexcept : RefCountPtr(other.get()) {}
  template <class U>
  requires std::is_convertible_v<U*, T*> RefCountPtr(RefCountPtr<U>&& other)
  noexcept : m_object(other.detach()) {}
  ~RefCountPtr() {
    if (m_object != nullptr) m_object->release();
  }

  RefCountPtr& operator=(RefCountPtr other) noexcept {
    swap(other);
    return *this;
  }

  /// Takes over a reference that the caller already owns.
  [[nodiscard]] static RefCountPtr adopt(T* object) noexcept {
    return RefCountPtr(object, AdoptReference());
  }
  constexpr RefCountPtr(T* object, AdoptReference) noexcept : m_object(object) {}
  /// Hands the reference out to the caller and becomes null.
  [[nodiscard]] T* detach() noexcept { return std::exchange(m_object, nullptr); }

  [[nodiscard]] T* get() const noexcept { return m_object; }
  T* operator->() const noexcept { return m_object; }
  T& operator*() const noexcept { return *m_object; }
  explicit operator bool() const noexcept { return m_object != nullptr; }

  void reset() noexcept { RefCountPtr().swap(*this); }
  void swap(RefCountPtr& other) noexcept { std::swap(m_object, other.m_object); }
  friend void swap(RefCountPtr& a, RefCountPtr& b) noexcept { a.swap(b); }

  /// Identity of the objects, not equality of their contents.
  friend bool operator==(const RefCountPtr& a, const RefCountPtr& b) noexcept {
    return a.m_object == b.m_object;
  }
  friend bool operator==(const RefCountPtr& a, std::nullptr_t) noexcept {
    return a.m_object == nullptr;
  }
  friend std::strong_ordering operator<=>(const RefCountPtr& a, const RefCountPtr& b) noexcept {
    return std::compare_three_way()(a.m_object, b.m_object);
  }

 private:
  T* m_object = nullptr;
};

/// Makes an object and the first handle to it.
template <class T, class... Args>
[[nodiscard]] RefCountPtr<T> make_ref_counted(Args&&... args) {
  return RefCountPtr<T>::adopt(new T(std::forward<Args>(args)...));
}

/// Pointer to an interface whose implementation may or may not be counted. A singleton is
/// pointed to as it is; an implementation that derives from `RefCounted` is kept alive.
template <class T>
class OV_EXPORT InterfacePtr {
 public:
  constexpr InterfacePtr() noexcept = default;
  constexpr InterfacePtr(std::nullptr_t) noexcept {}
  /// Points to `object`, which must outlive every copy of this pointer.
  explicit constexpr InterfacePtr(T* object) noexcept : m_object(object) {}
  /// Points to `object` and shares its ownership.
  template <class U>
  requires std::is_convertible_v<U*, T*> && std::is_base_of_v<RefCounted, U> InterfacePtr(
      RefCountPtr<U> object)
  noexcept : m_object(object.get()), m_owner(std::move(object)) {}

  [[nodiscard]] T* get() const noexcept { return m_object; }
  T* operator->() const noexcept { return m_object; }
  T& operator*() const noexcept { return *m_object; }
  explicit operator bool() const noexcept { return m_object != nullptr; }

  friend bool operator==(const InterfacePtr& a, const InterfacePtr& b) noexcept {
    return a.m_object == b.m_object;
  }
  friend bool operator==(const InterfacePtr& a, std::nullptr_t) noexcept {
    return a.m_object == nullptr;
  }

 private:
  T* m_object = nullptr;
  RefCountPtr<const RefCounted> m_owner;
};

}  // namespace ovcore

template <class T>
struct std::hash<ovcore::RefCountPtr<T>> {
  std::size_t operator()(const ovcore::RefCountPtr<T>& p) const noexcept {
    return std::hash<T*>()(p.get());
  }
};
