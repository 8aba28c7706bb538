// SPDX-License-Identifier: Apache-2.0
// Which slot of the vtable a virtual function has.
//
// Under the Itanium C++ ABI, as on x86-64, a pointer to a member function is two words, of which
// the first holds for a virtual function 1 plus the offset in bytes into the vtable, and for any
// other its address, which is even. A virtual destructor has two slots, which no pointer to a
// member can name: they are the gap between its neighbours.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ovtest {

inline constexpr std::ptrdiff_t not_virtual = -1;

/// Counted from 0.
template <class Member>
std::ptrdiff_t vtable_slot(Member member) {
  static_assert(sizeof member == 2 * sizeof(std::uintptr_t));
  std::uintptr_t words[2];
  std::memcpy(words, &member, sizeof words);
  if (words[0] % 2 == 0) return not_virtual;
  return static_cast<std::ptrdiff_t>((words[0] - 1) / sizeof(void*));
}

/// The number of slots of a class: the next function would come behind them.
template <class Class>
std::ptrdiff_t vtable_slots() {
  struct Behind : Class {
    virtual void one_more() = 0;
  };
  return vtable_slot(&Behind::one_more);
}

}  // namespace ovtest
