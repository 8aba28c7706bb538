// SPDX-License-Identifier: Apache-2.0
// What is to be there when the process forks.
#pragma once

namespace ovcore::impl {

/// For the initialiser of a variable: calls `make` when the library is loaded, so that the statics
/// of functions that it uses are made then. A fork while another thread makes one leaves the child
/// waiting for it. What fails is made, or fails, when it is needed.
template <class F>
bool at_load(F make) noexcept {
  try {
    make();
  } catch (...) {
    return false;
  }
  return true;
}

}  // namespace ovcore::impl
