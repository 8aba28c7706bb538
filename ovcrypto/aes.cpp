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
#include "ovcrypto/impl/libcrypto.h"

namespace ovcrypto {
namespace {

// How many blocks make up for opening an EVP context, which costs as much as two or three blocks by
// AES_encrypt. Few share one for single blocks; many are worth one for chains and one for counters.
constexpr std::size_t blocks_from = 2;
constexpr std::size_t long_from = 48;

constexpr std::size_t scratch_blocks = 64;

void xor_bytes(const unsigned char* a, const unsigned char* b, unsigned char* out,
               std::size_t size) noexcept {
  for (std::size_t i = 0; i < size; ++i)
    out[i] = a[i] ^ b[i];
}

// A block in one register: a load of a whole block that was stored in halves waits until both
// stores have retired.
using BlockWords = std::uint64_t __attribute__((vector_size(aes_block_size)));

void xor_block(const unsigned char* a, const unsigned char* b, unsigned char* out) noexcept {
  BlockWords x;
  BlockWords y;
  std::memcpy(&x, a, sizeof x);
  std::memcpy(&y, b, sizeof y);
  x ^= y;
  std::memcpy(out, &x, sizeof x);
}

std::uint64_t big_endian(std::uint64_t value) noexcept {
  return std::endian::native == std::endian::little ? __builtin_bswap64(value) : value;
}

std::uint64_t load_big_endian(const unsigned char* bytes) noexcept {
  std::uint64_t value;
  std::memcpy(&value, bytes, sizeof value);
  return big_endian(value);
}

void store_big_endian(std::uint64_t value, unsigned char* bytes) noexcept {
  value = big_endian(value);
  std::memcpy(bytes, &value, sizeof value);
}

// Writes `count` counters in a row. The numbers are held in registers here only, since who is
// called would save them on the stack.
void take_counters(AesBlock& counter, unsigned char* out, std::size_t count) noexcept {
  std::uint64_t high = load_big_endian(counter.data());
  std::uint64_t low = load_big_endian(counter.data() + 8);
  for (std::size_t i = 0; i < count; ++i) {
    const BlockWords block = {big_endian(high), big_endian(low)};
    std::memcpy(out + i * aes_block_size, &block, sizeof block);
    if (++low == 0) ++high;
  }
  store_big_endian(high, counter.data());
  store_big_endian(low, counter.data() + 8);
}

// Multiplication by x in GF(2^128), without a branch on secret bits.
void double_block(const unsigned char* in, AesBlock& out) noexcept {
  const std::uint64_t high = load_big_endian(in);
  const std::uint64_t low = load_big_endian(in + 8);
  store_big_endian(high << 1 | low >> 63, out.data());
  store_big_endian(low << 1 ^ (0x87 & (0 - (high >> 63))), out.data() + 8);
}

AES_KEY* schedule(unsigned char* storage) noexcept {
  static_assert(sizeof(AES_KEY) <= 256 && alignof(AES_KEY) <= 16);
  return reinterpret_cast<AES_KEY*>(storage);
}

}  // namespace

AesEncryptContext::AesEncryptContext() noexcept = default;
AesEncryptContext::AesEncryptContext(const Key& key) {
  rekey(key);
}
AesEncryptContext::~AesEncryptContext() {
  forget_schedule();
}

void AesEncryptContext::rekey(const Key& key) {
  if (key.size() != 16 && key.size() != 24 && key.size() != 32) {
    ovcore::throw_error(error::ovcrypto_key_size,
                        "Key for AES must be 128, 192, or 256 bits (16, 24, or 32 bytes)",
                        {"ovcrypto/aes", "ovcrypto::AesEncryptContext::rekey()", 0});
  }
  if (!impl::initialise_libcrypto()) {
    ovcore::throw_error(error::ovcrypto_openssl, "libcrypto could not be initialised",
                        {"ovcrypto/aes", "ovcrypto::AesEncryptContext::rekey()", 0});
  }
  m_evp.close();
  forget_schedule();
  m_expected = 0;
  m_key.set_zero();
  std::memcpy(m_key.data(), key.data(), key.size());
  m_key_size = static_cast<std::uint32_t>(key.size());
}

void AesEncryptContext::forget_schedule() noexcept {
  if (m_scheduled) wipe(m_schedule, sizeof m_schedule);
  m_scheduled = false;
}

void AesEncryptContext::expect_run(std::size_t blocks) noexcept {
  m_expected = std::max(m_expected, blocks);
}

// Here alone it is chosen who encrypts: AES_encrypt, or EVP where runs are to be expected. Where
// EVP has no context to give, AES_encrypt does everything.
void AesEncryptContext::prepare() noexcept {
  static constexpr unsigned char zero[aes_block_size] = {};
  if (m_evp.is_open(Mode::chain)) return;
  if (m_expected >= long_from && m_evp.open(Mode::chain, m_key.data(), m_key_size, zero)) {
    return m_last.set_zero();
  }
  if (m_expected < blocks_from || m_evp.is_open(Mode::blocks)) return;
  static_cast<void>(m_evp.open(Mode::blocks, m_key.data(), m_key_size, nullptr));
}

bool AesEncryptContext::prepare_counter(impl::EvpAes& evp, const unsigned char* counter) noexcept {
  return evp.is_open(Mode::counter) ||
         (m_expected >= long_from && evp.open(Mode::counter, m_key.data(), m_key_size, counter));
}

void AesEncryptContext::encrypt(const unsigned char* in, unsigned char* out) {
  prepare();
  if (m_evp.is_open(Mode::chain)) {
    // CBC mixes its own last output in.
    xor_block(in, m_last.data(), m_last.data());
    m_evp.update(m_last.data(), m_last.data(), aes_block_size);
    std::memcpy(out, m_last.data(), aes_block_size);
    return;
  }
  if (m_evp.is_open(Mode::blocks)) return m_evp.update(in, out, aes_block_size);
  if (!m_scheduled) {
    AES_set_encrypt_key(m_key.data(), static_cast<int>(8 * m_key_size), schedule(m_schedule));
    m_scheduled = true;
  }
  AES_encrypt(in, out, schedule(m_schedule));
}

void AesEncryptContext::encrypt_in_place(unsigned char* blocks, std::size_t count) {
  prepare();
  if (m_evp.is_open(Mode::blocks)) return m_evp.update(blocks, blocks, count * aes_block_size);
  for (; count > 0; --count, blocks += aes_block_size)
    encrypt(blocks, blocks);
}

void AesEncryptContext::chain(AesBlock& state, const unsigned char* blocks, std::size_t count) {
  if (count == 0) return;
  expect_run(count);
  prepare();
  const std::size_t one_by_one = m_evp.is_open(Mode::chain) ? 1 : count;
  for (std::size_t done = 0; done < one_by_one; ++done) {
    xor_block(state.data(), blocks + done * aes_block_size, state.data());
    encrypt(state.data(), state.data());
  }
  if (one_by_one == count) return;
  // Now CBC goes on from the state.
  alignas(16) unsigned char scratch[scratch_blocks * aes_block_size];
  const WipeAtEnd wiped(scratch, std::min(count - 1, scratch_blocks) * aes_block_size);
  for (std::size_t done = 1, n = 0; done < count; done += n) {
    n = std::min(count - done, scratch_blocks);
    m_evp.update(blocks + done * aes_block_size, scratch, n * aes_block_size);
    m_last.assign(scratch + (n - 1) * aes_block_size);
  }
  state.assign(m_last.data());
}

AesCounterContext::AesCounterContext(AesEncryptContext& aes,
                                     const unsigned char* initial_counter) noexcept
    : m_aes(aes) {
  m_counter.assign(initial_counter);
}

AesCounterContext::~AesCounterContext() = default;

void AesCounterContext::crypt(const unsigned char* in, unsigned char* out, std::size_t size) {
  m_aes.expect_run(size / aes_block_size);
  if (m_left == 0 && m_aes.prepare_counter(m_evp, m_counter.data())) {
    return m_evp.update(in, out, size);
  }
  const std::size_t begun = std::min(size, m_left);
  if (begun > 0) {
    xor_bytes(in, m_keystream.data() + aes_block_size - m_left, out, begun);
    m_left -= begun;
  }
  const std::size_t whole = (size - begun) / aes_block_size;
  crypt_blocks(in + begun, out + begun, whole);

  const std::size_t done = begun + whole * aes_block_size;
  if (done == size) return;
  take_counters(m_counter, m_keystream.data(), 1);
  m_aes.encrypt(m_keystream.data(), m_keystream.data());
  m_left = aes_block_size - (size - done);
  xor_bytes(in + done, m_keystream.data(), out + done, size - done);
}

void AesCounterContext::crypt_blocks(const unsigned char* in, unsigned char* out,
                                     std::size_t count) {
  if (count == 0) return;
  alignas(16) unsigned char stream[scratch_blocks * aes_block_size];
  const WipeAtEnd wiped(stream, std::min(count, scratch_blocks) * aes_block_size);
  for (std::size_t n = 0; count > 0; count -= n) {
    n = std::min(count, scratch_blocks);
    take_counters(m_counter, stream, n);
    m_aes.encrypt_in_place(stream, n);
    for (std::size_t i = 0; i < n; ++i) {
      xor_block(in, stream + i * aes_block_size, out);
      in += aes_block_size;
      out += aes_block_size;
    }
  }
}

AesCmacContext::SharedState::SharedState(const Key& key, std::size_t longest_run) : m_aes(key) {
  m_aes.expect_run(longest_run);
  for (unsigned char n = 0; n < begin_numbers; ++n)
    m_begun[(n + 1) * aes_block_size - 1] = n;
  m_aes.encrypt_in_place(m_begun.data(), begin_numbers);
  double_block(m_begun.data(), m_subkey_whole);
  double_block(m_subkey_whole.data(), m_subkey_padded);
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
  m_begun = other.m_begun;
  return *this;
}

AesCmacContext::~AesCmacContext() = default;

void AesCmacContext::reset() noexcept {
  m_chain.set_zero();
  m_pending_size = 0;
  m_begun = nullptr;
}

void AesCmacContext::begin(unsigned char number) noexcept {
  reset();
  m_pending.set_zero();
  m_pending[aes_block_size - 1] = number;
  m_pending_size = aes_block_size;
  m_begun = m_state->m_begun.data() + number * aes_block_size;
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
    if (m_begun != nullptr) {
      m_chain.assign(m_begun);
      m_begun = nullptr;
    } else {
      m_state->m_aes.chain(m_chain, m_pending.data(), 1);
    }
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
