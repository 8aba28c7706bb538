// SPDX-License-Identifier: Apache-2.0
// The element type of Secured values: a value under authenticated encryption. docs/security.md says
// what sealing protects and what not; the ciphers are in secured_value_cipher.h.
#pragma once

#include <compare>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

#include "ovattribute/impl/cached_hash.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/uuid.h"
#include "ovcrypto/random_provider.h"
#include "ovserialize/memory_list.h"

namespace ovcore {
class ErrorInfo;
}

namespace ovcrypto {
class Key;
}

namespace ovserialize {
class Reader;
class Writer;
}  // namespace ovserialize

namespace ovattribute {

class AttributeValue;
class SecuredValue;

namespace impl {
/// Unlike `SecuredValue::hash` also of the ciphertext; not kept.
[[nodiscard]] std::size_t equality_hash(const SecuredValue& value) noexcept;
}  // namespace impl

/// What sealing left: the ciphertext, which cipher and which key made it, and a text in the clear
/// that is authenticated with it. Everybody can copy, compare, write and read it; who has the key
/// can open it. Copies share the ciphertext, between threads too.
class OV_EXPORT SecuredValue {
 public:
  using MemoryListPtr = ovcore::RefCountPtr<const ovserialize::MemoryList>;
  using ErrorInfoPtr = ovcore::RefCountPtr<const ovcore::ErrorInfo>;
  class ICipher;
  class ICipherProvider;

  /// Names a key: the family it belongs to, and which of them it is. Ordered by instance, then by
  /// category.
  class OV_EXPORT KeyId {
   public:
    KeyId() noexcept = default;
    KeyId(std::string category, const ovcore::Uuid& instance_id) noexcept
        : m_category(std::move(category)), m_instance_id(instance_id) {}
    explicit KeyId(ovserialize::Reader& reader) { read(reader); }

    [[nodiscard]] const std::string& category() const noexcept { return m_category; }
    [[nodiscard]] const ovcore::Uuid& instance_id() const noexcept { return m_instance_id; }

    void clear() noexcept { KeyId().swap(*this); }
    void swap(KeyId& other) noexcept;
    friend void swap(KeyId& a, KeyId& b) noexcept { a.swap(b); }

    [[nodiscard]] std::size_t hash() const noexcept;
    friend bool operator==(const KeyId&, const KeyId&) noexcept = default;
    friend std::strong_ordering operator<=>(const KeyId& a, const KeyId& b) noexcept {
      const auto order = a.m_instance_id <=> b.m_instance_id;
      return order != 0 ? order : a.m_category <=> b.m_category;
    }

    /// A structure of category and instance. Unchanged when it cannot be read.
    void write(ovserialize::Writer& writer) const;
    void read(ovserialize::Reader& reader);

   private:
    std::string m_category;
    ovcore::Uuid m_instance_id;
  };

  /// Empty texts, an empty key id and no data: it opens with no key.
  SecuredValue() noexcept = default;
  explicit SecuredValue(ovserialize::Reader& reader) { read(reader); }
  /// Seals a value, or a key as the Binary value of its bytes. The annotation is authenticated, not
  /// encrypted; `key_id` is what a holder of the key finds it by. Raise what the writer, the cipher
  /// and the random provider raise.
  SecuredValue(const AttributeValue& plaintext, std::string annotation, KeyId key_id,
               const ovcrypto::Key& key, const ICipher& cipher,
               ovcrypto::IRandomProvider& random = ovcrypto::default_random_provider());
  SecuredValue(const ovcrypto::Key& plaintext, std::string annotation, KeyId key_id,
               const ovcrypto::Key& key, const ICipher& cipher,
               ovcrypto::IRandomProvider& random = ovcrypto::default_random_provider());

  /// "EAX_AES128", for new values.
  [[nodiscard]] static ovcore::InterfacePtr<const ICipher> default_cipher();
  /// Knows "EAX_AES128", "EAX_AES256" and "NULL".
  ///
  /// WARNING: "NULL" protects nothing. Whoever writes a value chooses its cipher, so one that
  /// anybody has made up opens with this provider and an empty key, and is called authentic. Open
  /// what comes from elsewhere with `authenticating_cipher_provider`.
  [[nodiscard]] static ovcore::InterfacePtr<const ICipherProvider> default_cipher_provider();
  /// Knows "EAX_AES128" and "EAX_AES256": what it opens was sealed by someone who has the key.
  [[nodiscard]] static ovcore::InterfacePtr<const ICipherProvider> authenticating_cipher_provider();

  [[nodiscard]] const std::string& annotation() const noexcept { return m_annotation; }
  [[nodiscard]] const std::string& cipher_id() const noexcept { return m_cipher_id; }
  [[nodiscard]] const KeyId& key_id() const noexcept { return m_key_id; }
  /// Bytes of the ciphertext.
  [[nodiscard]] std::size_t data_size() const noexcept { return m_data ? m_data->size() : 0; }

