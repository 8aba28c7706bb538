// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/packages.h"
#include "tools/ovattr/values.h"

namespace ovattr {
namespace {

struct Convert {
  Reading reading;
  Writing writing;

  void run() {
    writing.lines = reading.lines;
    const PackageSetPtr packages = read_packages(reading.packages);
    const auto source = open_source(reading, packages);
    const auto sink = open_sink(writing, packages);
    copy_values(*source, *sink);
    sink->finish();
  }
};

}  // namespace

void add_convert(CLI::App& app) {
  CLI::App* command = app.add_subcommand("convert", "Write a document in another form");
  const auto convert = std::make_shared<Convert>();
  add_reading_options(*command, convert->reading);
  add_to_option(*command, convert->writing);
  command
      ->add_option("-o,--output", convert->writing.file, "The file to write; - is standard output")
      ->option_text("FILE");
  command
      ->add_option("--indent", convert->writing.indent,
                   "Blanks a level in JSON and text; 0 is one line")
      ->check(CLI::Range(0, 16))
      ->option_text("N");
  command
      ->add_flag("--announce", convert->writing.announce,
                 "Write which packages are used before the first value")
      ->needs("--package");
  command->footer(
      "Binary and text hold any number of values, one behind the other; JSON holds one, or with\n"
      "--lines one a line. Each value is written before the next one is read, so that the\n"
      "standard output gets all that come before a failure; a file is left as it was.\n\n"
      "JSON is read into typed values. What comes out says the same, with these differences:\n"
      "members stand in the order of their names; a fraction, which a reader might take for an\n"
      "integer, is written in a lossless form ({\"ovserialize\": \"2.5\"}); an array of one "
      "element\n"
      "comes back as the element; -0 becomes 0. Nested arrays, and arrays of nulls or of "
      "different\n"
      "kinds, are refused at their position, as are names that come twice in an object.\n\n"
      "Examples:\n"
      "  ovattr convert order.json --indent 2 -o pretty.json\n"
      "  ovattr convert order.json --package names.ovp -o order.ovb\n"
      "  ovattr convert order.ovb --package names.ovp --to json\n"
      "  ovattr convert log.jsonl -o log.ovb\n"
      "  tail -f log.jsonl | ovattr convert - --lines --to binary | nc collector 7070");
  command->callback([convert] { convert->run(); });
}

}  // namespace ovattr
