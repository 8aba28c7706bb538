// SPDX-License-Identifier: Apache-2.0
#include <utility>

#include "ovattribute/attribute_value.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/impl/key_marshaler.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcrypto/wiped.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

namespace ovattribute {
namespace {

using ovcrypto::Key;
using MemoryListPtr = SecuredValue::MemoryListPtr;

/// Overwrites what the calls of an operation have left on the stack below it: values that were
/// read or written have passed there.
class WipeStackAtEnd {
 public:
  WipeStackAtEnd() noexcept = default;
  WipeStackAtEnd(const WipeStackAtEnd&) = delete;
  WipeStackAtEnd& operator=(const WipeStackAtEnd&) = delete;
  ~WipeStackAtEnd() { wipe(); }

 private:
  [[gnu::noinline]] static void wipe() noexcept {
    unsigned char below[16384];  // deep enough for maps nested some dozens deep
    ovcrypto::wipe(below, sizeof below);
  }
};

template <class F>
[[gnu::noinline]] auto call_below(F& f) {
  return f();
}

template <class F>
MemoryListPtr marshal_with(F&& write) {
  const WipeStackAtEnd wiped;
  const auto marshal = [&write] {
    ovserialize::MemoryWriter writer({.wiping = true});
    write(writer);
    return writer.detach();
  };
  return call_below(marshal);
}

MemoryListPtr marshal(const AttributeValue& plaintext) {
  return marshal_with([&](auto& writer) { write_attribute_value(writer, plaintext); });
}

// Writes what a Binary value of these bytes would be, without ever making one.
MemoryListPtr marshal(const Key& plaintext) {
  return marshal_with(
      [&](auto& writer) { writer.write_binary(plaintext.data(), plaintext.size()); });
}

ovcore::InterfacePtr<const SecuredValue::ICipher> find_cipher(
    const SecuredValue::ICipherProvider& provider, const std::string& cipher_id,
    const char* function) {
  auto cipher = provider.find_cipher(cipher_id);
  if (cipher) return cipher;
  ovcore::ErrorComposer("Unknown/unsupported cipher: {@cipherId}")
      .add("cipherId", cipher_id)
      .throw_error(error::ovattribute_value_secured_cipher_unknown,
                   {"ovattribute/secured_value", function, 0});
}

/// Bytes behind the value were sealed with it, so ignoring them would ignore what was meant.
void check_end(ovserialize::Reader& reader) {
  if (reader.at_end()) return;
  ovcore::ErrorComposer("More bytes follow the sealed value at offset {@offset}")
      .add("offset", reader.offset())
      .throw_error(ovserialize::error::ovserialize_reader_malformed,
                   {"ovattribute/secured_value", "ovattribute::SecuredValue::extract()", 0});
}

// What `open` gives; with an error pointer, its error goes there and the result is empty.
template <class F>
auto open_or_store(SecuredValue::ErrorInfoPtr* error, F&& open) -> decltype(open()) {
  const WipeStackAtEnd wiped;
  if (error == nullptr) return call_below(open);
  try {
    auto result = call_below(open);
    error->reset();
    return result;
  } catch (const ovcore::Exception& e) {
    *error = e.info();
    return {};
  }
}

}  // namespace

SecuredValue::SecuredValue(const MemoryListPtr& plaintext, std::string annotation, KeyId key_id,
                           const Key& key, const ICipher& cipher, ovcrypto::IRandomProvider& random)
    : m_annotation(std::move(annotation)),
      m_cipher_id(cipher.cipher_id()),
      m_key_id(std::move(key_id)),
      m_data(cipher.encrypt(plaintext, m_annotation, key, random)) {}

SecuredValue::SecuredValue(const AttributeValue& plaintext, std::string annotation, KeyId key_id,
                           const Key& key, const ICipher& cipher, ovcrypto::IRandomProvider& random)
    : SecuredValue(marshal(plaintext), std::move(annotation), std::move(key_id), key, cipher,
                   random) {}

SecuredValue::SecuredValue(const Key& plaintext, std::string annotation, KeyId key_id,
                           const Key& key, const ICipher& cipher, ovcrypto::IRandomProvider& random)
    : SecuredValue(marshal(plaintext), std::move(annotation), std::move(key_id), key, cipher,
                   random) {}

void SecuredValue::set(const AttributeValue& plaintext, std::string annotation, KeyId key_id,
                       const Key& key, const ICipher& cipher, ovcrypto::IRandomProvider& random) {
  SecuredValue(plaintext, std::move(annotation), std::move(key_id), key, cipher, random)
      .swap(*this);
}

void SecuredValue::set(const Key& plaintext, std::string annotation, KeyId key_id, const Key& key,
                       const ICipher& cipher, ovcrypto::IRandomProvider& random) {
  SecuredValue(plaintext, std::move(annotation), std::move(key_id), key, cipher, random)
      .swap(*this);
}

MemoryListPtr SecuredValue::decrypt(const Key& key, const ICipherProvider& provider) const {
  const auto cipher = find_cipher(provider, m_cipher_id, "ovattribute::SecuredValue::extract()");
  return cipher->decrypt(key, m_annotation, m_data);
}

AttributeValue SecuredValue::extract(const Key& key, const ICipherProvider& provider,
                                     ErrorInfoPtr* error) const {
  return open_or_store(error, [&] {
    ovserialize::MemoryReader reader(decrypt(key, provider));
    AttributeValue value = read_attribute_value(reader);
    check_end(reader);
    return value;
  });
}

Key SecuredValue::extract_binary_as_key(const Key& key, const ICipherProvider& provider,
                                        ErrorInfoPtr* error) const {
  return open_or_store(error, [&] {
    ovserialize::MemoryReader reader(decrypt(key, provider));
    Key inside = impl::read_key_as_binary(reader);
    check_end(reader);
    return inside;
  });
}

bool SecuredValue::authenticate(const Key& key, const ICipherProvider& provider) const {
  const auto cipher =
      find_cipher(provider, m_cipher_id, "ovattribute::SecuredValue::authenticate()");
  return cipher->authenticate(key, m_annotation, m_data);
}

AttributeValue SecuredValue::extract(const Key& key, ErrorInfoPtr* error) const {
  return extract(key, *default_cipher_provider(), error);
}

Key SecuredValue::extract_binary_as_key(const Key& key, ErrorInfoPtr* error) const {
  return extract_binary_as_key(key, *default_cipher_provider(), error);
}

bool SecuredValue::authenticate(const Key& key) const {
  return authenticate(key, *default_cipher_provider());
}

}  // namespace ovattribute
