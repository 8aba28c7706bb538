// SPDX-License-Identifier: Apache-2.0
// Error codes of ovserialize: the branch "error.ovserialize".
#pragma once

#include <span>

#include "ovcore/error_catalog.h"
#include "ovcore/export.h"

namespace ovserialize::error {

#define OV_ERROR(name, text, meaning) OV_EXPORT extern const ovcore::ErrorCode name;
#include "ovserialize/error_codes.inc"
#undef OV_ERROR

/// Every code above, in the order of the list.
OV_EXPORT std::span<const ovcore::ErrorCatalogEntry> catalog() noexcept;

}  // namespace ovserialize::error
