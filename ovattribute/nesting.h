// SPDX-License-Identifier: Apache-2.0
// How deep values may nest where something recurses over them.
#pragma once

#include <cstddef>

#include "ovcore/export.h"

namespace ovattribute {

inline constexpr std::size_t default_nesting_limit = 512;

/// The limit for comparing, hashing, printing, writing and reading maps within maps in every form,
/// in the whole process. Readers and writers have limits of their own besides, which count lists
/// too and by default let this one's default through. Any thread may change it at any time. Copying
/// and destroying know no limit.
[[nodiscard]] OV_EXPORT std::size_t nesting_limit() noexcept;
OV_EXPORT void set_nesting_limit(std::size_t limit) noexcept;

namespace impl {

/// Counts one level of the calling thread while it lives. Raises `ovattribute_invalidParameter`
/// beyond the limit.
class OV_EXPORT NestingGuard {
 public:
  NestingGuard();
  NestingGuard(const NestingGuard&) = delete;
  NestingGuard& operator=(const NestingGuard&) = delete;
  ~NestingGuard();
};

}  // namespace impl
}  // namespace ovattribute
