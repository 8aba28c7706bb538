// SPDX-License-Identifier: Apache-2.0
// The processor's AES instructions, which libcrypto offers behind EVP only. Making an EVP context
// costs as much as a few blocks, so it is opened where a run of blocks makes up for that.
#pragma once

#include <cstddef>

namespace ovcrypto::impl {

/// One EVP context: AES in one mode under one key, or closed. Wiped and freed on `close` and
/// destruction.
class EvpAes {
 public:
  enum class Mode { blocks, chain, counter };  // ECB and CBC, never finished, so never padded; CTR

  EvpAes() noexcept = default;
  EvpAes(const EvpAes&) = delete;
  EvpAes& operator=(const EvpAes&) = delete;
  ~EvpAes() { close(); }

  [[nodiscard]] bool is_open(Mode mode) const noexcept {
    return m_context != nullptr && m_mode == mode;
  }
  /// `key_size`: 16, 24 or 32. `iv`: 16 bytes, which blocks do without. Gives false, and is closed,
  /// when libcrypto has no such context to give. REQUIRES: `initialise_libcrypto` gave true.
  [[nodiscard]] bool open(Mode mode, const unsigned char* key, std::size_t key_size,
                          const unsigned char* iv) noexcept;
  /// Encrypts whole blocks, with `counter` any number of bytes; `out` may be `in`. REQUIRES: open.
  /// Raises `ovcrypto_openssl`.
  void update(const unsigned char* in, unsigned char* out, std::size_t size);
  void close() noexcept;

 private:
  Mode m_mode = Mode::blocks;
  void* m_context = nullptr;  // EVP_CIPHER_CTX
};

}  // namespace ovcrypto::impl
