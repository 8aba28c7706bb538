// SPDX-License-Identifier: Apache-2.0
// The errors of readers and writers, in one wording for all forms.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ovserialize::impl {

/// Where an error would be raised; costs nothing as long as none is.
struct RaiseSite {
  const char* file;
  const char* function;
};

/// A place in a stream; text has lines and columns, from 1 on, binary data has none.
struct Position {
  std::uint64_t offset = 0;
  std::uint64_t line = 0;
  std::uint64_t column = 0;
};

/// "the end of a structure" and the like; `kind` is an `ItemKind`.
[[nodiscard]] const char* kind_name(int kind) noexcept;

[[noreturn]] void throw_truncated(const Position& end, const RaiseSite& site);
[[noreturn]] void throw_malformed(const Position& position, const char* reason,
                                  const RaiseSite& site);
[[noreturn]] void throw_kind(const Position& position, const char* expected, const char* found,
                             const RaiseSite& site);
/// `kind` names what is beyond the range.
[[noreturn]] void throw_range(const Position& position, int kind, const RaiseSite& site);
/// `size` is that of the whole item, 0 where that is not known.
[[noreturn]] void throw_reader_size(const Position& position, int kind, std::uint64_t size,
                                    std::size_t limit, const RaiseSite& site);
[[noreturn]] void throw_reader_depth(const Position& position, std::size_t limit,
                                     const RaiseSite& site);
[[noreturn]] void throw_no_sequence(const Position& position, const RaiseSite& site);
[[noreturn]] void throw_no_structure(const Position& position, const RaiseSite& site);

[[noreturn]] void throw_writer_size(int kind, std::size_t size, std::size_t limit,
                                    const RaiseSite& site);
[[noreturn]] void throw_writer_depth(std::size_t limit, const RaiseSite& site);
/// `single`: the innermost frame is a sequence announced with one.
[[noreturn]] void throw_next_element(bool single, const RaiseSite& site);
[[noreturn]] void throw_end_sequence(bool single, const RaiseSite& site);
[[noreturn]] void throw_end_structure(const RaiseSite& site);
[[noreturn]] void throw_still_open(bool structure, const RaiseSite& site);
/// Why a writer takes nothing more.
inline constexpr const char* closed_by_caller = "The writer is closed";
inline constexpr const char* closed_by_target = "The writer's target has failed";
inline constexpr const char* closed_by_part =
    "The stream ends in the middle of a value that could not be written";
[[noreturn]] void throw_closed(const char* why, const RaiseSite& site);

}  // namespace ovserialize::impl
