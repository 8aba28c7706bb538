// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/impl/libcrypto.h"

#include <openssl/err.h>
#include <openssl/rand.h>
#include <pthread.h>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

#include <cstdint>
#include <mutex>

#include "ovcore/impl/at_load.h"

namespace ovcrypto::impl {
namespace {

// Held while libcrypto may hold locks of its generators. These are the process's, and libcrypto
// does not give them back in the child of a fork. Threads wait there for each other anyway: each
// draw goes through the generator that all have in common.
constinit std::mutex g_generators;

[[maybe_unused]] const bool g_ready = ovcore::impl::at_load([] {
  ::pthread_atfork([] { g_generators.lock(); }, [] { g_generators.unlock(); },
                   [] { g_generators.unlock(); });
});

std::uint64_t time_stamp() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

}  // namespace

bool fill_random(void* buffer, std::size_t size) {
  const std::uint64_t stamp = time_stamp();
  const std::lock_guard guard(g_generators);
  RAND_add(&stamp, sizeof stamp, 0.0);
  if (buffer == nullptr) return true;
  // What libcrypto adds to the thread's error queue is not for the caller.
  ERR_set_mark();
  const int result = RAND_bytes(static_cast<unsigned char*>(buffer), static_cast<int>(size));
  ERR_pop_to_mark();
  return result == 1;
}

}  // namespace ovcrypto::impl
