// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/aes.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <memory>
#include <string>
#include <vector>

#include "ovcrypto/error_codes.h"
#include "tests/support/error_matcher.h"
#include "tests/support/vector_file.h"

namespace ovcrypto {
namespace {

using ovtest::read_vectors;
using ovtest::to_hex;

Key key_of(const std::string& bytes) {
  return Key(bytes.data(), bytes.size());
}

const unsigned char* bytes_of(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytes_of(std::string& text) {
  return reinterpret_cast<unsigned char*>(text.data());
}

std::string numbered(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>(i * 11 + i / 256);
  return text;
}

// Calls f(offset, length) for pieces of the given size.
template <class F>
void in_pieces(std::size_t size, std::size_t piece, F&& f) {
  for (std::size_t at = 0; at < size; at += piece)
    f(at, std::min(piece, size - at));
}

std::string cmac(const Key& key, const std::string& message, std::size_t piece) {
  AesCmacContext context(key);
  in_pieces(message.size(), piece,
            [&](std::size_t at, std::size_t n) { context.update(message.data() + at, n); });
  std::string code(16, '\0');
  context.finish(bytes_of(code));
  return code;
}

std::string in_counter_mode(const Key& key, const std::string& counter, std::string text,
                            std::size_t piece) {
  AesEncryptContext aes(key);
  AesCounterContext context(aes, bytes_of(counter));
  in_pieces(text.size(), piece, [&](std::size_t at, std::size_t n) {
    context.crypt(bytes_of(text) + at, bytes_of(text) + at, n);
  });
  return text;
}

// libcrypto's own modes, which share nothing with ours but the block function.
std::string evp_cmac(const Key& key, const std::string& message) {
  const std::unique_ptr<EVP_MAC, void (*)(EVP_MAC*)> mac(EVP_MAC_fetch(nullptr, "CMAC", nullptr),
                                                         EVP_MAC_free);
  const std::unique_ptr<EVP_MAC_CTX, void (*)(EVP_MAC_CTX*)> context(EVP_MAC_CTX_new(mac.get()),
                                                                     EVP_MAC_CTX_free);
  std::string name = "AES-" + std::to_string(8 * key.size()) + "-CBC";
  const OSSL_PARAM params[] = {
      OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_CIPHER, name.data(), 0),
      OSSL_PARAM_construct_end()};
  std::string code(16, '\0');
  std::size_t size = 0;
  EXPECT_EQ(EVP_MAC_init(context.get(), key.data(), key.size(), params), 1);
  EXPECT_EQ(EVP_MAC_update(context.get(), bytes_of(message), message.size()), 1);
  EXPECT_EQ(EVP_MAC_final(context.get(), bytes_of(code), &size, code.size()), 1);
  return code;
}

std::string evp_counter_mode(const Key& key, const std::string& counter, std::string text) {
  const std::string name = "AES-" + std::to_string(8 * key.size()) + "-CTR";
  const std::unique_ptr<EVP_CIPHER_CTX, void (*)(EVP_CIPHER_CTX*)> context(EVP_CIPHER_CTX_new(),
                                                                           EVP_CIPHER_CTX_free);
  int size = 0;
  EXPECT_EQ(EVP_EncryptInit_ex2(context.get(), EVP_get_cipherbyname(name.c_str()), key.data(),
                                bytes_of(counter), nullptr),
            1);
  EXPECT_EQ(EVP_EncryptUpdate(context.get(), bytes_of(text), &size, bytes_of(text),
                              static_cast<int>(text.size())),
            1);
  return text;
}

TEST(AesEncryptContext, AgreesWithFips197) {
  AesEncryptContext aes;
  for (const ovtest::Vector& v : read_vectors("crypto/aes.vec")) {
    SCOPED_TRACE(v.place());
    std::string block = v["Plaintext"];
    aes.rekey(key_of(v["Key"]));
    aes.encrypt(bytes_of(block), bytes_of(block));
    EXPECT_EQ(to_hex(block), to_hex(v["Ciphertext"]));
  }
}

TEST(AesEncryptContext, RefusesOtherKeySizesAndKeepsItsKey) {
  const ovtest::Vector v = read_vectors("crypto/aes.vec").front();
  AesEncryptContext aes(key_of(v["Key"]));
  for (const std::size_t size : {0, 1, 15, 17, 23, 25, 31, 33, 64}) {
    SCOPED_TRACE(size);
    EXPECT_ERROR(aes.rekey(Key(size)), error::ovcrypto_key_size,
                 "Key for AES must be 128, 192, or 256 bits (16, 24, or 32 bytes)",
                 {"ovcrypto/aes", "ovcrypto::AesEncryptContext::rekey()", 0});
  }
  std::string block = v["Plaintext"];
  aes.encrypt(bytes_of(block), bytes_of(block));
  EXPECT_EQ(to_hex(block), to_hex(v["Ciphertext"]));
}

TEST(AesEncryptContext, ForgetsTheFormerKeyInEveryMode) {
  const std::string counter(16, '\x5a');
  const std::string text = numbered(1024);
  const Key first(32);
  const Key second = key_of(numbered(16));
  AesEncryptContext aes(first);
  for (const Key* key : {&first, &second}) {
    aes.rekey(*key);
    std::string out = text;
    AesCounterContext(aes, bytes_of(counter)).crypt(bytes_of(out), bytes_of(out), out.size());
    EXPECT_EQ(out, evp_counter_mode(*key, counter, text));
    AesBlock state;
    aes.chain(state, bytes_of(text), text.size() / 16);
    AesEncryptContext other(*key);
    AesBlock expected;
    for (std::size_t i = 0; i < text.size() / 16; ++i)
      other.chain(expected, bytes_of(text) + 16 * i, 1);
    EXPECT_TRUE(equal_in_constant_time(state.data(), expected.data(), 16));
  }
}

TEST(AesCounterContext, AgreesWithSp80038a) {
  for (const ovtest::Vector& v : read_vectors("crypto/aes_counter.vec")) {
    for (const std::size_t piece : {1, 15, 16, 17, 64}) {
      SCOPED_TRACE(v.place() + " in pieces of " + std::to_string(piece));
      EXPECT_EQ(to_hex(in_counter_mode(key_of(v["Key"]), v["Counter"], v["Plaintext"], piece)),
                to_hex(v["Ciphertext"]));
    }
  }
}

TEST(AesCmacContext, AgreesWithSp80038b) {
  for (const ovtest::Vector& v : read_vectors("crypto/cmac.vec")) {
    for (const std::size_t piece : {1, 15, 16, 17, 64}) {
      SCOPED_TRACE(v.place() + " in pieces of " + std::to_string(piece));
      EXPECT_EQ(to_hex(cmac(key_of(v["Key"]), v["Message"], piece)), to_hex(v["Code"]));
    }
  }
}

// Short runs, runs and long runs are computed in different ways: all give the same bytes.
TEST(Aes, GivesTheSameBytesForEveryLengthAndEverySplit) {
  const std::string counter(16, '\xa5');
  for (const std::size_t key_size : {16, 24, 32}) {
    const Key key = key_of(numbered(key_size));
    // Every length, around the one too from where on long runs are expected.
    for (std::size_t size = 0; size <= 830; size = size == 300 ? 730 : size + 1) {
      const std::string text = numbered(size);
      const std::string code = evp_cmac(key, text);
      const std::string crypted = evp_counter_mode(key, counter, text);
      for (const std::size_t piece : {7, 16, 33, 48, 63, 256, 257, 830}) {
        ASSERT_EQ(cmac(key, text, piece), code) << size << " in pieces of " << piece;
        ASSERT_EQ(in_counter_mode(key, counter, text, piece), crypted)
            << size << " in pieces of " << piece;
      }
    }
    const std::string large = numbered(300'001);
    const std::string large_code = evp_cmac(key, large);
    const std::string large_crypted = evp_counter_mode(key, counter, large);
    // Short and long runs by turns.
    for (const std::vector<std::size_t>& pieces :
         {std::vector<std::size_t>{5, 2000, 16}, {32, 2000, 7}, {100, 30, 900, 1, 3000}}) {
      AesEncryptContext aes(key);
      AesCounterContext context(aes, bytes_of(counter));
      AesCmacContext mac(key);
      std::string out = large;
      std::size_t at = 0;
      for (std::size_t i = 0; at < large.size(); ++i) {
        const std::size_t n = std::min(pieces[i % pieces.size()], large.size() - at);
        context.crypt(bytes_of(out) + at, bytes_of(out) + at, n);
        mac.update(large.data() + at, n);
        at += n;
      }
      std::string code(16, '\0');
      mac.finish(bytes_of(code));
      EXPECT_EQ(code, large_code);
      EXPECT_TRUE(out == large_crypted);
    }
    for (const std::size_t piece : {1000, 4096, 300'001}) {
      EXPECT_EQ(cmac(key, large, piece), large_code);
      EXPECT_TRUE(in_counter_mode(key, counter, large, piece) == large_crypted);
    }
  }
}

TEST(AesCounterContext, CarriesThroughAllBits) {
  const Key key = key_of(numbered(16));
  for (const char* const counter :
       {"0000000000000000ffffffffffffffff", "00000000ffffffffffffffffffffffff",
        "ffffffffffffffffffffffffffffffff", "0000000000000000fffffffffffffff0",
        "000000000000000000000000ffffffff", "fffffffffffffffffffffffffffffff0"}) {
    for (const std::size_t piece : {16, 40, 512}) {
      SCOPED_TRACE(counter);
      const std::string text = numbered(512);
      EXPECT_EQ(in_counter_mode(key, ovtest::from_hex(counter), text, piece),
                evp_counter_mode(key, ovtest::from_hex(counter), text));
    }
  }
}

TEST(AesCounterContext, WritesElsewhere) {
  const Key key = key_of(numbered(32));
  const std::string counter(16, '\x01');
  const std::string text = numbered(700);
  for (const std::size_t piece : {9, 50, 700}) {
    AesEncryptContext aes(key);
    AesCounterContext context(aes, bytes_of(counter));
    std::string out(text.size(), '\0');
    in_pieces(text.size(), piece, [&](std::size_t at, std::size_t n) {
      context.crypt(bytes_of(text) + at, bytes_of(out) + at, n);
    });
    EXPECT_EQ(out, evp_counter_mode(key, counter, text));
  }
}

TEST(AesCmacContext, ComputesOneCodeAfterAnotherAndContinuesCopies) {
  const Key key = key_of(numbered(16));
  AesCmacContext context(key);
  std::string code(16, '\0');
  for (const std::size_t size : {0, 300, 5, 16, 1000}) {
    context.update(numbered(size).data(), size);
    const AesCmacContext copy = context;
    context.update("more", 4);
    context.finish(bytes_of(code));
    EXPECT_EQ(code, evp_cmac(key, numbered(size) + "more"));
    context = copy;
    context.finish(bytes_of(code));
    EXPECT_EQ(code, evp_cmac(key, numbered(size)));
    // Beginning with a number is a block like any other.
    for (unsigned char n = 0; n < AesCmacContext::begin_numbers; ++n) {
      const std::string block = std::string(15, '\0') + static_cast<char>(n);
      context.begin(n);
      AesCmacContext begun = context;
      context.update(numbered(size).data(), size);
      context.finish(bytes_of(code));
      EXPECT_EQ(code, evp_cmac(key, block + numbered(size)));
      begun.finish(bytes_of(code));
      EXPECT_EQ(code, evp_cmac(key, block));
    }
    context.begin(1);
    context.update("dropped", 7);
    context.reset();
  }
}

TEST(EqualInConstantTime, SeesEveryBit) {
  unsigned char a[16] = {};
  unsigned char b[16] = {};
  EXPECT_TRUE(equal_in_constant_time(a, b, 16));
  EXPECT_TRUE(equal_in_constant_time(nullptr, nullptr, 0));
  for (int bit = 0; bit < 128; ++bit) {
    b[bit / 8] = static_cast<unsigned char>(1 << bit % 8);
    EXPECT_FALSE(equal_in_constant_time(a, b, 16)) << bit;
    b[bit / 8] = 0;
  }
}

}  // namespace
}  // namespace ovcrypto
