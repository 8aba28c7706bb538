// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/random_provider.h"

#include <openssl/err.h>
#include <openssl/rand.h>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#else
#include <chrono>
#endif

#include <limits>

#include "ovcore/exception.h"
#include "ovcrypto/error_codes.h"

namespace ovcrypto {
namespace impl {
namespace {

std::uint64_t time_stamp() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
#endif
}

[[noreturn]] void raise(const ovcore::ErrorCode& code, const char* message) {
  ovcore::throw_error(code, message,
                      {"ovcrypto/random_provider",
                       "ovcrypto::impl::DefaultRandomProviderImpl::generate_random()", 0});
}

}  // namespace

class DefaultRandomProviderImpl final : public IRandomProvider {
 public:
  void generate_random(void* buffer, std::int64_t size) override {
    const std::uint64_t stamp = time_stamp();
    RAND_add(&stamp, sizeof stamp, 0.0);
    if (buffer == nullptr) return;
    if (size < 0 || size > std::numeric_limits<std::int32_t>::max()) {
      raise(error::ovcrypto_randomProvider_arguments, "Invalid 'size' argument");
    }
    // What libcrypto adds to the thread's error queue is not for the caller.
    ERR_set_mark();
    const int result = RAND_bytes(static_cast<unsigned char*>(buffer), static_cast<int>(size));
    ERR_pop_to_mark();
    if (result != 1) {
      raise(error::ovcrypto_randomProvider_failed,
            "Random provider failed to generate requested number of bytes");
    }
  }
};

}  // namespace impl

IRandomProvider& default_random_provider() noexcept {
  static constinit impl::DefaultRandomProviderImpl provider;
  return provider;
}

}  // namespace ovcrypto
