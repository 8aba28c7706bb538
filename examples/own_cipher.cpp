// SPDX-License-Identifier: Apache-2.0
// A cipher of one's own, ChaCha20-Poly1305 (RFC 8439) by libcrypto, and a provider that finds it
// besides those of the library.
#include <openssl/evp.h>

#include <iostream>
#include <memory>
#include <string>

#include "ovattribute/attribute_value.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcore/exception.h"

using ovattribute::SecuredValue;
using MemoryListPtr = SecuredValue::MemoryListPtr;

namespace error = ovattribute::error;

// [cipher]
// The ciphertext is nonce (12 bytes), body, tag (16 bytes).
class ChaCha20Poly1305 final : public SecuredValue::ICipher {
 public:
  const std::string& cipher_id() const override { return m_id; }
  std::size_t key_size() const override { return 32; }

  MemoryListPtr encrypt(const MemoryListPtr& plaintext, const std::string& header,
                        const ovcrypto::Key& key,
                        ovcrypto::IRandomProvider& random) const override {
    unsigned char nonce[nonce_size];
    random.generate_random(nonce, nonce_size);
    const Context context = begin(key, header, nonce, true);
    const auto result = ovserialize::MemoryList::create();
    result->append(nonce, nonce_size);
    add(*result, context, *plaintext, 0, plaintext->size());
    unsigned char tag[tag_size];
    int ignored = 0;
    check(EVP_CipherFinal_ex(context.get(), tag, &ignored) == 1);
    check(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, tag_size, tag) == 1);
    result->append(tag, tag_size);
    return result;
  }

  MemoryListPtr decrypt(const ovcrypto::Key& key, const std::string& header,
                        const MemoryListPtr& ciphertext) const override {
    const MemoryListPtr result = open(key, header, ciphertext);
    if (!result) fail(error::ovattribute_value_secured_authentication, "The tag does not verify");
    return result;
  }
  bool authenticate(const ovcrypto::Key& key, const std::string& header,
                    const MemoryListPtr& ciphertext) const override {
    return open(key, header, ciphertext) != nullptr;
  }

 private:
  static constexpr int nonce_size = 12;
  static constexpr int tag_size = 16;
  using Context = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

  [[noreturn]] static void fail(const ovcore::ErrorCode& code, const char* message) {
    ovcore::throw_error(code, message, {"example", "ChaCha20Poly1305", 0});
  }
  static void check(bool done) {
    if (!done) fail(error::ovattribute_value_secured, "libcrypto failed");
  }

  static Context begin(const ovcrypto::Key& key, const std::string& header,
                       const unsigned char* nonce, bool encrypts) {
    if (key.size() != 32) fail(error::ovattribute_value_secured_keysize, "Keys have 32 bytes");
    Context context(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free);
    int ignored = 0;
    check(context && EVP_CipherInit_ex(context.get(), EVP_chacha20_poly1305(), nullptr, key.data(),
                                       nonce, encrypts) == 1);
    check(EVP_CipherUpdate(context.get(), nullptr, &ignored,
                           reinterpret_cast<const unsigned char*>(header.data()),
                           static_cast<int>(header.size())) == 1);
    return context;
  }

  /// Adds the result for `size` bytes of `input` from `offset`.
  static void add(ovserialize::MemoryList& result, const Context& context,
                  const ovserialize::MemoryList& input, std::size_t offset, std::size_t size) {
    input.for_each_span(offset, size, [&](std::span<const unsigned char> bytes) {
      while (!bytes.empty()) {
        const auto room = result.prepare(bytes.size());
        const std::size_t piece = std::min(room.size(), bytes.size());
        int done = 0;
        check(EVP_CipherUpdate(context.get(), room.data(), &done, bytes.data(),
                               static_cast<int>(piece)) == 1);
        result.commit(piece);
        bytes = bytes.subspan(piece);
      }
    });
  }

  /// Null when the tag does not verify: what was decrypted until then is wiped, and nobody sees it.
  static MemoryListPtr open(const ovcrypto::Key& key, const std::string& header,
                            const MemoryListPtr& ciphertext) {
    if (!ciphertext || ciphertext->size() < nonce_size + tag_size)
      fail(error::ovattribute_value_secured_ciphertext, "Too short for nonce and tag");
    unsigned char nonce[nonce_size];
    unsigned char tag[tag_size];
    const std::size_t size = ciphertext->size() - nonce_size - tag_size;
    ciphertext->copy_to(nonce, 0, nonce_size);
    ciphertext->copy_to(tag, nonce_size + size, tag_size);
    const Context context = begin(key, header, nonce, false);
    auto result = ovserialize::MemoryList::create({.wiping = true});
    add(*result, context, *ciphertext, nonce_size, size);
    int ignored = 0;
    check(EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, tag_size, tag) == 1);
    if (EVP_CipherFinal_ex(context.get(), tag, &ignored) != 1) return nullptr;
    return result;
  }

  const std::string m_id = "CHACHA20_POLY1305";
};
// [cipher]

// [provider]
class Provider final : public SecuredValue::ICipherProvider {
 public:
  ovcore::InterfacePtr<const SecuredValue::ICipher> find_cipher(
      const std::string& cipher_id) const override {
    if (cipher_id == m_cipher.cipher_id())
      return ovcore::InterfacePtr<const SecuredValue::ICipher>(&m_cipher);
    return SecuredValue::default_cipher_provider()->find_cipher(cipher_id);
  }
  const SecuredValue::ICipher& cipher() const { return m_cipher; }

 private:
  ChaCha20Poly1305 m_cipher;
};
// [provider]

int main() {
  // [use]
  static const Provider provider;
  const ovcrypto::Key key("0123456789abcdef0123456789abcdef", 32);  // yours is random
  const SecuredValue sealed("a secret", "an annotation", {}, key, provider.cipher());
  std::cout << sealed.cipher_id() << " of " << sealed.data_size() << " bytes\n";
  std::cout << sealed.extract(key, provider) << "\n";
  std::cout << (sealed.authenticate(ovcrypto::Key(32), provider) ? "right" : "wrong") << " key\n";
  // [use]
  try {
    std::cout << sealed.extract(key);
  } catch (const ovcore::Exception& e) {
    std::cout << e.what() << "\n";
  }
}
