// SPDX-License-Identifier: Apache-2.0
// What of libcrypto the whole process has in common.
#pragma once

#include <cstddef>

namespace ovcrypto::impl {

/// Fills `size` bytes, at most 2^31 - 1, of libcrypto's generator, into which it first mixes the
/// processor's time-stamp counter. False when there are no random bytes to be had. A null buffer is
/// left alone.
[[nodiscard]] bool fill_random(void* buffer, std::size_t size);

}  // namespace ovcrypto::impl
