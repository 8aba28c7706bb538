// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/secured_value.h"
#include "ovcrypto/error_codes.h"
#include "ovserialize/error_codes.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/ovattribute/sealing.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using KeyId = SecuredValue::KeyId;

const KeyId key_id("family", ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff"));
const char* const unauthentic =
    "Ciphertext fails authentication with provided key.  Cipher=EAX_AES128";
const ovcore::SourceLocation extract_location{"ovattribute/secured_value",
                                              "ovattribute::SecuredValue::extract()", 0};

ovcrypto::Key key_for(const ICipher& cipher) {
  return key_of(numbered(cipher.key_size(), 3));
}

/// The items of a secured value, to be changed and put together again.
struct Items {
  explicit Items(const SecuredValue& value) {
    read_from(bytes_of([&](auto& writer) { value.write(writer); }), [this](auto& reader) {
      reader.begin_structure();
      reader >> annotation >> cipher_id;
      id.read(reader);
      data = text_of(*reader.read_memory_list_as_binary());
      reader.end_structure();
      return 0;
    });
  }
  [[nodiscard]] SecuredValue value() const {
    const std::string bytes = bytes_of([&](ovserialize::Writer& writer) {
      writer.begin_structure();
      writer << annotation << cipher_id;
      id.write(writer);
      writer.write_binary(data.data(), data.size());
      writer.end_structure();
    });
    return read_from(bytes, [](auto& reader) { return SecuredValue(reader); });
  }

  std::string annotation;
  std::string cipher_id;
  KeyId id;
  std::string data;
};

SecuredValue with_cipher(const SecuredValue& value, const char* cipher_id) {
  Items items(value);
  items.cipher_id = cipher_id;
  return items.value();
}

class FailingRandom final : public ovcrypto::IRandomProvider {
 public:
  void generate_random(void*, std::int64_t) override {
    ovcore::throw_error(ovcrypto::error::ovcrypto_randomProvider_failed, "no luck", {});
  }
};

/// A cipher of somebody else's, kept alive by who points to it: each byte plus one.
class AddOne final : public ovcore::RefCounted, public ICipher {
 public:
  const std::string& cipher_id() const override { return m_id; }
  std::size_t key_size() const override { return 0; }
  MemoryListPtr encrypt(const MemoryListPtr& plaintext, const std::string&, const ovcrypto::Key&,
                        ovcrypto::IRandomProvider&) const override {
    return shifted(plaintext, 1);
  }
  MemoryListPtr decrypt(const ovcrypto::Key&, const std::string&,
                        const MemoryListPtr& ciphertext) const override {
    return shifted(ciphertext, -1);
  }
  bool authenticate(const ovcrypto::Key&, const std::string& header,
                    const MemoryListPtr&) const override {
    return header == "authentic";
  }

 private:
  static MemoryListPtr shifted(const MemoryListPtr& list, int by) {
    std::string bytes = text_of(*list);
    for (char& c : bytes)
      c = static_cast<char>(c + by);
    return list_of(bytes);
  }
  const std::string m_id = "ADD_ONE";
};

class AddOneProvider final : public SecuredValue::ICipherProvider {
 public:
  ovcore::InterfacePtr<const ICipher> find_cipher(const std::string& cipher_id) const override {
    if (cipher_id != "ADD_ONE") return nullptr;
    return ovcore::RefCountPtr<const AddOne>(ovcore::make_ref_counted<AddOne>());
  }
};

TEST(Sealing, OpensToTheValueThatWasSealed) {
  for (const char* const id : {"EAX_AES128", "EAX_AES256", "NULL"}) {
    const auto cipher = cipher_of(id);
    const ovcrypto::Key key = key_for(*cipher);
    for (const AttributeValue& value : sample_values()) {
      const SecuredValue sealed(value, "annotation", key_id, key, *cipher);
      EXPECT_EQ(sealed.annotation(), "annotation");
      EXPECT_EQ(sealed.cipher_id(), id);
      EXPECT_EQ(sealed.key_id(), key_id);
      EXPECT_TRUE(sealed.authenticate(key));
      // A list of one element is marshaled as that element.
      const auto as_marshaled = bytes_of([&](auto& writer) { writer << value; });
      EXPECT_EQ(sealed.data_size(), as_marshaled.size() + (cipher->key_size() > 0 ? 32 : 0));
      EXPECT_EQ(bytes_of([&](auto& writer) { writer << sealed.extract(key); }), as_marshaled);
      EXPECT_EQ(Items(sealed).value(), sealed);
    }
  }
}

TEST(Sealing, NullCipherHoldsTheMarshaledValueAndOpensWithAnEmptyKeyOnly) {
  const SecuredValue sealed(AttributeValue("text"), "", key_id, ovcrypto::Key(),
                            *cipher_of("NULL"));
  EXPECT_EQ(to_hex(Items(sealed).data), "6474657874");
  EXPECT_EQ(sealed.extract(ovcrypto::Key()), AttributeValue("text"));
  EXPECT_ERROR(sealed.extract(ovcrypto::Key(16)), error::ovattribute_value_secured_keysize,
               "Size of key provided does not match cipher.  Cipher=NULL, Expexted=0, Provided=16");
}

TEST(Sealing, BindsTheAnnotationButNeitherCipherIdNorKeyId) {
  const ovcrypto::Key key = key_of(numbered(16));
  const SecuredValue sealed(AttributeValue(7), "annotation", key_id, key, *cipher_of("EAX_AES128"));
  Items items(sealed);
  items.annotation = "Annotation";
  EXPECT_FALSE(items.value().authenticate(key));
  EXPECT_ERROR(items.value().extract(key), error::ovattribute_value_secured_authentication,
               unauthentic);
  items.annotation = "annotation";
  items.id = KeyId();
  EXPECT_EQ(items.value().extract(key), AttributeValue(7));
}

TEST(Sealing, StoresErrorsWhenAskedTo) {
  const ovcrypto::Key key = key_of(numbered(16));
  // A nonce that is no item, or what the Null cipher opens below could happen to be a value.
  FixedRandom random(std::string(16, '\xff'));
  const SecuredValue sealed(AttributeValue(7), "", key_id, key, *SecuredValue::default_cipher(),
                            random);
  struct Case {
    SecuredValue value;
    std::size_t key_size;
    const ovcore::ErrorCode& code;
    std::string message;
  };
  for (const Case& c :
       {Case{with_cipher(sealed, "eax_aes128"), 16, error::ovattribute_value_secured_cipher_unknown,
             "Unknown/unsupported cipher: eax_aes128"},
        {SecuredValue(), 0, error::ovattribute_value_secured_cipher_unknown,
         "Unknown/unsupported cipher: "},
        {sealed, 17, error::ovattribute_value_secured_keysize,
         "Size of key provided does not match cipher.  Cipher=EAX_AES128, Expexted=16, "
         "Provided=17"},
        {sealed, 16, error::ovattribute_value_secured_authentication, unauthentic},
        {with_cipher(SecuredValue(), "EAX_AES128"), 16, error::ovattribute_value_secured_ciphertext,
         "Ciphertext size not valid for cipher.  Cipher=EAX_AES128"},
        {with_cipher(SecuredValue(), "NULL"), 0, ovserialize::error::ovserialize_reader_truncated,
         "The stream ends too early, at offset 0"},
        {with_cipher(sealed, "NULL"), 0, ovserialize::error::ovserialize_reader_kind, ""}}) {
    SCOPED_TRACE(c.message);
    const ovcrypto::Key wrong(c.key_size);
    const auto raised = ovtest::error_of([&] { static_cast<void>(c.value.extract(wrong)); });
    ASSERT_TRUE(raised);
    if (!c.message.empty()) ovtest::expect_error(raised, c.code, c.message);

    SecuredValue::ErrorInfoPtr stored;
    EXPECT_EQ(c.value.extract(wrong, &stored), AttributeValue());
    ASSERT_TRUE(stored);
    EXPECT_EQ(*stored, *raised);
    stored.reset();
    EXPECT_TRUE(c.value.extract_binary_as_key(wrong, &stored).empty());
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->code(), raised->code());
    // Success leaves no old error behind.
    EXPECT_EQ(sealed.extract(key, &stored), AttributeValue(7));
    EXPECT_FALSE(stored);
  }
}

