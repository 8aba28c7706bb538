// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/random_provider.h"

#include <limits>

#include "ovcore/exception.h"
#include "ovcrypto/error_codes.h"
#include "ovcrypto/impl/libcrypto.h"

namespace ovcrypto {
namespace impl {
namespace {

[[noreturn]] void raise(const ovcore::ErrorCode& code, const char* message) {
  ovcore::throw_error(code, message,
                      {"ovcrypto/random_provider",
                       "ovcrypto::impl::DefaultRandomProviderImpl::generate_random()", 0});
}

}  // namespace

class DefaultRandomProviderImpl final : public IRandomProvider {
 public:
  void generate_random(void* buffer, std::int64_t size) override {
    const bool valid = size >= 0 && size <= std::numeric_limits<std::int32_t>::max();
    const bool filled =
        valid ? fill_random(buffer, static_cast<std::size_t>(size)) : fill_random(nullptr, 0);
    if (!filled) {
      raise(error::ovcrypto_randomProvider_failed,
            "Random provider failed to generate requested number of bytes");
    }
    if (buffer == nullptr) return;
    if (!valid) raise(error::ovcrypto_randomProvider_arguments, "Invalid 'size' argument");
  }
};

}  // namespace impl

IRandomProvider& default_random_provider() noexcept {
  static constinit impl::DefaultRandomProviderImpl provider;
  return provider;
}

}  // namespace ovcrypto
