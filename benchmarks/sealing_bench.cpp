// SPDX-License-Identifier: Apache-2.0
// Sealing and opening with EAX and AES-128 under a key that is new in every call, against the EAX
// of Botan and of Crypto++ where they are installed. The others keep their objects and, Crypto++,
// its output buffer from call to call; ours makes both anew, as who seals a value does. Nonces are
// given, so that no generator is measured; `seal_with_random_nonce` shows what it costs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "benchmarks/rows.h"
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

constexpr std::size_t sizes[] = {16, 256, 4096, std::size_t{1} << 20};
constexpr std::size_t block = 16;  // bytes of key, nonce and tag
const std::string header = "annotation";

/// One message, and a key that differs from call to call.
struct Message {
  explicit Message(std::size_t size) : text(size, 'x') {}

  const unsigned char* next_key() {
    ++key[0];
    return key;
  }

  const std::vector<unsigned char> text;
  unsigned char key[block] = "a key of 15 B..";
  const unsigned char nonce[block] = "a nonce of 15 B";
};

void count_bytes(benchmark::State& state, const Message& message) {
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(message.text.size()));
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
  count_bytes(state, message);
}

void seal(benchmark::State& state, std::size_t size) {
  Message message(size);
  FixedNonce nonce(message.nonce);
  seal_with(state, message, nonce);
}

void seal_with_random_nonce(benchmark::State& state, std::size_t size) {
  Message message(size);
  seal_with(state, message, ovcrypto::default_random_provider());
}

/// Nonce, text, tag.
ovattribute::SecuredValue::MemoryListPtr sealed_once(const Message& message) {
  FixedNonce nonce(message.nonce);
  return ovattribute::SecuredValue::default_cipher()->encrypt(
      MemoryList::create_copy(message.text.data(), message.text.size()), header,
      ovcrypto::Key(message.key, block), nonce);
}

void open(benchmark::State& state, std::size_t size) {
  Message message(size);
  const auto cipher = ovattribute::SecuredValue::default_cipher();
  const auto sealed = sealed_once(message);
  for (auto _ : state) {
    const ovcrypto::Key key(message.key, block);
    benchmark::DoNotOptimize(cipher->decrypt(key, header, sealed));
  }
  count_bytes(state, message);
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

void seal_botan(benchmark::State& state, std::size_t size) {
  Message message(size);
  const auto eax = botan(Botan::ENCRYPTION);
  Buffer buffer;
  for (auto _ : state) {
    buffer.assign(message.text.begin(), message.text.end());
    botan_run(*eax, message.next_key(), message, buffer);
    benchmark::DoNotOptimize(buffer.data());
  }
  count_bytes(state, message);
}

/// Text, tag.
Buffer sealed_by_botan(const Message& message) {
  Buffer sealed(message.text.begin(), message.text.end());
  botan_run(*botan(Botan::ENCRYPTION), message.key, message, sealed);
  return sealed;
}

void open_botan(benchmark::State& state, std::size_t size) {
  Message message(size);
  const Buffer sealed = sealed_by_botan(message);
  const auto eax = botan(Botan::DECRYPTION);
  Buffer buffer;
  for (auto _ : state) {
    buffer.assign(sealed.begin(), sealed.end());
    botan_run(*eax, message.key, message, buffer);
    benchmark::DoNotOptimize(buffer.data());
  }
  count_bytes(state, message);
}
#endif

#ifdef OV_PEER_CRYPTOPP
/// Not by the one call for all, which sets the nonce a second time and then gets it wrong.
template <class Eax>
void cryptopp_run(Eax& eax, const unsigned char* key, const Message& message,
                  const unsigned char* in, unsigned char* out) {
  eax.SetKeyWithIV(key, block, message.nonce, block);
  eax.Update(reinterpret_cast<const unsigned char*>(header.data()), header.size());
  eax.ProcessString(out, in, message.text.size());
}

/// Text, tag.
std::vector<unsigned char> sealed_by_cryptopp(const Message& message) {
  std::vector<unsigned char> sealed(message.text.size() + block);
  CryptoPP::EAX<CryptoPP::AES>::Encryption eax;
  cryptopp_run(eax, message.key, message, message.text.data(), sealed.data());
  eax.TruncatedFinal(sealed.data() + message.text.size(), block);
  return sealed;
}

void seal_cryptopp(benchmark::State& state, std::size_t size) {
  Message message(size);
  CryptoPP::EAX<CryptoPP::AES>::Encryption eax;
  std::vector<unsigned char> out(size + block);
  for (auto _ : state) {
    cryptopp_run(eax, message.next_key(), message, message.text.data(), out.data());
    eax.TruncatedFinal(out.data() + size, block);
    benchmark::ClobberMemory();
  }
  count_bytes(state, message);
}

void open_cryptopp(benchmark::State& state, std::size_t size) {
  Message message(size);
  const auto sealed = sealed_by_cryptopp(message);
  CryptoPP::EAX<CryptoPP::AES>::Decryption eax;
  std::vector<unsigned char> out(size);
  for (auto _ : state) {
    cryptopp_run(eax, message.key, message, sealed.data(), out.data());
    if (!eax.TruncatedVerify(sealed.data() + size, block)) state.SkipWithError("not authentic");
    benchmark::ClobberMemory();
  }
  count_bytes(state, message);
}
#endif

/// Ends the program unless the other library seals to the same bytes.
template <class Seal>
[[maybe_unused]] void compare(const char* library, Seal seal_with_it) {
  for (const std::size_t size : sizes) {
    const Message message(size);
    const auto ours = sealed_once(message);
    const auto theirs = seal_with_it(message);
    std::vector<unsigned char> bytes(ours->size());
    ours->copy_to(bytes.data(), 0, bytes.size());
    ovbench::require(std::equal(bytes.begin() + block, bytes.end(), theirs.begin(), theirs.end()),
                     library, "the sealed message");
  }
}

void add(const char* topic, const char* library, void (*run)(benchmark::State&, std::size_t)) {
  for (const std::size_t size : sizes) {
    const std::string name = ovbench::row(topic, std::to_string(size), library);
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) { run(state, size); });
  }
}

}  // namespace

int main(int argc, char** argv) {
  add("seal", "ovattribute", seal);
  add("open", "ovattribute", open);
  benchmark::RegisterBenchmark(ovbench::row("seal_random_nonce", "16", "ovattribute").c_str(),
                               [](benchmark::State& state) { seal_with_random_nonce(state, 16); });
#ifdef OV_PEER_BOTAN
  compare("botan", sealed_by_botan);
  add("seal", "botan", seal_botan);
  add("open", "botan", open_botan);
#endif
#ifdef OV_PEER_CRYPTOPP
  compare("cryptopp", sealed_by_cryptopp);
  add("seal", "cryptopp", seal_cryptopp);
  add("open", "cryptopp", open_cryptopp);
#endif
  return ovbench::run(argc, argv);
}
