// SPDX-License-Identifier: Apache-2.0
// A place in JSON text.
#pragma once

#include <cstdint>

namespace ovjson {

/// Lines end at "\n", "\r\n" or "\r". A byte order mark counts for the offset only.
struct Position {
  std::uint64_t line = 1;        // from 1
  std::uint64_t line_pos = 1;    // from 1, in bytes
  std::uint64_t source_pos = 0;  // from 0, in bytes from the start of the text

  friend bool operator==(const Position&, const Position&) = default;
};

}  // namespace ovjson
