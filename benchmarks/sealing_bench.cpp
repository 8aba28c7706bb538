// SPDX-License-Identifier: Apache-2.0
// Sealing and opening with EAX and AES-128 under a key that is new in every call, against the EAX
// of Botan and of Crypto++ where they are installed. The others keep their objects and, Crypto++,
// its output buffer from call to call; ours makes both anew, as who seals a value does. Nonces are
// given, so that no generator is measured; `seal_with_random_nonce` shows what it costs.
#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

#include "ovattribute/secured_value_cipher.h"
#include "ovcrypto/key.h"
#include "ovserialize/memory_list.h"

#ifdef OV_PEER_BOTAN
#include <botan/aead.h>
#endif
#ifdef OV_PEER_CRYPTOPP
#include <cryptopp/aes.h>
#include <cryptopp/eax.h>
#endif

namespace {

using ovserialize::MemoryList;

constexpr std::size_t block = 16;  // bytes of key, nonce and tag
const std::string header = "annotation";

/// One message, and a key that differs from call to call.
struct Message {
  explicit Message(const benchmark::State& state)
      : text(static_cast<std::size_t>(state.range(0)), 'x') {}

  const unsigned char* next_key() {
    ++key[0];
    return key;
  }

  const std::vector<unsigned char> text;
  unsigned char key[block] = "a key of 15 B..";
  const unsigned char nonce[block] = "a nonce of 15 B";
};

void count_bytes(benchmark::State& state) {
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

class FixedNonce final : public ovcrypto::IRandomProvider {
 public:
  explicit FixedNonce(const unsigned char* nonce) noexcept : m_nonce(nonce) {}
  void generate_random(void* buffer, std::int64_t size) override {
    std::memcpy(buffer, m_nonce, static_cast<std::size_t>(size));
  }

 private:
  const unsigned char* const m_nonce;
};

void seal_with(benchmark::State& state, Message& message, ovcrypto::IRandomProvider& random) {
  const auto cipher = ovattribute::SecuredValue::default_cipher();
  const ovattribute::SecuredValue::MemoryListPtr text =
      MemoryList::create_copy(message.text.data(), message.text.size());
  for (auto _ : state) {
    const ovcrypto::Key key(message.next_key(), block);
    benchmark::DoNotOptimize(cipher->encrypt(text, header, key, random));
  }
  count_bytes(state);
}

void seal(benchmark::State& state) {
  Message message(state);
  FixedNonce nonce(message.nonce);
  seal_with(state, message, nonce);
}

void seal_with_random_nonce(benchmark::State& state) {
  Message message(state);
  seal_with(state, message, ovcrypto::default_random_provider());
}

void open(benchmark::State& state) {
  Message message(state);
  FixedNonce nonce(message.nonce);
  const auto cipher = ovattribute::SecuredValue::default_cipher();
  const auto sealed =
      cipher->encrypt(MemoryList::create_copy(message.text.data(), message.text.size()), header,
                      ovcrypto::Key(message.key, block), nonce);
  for (auto _ : state) {
    const ovcrypto::Key key(message.key, block);
    benchmark::DoNotOptimize(cipher->decrypt(key, header, sealed));
  }
  count_bytes(state);
}

#ifdef OV_PEER_BOTAN
using Buffer = Botan::secure_vector<std::uint8_t>;

std::unique_ptr<Botan::AEAD_Mode> botan(Botan::Cipher_Dir direction) {
  return Botan::AEAD_Mode::create_or_throw("AES-128/EAX", direction);
}

void botan_run(Botan::AEAD_Mode& eax, const unsigned char* key, const Message& message,
               Buffer& buffer) {
  eax.set_key(key, block);
  eax.set_associated_data(reinterpret_cast<const std::uint8_t*>(header.data()), header.size());
  eax.start(message.nonce, block);
  eax.finish(buffer);
  eax.reset();
}

void seal_botan(benchmark::State& state) {
  Message message(state);
  const auto eax = botan(Botan::ENCRYPTION);
  Buffer buffer;
  for (auto _ : state) {
    buffer.assign(message.text.begin(), message.text.end());
    botan_run(*eax, message.next_key(), message, buffer);
    benchmark::DoNotOptimize(buffer.data());
  }
  count_bytes(state);
}

void open_botan(benchmark::State& state) {
  Message message(state);
  Buffer sealed(message.text.begin(), message.text.end());
  botan_run(*botan(Botan::ENCRYPTION), message.key, message, sealed);
  const auto eax = botan(Botan::DECRYPTION);
  Buffer buffer;
  for (auto _ : state) {
    buffer.assign(sealed.begin(), sealed.end());
    botan_run(*eax, message.key, message, buffer);
    benchmark::DoNotOptimize(buffer.data());
  }
  count_bytes(state);
}
#endif

#ifdef OV_PEER_CRYPTOPP
const auto* const header_bytes = reinterpret_cast<const unsigned char*>(header.data());

void seal_cryptopp(benchmark::State& state) {
  Message message(state);
  CryptoPP::EAX<CryptoPP::AES>::Encryption eax;
  std::vector<unsigned char> out(message.text.size() + block);
  for (auto _ : state) {
    eax.SetKeyWithIV(message.next_key(), block, message.nonce, block);
    eax.EncryptAndAuthenticate(out.data(), out.data() + message.text.size(), block, message.nonce,
                               block, header_bytes, header.size(), message.text.data(),
                               message.text.size());
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
  count_bytes(state);
}

void open_cryptopp(benchmark::State& state) {
  Message message(state);
  const std::size_t size = message.text.size();
  std::vector<unsigned char> sealed(size + block);
  CryptoPP::EAX<CryptoPP::AES>::Encryption sealing;
  sealing.SetKeyWithIV(message.key, block, message.nonce, block);
  sealing.EncryptAndAuthenticate(sealed.data(), sealed.data() + size, block, message.nonce, block,
                                 header_bytes, header.size(), message.text.data(), size);
  CryptoPP::EAX<CryptoPP::AES>::Decryption eax;
  std::vector<unsigned char> out(size);
  for (auto _ : state) {
    eax.SetKeyWithIV(message.key, block, message.nonce, block);
    if (!eax.DecryptAndVerify(out.data(), sealed.data() + size, block, message.nonce, block,
                              header_bytes, header.size(), sealed.data(), size)) {
      state.SkipWithError("not authentic");
    }
    benchmark::ClobberMemory();
  }
  count_bytes(state);
}
#endif

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const int size : {16, 256, 4096, 1 << 20})
    benchmark->Arg(size);
}

BENCHMARK(seal)->Apply(sizes);
BENCHMARK(open)->Apply(sizes);
#ifdef OV_PEER_BOTAN
BENCHMARK(seal_botan)->Apply(sizes);
BENCHMARK(open_botan)->Apply(sizes);
#endif
#ifdef OV_PEER_CRYPTOPP
BENCHMARK(seal_cryptopp)->Apply(sizes);
BENCHMARK(open_cryptopp)->Apply(sizes);
#endif
BENCHMARK(seal_with_random_nonce)->Arg(16);

}  // namespace

BENCHMARK_MAIN();
