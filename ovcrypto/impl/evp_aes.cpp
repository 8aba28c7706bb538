// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/impl/evp_aes.h"

#include <openssl/evp.h>

#include <algorithm>

#include "ovcore/exception.h"
#include "ovcrypto/error_codes.h"
#include "ovcrypto/impl/libcrypto.h"

namespace ovcrypto::impl {
namespace {

EVP_CIPHER_CTX* context(void* p) noexcept {
  return static_cast<EVP_CIPHER_CTX*>(p);
}

}  // namespace

bool EvpAes::open(Mode mode, const unsigned char* key, std::size_t key_size,
                  const unsigned char* iv) noexcept {
  close();
  m_mode = mode;
  m_context = EVP_CIPHER_CTX_new();
  if (m_context == nullptr) return false;
  const auto* const cipher =
      static_cast<const EVP_CIPHER*>(aes_cipher(static_cast<std::size_t>(mode), key_size));
  if (EVP_EncryptInit_ex2(context(m_context), cipher, key, iv, nullptr) == 1) return true;
  close();
  return false;
}

void EvpAes::update(const unsigned char* in, unsigned char* out, std::size_t size) {
  constexpr std::size_t largest = std::size_t{1} << 30;  // EVP counts in int
  while (size > 0) {
    const std::size_t piece = std::min(size, largest);
    int written = 0;
    if (EVP_EncryptUpdate(context(m_context), out, &written, in, static_cast<int>(piece)) != 1 ||
        static_cast<std::size_t>(written) != piece) {
      ovcore::throw_error(error::ovcrypto_openssl, "AES failed inside libcrypto",
                          {"ovcrypto/aes", "ovcrypto::impl::EvpAes::update()", 0});
    }
    in += piece;
    out += piece;
    size -= piece;
  }
}

void EvpAes::close() noexcept {
  EVP_CIPHER_CTX_free(context(m_context));
  m_context = nullptr;
}

}  // namespace ovcrypto::impl
