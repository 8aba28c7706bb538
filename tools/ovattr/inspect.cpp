// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>
#include <optional>

#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/input.h"
#include "tools/ovattr/inspection.h"
#include "tools/ovattr/output.h"
#include "tools/ovattr/packages.h"

namespace ovattr {
namespace {

struct Inspect {
  std::string file;
  std::vector<std::string> packages;

  void run() const {
    const auto known = read_packages(packages);
    const auto input =
        about_file(input_name(file), [&] { return ovcore::make_ref_counted<Input>(file); });
    Output out("-");
    input->feed(out);
    OutputBuffer buffer(out);
    std::ostream text(&buffer);
    text.exceptions(std::ios::badbit);
    std::optional<std::string> surprise;
    about_file(input_name(file), [&] {
      try {
        ovserialize::StreamReader reader(*input);
        ItemLines lines(reader, text);
        surprise = Inspection(lines, known).run();
      } catch (...) {
        input->raise_output_failure();
        throw;
      }
    });
    out.commit();
    if (surprise) fail(input_name(file), *surprise);
  }
};

}  // namespace

void add_inspect(CLI::App& app) {
  CLI::App* command =
      app.add_subcommand("inspect", "List the items of a binary stream, also of a broken one");
  const auto inspect = std::make_shared<Inspect>();
  command->add_option("FILE", inspect->file, "The binary stream; - is standard input")->required();
  add_package_option(*command, inspect->packages);
  command->footer(
      "A line for each item: its offset, its bytes, its kind, and what it means, indented by what\n"
      "is open around it. An item that fits nowhere, and all behind it, are listed without their\n"
      "meaning; the list ends at the first bytes that are no item.\n\n"
      "Example:\n  ovattr inspect order.ovb --package names.ovp");
  command->callback([inspect] { inspect->run(); });
}

}  // namespace ovattr
