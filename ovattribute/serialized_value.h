// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "ovcore/export.h"

namespace ovattribute {

/// Opaque for now: a type text and no data.
class OV_EXPORT SerializedValue {
 public:
  SerializedValue() = default;

  [[nodiscard]] const std::string& type() const noexcept { return m_type; }
  [[nodiscard]] bool empty() const noexcept { return true; }
  [[nodiscard]] std::size_t size() const noexcept { return 0; }
  [[nodiscard]] int compare(const SerializedValue&) const noexcept { return 0; }
  [[nodiscard]] std::size_t hash() const noexcept { return 0; }
  friend bool operator==(const SerializedValue& a, const SerializedValue& b) {
    return a.compare(b) == 0;
  }

 private:
  std::string m_type;
};

}  // namespace ovattribute
