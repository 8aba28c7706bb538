// SPDX-License-Identifier: Apache-2.0
// Errors, with the causes that led to them, in an item stream.
#pragma once

#include <cstddef>

#include "ovcore/error_info.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovserialize/reader.h"
#include "ovserialize/writer.h"

namespace ovserialize {

/// The longest chain of an error and its causes that is written and read.
inline constexpr std::size_t max_error_chain = 512;
/// Marks `{@name}` in a message template, so that a message is not much longer than what it was
/// composed from.
inline constexpr std::size_t max_error_marks = 32;

/// Null for no error; else a structure of all errors of the chain, from the first cause to the
/// error itself: of each the code, the template, a sequence of its parameters (name and value), and
/// file, function and line. Raises `ovserialize_writer_depth` for a longer chain and
/// `ovserialize_writer_size` for more marks, both before anything is written.
OV_EXPORT void write_error_info(Writer& writer,
                                const ovcore::RefCountPtr<const ovcore::ErrorInfo>& error);
/// The same error again: equal in all of the above. Raises `ovserialize_reader_depth` for a longer
/// chain and `ovserialize_reader_size` for more marks.
[[nodiscard]] OV_EXPORT ovcore::RefCountPtr<const ovcore::ErrorInfo> read_error_info(
    Reader& reader);

}  // namespace ovserialize
