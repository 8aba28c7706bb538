// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/secured_value_cipher.h"

#include <algorithm>

#include "ovattribute/error_codes.h"
#include "ovattribute/impl/eax.h"
#include "ovcore/error_composer.h"
#include "ovcore/impl/at_load.h"
#include "ovcore/static_instance.h"
#include "ovcrypto/wiped.h"

namespace ovattribute {
namespace impl {
namespace {

using ovcrypto::Key;
using ovserialize::MemoryList;
using MemoryListPtr = SecuredValue::MemoryListPtr;

constexpr std::size_t nonce_size = Eax::nonce_size;
constexpr std::size_t tag_size = Eax::tag_size;

ovcore::SourceLocation cipher_location(const char* function) {
  return {"ovattribute/secured_value", function, 0};
}

void check_keysize(const SecuredValue::ICipher& cipher, const Key& key, const char* function) {
  if (key.size() == cipher.key_size()) return;
  ovcore::ErrorComposer(
      "Size of key provided does not match cipher.  Cipher={@cipherId}, "
      "Expexted={@expectedKeysize}, Provided={@keysize}")
      .add("cipherId", cipher.cipher_id())
      .add("expectedKeysize", cipher.key_size())
      .add("keysize", key.size())
      .throw_error(error::ovattribute_value_secured_keysize, cipher_location(function));
}

// Hands the bytes of `list` from `offset` to f(bytes, room), in pieces, and appends to `out` what f
// writes into the room, which is as long as the bytes.
template <class F>
void transform(const MemoryList& list, std::size_t offset, std::size_t size, MemoryList& out,
               F&& f) {
  list.for_each_span(offset, size, [&](std::span<const unsigned char> bytes) {
    while (!bytes.empty()) {
      const std::span<unsigned char> room = out.prepare(bytes.size());
      f(bytes.first(room.size()), room);
      out.commit(room.size());
      bytes = bytes.subspan(room.size());
    }
  });
}

}  // namespace

/// EAX with AES, whatever the size of the key. The ciphertext is nonce, body, tag.
class SecuredValueCipherEaxAesBase : public SecuredValue::ICipher {
 public:
  const std::string& cipher_id() const final { return m_cipher_id; }

  MemoryListPtr encrypt(const MemoryListPtr& plaintext, const std::string& header, const Key& key,
                        ovcrypto::IRandomProvider& random) const final;
  MemoryListPtr decrypt(const Key& key, const std::string& header,
                        const MemoryListPtr& ciphertext) const final;
  bool authenticate(const Key& key, const std::string& header,
                    const MemoryListPtr& ciphertext) const final {
    return authenticate_decrypt(key, header, ciphertext, nullptr);
  }

 protected:
  explicit SecuredValueCipherEaxAesBase(const char* cipher_id) : m_cipher_id(cipher_id) {}
  ~SecuredValueCipherEaxAesBase() = default;

 private:
  /// Whether the tag verifies; only then `plaintext`, unless null, is filled.
  bool authenticate_decrypt(const Key& key, const std::string& header,
                            const MemoryListPtr& ciphertext, MemoryListPtr* plaintext) const;

