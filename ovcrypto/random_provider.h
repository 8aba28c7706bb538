// SPDX-License-Identifier: Apache-2.0
// Where random bytes come from.
//
// libcrypto, too, comes from here: the first operation of the process that draws random bytes from
// it, seals or opens initialises all of it that is needed, its configuration, its ciphers and its
// random generator. `default_random_provider().generate_random(nullptr, 0)` does no more than that,
// for a program that wants it done at a moment of its choice, such as before it limits its memory
// or its access to files. Short of memory it raises `std::bad_alloc` before libcrypto is touched.
// If libcrypto fails on its way nevertheless, the operation raises `ovcrypto_randomProvider_failed`
// or `ovcrypto_openssl`, and so does each later one until an attempt succeeds; which may be never,
// as some parts of libcrypto do not try twice.
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
/// exceeds 31 bits, `ovcrypto_randomProvider_failed` when there are no random bytes to be had,
/// `std::bad_alloc` when there is no memory to initialise libcrypto.
[[nodiscard]] OV_EXPORT IRandomProvider& default_random_provider() noexcept;

}  // namespace ovcrypto
