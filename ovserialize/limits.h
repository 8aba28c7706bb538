// SPDX-License-Identifier: Apache-2.0
// What readers accept and writers produce at most.
#pragma once

#include <cstddef>

namespace ovserialize {

/// Limits of one reader or writer; both sides start with the same ones, so that what is written can
/// be read. Reading checks an announced length before anything is done for it.
struct Limits {
  /// Sequences and structures open at once: attribute maps in lists, which nest 512 deep, take two
  /// a level.
  std::size_t max_depth = 1'040;
  /// Bytes of one string.
  std::size_t max_string = std::size_t{128} << 20;
  /// Bytes of one binary block.
  std::size_t max_binary = std::size_t{16} << 20;
};

}  // namespace ovserialize
