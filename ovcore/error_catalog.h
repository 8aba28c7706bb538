// SPDX-License-Identifier: Apache-2.0
// How a library defines its branch of error codes: one `error_codes.inc` per library, a list of
//
//   OV_ERROR(ovcore_time_overflow, "error.ovcore.time.overflow", "a time beyond its range")
//
// from which come the constants in the library's namespace `error`, a table of all of them, and
// docs/errors.md. The name is the code's text after "error." with dots turned into underscores.
#pragma once

#include "ovcore/error_code.h"

namespace ovcore {

/// One row of a library's table.
struct ErrorCatalogEntry {
  const ErrorCode* code;
  const char* name;     // of the constant
  const char* meaning;  // what it is raised for
};

}  // namespace ovcore
