// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <poll.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace ovcore::impl {

/// True when a call on a descriptor failed for a passing reason: interrupted, or not ready, then
/// after waiting for `events` (POLLIN or POLLOUT). `errno` tells the failure when false.
inline bool may_retry(int descriptor, short events) noexcept {
  if (errno == EINTR) return true;
  if (errno != EAGAIN && errno != EWOULDBLOCK) return false;
  pollfd waiting{descriptor, events, 0};
  return ::poll(&waiting, 1, -1) >= 0 || errno == EINTR;
}

/// The system's text for the `errno` value.
inline std::string system_reason(int number) {
  return std::generic_category().message(number);
}

}  // namespace ovcore::impl
