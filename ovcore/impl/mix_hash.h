// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

namespace ovcore::impl {

/// Spreads the bits of a number over a hash; different numbers have different hashes.
[[nodiscard]] constexpr std::size_t mix_hash(std::uint64_t value) noexcept {
  value *= 0x9e3779b97f4a7c15;  // 2^64 divided by the golden ratio
  return value ^ (value >> 32);
}

}  // namespace ovcore::impl
