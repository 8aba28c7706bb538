// SPDX-License-Identifier: Apache-2.0
// Error codes of ovuri: the branch "error.ovuri".
#pragma once

#include <span>

#include "ovcore/error_catalog.h"
#include "ovcore/export.h"

namespace ovuri::error {

#define OV_ERROR(name, text, meaning) OV_EXPORT extern const ovcore::ErrorCode name;
#include "ovuri/error_codes.inc"
#undef OV_ERROR

/// Every code above, in the order of the list.
OV_EXPORT std::span<const ovcore::ErrorCatalogEntry> catalog() noexcept;

}  // namespace ovuri::error
