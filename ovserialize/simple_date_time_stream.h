// SPDX-License-Identifier: Apache-2.0
// Dates without a time zone in an item stream.
#pragma once

#include "ovcore/export.h"
#include "ovcore/simple_date_time.h"
#include "ovserialize/reader.h"
#include "ovserialize/writer.h"

namespace ovserialize {

/// A string item, "2024-02-29T12:34:56.5" (RFC 3339 without an offset).
OV_EXPORT void write_simple_date_time(Writer& writer, const ovcore::SimpleDateTime& time);
/// Raises `ovserialize_reader_malformed`, the reason nested inside, for a string that is none.
[[nodiscard]] OV_EXPORT ovcore::SimpleDateTime read_simple_date_time(Reader& reader);

}  // namespace ovserialize
