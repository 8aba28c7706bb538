// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/packages.h"
#include "tools/ovattr/values.h"

namespace ovattr {
namespace {

struct Show {
  Reading reading;
  Writing writing = {.form = Form::trace, .shorten = true};

  void run() const {
    const PackageSetPtr packages = read_packages(reading.packages);
    const auto source = open_source(reading, packages);
    const auto sink = open_sink(writing, packages);
    copy_values(*source, *sink);
    sink->finish();
  }
};

}  // namespace

void add_show(CLI::App& app) {
  CLI::App* command = app.add_subcommand("show", "Print a document as text for people");
  const auto show = std::make_shared<Show>();
  add_reading_options(*command, show->reading);
  command->add_flag_callback(
      "--all", [show] { show->writing.shorten = false; },
      "Leave nothing out of long lists, texts and blocks");
  command->footer("Example:\n  ovattr show order.json");
  command->callback([show] { show->run(); });
}

}  // namespace ovattr
