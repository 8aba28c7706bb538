// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tools/ovattr/command.h"
#include "tools/ovattr/key_file.h"

namespace ovattr {
namespace {

struct Keygen {
  std::size_t size = 0;
  std::string file;

  void run() const {
    if (file == "-") throw UsageError("A key is written to a file of its own");
    ovcrypto::Key key;
    about_file(file, [&] { key = ovcrypto::Key::random(size); });
    write_new_key_file(file, key);
  }
};

}  // namespace

void add_keygen(CLI::App& app) {
  CLI::App* command = app.add_subcommand("keygen", "Write a new random key to a new file");
  const auto keygen = std::make_shared<Keygen>();
  command->add_option("--size", keygen->size, "Bytes: 16 for EAX_AES128, 32 for EAX_AES256")
      ->required()
      ->check(CLI::IsMember({16, 32}))
      ->option_text("N REQUIRED");
  command->add_option("-o,--output", keygen->file, "The file to create; it must not exist")
      ->required()
      ->option_text("FILE REQUIRED");
  command->footer(
      "The file holds the raw bytes and is for its owner only.\n\n"
      "Example:\n  ovattr keygen --size 16 -o orders.key");
  command->callback([keygen] { keygen->run(); });
}

}  // namespace ovattr
