// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/aes.h"

#include <openssl/aes.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <utility>

#include "ovcore/exception.h"
#include "ovcrypto/error_codes.h"

namespace ovcrypto {
namespace {

// Runs of at least so many blocks are worth an EVP context. Opening one costs as much as two or
// three blocks by AES_encrypt, and all blocks of the operation gain from it; opening the second
// one, for the counter, costs as much as a dozen blocks by the first.
constexpr std::size_t chain_from = 2;
constexpr std::size_t counter_from = 16;

void xor_bytes(const unsigned char* a, const unsigned char* b, unsigned char* out,
               std::size_t size) noexcept {
  for (std::size_t i = 0; i < size; ++i)
    out[i] = a[i] ^ b[i];
}

void xor_block(const unsigned char* a, const unsigned char* b, unsigned char* out) noexcept {
  std::uint64_t x[2];
  std::uint64_t y[2];
  std::memcpy(x, a, sizeof x);
  std::memcpy(y, b, sizeof y);
  x[0] ^= y[0];
  x[1] ^= y[1];
  std::memcpy(out, x, sizeof x);
}

std::uint64_t load_big_endian(const unsigned char* bytes) noexcept {
  std::uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  return std::endian::native == std::endian::little ? __builtin_bswap64(value) : value;
}

void store_big_endian(std::uint64_t value, unsigned char* bytes) noexcept {
  if (std::endian::native == std::endian::little) value = __builtin_bswap64(value);
  std::memcpy(bytes, &value, sizeof value);
}

void add_to_counter(AesBlock& counter, std::size_t n) noexcept {
  const std::uint64_t low = load_big_endian(counter.data() + 8);
  const std::uint64_t sum = low + n;
  store_big_endian(sum, counter.data() + 8);
  if (sum < low) store_big_endian(load_big_endian(counter.data()) + 1, counter.data());
}

// Multiplication by x in GF(2^128), without a branch on secret bits.
void double_block(const AesBlock& in, AesBlock& out) noexcept {
  const std::uint64_t high = load_big_endian(in.data());
  const std::uint64_t low = load_big_endian(in.data() + 8);
  store_big_endian(high << 1 | low >> 63, out.data());
  store_big_endian(low << 1 ^ (0x87 & (0 - (high >> 63))), out.data() + 8);
}

AES_KEY* schedule(WipedBytes<256>& storage) noexcept {
  static_assert(sizeof(AES_KEY) <= 256 && alignof(AES_KEY) <= 16);
  return reinterpret_cast<AES_KEY*>(storage.data());
}

}  // namespace

AesEncryptContext::AesEncryptContext() noexcept = default;
AesEncryptContext::AesEncryptContext(const Key& key) {
  rekey(key);
}
AesEncryptContext::~AesEncryptContext() = default;

void AesEncryptContext::rekey(const Key& key) {
  if (key.size() != 16 && key.size() != 24 && key.size() != 32) {
    ovcore::throw_error(error::ovcrypto_key_size,
                        "Key for AES must be 128, 192, or 256 bits (16, 24, or 32 bytes)",
                        {"ovcrypto/aes", "ovcrypto::AesEncryptContext::rekey()", 0});
  }
  m_chain.close();
  m_counter.close();
  m_schedule.set_zero();
  AES_set_encrypt_key(key.data(), static_cast<int>(8 * key.size()), schedule(m_schedule));
  m_key.set_zero();
  std::memcpy(m_key.data(), key.data(), key.size());
  m_key_size = key.size();
}

// The one place where it is chosen who encrypts: AES_encrypt, or EVP for runs and, once it is
// there, for all. Where EVP has no context to give, AES_encrypt does everything.
bool AesEncryptContext::prepare_run(std::size_t blocks) noexcept {
  if (m_chain.is_open()) return true;
  if (blocks < chain_from || !m_chain.open(m_key.data(), m_key_size, nullptr)) return false;
  m_last.set_zero();
  return true;
}

void AesEncryptContext::encrypt(const unsigned char* in, unsigned char* out) {
  if (prepare_run(1)) return encrypt_chained(in, out);
  AES_encrypt(in, out, schedule(m_schedule));
}

// CBC encrypts the xor of a block and its last output, which is therefore taken out again first.
void AesEncryptContext::encrypt_chained(const unsigned char* in, unsigned char* out) {
  xor_block(in, m_last.data(), m_input.data());
  m_chain.update(m_input.data(), m_last.data(), aes_block_size);
  std::memcpy(out, m_last.data(), aes_block_size);
}

void AesEncryptContext::chain(AesBlock& state, const unsigned char* blocks, std::size_t count) {
  if (!prepare_run(count) || count < chain_from) {
    for (; count > 0; --count, blocks += aes_block_size) {
      xor_block(state.data(), blocks, state.data());
      encrypt(state.data(), state.data());
    }
    return;
  }
  xor_block(state.data(), blocks, state.data());
  encrypt_chained(state.data(), state.data());
  // From here on CBC itself mixes in what went before.
  constexpr std::size_t scratch_blocks = 64;
  unsigned char scratch[scratch_blocks * aes_block_size];
  const WipeAtEnd wiped(scratch, std::min(count - 1, scratch_blocks) * aes_block_size);
  for (std::size_t done = 1, n = 0; done < count; done += n) {
    n = std::min(count - done, scratch_blocks);
    m_chain.update(blocks + done * aes_block_size, scratch, n * aes_block_size);
    m_last.assign(scratch + (n - 1) * aes_block_size);
  }
  state.assign(m_last.data());
}

void AesEncryptContext::crypt_counter(AesBlock& counter, const unsigned char* in,
                                      unsigned char* out, std::size_t count) {
  if (count >= counter_from &&
      (m_counter.is_open() ? m_counter.restart(counter.data())
                           : m_counter.open(m_key.data(), m_key_size, counter.data()))) {
    m_counter.update(in, out, count * aes_block_size);
    add_to_counter(counter, count);
    return;
  }
  prepare_run(count);
  AesBlock keystream;
  for (; count > 0; --count, in += aes_block_size, out += aes_block_size) {
    encrypt(counter.data(), keystream.data());
    add_to_counter(counter, 1);
    xor_block(in, keystream.data(), out);
  }
}

void AesCounterContext::crypt(const unsigned char* in, unsigned char* out, std::size_t size) {
  const std::size_t begun = std::min(size, m_left);
  if (begun > 0) {
    xor_bytes(in, m_keystream.data() + aes_block_size - m_left, out, begun);
    m_left -= begun;
  }
  const std::size_t whole = (size - begun) / aes_block_size;
  m_aes.crypt_counter(m_counter, in + begun, out + begun, whole);

  const std::size_t done = begun + whole * aes_block_size;
  if (done == size) return;
  m_aes.encrypt(m_counter.data(), m_keystream.data());
  add_to_counter(m_counter, 1);
  m_left = aes_block_size - (size - done);
  xor_bytes(in + done, m_keystream.data(), out + done, size - done);
}

AesCmacContext::SharedState::SharedState(const Key& key, std::size_t longest_run) : m_aes(key) {
  m_aes.expect_run(longest_run);
  AesBlock zero;
  AesBlock l;
  m_aes.encrypt(zero.data(), l.data());
  double_block(l, m_subkey_whole);
  double_block(m_subkey_whole, m_subkey_padded);
}

AesCmacContext::SharedState::~SharedState() = default;

AesCmacContext::AesCmacContext(const Key& key, std::size_t longest_run)
    : AesCmacContext(ovcore::make_ref_counted<SharedState>(key, longest_run)) {}

AesCmacContext::AesCmacContext(ovcore::RefCountPtr<SharedState> state) noexcept
    : m_state(std::move(state)) {}

AesCmacContext::AesCmacContext(const AesCmacContext& other) noexcept {
  *this = other;
}

AesCmacContext& AesCmacContext::operator=(const AesCmacContext& other) noexcept {
  m_state = other.m_state;
  m_chain.assign(other.m_chain.data());
  m_pending.assign(other.m_pending.data());
  m_pending_size = other.m_pending_size;
  return *this;
}

AesCmacContext::~AesCmacContext() = default;

void AesCmacContext::reset() noexcept {
  m_chain.set_zero();
  m_pending_size = 0;
}

void AesCmacContext::update(const void* data, std::size_t size) {
  if (size == 0) return;
  const auto* in = static_cast<const unsigned char*>(data);
  if (m_pending_size > 0) {
    const std::size_t added = std::min(size, aes_block_size - m_pending_size);
    std::memcpy(m_pending.data() + m_pending_size, in, added);
    m_pending_size += added;
    in += added;
    size -= added;
    if (size == 0) return;
    m_state->m_aes.chain(m_chain, m_pending.data(), 1);
  }
  const std::size_t whole = (size - 1) / aes_block_size;
  m_state->m_aes.chain(m_chain, in, whole);
  m_pending_size = size - whole * aes_block_size;
  std::memcpy(m_pending.data(), in + whole * aes_block_size, m_pending_size);
}

void AesCmacContext::finish(unsigned char* code) {
  const bool whole = m_pending_size == aes_block_size;
  if (!whole) {
    m_pending[m_pending_size] = 0x80;
    std::memset(m_pending.data() + m_pending_size + 1, 0, aes_block_size - m_pending_size - 1);
  }
  const AesBlock& subkey = whole ? m_state->m_subkey_whole : m_state->m_subkey_padded;
  xor_block(m_pending.data(), subkey.data(), m_pending.data());
  m_state->m_aes.chain(m_chain, m_pending.data(), 1);
  std::memcpy(code, m_chain.data(), aes_block_size);
  reset();
}

}  // namespace ovcrypto
