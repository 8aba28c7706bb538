// SPDX-License-Identifier: Apache-2.0
// URI references in an item stream.
#pragma once

#include "ovcore/export.h"
#include "ovserialize/reader.h"
#include "ovserialize/writer.h"
#include "ovuri/uri_reference.h"

namespace ovuri {

/// A string item, the text as it is.
OV_EXPORT void write_uri(ovserialize::Writer& writer, const UriReference& uri);
/// Raises `ovserialize_reader_malformed`, the reason nested inside, for a string that is none.
[[nodiscard]] OV_EXPORT UriReference read_uri(ovserialize::Reader& reader);

}  // namespace ovuri