  /// Opens what was sealed. Raise `ovattribute_value_secured_cipher_unknown` when the provider has
  /// no such cipher, what the cipher raises for a wrong key or changed bytes, and what the reader
  /// raises for a plaintext that is no value; `ovserialize_reader_malformed` also where anything
  /// follows the value. With an error pointer nothing of this is raised: the error is stored there
  /// and the result is Null; the pointer becomes null on success.
  ///
  /// WARNING: without a provider these, and those below, take `default_cipher_provider`, under
  /// which a forged value of the cipher "NULL" is authentic under an empty key.
  [[nodiscard]] AttributeValue extract(const ovcrypto::Key& key,
                                       ErrorInfoPtr* error = nullptr) const;
  [[nodiscard]] AttributeValue extract(const ovcrypto::Key& key, const ICipherProvider& provider,
                                       ErrorInfoPtr* error = nullptr) const;
  /// The same for a sealed key, whose bytes are wherever they pass wiped behind them. Raise, or
  /// store and give an empty key, also `ovattribute_value_type_mismatch` for anything but one
  /// Binary element.
  [[nodiscard]] ovcrypto::Key extract_binary_as_key(const ovcrypto::Key& key,
                                                    ErrorInfoPtr* error = nullptr) const;
  [[nodiscard]] ovcrypto::Key extract_binary_as_key(const ovcrypto::Key& key,
                                                    const ICipherProvider& provider,
                                                    ErrorInfoPtr* error = nullptr) const;
  /// Whether this was sealed with the key and nothing has changed since; opens nothing. Raise as
  /// `extract`, but not for changed bytes.
  [[nodiscard]] bool authenticate(const ovcrypto::Key& key) const;
  [[nodiscard]] bool authenticate(const ovcrypto::Key& key, const ICipherProvider& provider) const;

  /// Seals anew, as the constructors. Unchanged when that fails.
  void set(const AttributeValue& plaintext, std::string annotation, KeyId key_id,
           const ovcrypto::Key& key, const ICipher& cipher,
           ovcrypto::IRandomProvider& random = ovcrypto::default_random_provider());
  void set(const ovcrypto::Key& plaintext, std::string annotation, KeyId key_id,
           const ovcrypto::Key& key, const ICipher& cipher,
           ovcrypto::IRandomProvider& random = ovcrypto::default_random_provider());
  void clear() noexcept { SecuredValue().swap(*this); }
  void swap(SecuredValue& other) noexcept;
  friend void swap(SecuredValue& a, SecuredValue& b) noexcept { a.swap(b); }

  /// By ciphertext, annotation, cipher and key. -1, 0 or 1.
  [[nodiscard]] int compare(const SecuredValue& other) const noexcept;
  /// Of everything but the ciphertext, so that all values under one key may have the same; computed
  /// once. `std::hash` of an `AttributeValue` looks at the ciphertext, too.
  [[nodiscard]] std::size_t hash() const {
    return m_hash.get([this] { return calc_hash_aux(); });
  }

  friend bool operator==(const SecuredValue& a, const SecuredValue& b) noexcept {
    return a.compare(b) == 0;
  }
  friend std::strong_ordering operator<=>(const SecuredValue& a, const SecuredValue& b) noexcept {
    return a.compare(b) <=> 0;
  }

  /// A structure of annotation, cipher, key id and ciphertext. Unchanged when it cannot be read.
  void write(ovserialize::Writer& writer) const;
  void read(ovserialize::Reader& reader);

 private:
  friend std::size_t impl::equality_hash(const SecuredValue& value) noexcept;

  SecuredValue(const MemoryListPtr& plaintext, std::string annotation, KeyId key_id,
               const ovcrypto::Key& key, const ICipher& cipher, ovcrypto::IRandomProvider& random);
  [[nodiscard]] MemoryListPtr decrypt(const ovcrypto::Key& key,
                                      const ICipherProvider& provider) const;
  [[nodiscard]] std::size_t calc_hash_aux() const noexcept;

  std::string m_annotation;
  std::string m_cipher_id;
  KeyId m_key_id;
  MemoryListPtr m_data;  // null: no bytes
  impl::CachedHash m_hash;
};

/// `category:instance`.
OV_EXPORT std::ostream& operator<<(std::ostream& out, const SecuredValue::KeyId& id);
/// `(cipher=..., keyid=..., datasize=...)`, nothing of annotation and ciphertext.
OV_EXPORT std::ostream& operator<<(std::ostream& out, const SecuredValue& value);

}  // namespace ovattribute
