// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/random_provider.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rand.h>

#include <array>
#include <limits>
#include <set>
#include <thread>
#include <vector>

#include "ovcrypto/error_codes.h"
#include "tests/support/error_matcher.h"

namespace ovcrypto {
namespace {

constexpr const char* function = "ovcrypto::impl::DefaultRandomProviderImpl::generate_random()";

int added_bytes = 0;
int added = 0;
double claimed_entropy = 0;
int asked = 0;

/// A generator of libcrypto's that fails and takes note, while it lives.
class FailingGenerator {
 public:
  FailingGenerator() {
    m_former = RAND_get_rand_method();
    m_method.add = [](const void*, int size, double entropy) {
      ++added;
      added_bytes += size;
      claimed_entropy += entropy;
      return 1;
    };
    m_method.bytes = [](unsigned char*, int) {
      ++asked;
      ERR_raise(ERR_LIB_USER, ERR_R_INTERNAL_ERROR);
      return 0;
    };
    m_method.status = [] { return 1; };
    RAND_set_rand_method(&m_method);
  }
  ~FailingGenerator() { RAND_set_rand_method(m_former); }

 private:
  RAND_METHOD m_method{};
  const RAND_METHOD* m_former;
};

TEST(DefaultRandomProvider, FillsWhatItIsGivenAndNoMore) {
  for (const std::size_t size : {0, 1, 16, 1000}) {
    std::vector<unsigned char> buffer(size + 1, 0xee);
    default_random_provider().generate_random(buffer.data(), static_cast<std::int64_t>(size));
    EXPECT_EQ(buffer.back(), 0xee);
    if (size < 16) continue;
    EXPECT_NE(buffer, std::vector<unsigned char>(size + 1, 0xee));
  }
}

TEST(DefaultRandomProvider, RefusesSizesBeyond31Bits) {
  unsigned char byte = 0xee;
  for (const std::int64_t size :
       {std::int64_t{-1}, std::int64_t{1} << 31, std::numeric_limits<std::int64_t>::min(),
        std::numeric_limits<std::int64_t>::max(), (std::int64_t{1} << 32) + 1}) {
    EXPECT_ERROR(default_random_provider().generate_random(&byte, size),
                 error::ovcrypto_randomProvider_arguments, "Invalid 'size' argument",
                 {"ovcrypto/random_provider", function, 0});
    default_random_provider().generate_random(nullptr, size);  // nothing to fill, no error
  }
  EXPECT_EQ(byte, 0xee);
}

TEST(DefaultRandomProvider, MixesInTheTimeEveryTimeAndReportsFailure) {
  default_random_provider().generate_random(nullptr, 0);  // initialises libcrypto
  ERR_clear_error();
  const FailingGenerator generator;
  unsigned char buffer[4] = {};
  EXPECT_ERROR(default_random_provider().generate_random(buffer, 4),
               error::ovcrypto_randomProvider_failed,
               "Random provider failed to generate requested number of bytes",
               {"ovcrypto/random_provider", function, 0});
  EXPECT_EQ(added, 1);
  EXPECT_EQ(asked, 1);
  default_random_provider().generate_random(nullptr, 4);
  EXPECT_ERROR(default_random_provider().generate_random(buffer, -1),
               error::ovcrypto_randomProvider_arguments, "Invalid 'size' argument");
  EXPECT_EQ(added, 3);
  EXPECT_EQ(added_bytes, 3 * 8);
  EXPECT_EQ(claimed_entropy, 0);
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(ERR_peek_error(), 0u) << "left in the thread's error queue";
}

TEST(DefaultRandomProvider, ServesThreadsAtOnce) {
  using Nonce = std::array<unsigned char, 16>;
  std::vector<std::vector<Nonce>> drawn(4, std::vector<Nonce>(200));
  std::vector<std::thread> threads;
  for (auto& nonces : drawn) {
    threads.emplace_back([&nonces] {
      for (Nonce& nonce : nonces)
        default_random_provider().generate_random(nonce.data(), 16);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  std::set<Nonce> all;
  for (const auto& nonces : drawn)
    all.insert(nonces.begin(), nonces.end());
  EXPECT_EQ(all.size(), 4u * 200u);
}

}  // namespace
}  // namespace ovcrypto
