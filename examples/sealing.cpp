// SPDX-License-Identifier: Apache-2.0
// One attribute sealed by its sender, carried by somebody who cannot read it, opened by its
// receiver.
#include <iostream>
#include <string>

#include "ovattribute/attribute_map.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovattribute/typed_attribute.h"
#include "ovcore/error_info.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"

using namespace ovattribute;
using Bytes = ovcore::RefCountPtr<const ovserialize::MemoryList>;

const TypedAttribute<std::string> bank{"bank"};
const TypedAttribute<SecuredValue> account{"account"};

// [seal]
Bytes send(const ovcrypto::Key& key) {
  const SecuredValue::KeyId which_key("payments",
                                      ovcore::Uuid::parse("0b1f2c6e-58a7-4f1d-9a54-0c5e9d3f7b21"));
  MutableAttributeMap payment;
  bank.set(payment, "First Bank");
  account.set(payment, SecuredValue("DE02 1203 0000 0000 2020 51", "account of payment 17",
                                    which_key, key, *SecuredValue::default_cipher()));
  ovserialize::MemoryWriter writer;
  writer << payment;
  return writer.memory_list();
}
// [seal]

// [carry]
Bytes carry(const Bytes& message) {  // has no key
  ovserialize::MemoryReader reader(message);
  const AttributeMap payment(reader);
  std::cout << "to " << bank.get(payment) << ", about the " << account.get(payment).annotation()
            << "\n";
  ovserialize::MemoryWriter writer;
  writer << payment;
  return writer.memory_list();
}
// [carry]

// [open]
void receive(const Bytes& message, const ovcrypto::Key& key) {
  ovserialize::MemoryReader reader(message);
  const AttributeMap payment(reader);
  const SecuredValue& sealed = account.get(payment);
  SecuredValue::ErrorInfoPtr error;
  const AttributeValue opened =
      sealed.extract(key, *SecuredValue::authenticating_cipher_provider(), &error);
  if (error) {
    std::cout << "refused: " << error->message() << "\n";
  } else if (sealed.annotation() == "account of payment 17") {  // not moved from elsewhere
    std::cout << "pay to " << opened.get<std::string>() << "\n";
  }
}
// [open]

int main() {
  // [key]
  const auto key = ovcrypto::Key::random(SecuredValue::default_cipher()->key_size());
  // [key]
  const Bytes message = carry(send(key));
  receive(message, key);

  ovcrypto::Key other = key.clone();
  other.data()[0] ^= 1;
  receive(message, other);
}
