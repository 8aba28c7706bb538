// SPDX-License-Identifier: Apache-2.0
// A provider that finds a cipher of one's own besides those of the library.
#include <iostream>
#include <string>

#include "chacha20_poly1305.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/secured_value.h"
#include "ovcore/exception.h"

using ovattribute::SecuredValue;

// [provider]
class Provider final : public SecuredValue::ICipherProvider {
 public:
  ovcore::InterfacePtr<const SecuredValue::ICipher> find_cipher(
      const std::string& cipher_id) const override {
    if (cipher_id == m_cipher.cipher_id())
      return ovcore::InterfacePtr<const SecuredValue::ICipher>(&m_cipher);
    return SecuredValue::authenticating_cipher_provider()->find_cipher(cipher_id);
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
  const auto nothing =
      provider.cipher().encrypt(nullptr, "", key, ovcrypto::default_random_provider());
  std::cout << "nothing sealed has " << nothing->size() << " bytes\n";
  try {
    std::cout << sealed.extract(key);
  } catch (const ovcore::Exception& e) {
    std::cout << e.what() << "\n";
  }
}
