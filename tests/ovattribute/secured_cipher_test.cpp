// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/secured_value_cipher.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/error_codes.h"
#include "tests/ovattribute/sealing.h"
#include "tests/support/error_matcher.h"
#include "tests/support/vector_file.h"

namespace ovattribute {
namespace {

constexpr std::size_t overhead = 32;  // nonce and tag

void expect_unauthentic(const ICipher& cipher, const ovcrypto::Key& key, const std::string& header,
                        const MemoryListPtr& ciphertext) {
  EXPECT_FALSE(cipher.authenticate(key, header, ciphertext));
  EXPECT_ERROR(cipher.decrypt(key, header, ciphertext),
               error::ovattribute_value_secured_authentication,
               "Ciphertext fails authentication with provided key.  Cipher=" + cipher.cipher_id(),
               {"ovattribute/secured_value",
                "ovattribute::impl::SecuredValueCipherEaxAesBase::authenticate_decrypt()", 0});
}

TEST(SecuredCipher, AgreesWithTheVectorsOfThePaper) {
  const auto cipher = cipher_of("EAX_AES128");
  for (const ovtest::Vector& v : ovtest::read_vectors("crypto/eax.vec")) {
    SCOPED_TRACE(v.place());
    const ovcrypto::Key key = key_of(v["KEY"]);
    FixedRandom random(v["NONCE"]);
    const auto sealed = cipher->encrypt(list_of(v["MSG"]), v["HEADER"], key, random);
    EXPECT_EQ(to_hex(text_of(*sealed)), to_hex(v["NONCE"] + v["CIPHER"]));
    EXPECT_TRUE(cipher->authenticate(key, v["HEADER"], sealed));
    EXPECT_EQ(to_hex(text_of(*cipher->decrypt(key, v["HEADER"], sealed))), to_hex(v["MSG"]));
  }
}

TEST(SecuredCipher, BytesDoNotDependOnSegments) {
  for (const char* const id : {"EAX_AES128", "EAX_AES256"}) {
    const auto cipher = cipher_of(id);
    const ovcrypto::Key key = key_of(numbered(cipher->key_size()));
    for (const std::size_t size : {0, 1, 15, 16, 17, 31, 32, 33, 100, 256, 257, 1000}) {
      SCOPED_TRACE(size);
      const std::string text = numbered(size);
      const auto seal = [&](const MemoryListPtr& list) {
        FixedRandom random("a nonce of sixteen");
        return text_of(*cipher->encrypt(list, "header", key, random));
      };
      const std::string sealed = seal(list_of(text));
      EXPECT_EQ(sealed.size(), size + overhead);
      for (const std::size_t segment_size : {1, 2, 3, 15, 16, 17, 33, 48, 256}) {
        EXPECT_EQ(seal(list_of(text, segment_size)), sealed);
        const auto list = list_of(sealed, segment_size);
        EXPECT_TRUE(cipher->authenticate(key, "header", list));
        EXPECT_EQ(text_of(*cipher->decrypt(key, "header", list)), text);
      }
      if (size > 100) continue;
      for (std::size_t cut = 0; cut <= sealed.size(); ++cut) {
        EXPECT_EQ(seal(cut_list(text, std::min(cut, size))), sealed);
        EXPECT_EQ(text_of(*cipher->decrypt(key, "header", cut_list(sealed, cut))), text);
      }
    }
  }
}

TEST(SecuredCipher, AnyChangedBitFailsAuthentication) {
  for (const char* const id : {"EAX_AES128", "EAX_AES256"}) {
    const auto cipher = cipher_of(id);
    const ovcrypto::Key key = key_of(numbered(cipher->key_size()));
    for (const std::size_t size : {0, 1, 16, 50, 300}) {
      for (const std::string header : {"", "seventeen letters"}) {
        SCOPED_TRACE(size);
        FixedRandom random("a nonce of sixteen");
        std::string sealed =
            text_of(*cipher->encrypt(list_of(numbered(size)), header, key, random));
        for (std::size_t bit = 0; bit < 8 * sealed.size(); ++bit) {
          sealed[bit / 8] ^= static_cast<char>(1 << bit % 8);
          expect_unauthentic(*cipher, key, header, list_of(sealed));
          sealed[bit / 8] ^= static_cast<char>(1 << bit % 8);
        }
        std::string changed = header;
        for (std::size_t bit = 0; bit < 8 * header.size(); ++bit) {
          changed[bit / 8] ^= static_cast<char>(1 << bit % 8);
          expect_unauthentic(*cipher, key, changed, list_of(sealed));
          changed[bit / 8] ^= static_cast<char>(1 << bit % 8);
        }
        expect_unauthentic(*cipher, key, header + '\0', list_of(sealed));
        expect_unauthentic(*cipher, key, header, list_of(sealed + '\0'));
        expect_unauthentic(*cipher, key_of(numbered(cipher->key_size(), 1)), header,
                           list_of(sealed));
        EXPECT_TRUE(cipher->authenticate(key, header, list_of(sealed)));
      }
    }
  }
}

TEST(SecuredCipher, RefusesLessThanNonceAndTag) {
  const auto cipher = cipher_of("EAX_AES256");
  const ovcrypto::Key key(32);
  const ovcore::SourceLocation location{
      "ovattribute/secured_value",
      "ovattribute::impl::SecuredValueCipherEaxAesBase::authenticate_decrypt()", 0};
  std::vector<MemoryListPtr> lists{nullptr};
  for (std::size_t size = 0; size < overhead; ++size)
    lists.push_back(list_of(std::string(size, 'x')));
  for (const MemoryListPtr& list : lists) {
    EXPECT_ERROR(cipher->decrypt(key, "", list), error::ovattribute_value_secured_ciphertext,
                 "Ciphertext size not valid for cipher.  Cipher=EAX_AES256", location);
    EXPECT_ERROR(cipher->authenticate(key, "", list), error::ovattribute_value_secured_ciphertext,
                 "Ciphertext size not valid for cipher.  Cipher=EAX_AES256", location);
  }
  expect_unauthentic(*cipher, key, "", list_of(std::string(overhead, 'x')));
}

TEST(SecuredCipher, ChecksTheSizeOfTheKeyFirst) {
  const std::string eax = "ovattribute::impl::SecuredValueCipherEaxAesBase::";
  const std::string null = "ovattribute::impl::SecuredValueCipherNull::check_keysize()";
  struct Case {
    const char* id;
    std::size_t size;
    const char* end_of_message;
    std::string encrypt;
    std::string decrypt;
  };
  for (const Case& c : {Case{"EAX_AES128", 0, "Expexted=16, Provided=0", eax + "encrypt()",
                             eax + "authenticate_decrypt()"},
                        {"EAX_AES128", 32, "Expexted=16, Provided=32", eax + "encrypt()",
                         eax + "authenticate_decrypt()"},
                        {"EAX_AES256", 16, "Expexted=32, Provided=16", eax + "encrypt()",
                         eax + "authenticate_decrypt()"},
                        {"EAX_AES256", 33, "Expexted=32, Provided=33", eax + "encrypt()",
                         eax + "authenticate_decrypt()"},
                        {"NULL", 1, "Expexted=0, Provided=1", null, null}}) {
    SCOPED_TRACE(c.end_of_message);
    const auto cipher = cipher_of(c.id);
    const ovcrypto::Key key(c.size);
    const std::string message =
        "Size of key provided does not match cipher.  Cipher=" + std::string(c.id) + ", " +
        c.end_of_message;
    const ovcore::ErrorCode& code = error::ovattribute_value_secured_keysize;
    FixedRandom random("a nonce of sixteen");
    EXPECT_ERROR(cipher->encrypt(list_of("text"), "", key, random), code, message,
                 {"ovattribute/secured_value", c.encrypt, 0});
    EXPECT_EQ(random.calls(), 0);
    EXPECT_ERROR(cipher->decrypt(key, "", list_of("short")), code, message,
                 {"ovattribute/secured_value", c.decrypt, 0});
    EXPECT_ERROR(cipher->authenticate(key, "", list_of("short")), code, message,
                 {"ovattribute/secured_value", c.decrypt, 0});
  }
}

TEST(SecuredCipher, NullHandsTheListThrough) {
  const auto cipher = cipher_of("NULL");
  const auto list = list_of("text");
  FixedRandom random("");
  EXPECT_EQ(cipher->encrypt(list, "header", ovcrypto::Key(), random), list);
  EXPECT_EQ(cipher->decrypt(ovcrypto::Key(), "other", list), list);
  EXPECT_TRUE(cipher->authenticate(ovcrypto::Key(), "other", list));
  EXPECT_EQ(random.calls(), 0);
}

TEST(SecuredCipher, IsFoundByItsExactId) {
  for (const char* const id : {"EAX_AES128", "EAX_AES256", "NULL"}) {
    const auto cipher = cipher_of(id);
    ASSERT_TRUE(cipher) << id;
    EXPECT_EQ(cipher->cipher_id(), id);
    EXPECT_EQ(cipher, cipher_of(id));
  }
  for (const char* const id : {"", "eax_aes128", "EAX_AES192", "EAX_AES1280", "null", " NULL"})
    EXPECT_FALSE(cipher_of(id)) << id;
  EXPECT_EQ(SecuredValue::default_cipher(), cipher_of("EAX_AES128"));
  EXPECT_EQ(SecuredValue::default_cipher_provider(), SecuredValue::default_cipher_provider());
}

TEST(SecuredCipher, AuthenticatingProviderOpensNothingForged) {
  const auto provider = SecuredValue::authenticating_cipher_provider();
  for (const char* const id : {"EAX_AES128", "EAX_AES256"})
    EXPECT_EQ(provider->find_cipher(id), cipher_of(id));
  // Anybody can make this.
  const SecuredValue forged(AttributeValue("a lie"), "", {}, ovcrypto::Key(), *cipher_of("NULL"));
  EXPECT_TRUE(forged.authenticate(ovcrypto::Key()));
  const auto expect_unknown = [](auto&& use) {
    EXPECT_ERROR(use(), error::ovattribute_value_secured_cipher_unknown,
                 "Unknown/unsupported cipher: NULL");
  };
  expect_unknown([&] { return forged.authenticate(ovcrypto::Key(), *provider); });
  expect_unknown([&] { return forged.extract(ovcrypto::Key(), *provider); });
  expect_unknown([&] { return forged.extract_binary_as_key(ovcrypto::Key(), *provider); });
}

TEST(SecuredCipher, SealsUnderAFreshNonceEveryTime) {
  const auto cipher = cipher_of("EAX_AES128");
  const ovcrypto::Key key(16);
  const auto seal = [&] {
    return text_of(*cipher->encrypt(list_of("text"), "", key, ovcrypto::default_random_provider()));
  };
  const std::string first = seal();
  const std::string second = seal();
  EXPECT_NE(first.substr(0, 16), second.substr(0, 16));
  EXPECT_NE(first.substr(16, 4), second.substr(16, 4));
}

TEST(SecuredCipher, PlaintextComesInAWipingList) {
  const auto cipher = cipher_of("EAX_AES128");
  const ovcrypto::Key key(16);
  for (const std::size_t size : {0, 5, 100'000}) {
    FixedRandom random("a nonce of sixteen");
    const auto sealed = cipher->encrypt(list_of(numbered(size)), "", key, random);
    EXPECT_TRUE(cipher->decrypt(key, "", sealed)->wiping());
  }
}

TEST(SecuredCipher, ServesThreadsAtOnce) {
  const auto provider = SecuredValue::default_cipher_provider();
  const ovcrypto::Key key = key_of(numbered(32));
  const auto plaintext = list_of(numbered(20'000), 9000);  // for all of EVP's contexts
  std::vector<std::thread> threads;
  std::vector<int> opened(4);
  for (int& count : opened) {
    threads.emplace_back([&provider, &key, &plaintext, &count] {
      for (int i = 0; i < 50; ++i) {
        const auto cipher = provider->find_cipher("EAX_AES256");
        const auto sealed =
            cipher->encrypt(plaintext, "header", key, ovcrypto::default_random_provider());
        count += int{*cipher->decrypt(key, "header", sealed) == *plaintext};
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_EQ(opened, std::vector<int>(4, 50));
}

}  // namespace
}  // namespace ovattribute