  const std::string m_cipher_id;
};

MemoryListPtr SecuredValueCipherEaxAesBase::encrypt(const MemoryListPtr& plaintext,
                                                    const std::string& header, const Key& key,
                                                    ovcrypto::IRandomProvider& random) const {
  check_keysize(*this, key, "ovattribute::impl::SecuredValueCipherEaxAesBase::encrypt()");
  unsigned char nonce[nonce_size];
  random.generate_random(nonce, nonce_size);

  const std::size_t size = plaintext ? plaintext->size() : 0;
  Eax eax(key, nonce, header, size);
  auto out = MemoryList::create({.reserve = nonce_size + size + tag_size});
  out->append(nonce, nonce_size);
  if (size > 0) {
    transform(*plaintext, 0, size, *out, [&eax](auto bytes, auto room) {
      eax.encrypt(bytes.data(), room.data(), room.size());
    });
  }
  ovcrypto::AesBlock tag;
  eax.finish(tag);
  out->append(tag.data(), tag_size);
  return out;
}

bool SecuredValueCipherEaxAesBase::authenticate_decrypt(const Key& key, const std::string& header,
                                                        const MemoryListPtr& ciphertext,
                                                        MemoryListPtr* plaintext) const {
  static constexpr const char* function =
      "ovattribute::impl::SecuredValueCipherEaxAesBase::authenticate_decrypt()";
  check_keysize(*this, key, function);
  if (!ciphertext || ciphertext->size() < nonce_size + tag_size) {
    ovcore::ErrorComposer("Ciphertext size not valid for cipher.  Cipher={@cipherId}")
        .add("cipherId", m_cipher_id)
        .throw_error(error::ovattribute_value_secured_ciphertext, cipher_location(function));
  }
  const std::size_t size = ciphertext->size() - nonce_size - tag_size;
  unsigned char nonce[nonce_size];
  unsigned char stored_tag[tag_size];
  ciphertext->copy_to(nonce, 0, nonce_size);
  ciphertext->copy_to(stored_tag, nonce_size + size, tag_size);

  Eax eax(key, nonce, header, size);
  ciphertext->for_each_span(nonce_size, size,
                            [&eax](auto bytes) { eax.absorb(bytes.data(), bytes.size()); });
  ovcrypto::AesBlock tag;
  eax.finish(tag);
  if (!ovcrypto::equal_in_constant_time(tag.data(), stored_tag, tag_size)) return false;
  if (plaintext == nullptr) return true;

  auto out = MemoryList::create({.reserve = std::max<std::size_t>(size, 1), .wiping = true});
  transform(*ciphertext, nonce_size, size, *out,
            [&eax](auto bytes, auto room) { eax.decrypt(bytes.data(), room.data(), room.size()); });
  *plaintext = std::move(out);
  return true;
}

MemoryListPtr SecuredValueCipherEaxAesBase::decrypt(const Key& key, const std::string& header,
                                                    const MemoryListPtr& ciphertext) const {
  MemoryListPtr plaintext;
  if (authenticate_decrypt(key, header, ciphertext, &plaintext)) return plaintext;
  ovcore::ErrorComposer("Ciphertext fails authentication with provided key.  Cipher={@cipherId}")
      .add("cipherId", m_cipher_id)
      .throw_error(error::ovattribute_value_secured_authentication,
                   cipher_location(
                       "ovattribute::impl::SecuredValueCipherEaxAesBase::authenticate_decrypt()"));
}

class SecuredValueCipherEaxAes128 final : public SecuredValueCipherEaxAesBase {
 public:
  SecuredValueCipherEaxAes128() : SecuredValueCipherEaxAesBase("EAX_AES128") {}
  std::size_t key_size() const override { return 16; }
};

class SecuredValueCipherEaxAes256 final : public SecuredValueCipherEaxAesBase {
 public:
  SecuredValueCipherEaxAes256() : SecuredValueCipherEaxAesBase("EAX_AES256") {}
  std::size_t key_size() const override { return 32; }
};

/// Seals nothing: the "ciphertext" is the list of the plaintext itself.
class SecuredValueCipherNull final : public SecuredValue::ICipher {
 public:
  const std::string& cipher_id() const override { return m_cipher_id; }
  std::size_t key_size() const override { return 0; }

  MemoryListPtr encrypt(const MemoryListPtr& plaintext, const std::string&, const Key& key,
                        ovcrypto::IRandomProvider&) const override {
    check_keysize(key);
    return plaintext;
  }
  MemoryListPtr decrypt(const Key& key, const std::string&,
                        const MemoryListPtr& ciphertext) const override {
    check_keysize(key);
    return ciphertext;
  }
  bool authenticate(const Key& key, const std::string&, const MemoryListPtr&) const override {
    check_keysize(key);
    return true;
  }

 private:
  void check_keysize(const Key& key) const {
    impl::check_keysize(*this, key, "ovattribute::impl::SecuredValueCipherNull::check_keysize()");
  }

  const std::string m_cipher_id = "NULL";
};

namespace {

template <class Cipher>
ovcore::InterfacePtr<const SecuredValue::ICipher> the_cipher() {
  static const ovcore::StaticInstance<const Cipher> cipher;
  return ovcore::InterfacePtr<const SecuredValue::ICipher>(&*cipher);
}

}  // namespace

class AuthenticatingCipherProvider final : public SecuredValue::ICipherProvider {
 public:
  ovcore::InterfacePtr<const SecuredValue::ICipher> find_cipher(
      const std::string& cipher_id) const override {
    for (const auto& cipher :
         {the_cipher<SecuredValueCipherEaxAes128>(), the_cipher<SecuredValueCipherEaxAes256>()}) {
      if (cipher->cipher_id() == cipher_id) return cipher;
    }
    return nullptr;
  }
};

class DefaultCipherProvider final : public SecuredValue::ICipherProvider {
 public:
  ovcore::InterfacePtr<const SecuredValue::ICipher> find_cipher(
      const std::string& cipher_id) const override {
    auto cipher = SecuredValue::authenticating_cipher_provider()->find_cipher(cipher_id);
    if (cipher) return cipher;
    const auto null = the_cipher<SecuredValueCipherNull>();
    return cipher_id == null->cipher_id() ? null : nullptr;
  }
};

}  // namespace impl

ovcore::InterfacePtr<const SecuredValue::ICipher> SecuredValue::default_cipher() {
  return impl::the_cipher<impl::SecuredValueCipherEaxAes128>();
}

ovcore::InterfacePtr<const SecuredValue::ICipherProvider> SecuredValue::default_cipher_provider() {
  static const ovcore::StaticInstance<const impl::DefaultCipherProvider> provider;
  return ovcore::InterfacePtr<const ICipherProvider>(&*provider);
}

ovcore::InterfacePtr<const SecuredValue::ICipherProvider>
SecuredValue::authenticating_cipher_provider() {
  static const ovcore::StaticInstance<const impl::AuthenticatingCipherProvider> provider;
  return ovcore::InterfacePtr<const ICipherProvider>(&*provider);
}

namespace {

[[maybe_unused]] const bool g_ciphers_ready = ovcore::impl::at_load([] {
  static_cast<void>(SecuredValue::default_cipher_provider()->find_cipher(""));  // and all ciphers
});

}  // namespace

}  // namespace ovattribute
