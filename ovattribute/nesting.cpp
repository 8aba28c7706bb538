// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/nesting.h"

#include <atomic>

#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"

namespace ovattribute {
namespace {

std::atomic<std::size_t> g_limit{default_nesting_limit};
thread_local std::size_t t_level = 0;

}  // namespace

std::size_t nesting_limit() noexcept {
  return g_limit.load(std::memory_order_relaxed);
}

void set_nesting_limit(std::size_t limit) noexcept {
  g_limit.store(limit, std::memory_order_relaxed);
}

namespace impl {

NestingGuard::NestingGuard() {
  const std::size_t limit = nesting_limit();
  if (t_level >= limit) {
    ovcore::ErrorComposer("Attribute values are nested deeper than {@limit} maps")
        .add("limit", limit)
        .throw_error(error::ovattribute_invalidParameter,
                     {"ovattribute/nesting", "ovattribute::impl::NestingGuard()", 0});
  }
  ++t_level;
}

NestingGuard::~NestingGuard() {
  --t_level;
}

}  // namespace impl
}  // namespace ovattribute
