// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>

#include "ovcore/export.h"

namespace ovattribute {

/// Opaque for now.
class OV_EXPORT SecuredValue {
 public:
  SecuredValue() = default;

  [[nodiscard]] int compare(const SecuredValue&) const noexcept { return 0; }
  [[nodiscard]] std::size_t hash() const noexcept { return 0; }
  friend bool operator==(const SecuredValue&, const SecuredValue&) { return true; }
};

}  // namespace ovattribute
