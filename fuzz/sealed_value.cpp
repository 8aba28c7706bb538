// SPDX-License-Identifier: Apache-2.0
// Opening what claims to be sealed: nothing forged opens, and checking and opening agree.
#include <cstring>

#include "fuzz/fuzzing.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcrypto/key.h"

using namespace ovfuzz;
using namespace ovattribute;

namespace {

const unsigned char key_bytes[32] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

/// The same nonce each time, so that the fuzzer meets the sealed value that it changes.
class FixedRandom final : public ovcrypto::IRandomProvider {
 public:
  void generate_random(void* buffer, std::int64_t size) override {
    std::memset(buffer, 0x5a, static_cast<std::size_t>(size));
  }
};

/// A sealed value in its binary form with single bytes changed: pairs of place and difference.
std::string sealed_and_changed(Input input, const ovcrypto::Key& key) {
  FixedRandom random;
  const SecuredValue sealed(AttributeValue("attack at dawn"), "note",
                            SecuredValue::KeyId("fuzz", ovcore::Uuid()), key,
                            *SecuredValue::default_cipher(), random);
  std::string bytes = binary_of(AttributeValue(sealed));
  while (!input.empty()) {
    const std::size_t place = input.byte();
    bytes[place % bytes.size()] ^= static_cast<char>(input.byte());
  }
  return bytes;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const std::uint8_t settings = input.byte();
  const ovcrypto::Key key(key_bytes, settings & 2 ? 32 : settings & 4 ? 0 : 16);
  const std::string bytes = settings & 1 ? sealed_and_changed(input, ovcrypto::Key(key_bytes, 16))
                                         : std::string(input.rest());
  AttributeValue value;
  if (!failure_of([&] { value = value_of(bytes); }).empty()) return 0;
  if (value.type() != ValueTypeId::typeSecured) return 0;
  for (const SecuredValue& sealed : value.elements<SecuredValue>()) {
    bool genuine = false;
    const std::string failure = failure_of([&] { genuine = sealed.authenticate(key); });
    SecuredValue::ErrorInfoPtr error;
    const AttributeValue opened = sealed.extract(key, &error);
    if (!genuine) require(error && opened.is_null(), "what does not verify does not open");
    if (!failure.empty()) require(!genuine, "a failed check says nothing");
    if (settings & 1 && !error) {
      require(opened == AttributeValue("attack at dawn"), "what opens is what was sealed");
    }
  }
  return 0;
}
