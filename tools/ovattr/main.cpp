// SPDX-License-Identifier: Apache-2.0
// ovattr: attribute values on the command line.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "ovattribute/error_codes.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/progress.h"
#include "tools/ovattr/quoted.h"
#include "tools/ovattr/version.h"

namespace ovattr {
namespace {

constexpr int bad_data = 1;
constexpr int bad_usage = 2;

/// What the tokens in messages of the JSON reader mean, in words.
std::string hint(const ovcore::ErrorInfo& error) {
  const std::string* const token = error.parameter("token");
  if (token == nullptr || !error.message_template().starts_with("Unexpected tokenizer token"))
    return "";
  constexpr struct {
    const char* name;
    const char* words;
  } hints[] = {
      {"eToken_Punctuator", "a bracket, comma or colon cannot stand here; is a value missing?"},
      {"eToken_IdentifierBegin", "a word without quotation marks cannot stand here"},
      {"eToken_StringBegin", "a string cannot stand here; is a comma or colon missing?"},
      {"eToken_Number", "a number cannot stand here; is a comma or colon missing?"},
      {"eToken_True", "true cannot stand here; is a comma or colon missing?"},
      {"eToken_False", "false cannot stand here; is a comma or colon missing?"},
      {"eToken_Null", "null cannot stand here; is a comma or colon missing?"},
      {"eToken_DocumentEnd", "the text ends too early"},
  };
  for (const auto& known : hints) {
    if (*token == known.name) return std::string(" (") + known.words + ')';
  }
  return "";
}

void report_failure(const FileFailure& failure, bool verbose) {
  std::string message = failure.file() + ": " + failure.what() + hint(*failure.info());
  for (const auto* e = failure.info()->cause().get(); e != nullptr; e = e->cause().get()) {
    message += ": " + e->message();
  }
  report(message);
  if (!verbose) return;
  for (const auto* e = failure.info().get(); e != nullptr; e = e->cause().get()) {
    std::fprintf(stderr, "  %s at %s\n", e->code().text().str().c_str(),
                 e->location().function.c_str());
  }
}

/// A file opened later must not be taken for a standard stream that was closed; using that still
/// fails.
void occupy_closed_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) != -1) continue;
    static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
  }
}

/// What is not known goes before what is missing.
std::string usage_message(const CLI::App* app, const CLI::Error& e) {
  const std::vector<std::string> unknown = app->remaining(true);
  const bool missing = e.get_name() == "RequiredError" && !unknown.empty();
  const std::string what = missing ? "Unexpected argument: " + unknown.front() : e.what();
  return "ovattr: " + without_controls(what) + "\nTry ovattr --help.\n";
}

int run(int argc, char** argv) {
  CLI::App app("Typed, named data: show, query and convert attribute values.", "ovattr");
  bool verbose = false;
  app.add_flag("-v,--verbose", verbose, "Name the error code of a failure");
  app.set_version_flag("--version", version_text, "Print version, build and module information");
  app.require_subcommand(1);
  app.fallthrough();
  app.failure_message(usage_message);
  app.footer("Every command has a --help of its own, with an example:\n  ovattr convert --help");
  add_show(app);
  add_query(app);
  add_convert(app);
  add_diff(app);
  add_inspect(app);
  add_package(app);
  add_keygen(app);
  add_seal(app);
  add_open(app);
  add_check(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    if (app.exit(e) != 0) return bad_usage;
    if (std::cout.flush()) return 0;
    report("standard output: Writing failed");
    return bad_data;
  } catch (const UsageError& e) {
    report(e.what());
    return bad_usage;
  } catch (const Finding&) {
    return bad_data;
  } catch (const FileFailure& e) {
    report_failure(e, verbose);
    return bad_data;
  } catch (const std::exception& e) {
    report(e.what());
    return bad_data;
  }
  return 0;
}

}  // namespace

void report(const std::string& message) {
  Progress::of_process().stop();
  std::fprintf(stderr, "ovattr: %s\n", without_controls(message).c_str());
}

void fail(const std::string& file, ovcore::SourceString message) {
  try {
    ovcore::throw_error(ovattribute::error::ovattribute_invalidParameter, message,
                        {"tools/ovattr", "ovattr::fail()", 0});
  } catch (const ovcore::Exception& e) {
    throw FileFailure(file, e.info());
  }
}

}  // namespace ovattr

int main(int argc, char** argv) {
  ovattr::occupy_closed_streams();
  std::signal(SIGXFSZ, SIG_IGN);  // then writing too much is an error, which leaves nothing behind
  int code = ovattr::bad_data;
  try {
    code = ovattr::run(argc, argv);
  } catch (const std::exception& e) {  // no memory for options or for a message
    std::fprintf(stderr, "ovattr: %s\n", e.what());
  }
  ovattr::Progress::of_process().stop();
  return code;
}
