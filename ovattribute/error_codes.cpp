// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/error_codes.h"

#include "ovattribute/impl/module_anchor.h"

namespace ovattribute::error {

#define OV_ERROR(name, text, meaning) constinit const ovcore::ErrorCode name(text, true);
#include "ovattribute/error_codes.inc"
#undef OV_ERROR

std::span<const ovcore::ErrorCatalogEntry> catalog() noexcept {
  static constexpr ovcore::ErrorCatalogEntry entries[] = {
#define OV_ERROR(name, text, meaning) {&name, #name, meaning},
#include "ovattribute/error_codes.inc"
#undef OV_ERROR
  };
  return entries;
}

}  // namespace ovattribute::error
