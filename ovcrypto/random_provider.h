// SPDX-License-Identifier: Apache-2.0
// Where random bytes come from.
#pragma once

#include <cstdint>

#include "ovcore/export.h"

namespace ovcrypto {

/// A source of random bytes that nobody can guess. May be used by any number of threads at once.
class OV_EXPORT IRandomProvider {
 public:
  /// Fills `size` bytes, or raises an error.
  virtual void generate_random(void* buffer, std::int64_t size) = 0;

 protected:
  IRandomProvider() = default;
  IRandomProvider(const IRandomProvider&) = default;
  IRandomProvider& operator=(const IRandomProvider&) = default;
  ~IRandomProvider() = default;
};

/// libcrypto's generator, into which every call mixes the processor's time-stamp counter. A null
/// buffer is left alone. Raises `ovcrypto_randomProvider_arguments` for a size that is negative or
/// exceeds 31 bits, `ovcrypto_randomProvider_failed` when there are no random bytes to be had.
[[nodiscard]] OV_EXPORT IRandomProvider& default_random_provider() noexcept;

}  // namespace ovcrypto
