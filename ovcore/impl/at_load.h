// SPDX-License-Identifier: Apache-2.0
// Making statics before the process can fork.
#pragma once

namespace ovcore::impl {

/// For the initialiser of a variable: calls `make` when the library is loaded, which initialises
/// the function-local statics that it uses. A process that forks while another thread initialises
/// one leaves the child waiting for ever. What fails here is tried again when it is needed.
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
