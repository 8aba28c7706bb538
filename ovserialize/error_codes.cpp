// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/error_codes.h"

namespace ovserialize::error {

#define OV_ERROR(name, text, meaning) constinit const ovcore::ErrorCode name(text, true);
#include "ovserialize/error_codes.inc"
#undef OV_ERROR

std::span<const ovcore::ErrorCatalogEntry> catalog() noexcept {
  static constexpr ovcore::ErrorCatalogEntry entries[] = {
#define OV_ERROR(name, text, meaning) {&name, #name, meaning},
#include "ovserialize/error_codes.inc"
#undef OV_ERROR
  };
  return entries;
}

}  // namespace ovserialize::error
