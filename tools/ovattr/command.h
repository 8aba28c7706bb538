// SPDX-License-Identifier: Apache-2.0
// What the subcommands have in common: how they are added to the program, and how failures name the
// file they are about.
#pragma once

#include <stdexcept>
#include <string>

#include "ovcore/exception.h"

namespace CLI {
class App;
}

namespace ovattr {

/// What messages call a file of the command line, where "-" stands for a standard stream.
[[nodiscard]] inline std::string input_name(const std::string& file) {
  return file == "-" ? "standard input" : file;
}
[[nodiscard]] inline std::string output_name(const std::string& file) {
  return file == "-" ? "standard output" : file;
}

/// A failure and what messages call the file that it is about.
class FileFailure : public ovcore::Exception {
 public:
  FileFailure(std::string file, ovcore::RefCountPtr<const ovcore::ErrorInfo> info)
      : ovcore::Exception(std::move(info)), m_file(std::move(file)) {}

  [[nodiscard]] const std::string& file() const noexcept { return m_file; }

 private:
  std::string m_file;
};

/// Runs `f`, whose errors are about the file of that name in messages.
template <class F>
decltype(auto) about_file(const std::string& file, F&& f) {
  try {
    return f();
  } catch (const FileFailure&) {
    throw;
  } catch (const ovcore::Exception& e) {
    throw FileFailure(file, e.info());
  }
}

/// Raises an error of the tool's own, about data rather than usage.
[[noreturn]] void fail(const std::string& file, ovcore::SourceString message);

/// A message on standard error, on one line whatever stands in it.
void report(const std::string& message);

/// A command line that asks for what cannot be.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Ends the program with exit code 1 and no message: the command's output says why, or nobody reads
/// it.
struct Finding {};

// One function per subcommand: adds it with its options and what it does.
void add_check(CLI::App& app);
void add_convert(CLI::App& app);
void add_diff(CLI::App& app);
void add_inspect(CLI::App& app);
void add_keygen(CLI::App& app);
void add_open(CLI::App& app);
void add_package(CLI::App& app);
void add_query(CLI::App& app);
void add_seal(CLI::App& app);
void add_show(CLI::App& app);

}  // namespace ovattr
