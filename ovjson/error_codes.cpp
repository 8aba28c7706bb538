// SPDX-License-Identifier: Apache-2.0
#include "ovjson/error_codes.h"

namespace ovjson::error {

#define OV_ERROR(name, text, meaning) constinit const ovcore::ErrorCode name(text, true);
#include "ovjson/error_codes.inc"
#undef OV_ERROR

std::span<const ovcore::ErrorCatalogEntry> catalog() noexcept {
  static constexpr ovcore::ErrorCatalogEntry entries[] = {
#define OV_ERROR(name, text, meaning) {&name, #name, meaning},
#include "ovjson/error_codes.inc"
#undef OV_ERROR
  };
  return entries;
}

}  // namespace ovjson::error
