// SPDX-License-Identifier: Apache-2.0
// Opening and checking what was sealed.
#include <sys/stat.h>

#include <CLI/CLI.hpp>
#include <memory>
#include <optional>
#include <string>

#include "ovattribute/attribute_value.h"
#include "ovattribute/error_codes.h"
#include "ovcore/error_composer.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/key_file.h"
#include "tools/ovattr/sealed_values.h"

namespace ovattr {
namespace {

using ovattribute::AttributeValue;
using ovattribute::SecuredValue;

struct Open {
  Reading reading;
  Writing writing;
  KeySource key_source;
  Choice choice;

  void run() const {
    key_source.refuse_as_output(writing.file);
    const ovcrypto::Key key = key_source.read(reading.file);
    const AttributeValue whole = read_document(reading);
    const std::string name = input_name(reading.file);
    write_document(writing, about_file(name, [&] { return opened(name, whole, key); }));
  }

 private:
  [[nodiscard]] AttributeValue opened(const std::string& name, const AttributeValue& whole,
                                      const ovcrypto::Key& key) const {
    const auto open = [&](const SecuredValue& sealed) {
      return std::make_optional(
          sealed.extract(key, *SecuredValue::authenticating_cipher_provider()));
    };
    if (!choice.at) return visit_all(name, whole, choice, open);
    return choice.at->replace_in(whole, [&](const AttributeValue& value) {
      return *visit_one(name, *choice.at, value, open);
    });
  }
};

struct Check {
  Reading reading;
  KeySource key_source;
  Choice choice;

  void run() const {
    const ovcrypto::Key key = key_source.read(reading.file);
    const AttributeValue whole = read_document(reading);
    const std::string name = input_name(reading.file);
    about_file(name, [&] { check(name, whole, key); });
  }

 private:
  void check(const std::string& name, const AttributeValue& whole, const ovcrypto::Key& key) const {
    const auto check = [&](const SecuredValue& sealed) {
      if (!sealed.authenticate(key, *SecuredValue::authenticating_cipher_provider()))
        fail_authentication(sealed);
      return std::optional<AttributeValue>();
    };
    if (!choice.at) {
      static_cast<void>(visit_all(name, whole, choice, check));
      return;
    }
    const std::optional<AttributeValue> value = choice.at->find_in(whole);
    if (!value) fail(name, "Nothing at " + choice.at->text());
    visit_one(name, *choice.at, *value, check);
  }

  [[noreturn]] static void fail_authentication(const SecuredValue& sealed) {
    ovcore::ErrorComposer("Ciphertext fails authentication with provided key.  Cipher={@cipherId}")
        .add("cipherId", sealed.cipher_id())
        .throw_error(ovattribute::error::ovattribute_value_secured_authentication,
                     {"tools/ovattr/open", "ovattr::Check::check()", 0});
  }
};

}  // namespace

void add_open(CLI::App& app) {
  CLI::App* command = app.add_subcommand("open", "Open what was sealed under a key");
  const auto open = std::make_shared<Open>();
  add_reading_options(*command, open->reading);
  add_to_option(*command, open->writing);
  command->add_option("-o,--output", open->writing.file, "The file to write; - is standard output")
      ->option_text("FILE");
  add_key_options(*command, open->key_source);
  add_choice_options(*command, open->choice, "The one sealed value to open; else all of them");
  command->footer(
      "Nothing is written unless all that is to be opened is authentic. What is passed over stays\n"
      "sealed. A new file is for its owner only.\n\n"
      "Example:\n  ovattr open sealed.json -o order.json --key-file orders.key");
  open->writing.mode = S_IRUSR | S_IWUSR;
  command->callback([open] { open->run(); });
}

void add_check(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "check", "Check that sealed values are authentic, opening none; exit 1 when one is not");
  const auto check = std::make_shared<Check>();
  add_reading_options(*command, check->reading);
  add_key_options(*command, check->key_source);
  add_choice_options(*command, check->choice, "The one sealed value to check; else all of them");
  command->footer(
      "What is sealed inside a sealed value is not seen.\n\n"
      "Example:\n  ovattr check sealed.json --key-file orders.key");
  command->callback([check] { check->run(); });
}

}  // namespace ovattr
