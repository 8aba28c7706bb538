// SPDX-License-Identifier: Apache-2.0
// AES (FIPS 197), only in the direction and the modes that EAX is made of: encryption of blocks,
// counter mode (NIST SP 800-38A) and CMAC (NIST SP 800-38B). Nothing here keeps data secret and
// authentic by itself: that is what the ciphers of secured values are for.
//
// Whatever depends on a key is wiped at the end of its object's life. Objects that share a key
// schedule are used by one thread at a time. Setting a key raises `std::bad_alloc` or
// `ovcrypto_openssl` when libcrypto cannot be initialised (see random_provider.h). Functions that
// encrypt raise `ovcrypto_openssl` when libcrypto fails, which it does not do in practice.
#pragma once

#include <cstddef>
#include <cstdint>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcrypto/impl/evp_aes.h"
#include "ovcrypto/key.h"
#include "ovcrypto/wiped.h"

namespace ovcrypto {

constexpr std::size_t aes_block_size = 16;
using AesBlock = WipedBytes<aes_block_size>;

/// AES under one key. REQUIRES: keyed, before anything is encrypted.
class OV_EXPORT AesEncryptContext {
 public:
  AesEncryptContext() noexcept;
  /// As `rekey`.
  explicit AesEncryptContext(const Key& key);
  AesEncryptContext(const AesEncryptContext&) = delete;
  AesEncryptContext& operator=(const AesEncryptContext&) = delete;
  ~AesEncryptContext();

  /// Sets a key of 16, 24 or 32 bytes. Raises `ovcrypto_key_size` and keeps the former key.
  void rekey(const Key& key);
  /// Says that `blocks` will come, if not at once: what is worth its cost for so many is prepared.
  void expect_run(std::size_t blocks) noexcept;

  /// Encrypts one block; `out` may be `in`.
  void encrypt(const unsigned char* in, unsigned char* out);
  /// For each of `count` blocks: state = AES(state xor block). What CMAC does with all but the
  /// last.
  void chain(AesBlock& state, const unsigned char* blocks, std::size_t count);

 private:
  friend class AesCmacContext;
  friend class AesCounterContext;
  using Mode = impl::EvpAes::Mode;
  static constexpr std::size_t largest_key = 32;

  void prepare() noexcept;
  [[nodiscard]] bool prepare_counter(impl::EvpAes& evp, const unsigned char* counter) noexcept;
  void forget_schedule() noexcept;
  void encrypt_in_place(unsigned char* blocks, std::size_t count);

  WipedBytes<largest_key> m_key;
  std::size_t m_expected = 0;  // blocks
  std::uint32_t m_key_size = 0;
  bool m_scheduled = false;
  impl::EvpAes m_evp;  // for blocks, or for chains
  AesBlock m_last;     // what a chain gave last, and mixes into the next block
  alignas(16) unsigned char m_schedule[256];  // AES_KEY, made when it is needed
};

/// AES in counter mode. Encrypting and decrypting are the same.
class OV_EXPORT AesCounterContext {
 public:
  /// `aes` must outlive this context and keep its key. `initial_counter`: the first counter block,
  /// 16 bytes, a big-endian number of 128 bits.
  AesCounterContext(AesEncryptContext& aes, const unsigned char* initial_counter) noexcept;
  ~AesCounterContext();

  /// Any number of bytes; the next call goes on where this one ends. `out` may be `in`.
  void crypt(const unsigned char* in, unsigned char* out, std::size_t size);

 private:
  void crypt_blocks(const unsigned char* in, unsigned char* out, std::size_t count);

  AesEncryptContext& m_aes;
  impl::EvpAes m_evp;  // once it is open, it does everything
  AesBlock m_counter;
  AesBlock m_keystream;
  std::size_t m_left = 0;  // bytes at the end of `m_keystream` that are not used yet
};

/// AES-CMAC. Keyed once, it computes one code after another. A copy goes on from the same bytes
/// under the same keyed state.
class OV_EXPORT AesCmacContext {
 public:
  class SharedState;

  /// Raises `ovcrypto_key_size`. `longest_run`: as for `expect_run`, if that is known.
  explicit AesCmacContext(const Key& key, std::size_t longest_run = 0);
  explicit AesCmacContext(ovcore::RefCountPtr<SharedState> state) noexcept;
  AesCmacContext(const AesCmacContext& other) noexcept;
  AesCmacContext& operator=(const AesCmacContext& other) noexcept;
  ~AesCmacContext();

  [[nodiscard]] const ovcore::RefCountPtr<SharedState>& shared_state() const noexcept {
    return m_state;
  }

  /// The numbers of `begin`.
  static constexpr unsigned char begin_numbers = 3;

  /// Forgets the bytes so far.
  void reset() noexcept;
  /// Begins anew with the block of fifteen zero bytes and 0, 1 or 2, as EAX does: what follows one
  /// of these goes on from what was computed when the key was set.
  void begin(unsigned char number) noexcept;
  void update(const void* data, std::size_t size);
  /// Gives the code, 16 bytes, of the bytes since the last `reset` or `finish`.
  void finish(unsigned char* code);

 private:
  ovcore::RefCountPtr<SharedState> m_state;
  AesBlock m_chain;
  AesBlock m_pending;              // the last block is treated differently, so it waits here
  std::size_t m_pending_size = 0;  // 0 before the first byte, then 1 to 16
  const unsigned char* m_begun = nullptr;  // while just the first block of `begin` is pending
};

/// The key schedule and the two subkeys of CMAC.
class OV_EXPORT AesCmacContext::SharedState final : public ovcore::RefCounted {
 public:
  /// As the constructor of `AesCmacContext`.
  explicit SharedState(const Key& key, std::size_t longest_run = 0);

  [[nodiscard]] AesEncryptContext& aes() noexcept { return m_aes; }

 private:
  friend class AesCmacContext;
  ~SharedState() override;

  AesEncryptContext m_aes;
  WipedBytes<begin_numbers * aes_block_size> m_begun;  // AES of the blocks that `begin` takes
  AesBlock m_subkey_whole;                             // K1: for a last block of 16 bytes
  AesBlock m_subkey_padded;                            // K2
};

}  // namespace ovcrypto
