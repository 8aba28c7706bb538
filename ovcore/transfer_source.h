// SPDX-License-Identifier: Apache-2.0
// A named move: `a.transfer()` yields a source from which another object takes over what `a`
// holds, without touching reference counts.
#pragma once

#include <utility>

namespace ovcore {

/// Refers to the object to be moved from; it must not outlive that object. Taking leaves the
/// object valid and empty, as its move constructor does.
template <class T>
class TransferSource {
 public:
  explicit constexpr TransferSource(T& object) noexcept : m_object(&object) {}

  [[nodiscard]] constexpr T&& take() const noexcept { return std::move(*m_object); }

 private:
  T* m_object;
};

}  // namespace ovcore