TEST(Sealing, ErrorsCarryWhatTheyAreAbout) {
  using Parameters = std::vector<ovcore::ErrorInfo::Parameter>;
  const ovcrypto::Key key(16);
  const SecuredValue sealed(AttributeValue(7), "", key_id, key, *SecuredValue::default_cipher());
  const auto about = [](const auto& operation) {
    return ovtest::error_of([&] { static_cast<void>(operation()); })->parameters();
  };
  const Parameters cipher_only{{"cipherId", "EAX_AES128"}};
  EXPECT_EQ(about([&] { return sealed.extract(ovcrypto::Key(3)); }),
            (Parameters{{"cipherId", "EAX_AES128"}, {"expectedKeysize", "16"}, {"keysize", "3"}}));
  EXPECT_EQ(about([&] { return sealed.extract(key_of(numbered(16, 1))); }), cipher_only);
  EXPECT_EQ(about([&] { return with_cipher(SecuredValue(), "EAX_AES128").extract(key); }),
            cipher_only);
  EXPECT_EQ(about([&] { return with_cipher(sealed, "mine").authenticate(key); }),
            (Parameters{{"cipherId", "mine"}}));
  EXPECT_EQ(about([&] { return sealed.extract_binary_as_key(key); }),
            (Parameters{{"expectedType", "Binary"}, {"actualType", "Integer"}}));
}

