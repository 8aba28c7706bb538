// SPDX-License-Identifier: Apache-2.0
// What a test has to know of the build.
#pragma once

namespace ovtest {

/// Whether a sanitizer takes memory, time and locks of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool sanitized = true;
#elif defined(__has_feature)
constexpr bool sanitized = __has_feature(address_sanitizer) || __has_feature(thread_sanitizer);
#else
constexpr bool sanitized = false;
#endif

}  // namespace ovtest
