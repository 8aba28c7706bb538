// SPDX-License-Identifier: Apache-2.0
// EAX over AES: M. Bellare, P. Rogaway, D. Wagner, "The EAX Mode of Operation" (2004), figure 4.
// The names N', H', C' are the paper's; its OMAC is CMAC (NIST SP 800-38B).
#pragma once

#include <cstddef>
#include <string>

#include "ovcrypto/aes.h"
#include "ovcrypto/key.h"

namespace ovattribute::impl {

/// One message under one nonce. Its body goes either through `encrypt` or through `absorb` and,
/// when the tag is found right, `decrypt`; in pieces of any size. Lives on the stack of one call.
class Eax {
 public:
  static constexpr std::size_t nonce_size = 16;
  static constexpr std::size_t tag_size = ovcrypto::aes_block_size;

  /// `nonce`: 16 bytes. `size`: bytes of the body. Raises `ovcrypto_key_size`.
  Eax(const ovcrypto::Key& key, const unsigned char* nonce, const std::string& header,
      std::size_t size);

  void encrypt(const unsigned char* plaintext, unsigned char* ciphertext, std::size_t size);
  void absorb(const unsigned char* ciphertext, std::size_t size) {
    m_cmac.update(ciphertext, size);
  }
  /// The tag of what was absorbed; once.
  void finish(ovcrypto::AesBlock& tag);
  void decrypt(const unsigned char* ciphertext, unsigned char* plaintext, std::size_t size) {
    m_counter.crypt(ciphertext, plaintext, size);
  }

 private:
  /// N', where the counter begins.
  const unsigned char* nonce_omac(const unsigned char* nonce);

  ovcrypto::AesCmacContext m_cmac;  // computes N', then H', then C'
  ovcrypto::AesBlock m_seed;        // N', then N' xor H'
  ovcrypto::AesCounterContext m_counter;
};

}  // namespace ovattribute::impl
