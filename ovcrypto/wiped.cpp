// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/wiped.h"

#include <openssl/crypto.h>

namespace ovcrypto {

void wipe(void* memory, std::size_t size) noexcept {
  OPENSSL_cleanse(memory, size);
}

bool equal_in_constant_time(const void* a, const void* b, std::size_t size) noexcept {
  return size == 0 || CRYPTO_memcmp(a, b, size) == 0;
}

}  // namespace ovcrypto
