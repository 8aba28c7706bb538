// SPDX-License-Identifier: Apache-2.0
// The few facilities of the operating system that the libraries need.
#pragma once

#include <cstddef>

#include "ovcore/export.h"
#include "ovcore/source_string.h"

namespace ovcore {

/// Fills the buffer from the system's random source, fit for identifiers and seeds.
/// Raises `ovcore_random`.
OV_EXPORT void fill_random(void* buffer, std::size_t size);

/// Overwrites bytes with zero, also where the compiler sees that nobody reads them again.
OV_EXPORT void cleanse(void* memory, std::size_t size) noexcept;

/// Stops in the debugger; ends the process (SIGTRAP) when none is attached, also
/// where the signal is ignored or blocked.
OV_EXPORT void debug_break() noexcept;

/// True when the environment has the variable, with whatever value.
[[nodiscard]] OV_EXPORT bool has_environment_variable(const char* name) noexcept;

}  // namespace ovcore
