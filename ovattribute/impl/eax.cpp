// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/impl/eax.h"

#include <algorithm>

#include "ovattribute/impl/module_anchor.h"

namespace ovattribute::impl {
namespace {

using ovcrypto::AesBlock;

void xor_into(AesBlock& target, const AesBlock& added) noexcept {
  for (std::size_t i = 0; i < AesBlock::size(); ++i)
    target[i] ^= added[i];
}

// What an empty message takes.
constexpr std::size_t least_blocks = 6;

// What was encrypted is still in the nearest cache when CMAC reads it.
constexpr std::size_t piece_size = 16384;

}  // namespace

Eax::Eax(const ovcrypto::Key& key, const unsigned char* nonce, const std::string& header,
         std::size_t size)
    : m_cmac(key, least_blocks + std::max(header.size(), size) / ovcrypto::aes_block_size),
      m_counter(m_cmac.shared_state()->aes(), nonce_omac(nonce)) {
  m_cmac.begin(1);
  m_cmac.update(header.data(), header.size());
  AesBlock h;  // H'
  m_cmac.finish(h.data());
  xor_into(m_seed, h);

  m_cmac.begin(2);
}

const unsigned char* Eax::nonce_omac(const unsigned char* nonce) {
  m_cmac.begin(0);
  m_cmac.update(nonce, nonce_size);
  m_cmac.finish(m_seed.data());
  return m_seed.data();
}

void Eax::encrypt(const unsigned char* plaintext, unsigned char* ciphertext, std::size_t size) {
  for (std::size_t done = 0; done < size; done += piece_size) {
    const std::size_t n = std::min(size - done, piece_size);
    m_counter.crypt(plaintext + done, ciphertext + done, n);
    absorb(ciphertext + done, n);
  }
}

void Eax::finish(AesBlock& tag) {
  m_cmac.finish(tag.data());  // C'
  xor_into(tag, m_seed);
}

}  // namespace ovattribute::impl
