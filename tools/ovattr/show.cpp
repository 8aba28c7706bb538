// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include "tools/ovattr/command.h"
#include "tools/ovattr/document.h"

namespace ovattr {
namespace {

struct Show {
  Reading reading;
  bool all = false;

  void run() const {
    const ovattribute::AttributeValue value = read_document(reading);
    about_file(output_name("-"), [&] {
      Output out("-");
      write_trace(out, value, all);
      out.commit();
    });
  }
};

}  // namespace

void add_show(CLI::App& app) {
  CLI::App* command = app.add_subcommand("show", "Print a document as text for people");
  const auto show = std::make_shared<Show>();
  add_reading_options(*command, show->reading);
  command->add_flag("--all", show->all, "Leave nothing out of long lists, texts and blocks");
  command->footer("Example:\n  ovattr show order.json");
  command->callback([show] { show->run(); });
}

}  // namespace ovattr
