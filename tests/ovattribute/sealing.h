// SPDX-License-Identifier: Apache-2.0
// Keys, ciphers and nonces for tests that seal.
#pragma once

#include <algorithm>
#include <cstring>
#include <string>

#include "ovattribute/secured_value_cipher.h"
#include "ovcrypto/key.h"
#include "ovcrypto/random_provider.h"
#include "tests/ovattribute/marshaling.h"

namespace ovattribute {

using ICipher = SecuredValue::ICipher;
using MemoryListPtr = SecuredValue::MemoryListPtr;

/// Hands out the same bytes whenever it is asked.
class FixedRandom final : public ovcrypto::IRandomProvider {
 public:
  explicit FixedRandom(std::string bytes) : m_bytes(std::move(bytes)) {}

  void generate_random(void* buffer, std::int64_t size) override {
    ++m_calls;
    ASSERT_LE(static_cast<std::size_t>(size), m_bytes.size());
    std::memcpy(buffer, m_bytes.data(), static_cast<std::size_t>(size));
  }
  [[nodiscard]] int calls() const noexcept { return m_calls; }

 private:
  const std::string m_bytes;
  int m_calls = 0;
};

inline ovcore::InterfacePtr<const ICipher> cipher_of(const std::string& id) {
  return SecuredValue::default_cipher_provider()->find_cipher(id);
}

inline ovcrypto::Key key_of(const std::string& bytes) {
  return ovcrypto::Key(bytes.data(), bytes.size());
}

inline std::string numbered(std::size_t size, int first = 0) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>(static_cast<std::size_t>(first) + i * 13 + i / 256);
  return text;
}

/// A list of the bytes in segments of a size; 0: in one.
inline MemoryListPtr list_of(const std::string& bytes, std::size_t segment_size = 0) {
  if (segment_size == 0) return ovserialize::MemoryList::create_copy(bytes.data(), bytes.size());
  auto list = ovserialize::MemoryList::create({.segment_size = segment_size});
  list->append(bytes.data(), bytes.size());
  return list;
}

/// The bytes in two segments that meet at `cut`.
inline MemoryListPtr cut_list(const std::string& bytes, std::size_t cut) {
  auto list = ovserialize::MemoryList::create({.reserve = std::max<std::size_t>(cut, 1)});
  list->append(bytes.data(), cut);
  list->append(bytes.data() + cut, bytes.size() - cut);
  return list;
}

}  // namespace ovattribute
