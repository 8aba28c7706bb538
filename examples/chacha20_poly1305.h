// SPDX-License-Identifier: Apache-2.0
// A cipher of one's own: ChaCha20-Poly1305 (RFC 8439) by libcrypto.
#pragma once

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <span>
#include <string>

#include "ovattribute/error_codes.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcore/exception.h"

// The ciphertext is nonce (12 bytes), body, tag (16 bytes).
//
// LIMIT: seal at most 2^32 values under one key. Nonces are random and have but 96 bits: of 2^32
// two are the same with a chance of 2^-33. Who sees two values under one nonce learns the
// difference of their plaintexts, and can forge others. (The library's own ciphers have nonces of
// 128 bits.)
class ChaCha20Poly1305 final : public ovattribute::SecuredValue::ICipher {
  using MemoryListPtr = ovattribute::SecuredValue::MemoryListPtr;

 public:
  const std::string& cipher_id() const override { return m_id; }
  std::size_t key_size() const override { return 32; }

  MemoryListPtr encrypt(const MemoryListPtr& plaintext, const std::string& header,
                        const ovcrypto::Key& key,
                        ovcrypto::IRandomProvider& random) const override {
    unsigned char nonce[nonce_size];
    unsigned char tag[tag_size];
    random.generate_random(nonce, nonce_size);
    const auto result = ovserialize::MemoryList::create();
    result->append(nonce, nonce_size);
    // A null list is an empty one.
    run(true, key, header, nonce, plaintext.get(), 0, plaintext ? plaintext->size() : 0, *result,
        tag);
    result->append(tag, tag_size);
    return result;
  }
  MemoryListPtr decrypt(const ovcrypto::Key& key, const std::string& header,
                        const MemoryListPtr& ciphertext) const override {
    const MemoryListPtr result = open(key, header, ciphertext);
    if (!result)
      fail(ovattribute::error::ovattribute_value_secured_authentication, "The tag does not verify");
    return result;
  }
  bool authenticate(const ovcrypto::Key& key, const std::string& header,
                    const MemoryListPtr& ciphertext) const override {
    return open(key, header, ciphertext) != nullptr;
  }

 private:
  static constexpr int nonce_size = 12;
  static constexpr int tag_size = 16;

  [[noreturn]] static void fail(const ovcore::ErrorCode& code, const char* message) {
    ovcore::throw_error(code, message, {"example", "ChaCha20Poly1305", 0});
  }
  static void check(bool done) {
    if (!done) fail(ovattribute::error::ovattribute_value_secured, "libcrypto failed");
  }

  /// Null when the tag does not verify: what was decrypted until then is wiped, and nobody sees it.
  static MemoryListPtr open(const ovcrypto::Key& key, const std::string& header,
                            const MemoryListPtr& ciphertext) {
    if (!ciphertext || ciphertext->size() < nonce_size + tag_size)
      fail(ovattribute::error::ovattribute_value_secured_ciphertext, "Too short for nonce and tag");
    unsigned char nonce[nonce_size];
    unsigned char tag[tag_size];
    const std::size_t size = ciphertext->size() - nonce_size - tag_size;
    ciphertext->copy_to(nonce, 0, nonce_size);
    ciphertext->copy_to(tag, nonce_size + size, tag_size);
    auto result = ovserialize::MemoryList::create({.wiping = true});
    if (!run(false, key, header, nonce, ciphertext.get(), nonce_size, size, *result, tag))
      return nullptr;
    return result;
  }

  /// In pieces of a size that fits libcrypto's int. Without `out` it is the header.
  static void update(EVP_CIPHER_CTX* c, unsigned char* out, const unsigned char* in,
                     std::size_t size) {
    constexpr std::size_t largest = std::size_t{1} << 30;
    while (size > 0) {
      const std::size_t piece = std::min(size, largest);
      int done = 0;
      check(EVP_CipherUpdate(c, out, &done, in, static_cast<int>(piece)));
      if (out != nullptr) out += piece;
      in += piece;
      size -= piece;
    }
  }

  /// Adds the result for `size` bytes of `input` from `offset`. Makes the tag, or compares it:
  /// false when it is another.
  static bool run(bool encrypts, const ovcrypto::Key& key, const std::string& header,
                  const unsigned char* nonce, const ovserialize::MemoryList* input,
                  std::size_t offset, std::size_t size, ovserialize::MemoryList& result,
                  unsigned char* tag) {
    if (key.size() != 32)
      fail(ovattribute::error::ovattribute_value_secured_keysize, "Keys have 32 bytes");
    const std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> owner(
        EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    EVP_CIPHER_CTX* const c = owner.get();
    check(c && EVP_CipherInit_ex(c, EVP_chacha20_poly1305(), nullptr, key.data(), nonce, encrypts));
    update(c, nullptr, reinterpret_cast<const unsigned char*>(header.data()), header.size());
    if (size > 0) {
      input->for_each_span(offset, size, [&](std::span<const unsigned char> bytes) {
        while (!bytes.empty()) {
          const auto room = result.prepare(bytes.size());
          const std::size_t piece = std::min(room.size(), bytes.size());
          update(c, room.data(), bytes.data(), piece);
          result.commit(piece);
          bytes = bytes.subspan(piece);
        }
      });
    }
    if (!encrypts) check(EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_AEAD_SET_TAG, tag_size, tag));
    int none = 0;
    const bool good = EVP_CipherFinal_ex(c, tag, &none);
    if (encrypts) check(good && EVP_CIPHER_CTX_ctrl(c, EVP_CTRL_AEAD_GET_TAG, tag_size, tag));
    return good;
  }

  const std::string m_id = "CHACHA20_POLY1305";
};
