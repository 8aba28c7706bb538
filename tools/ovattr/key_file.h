// SPDX-License-Identifier: Apache-2.0
// Keys on the command line: never their bytes, only where these come from.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "ovcrypto/key.h"

namespace CLI {
class App;
}

namespace ovattr {

/// Filled in by the options that `add_key_options` adds.
struct KeySource {
  std::string file;
  std::optional<int> descriptor;

  /// What messages call it.
  [[nodiscard]] std::string name() const;
  /// The raw bytes, exactly 16 or 32, from elsewhere than `input`, the file of the values. Errors
  /// name the source. Warns on standard error when others may read or change the file.
  [[nodiscard]] ovcrypto::Key read(const std::string& input) const;
  /// What a key sealed is lost with it. Raises a usage error.
  void refuse_as_output(const std::string& output) const;

 private:
  /// Nothing when there is none.
  [[nodiscard]] std::optional<struct stat> status() const;
};

/// Adds --key-file and --key-fd.
void add_key_options(CLI::App& command, KeySource& source);

/// Writes a key to a new file that nobody else may read. Errors name the file.
void write_new_key_file(const std::string& file, const ovcrypto::Key& key);

}  // namespace ovattr
