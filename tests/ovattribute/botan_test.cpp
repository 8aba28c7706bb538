// SPDX-License-Identifier: Apache-2.0
// Another implementation of EAX opens what we seal and seals what we open.
#include <botan/aead.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>

#include "ovattribute/secured_value_cipher.h"
#include "tests/ovattribute/sealing.h"

namespace ovattribute {
namespace {

constexpr std::size_t nonce_size = 16;

std::string botan(Botan::Cipher_Dir direction, const ovcrypto::Key& key, const std::string& header,
                  std::string_view nonce, std::string_view text) {
  const auto eax = Botan::AEAD_Mode::create_or_throw(
      "AES-" + std::to_string(8 * key.size()) + "/EAX", direction);
  eax->set_key(key.data(), key.size());
  eax->set_associated_data(reinterpret_cast<const std::uint8_t*>(header.data()), header.size());
  eax->start(reinterpret_cast<const std::uint8_t*>(nonce.data()), nonce.size());
  Botan::secure_vector<std::uint8_t> buffer(text.begin(), text.end());
  eax->finish(buffer);
  return std::string(buffer.begin(), buffer.end());
}

std::string botan_seal(const ovcrypto::Key& key, const std::string& header,
                       const std::string& nonce, const std::string& text) {
  return nonce + botan(Botan::ENCRYPTION, key, header, nonce, text);
}

// Raises when the tag is wrong.
std::string botan_open(const ovcrypto::Key& key, const std::string& header,
                       std::string_view sealed) {
  return botan(Botan::DECRYPTION, key, header, sealed.substr(0, nonce_size),
               sealed.substr(nonce_size));
}

struct Case {
  Case(const ICipher& cipher, std::size_t size, std::size_t header_size)
      : key(key_of(numbered(cipher.key_size(), static_cast<int>(size)))),
        header(numbered(header_size, 1)),
        text(numbered(size, 2)),
        sealed(botan_seal(key, header, nonce, text)) {}

  const ovcrypto::Key key;
  const std::string header;
  const std::string text;
  const std::string nonce = numbered(nonce_size, 3);
  const std::string sealed;  // by Botan
};

void expect_same_seal(const ICipher& cipher, const Case& c, const MemoryListPtr& text) {
  FixedRandom random(c.nonce);
  ASSERT_TRUE(text_of(*cipher.encrypt(text, c.header, c.key, random)) == c.sealed);
}

void expect_opens(const ICipher& cipher, const Case& c, const MemoryListPtr& sealed) {
  ASSERT_TRUE(cipher.authenticate(c.key, c.header, sealed));
  ASSERT_TRUE(text_of(*cipher.decrypt(c.key, c.header, sealed)) == c.text);
}

void expect_agreement(const ICipher& cipher, std::size_t size, std::size_t header_size,
                      std::initializer_list<std::size_t> segment_sizes) {
  SCOPED_TRACE(std::to_string(size) + " bytes, header of " + std::to_string(header_size));
  const Case c(cipher, size, header_size);
  for (const std::size_t segment_size : segment_sizes) {
    SCOPED_TRACE("segments of " + std::to_string(segment_size));
    expect_same_seal(cipher, c, list_of(c.text, segment_size));
    expect_opens(cipher, c, list_of(c.sealed, segment_size));
  }
  const auto ours =
      cipher.encrypt(list_of(c.text), c.header, c.key, ovcrypto::default_random_provider());
  ASSERT_TRUE(botan_open(c.key, c.header, text_of(*ours)) == c.text);
}

// In two segments that meet at every place.
void expect_agreement_wherever_cut(const ICipher& cipher, std::size_t size) {
  const Case c(cipher, size, 20);
  for (std::size_t cut = 0; cut <= c.sealed.size(); ++cut) {
    SCOPED_TRACE(std::to_string(size) + " bytes, cut at " + std::to_string(cut));
    if (cut <= size) expect_same_seal(cipher, c, cut_list(c.text, cut));
    expect_opens(cipher, c, cut_list(c.sealed, cut));
  }
}

class AgainstBotan : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Eax, AgainstBotan, testing::Values("EAX_AES128", "EAX_AES256"));

TEST_P(AgainstBotan, AgreesOnEveryShortLength) {
  for (std::size_t size = 0; size <= 130; ++size)
    expect_agreement(*cipher_of(GetParam()), size, size % 37, {0, 1, 2, 3, 15, 16, 17, 31, 32, 33});
}

TEST_P(AgainstBotan, AgreesWhereverTheDataIsCut) {
  for (std::size_t size = 0; size <= 130; ++size)
    expect_agreement_wherever_cut(*cipher_of(GetParam()), size);
  for (const std::size_t size : {255, 300, 1000})
    expect_agreement_wherever_cut(*cipher_of(GetParam()), size);
}

TEST_P(AgainstBotan, AgreesOnEveryHeader) {
  for (std::size_t size = 0; size <= 300; ++size)
    expect_agreement(*cipher_of(GetParam()), 40, size, {0});
}

TEST_P(AgainstBotan, AgreesAroundTheSizesWhereRunsBegin) {
  for (const std::size_t around : {672, 1024, 16384}) {
    for (std::size_t size = around - 40; size <= around + 40; ++size)
      expect_agreement(*cipher_of(GetParam()), size, 20, {0, 100, 513});
  }
}

TEST_P(AgainstBotan, AgreesOnLongValues) {
  expect_agreement(*cipher_of(GetParam()), 4096, 100, {0, 1, 16, 17, 1000});
  expect_agreement(*cipher_of(GetParam()), 1 << 20, 100, {0, 1000, 4096, 65536});
}

}  // namespace
}  // namespace ovattribute
