// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/impl/libcrypto.h"

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <pthread.h>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

#include <atomic>
#include <cstdint>
#include <mutex>
#include <new>

#include "ovcore/impl/at_load.h"

namespace ovcrypto::impl {
namespace {

// Held while libcrypto is initialised or may hold locks of its random generators, which it does not
// release in the child of a fork. This costs little: each draw takes the lock of the generator that
// all threads share anyway.
constinit std::mutex g_mutex;

[[maybe_unused]] const bool g_libcrypto_ready = ovcore::impl::at_load([] {
  ::pthread_atfork([] { g_mutex.lock(); }, [] { g_mutex.unlock(); }, [] { g_mutex.unlock(); });
});

// Never freed, so that whoever still seals at exit can.
constinit EVP_CIPHER* g_ciphers[3][3] = {};
constinit std::atomic<bool> g_initialised = false;

// What initialising libcrypto takes, and as much again.
constexpr std::size_t memory_needed = std::size_t{512} << 10;

bool fetch_ciphers() noexcept {
  static constexpr const char* names[3][3] = {{"AES-128-ECB", "AES-192-ECB", "AES-256-ECB"},
                                              {"AES-128-CBC", "AES-192-CBC", "AES-256-CBC"},
                                              {"AES-128-CTR", "AES-192-CTR", "AES-256-CTR"}};
  for (std::size_t mode = 0; mode < 3; ++mode) {
    for (std::size_t size = 0; size < 3; ++size) {
      EVP_CIPHER*& cipher = g_ciphers[mode][size];
      if (cipher == nullptr) cipher = EVP_CIPHER_fetch(nullptr, names[mode][size], nullptr);
      if (cipher == nullptr) return false;
    }
  }
  return true;
}

bool draw(void* buffer, std::size_t size, Generator generator) noexcept {
  // What libcrypto adds to the thread's error queue is not for the caller.
  ERR_set_mark();
  const auto from = generator == Generator::secret ? RAND_priv_bytes : RAND_bytes;
  const int result = from(static_cast<unsigned char*>(buffer), static_cast<int>(size));
  ERR_pop_to_mark();
  return result == 1;
}

/// REQUIRES: `g_mutex` is held.
bool initialise() {
  if (g_initialised.load(std::memory_order_relaxed)) return true;
  ::operator delete(::operator new(memory_needed));
  // Where this fails once, it fails for ever, and whatever else is called crashes.
  if (OSSL_LIB_CTX_get0_global_default() == nullptr) return false;
  unsigned char first[16];
  if (!draw(first, sizeof first, Generator::open) || !fetch_ciphers()) return false;
  g_initialised.store(true, std::memory_order_release);
  return true;
}

std::uint64_t time_stamp() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

}  // namespace

bool initialise_libcrypto() {
  if (g_initialised.load(std::memory_order_acquire)) return true;
  const std::lock_guard guard(g_mutex);
  return initialise();
}

const void* aes_cipher(std::size_t mode, std::size_t key_size) noexcept {
  return g_ciphers[mode][key_size / 8 - 2];
}

bool fill_random(void* buffer, std::size_t size, Generator generator) {
  const std::uint64_t stamp = time_stamp();
  const std::lock_guard guard(g_mutex);
  if (!initialise()) return false;
  RAND_add(&stamp, sizeof stamp, 0.0);
  return buffer == nullptr || draw(buffer, size, generator);
}

}  // namespace ovcrypto::impl
