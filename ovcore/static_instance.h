// SPDX-License-Identifier: Apache-2.0
// Statics that outlive everything: built in place, never destroyed, so that no order of
// destruction at exit or unload can break whoever still uses them.
#pragma once

#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace ovcore {

/// Meant for variables of static storage duration. As a function-local static it is built on
/// first use, by one thread. What the object owns is never given back.
template <class T>
class StaticInstance {
 public:
  template <class... Args>
  requires std::is_constructible_v<std::remove_const_t<T>, Args...>
  explicit StaticInstance(Args&&... args) {
    ::new (static_cast<void*>(m_storage)) std::remove_const_t<T>(std::forward<Args>(args)...);
  }
  StaticInstance(const StaticInstance&) = delete;
  StaticInstance& operator=(const StaticInstance&) = delete;

  [[nodiscard]] T& get() const noexcept {
    return *std::launder(reinterpret_cast<T*>(const_cast<unsigned char*>(m_storage)));
  }
  T& operator*() const noexcept { return get(); }
  T* operator->() const noexcept { return std::addressof(get()); }

 private:
  alignas(T) unsigned char m_storage[sizeof(T)];
};

}  // namespace ovcore
