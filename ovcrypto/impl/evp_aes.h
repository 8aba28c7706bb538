// SPDX-License-Identifier: Apache-2.0
// The processor's AES instructions, which libcrypto offers behind EVP only. Making an EVP context
// costs as much as a few blocks, so it is opened where a run of blocks makes up for that.
#pragma once

#include <cstddef>

namespace ovcrypto::impl {

/// One EVP context: AES in one mode under one key. Wiped and freed on `close` and destruction.
class EvpAes {
 public:
  enum class Mode { blocks, chain, counter };  // ECB and CBC, never finished, so never padded; CTR

  explicit EvpAes(Mode mode) noexcept : m_mode(mode) {}
  EvpAes(const EvpAes&) = delete;
  EvpAes& operator=(const EvpAes&) = delete;
  ~EvpAes() { close(); }

  [[nodiscard]] bool is_open() const noexcept { return m_context != nullptr; }
  /// `key_size`: 16, 24 or 32. `iv`: 16 bytes; null for zero. Gives false, and stays closed, when
  /// libcrypto has no such context to give.
  [[nodiscard]] bool open(const unsigned char* key, std::size_t key_size,
                          const unsigned char* iv) noexcept;
  /// Starts anew under the same key; false as `open`, and closes.
  [[nodiscard]] bool restart(const unsigned char* iv) noexcept;
  /// Encrypts whole blocks; `out` may be `in`. REQUIRES: open. Raises `ovcrypto_openssl`.
  void update(const unsigned char* in, unsigned char* out, std::size_t size);
  void close() noexcept;

 private:
  const Mode m_mode;
  void* m_context = nullptr;  // EVP_CIPHER_CTX
};

}  // namespace ovcrypto::impl
