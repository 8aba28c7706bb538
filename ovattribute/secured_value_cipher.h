// SPDX-License-Identifier: Apache-2.0
// What seals and opens secured values. docs/security.md says what sealing protects and what not.
#pragma once

#include <cstddef>
#include <string>

#include "ovattribute/secured_value.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcrypto/key.h"
#include "ovcrypto/random_provider.h"
#include "ovserialize/memory_list.h"

namespace ovattribute {

/// An authenticated cipher: immutable, usable by any number of threads at once. The library has
/// "EAX_AES128" (the default), "EAX_AES256" and "NULL", which takes an empty key and seals nothing.
/// Other ciphers are reached through a provider of the caller's own.
class OV_EXPORT SecuredValue::ICipher {
 public:
  /// The name under which a secured value records it.
  [[nodiscard]] virtual const std::string& cipher_id() const = 0;
  /// Bytes of its keys.
  [[nodiscard]] virtual std::size_t key_size() const = 0;

  // All of these raise `ovattribute_value_secured_keysize` for a key of another size.

  /// Encrypts one message (EAX: Bellare, Rogaway, Wagner 2004) under a fresh nonce of `random`.
  /// `header`: authenticated, not encrypted. Gives nonce (16 bytes), body, tag (16 bytes).
  [[nodiscard]] virtual MemoryListPtr encrypt(const MemoryListPtr& plaintext,
                                              const std::string& header, const ovcrypto::Key& key,
                                              ovcrypto::IRandomProvider& random) const = 0;
  /// Checks the tag, then decrypts, into a wiping list. No plaintext exists before the tag has
  /// verified, so a caller never sees forged bytes. Raises `ovattribute_value_secured_ciphertext`
  /// (under 32 bytes) and `ovattribute_value_secured_authentication`.
  [[nodiscard]] virtual MemoryListPtr decrypt(const ovcrypto::Key& key, const std::string& header,
                                              const MemoryListPtr& ciphertext) const = 0;
  /// Whether the tag verifies; decrypts nothing. Raises `ovattribute_value_secured_ciphertext`.
  [[nodiscard]] virtual bool authenticate(const ovcrypto::Key& key, const std::string& header,
                                          const MemoryListPtr& ciphertext) const = 0;

 protected:
  ICipher() = default;
  ICipher(const ICipher&) = default;
  ICipher& operator=(const ICipher&) = default;
  ~ICipher() = default;
};

/// Finds ciphers by id. Usable by any number of threads at once.
class OV_EXPORT SecuredValue::ICipherProvider {
 public:
  /// Null when the id, byte by byte, is unknown.
  [[nodiscard]] virtual ovcore::InterfacePtr<const ICipher> find_cipher(
      const std::string& cipher_id) const = 0;

 protected:
  ICipherProvider() = default;
  ICipherProvider(const ICipherProvider&) = default;
  ICipherProvider& operator=(const ICipherProvider&) = default;
  ~ICipherProvider() = default;
};

}  // namespace ovattribute
