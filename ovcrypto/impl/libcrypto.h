// SPDX-License-Identifier: Apache-2.0
// The parts of libcrypto that the whole process shares. The first use initialises all of them:
// initialised in part, libcrypto may crash.
#pragma once

#include <cstddef>

namespace ovcrypto::impl {

/// True at once when it is done. False when libcrypto cannot be initialised; another call tries
/// again. Raises `std::bad_alloc` when there is not enough memory to begin with, which does
/// libcrypto no harm.
[[nodiscard]] bool initialise_libcrypto();

/// The EVP_CIPHER of a mode (ECB, CBC, CTR) for keys of 16, 24 or 32 bytes. REQUIRES: initialised.
[[nodiscard]] const void* aes_cipher(std::size_t mode, std::size_t key_size) noexcept;

/// Of libcrypto's generators: for bytes that others see, such as nonces, and for those that stay
/// secret, such as keys.
enum class Generator { open, secret };

/// Fills `size` bytes, at most 2^31 - 1, of a generator, into which it first mixes the processor's
/// time-stamp counter. A null buffer is left alone. False when libcrypto cannot be
/// initialised or has no random bytes. Raises as `initialise_libcrypto`.
[[nodiscard]] bool fill_random(void* buffer, std::size_t size,
                               Generator generator = Generator::open);

}  // namespace ovcrypto::impl
