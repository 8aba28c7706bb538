// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/error_codes.h"

namespace ovcrypto::error {

#define OV_ERROR(name, text, meaning) constinit const ovcore::ErrorCode name(text, true);
#include "ovcrypto/error_codes.inc"
#undef OV_ERROR

std::span<const ovcore::ErrorCatalogEntry> catalog() noexcept {
  static constexpr ovcore::ErrorCatalogEntry entries[] = {
#define OV_ERROR(name, text, meaning) {&name, #name, meaning},
#include "ovcrypto/error_codes.inc"
#undef OV_ERROR
  };
  return entries;
}

}  // namespace ovcrypto::error