TEST(Sealing, UnknownCiphersAreNamedWithTheirPlace) {
  const SecuredValue value = with_cipher(SecuredValue(), "nobody's");
  const char* const message = "Unknown/unsupported cipher: nobody's";
  const ovcore::ErrorCode& code = error::ovattribute_value_secured_cipher_unknown;
  EXPECT_ERROR(value.extract(ovcrypto::Key()), code, message, extract_location);
  EXPECT_ERROR(value.extract_binary_as_key(ovcrypto::Key()), code, message, extract_location);
  EXPECT_ERROR(value.authenticate(ovcrypto::Key()), code, message,
               {"ovattribute/secured_value", "ovattribute::SecuredValue::authenticate()", 0});
}

TEST(Sealing, KeysAreBinaryValues) {
  for (const std::size_t size : {0, 1, 16, 23, 24, 32, 300, 70'000}) {
    SCOPED_TRACE(size);
    const ovcrypto::Key key = key_of(numbered(32));
    const ovcrypto::Key inside = key_of(numbered(size, 9));
    const auto cipher = cipher_of("EAX_AES256");
    const SecuredValue sealed(inside, "", key_id, key, *cipher);
    const AttributeValue binary(BinaryValue(inside.data(), inside.size()));
    EXPECT_EQ(sealed.extract_binary_as_key(key), inside);
    EXPECT_EQ(sealed.extract(key), binary);
    EXPECT_EQ(SecuredValue(binary, "", key_id, key, *cipher).extract_binary_as_key(key), inside);
  }
}

TEST(Sealing, OnlyOneBinaryElementIsAKey) {
  const ovcrypto::Key key = key_of(numbered(16));
  struct Case {
    AttributeValue value;
    const char* message;
  };
  for (const Case& c :
       {Case{AttributeValue("text"),
             "Only Binary attribute values can be read as Key.  TypeFound=String"},
        {AttributeValue(), "Only Binary attribute values can be read as Key.  TypeFound=Null"},
        {AttributeValue{BinaryValue(1), BinaryValue(2)},
         "Only scalar binary attributes can be read as Key"}}) {
    const SecuredValue sealed(c.value, "", key_id, key, *SecuredValue::default_cipher());
    EXPECT_ERROR(sealed.extract_binary_as_key(key), error::ovattribute_value_type_mismatch,
                 c.message);
    SecuredValue::ErrorInfoPtr stored;
    EXPECT_TRUE(sealed.extract_binary_as_key(key, &stored).empty());
    ovtest::expect_error(stored, error::ovattribute_value_type_mismatch, c.message);
  }
}

TEST(Sealing, NothingMayFollowTheValueInside) {
  const ovcrypto::Key key = key_of(numbered(16));
  const auto cipher = SecuredValue::default_cipher();
  Items items(SecuredValue(AttributeValue(), "", key_id, key, *cipher));
  for (const char* const plaintext : {"f6f6", "f600", "4161f6", "f6ff"}) {
    FixedRandom random("a nonce of sixteen");
    items.data = text_of(*cipher->encrypt(list_of(from_hex(plaintext)), "", key, random));
    const SecuredValue sealed = items.value();
    EXPECT_TRUE(sealed.authenticate(key));
    const bool binary = *plaintext == '4';
    const std::string message =
        "More bytes follow the sealed value at offset " + std::string(binary ? "2" : "1");
    const ovcore::ErrorCode& code = ovserialize::error::ovserialize_reader_malformed;
    EXPECT_ERROR(sealed.extract(key), code, message, extract_location);
    if (binary) EXPECT_ERROR(sealed.extract_binary_as_key(key), code, message, extract_location);
    SecuredValue::ErrorInfoPtr stored;
    EXPECT_EQ(sealed.extract(key, &stored), AttributeValue());
    ovtest::expect_error(stored, code, message);
  }
}

TEST(Sealing, SetLeavesTheOldContentWhenItFails) {
  const ovcrypto::Key key = key_of(numbered(16));
  const auto cipher = SecuredValue::default_cipher();
  SecuredValue value(AttributeValue("before"), "old", key_id, key, *cipher);
  const SecuredValue copy = value;
  const std::size_t hash = value.hash();
  FailingRandom failing;
  EXPECT_ERROR(value.set(AttributeValue("after"), "new", KeyId(), ovcrypto::Key(15), *cipher),
               error::ovattribute_value_secured_keysize,
               "Size of key provided does not match cipher.  Cipher=EAX_AES128, Expexted=16, "
               "Provided=15");
  EXPECT_ERROR(value.set(key, "new", KeyId(), key, *cipher, failing),
               ovcrypto::error::ovcrypto_randomProvider_failed, "no luck");
  EXPECT_EQ(value, copy);
  EXPECT_EQ(value.hash(), hash);

  value.set(AttributeValue("after"), "new", KeyId(), key, *cipher);
  EXPECT_EQ(value.extract(key), AttributeValue("after"));
  EXPECT_EQ(value.annotation(), "new");
  EXPECT_NE(value.hash(), hash);
  EXPECT_EQ(copy.extract(key), AttributeValue("before"));
}

TEST(Sealing, OpensOrFailsWhicheverAllocationFails) {
  const ovcrypto::Key key = key_of(numbered(16));
  const SecuredValue sealed(AttributeValue(numbered(500)), "", key_id, key,
                            *SecuredValue::default_cipher());
  SecuredValue::ErrorInfoPtr error;
  EXPECT_GE(ovtest::for_each_failed_allocation(
                [&] { EXPECT_FALSE(sealed.extract(key, &error).is_null()); }, [] {}),
            3u);
  EXPECT_FALSE(error) << "a failed allocation is not stored";
}

TEST(Sealing, TakesCiphersOfOthers) {
  const AddOneProvider provider;
  const ovcrypto::Key none;
  const SecuredValue sealed(AttributeValue("text"), "authentic", KeyId(), none,
                            *provider.find_cipher("ADD_ONE"));
  EXPECT_EQ(to_hex(Items(sealed).data), "6575667975");
  EXPECT_EQ(sealed.extract(none, provider), AttributeValue("text"));
  EXPECT_TRUE(sealed.authenticate(none, provider));
  SecuredValue::ErrorInfoPtr error;
  EXPECT_EQ(sealed.extract(none, &error), AttributeValue());
  ovtest::expect_error(error, error::ovattribute_value_secured_cipher_unknown,
                       "Unknown/unsupported cipher: ADD_ONE", extract_location);
  EXPECT_EQ(sealed.extract(none, provider, &error), AttributeValue("text"));
  EXPECT_FALSE(error);
  EXPECT_EQ(with_cipher(sealed, "NULL").extract(none, provider, &error), AttributeValue());
  EXPECT_TRUE(error);
}

}  // namespace
}  // namespace ovattribute
