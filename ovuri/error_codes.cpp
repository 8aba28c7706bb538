// SPDX-License-Identifier: Apache-2.0
#include "ovuri/error_codes.h"

namespace ovuri::error {

#define OV_ERROR(name, text, meaning) constinit const ovcore::ErrorCode name(text, true);
#include "ovuri/error_codes.inc"
#undef OV_ERROR

std::span<const ovcore::ErrorCatalogEntry> catalog() noexcept {
  static constexpr ovcore::ErrorCatalogEntry entries[] = {
#define OV_ERROR(name, text, meaning) {&name, #name, meaning},
#include "ovuri/error_codes.inc"
#undef OV_ERROR
  };
  return entries;
}

}  // namespace ovuri::error
