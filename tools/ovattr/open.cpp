// SPDX-License-Identifier: Apache-2.0
// Opening and checking what was sealed.
#include <CLI/CLI.hpp>
#include <memory>
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
  std::string at;
  bool one = false;  // only what is at `at`

  void run() const {
    const Pointer pointer = pointer_of_option(at);
    key_source.refuse_as_output(writing.file);
    const ovcrypto::Key key = key_source.read();
    const AttributeValue whole = read_document(reading);
    const AttributeValue opened = about_file(input_name(reading.file), [&] {
      if (!one) return open_all(whole, key);
      return pointer.replace_in(
          whole, [&](const AttributeValue& value) { return sealed_value(value, at).extract(key); });
    });
    write_document(writing, opened);
  }

 private:
  [[nodiscard]] AttributeValue open_all(const AttributeValue& whole,
                                        const ovcrypto::Key& key) const {
    KeyFindings findings;
    const auto open = [&](const SecuredValue& sealed,
                          const Place& place) -> std::optional<AttributeValue> {
      ErrorInfoPtr error;
      AttributeValue inside = sealed.extract(key, &error);
      if (!error) {
        findings.add_authentic(sealed);
        return inside;
      }
      if (!is_refusal(*error)) throw FileFailure(place_in(input_name(reading.file), place), error);
      findings.add_refused(sealed, place, error);
      return std::nullopt;
    };
    AttributeValue opened = visit_sealed(whole, open);
    findings.judge(input_name(reading.file));
    return opened;
  }
};

struct Check {
  Reading reading;
  KeySource key_source;
  std::string at;
  bool one = false;  // only what is at `at`

  void run() const {
    const Pointer pointer = pointer_of_option(at);
    const ovcrypto::Key key = key_source.read();
    const AttributeValue whole = read_document(reading);
    KeyFindings findings;
    about_file(input_name(reading.file), [&] {
      if (!one) {
        static_cast<void>(visit_sealed(whole, [&](const SecuredValue& sealed, const Place& place) {
          check(sealed, place, key, findings);
          return std::optional<AttributeValue>();
        }));
        return;
      }
      const std::optional<AttributeValue> value = pointer.find_in(whole);
      if (!value) fail(input_name(reading.file), "Nothing at " + at);
      Place place;
      for (const std::string& token : pointer.tokens())
        place = place.at(token);
      check(sealed_value(*value, at), place, key, findings);
    });
    findings.judge(input_name(reading.file));
  }

 private:
  static void check(const SecuredValue& sealed, const Place& place, const ovcrypto::Key& key,
                    KeyFindings& findings) {
    try {
      if (sealed.authenticate(key)) return findings.add_authentic(sealed);
      ovcore::ErrorComposer(
          "Ciphertext fails authentication with provided key.  Cipher={@cipherId}")
          .add("cipherId", sealed.cipher_id())
          .throw_error(ovattribute::error::ovattribute_value_secured_authentication,
                       {"tools/ovattr/open", "ovattr::Check::check()", 0});
    } catch (const ovcore::Exception& e) {
      if (!is_refusal(*e.info())) throw;
      findings.add_refused(sealed, place, e.info());
    }
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
  add_at_option(*command, open->at, "The one sealed value to open; else all under this key");
  command->footer(
      "Nothing is written unless all of it is authentic. Values under other keys stay sealed.\n\n"
      "Example:\n  ovattr open sealed.json -o order.json --key-file orders.key");
  command->callback([open, command] {
    open->one = command->count("--at") > 0;
    open->run();
  });
}

void add_check(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "check", "Check that sealed values are authentic, opening none; exit 1 when one is not");
  const auto check = std::make_shared<Check>();
  add_reading_options(*command, check->reading);
  add_key_options(*command, check->key_source);
  add_at_option(*command, check->at, "The one sealed value to check; else all under this key");
  command->footer(
      "Values under other keys cannot be checked: their number is printed.\n\n"
      "Example:\n  ovattr check sealed.json --key-file orders.key");
  command->callback([check, command] {
    check->one = command->count("--at") > 0;
    check->run();
  });
}

}  // namespace ovattr
