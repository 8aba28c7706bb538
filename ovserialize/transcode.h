// SPDX-License-Identifier: Apache-2.0
// Copying items from any reader to any writer, so from one form to another.
#pragma once

#include "ovserialize/reader.h"
#include "ovserialize/writer.h"

namespace ovserialize {

/// Copies the next item, with everything inside when it is a sequence or a structure. Of a sequence
/// announced with 1 the first item of its element belongs to it; further ones follow by themselves,
/// since such a sequence has no end mark. Both sides' limits hold. An item that fails is taken
/// back.
OV_EXPORT void copy_item(Reader& from, Writer& to);

/// Copies items up to the end of the stream.
OV_EXPORT void copy_items(Reader& from, Writer& to);

}  // namespace ovserialize
