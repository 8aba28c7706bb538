// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "ovattribute/secured_value_cipher.h"
#include "ovcore/uuid.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/key_file.h"
#include "tools/ovattr/sealed_values.h"

namespace ovattr {
namespace {

using ovattribute::AttributeValue;
using ovattribute::SecuredValue;

struct Seal {
  Reading reading;
  Writing writing;
  KeySource key_source;
  std::string category;
  ovcore::Uuid instance;
  std::string cipher_id;
  std::string annotation;
  std::optional<Pointer> at;  // else the whole

  void run() const {
    key_source.refuse_as_output(writing.file);
    const ovcrypto::Key key = key_source.read(reading.file);
    const AttributeValue whole = read_document(reading);
    const AttributeValue sealed = about_file(input_name(reading.file), [&] {
      return at.value_or(Pointer()).replace_in(whole, [&](const AttributeValue& value) {
        return AttributeValue(seal(value, {category, instance}, key));
      });
    });
    write_document(writing, sealed);
  }

 private:
  [[nodiscard]] SecuredValue seal(const AttributeValue& value, SecuredValue::KeyId id,
                                  const ovcrypto::Key& key) const {
    const std::string fitting = key.size() == 32 ? "EAX_AES256" : "EAX_AES128";
    const auto cipher = SecuredValue::authenticating_cipher_provider()->find_cipher(
        cipher_id.empty() ? fitting : cipher_id);
    const bool fits = key.size() == cipher->key_size();
    return about_file(fits ? input_name(reading.file) : key_source.name(),
                      [&] { return SecuredValue(value, annotation, std::move(id), key, *cipher); });
  }
};

}  // namespace

void add_seal(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("seal", "Seal a document, or one attribute of it, under a key");
  const auto seal = std::make_shared<Seal>();
  add_reading_options(*command, seal->reading);
  add_to_option(*command, seal->writing);
  command->add_option("-o,--output", seal->writing.file, "The file to write; - is standard output")
      ->required()
      ->option_text("FILE REQUIRED");
  add_key_options(*command, seal->key_source);
  command->add_option("--key-category", seal->category, "The family of the key, to find it by")
      ->required()
      ->option_text("NAME REQUIRED");
  command
      ->add_option_function<std::string>(
          "--key-id", [seal](const std::string& text) { seal->instance = key_id_of_option(text); },
          "Which key of the family it is")
      ->required()
      ->option_text("UUID REQUIRED");
  command
      ->add_option("--cipher", seal->cipher_id,
                   "EAX_AES128 or EAX_AES256; else the one that takes keys of this size")
      ->check(CLI::IsMember({"EAX_AES128", "EAX_AES256"}))
      ->option_text("ID");
  command
      ->add_option("--annotation", seal->annotation,
                   "A text that everybody can read and nobody can change")
      ->option_text("TEXT");
  add_at_option(*command, seal->at, "The one attribute to seal; else the whole");
  command->footer(
      "Annotation, cipher, key category and key id stay readable; the last three are not\n"
      "authenticated. An element of a list cannot be sealed by itself.\n\n"
      "Example:\n"
      "  ovattr seal order.json -o sealed.json --key-file orders.key --key-category orders \\\n"
      "    --key-id 0b1f2c6e-58a7-4f1d-9a54-0c5e9d3f7b21 --at /customer/name");
  command->callback([seal] { seal->run(); });
}

}  // namespace ovattr
