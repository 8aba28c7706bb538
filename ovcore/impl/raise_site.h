// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ovcore/error_code.h"
#include "ovcore/source_string.h"

namespace ovcore::impl {

/// Where an error would be raised: costs nothing as long as none is.
struct RaiseSite {
  const char* file;
  const char* function;
};

/// `message` may name `{@text}`, the text cut to its first 64 bytes, and `{@position}`.
[[noreturn]] void throw_text_error(const ErrorCode& code, SourceString message, SourceString text,
                                   std::size_t position, const RaiseSite& site);

}  // namespace ovcore::impl
