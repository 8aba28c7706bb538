// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/impl/evp_aes.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <algorithm>
#include <atomic>

#include "ovcore/exception.h"
#include "ovcrypto/error_codes.h"

namespace ovcrypto::impl {
namespace {

constexpr const char* names[3][3] = {{"AES-128-ECB", "AES-192-ECB", "AES-256-ECB"},
                                     {"AES-128-CBC", "AES-192-CBC", "AES-256-CBC"},
                                     {"AES-128-CTR", "AES-192-CTR", "AES-256-CTR"}};

// Fetching costs more than a run of a thousand blocks: it is done once per process. Never freed,
// so that whoever still seals at exit can.
constinit std::atomic<EVP_CIPHER*> fetched[3][3] = {};

EVP_CIPHER* cipher(EvpAes::Mode mode, std::size_t key_size) noexcept {
  const auto row = static_cast<std::size_t>(mode);
  const std::size_t column = key_size / 8 - 2;
  std::atomic<EVP_CIPHER*>& slot = fetched[row][column];
  EVP_CIPHER* result = slot.load(std::memory_order_acquire);
  if (result != nullptr) return result;
  ERR_set_mark();
  EVP_CIPHER* const fresh = EVP_CIPHER_fetch(nullptr, names[row][column], nullptr);
  ERR_pop_to_mark();  // that there is none is no error
  if (slot.compare_exchange_strong(result, fresh, std::memory_order_acq_rel)) return fresh;
  EVP_CIPHER_free(fresh);  // another thread was first
  return result;
}

EVP_CIPHER_CTX* context(void* p) noexcept {
  return static_cast<EVP_CIPHER_CTX*>(p);
}

}  // namespace

bool EvpAes::open(Mode mode, const unsigned char* key, std::size_t key_size,
                  const unsigned char* iv) noexcept {
  close();
  const EVP_CIPHER* const algorithm = cipher(mode, key_size);
  if (algorithm == nullptr) return false;
  m_mode = mode;
  m_context = EVP_CIPHER_CTX_new();
  if (m_context == nullptr) return false;
  if (EVP_EncryptInit_ex2(context(m_context), algorithm, key, iv, nullptr) == 1) return true;
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
