// SPDX-License-Identifier: Apache-2.0
#include <map>
#include <memory>

#include "tools/ovattr/command.h"
#include "tools/ovattr/document.h"

namespace ovattr {
namespace {

const std::map<std::string, Form> form_names = {{"json", Form::json}, {"trace", Form::trace}};

struct Convert {
  Reading reading;
  Writing writing;
  Form to = Form::json;

  void run(bool form_given) {
    if (form_given) writing.form = to;
    write_document(writing, read_document(reading));
  }
};

}  // namespace

void add_convert(CLI::App& app) {
  CLI::App* command = app.add_subcommand("convert", "Write a document in another form");
  const auto convert = std::make_shared<Convert>();
  add_reading_options(*command, convert->reading);
  const CLI::Option* to =
      command->add_option("--to", convert->to, "The form to write: json or trace")
          ->transform(CLI::Transformer(form_names))
          ->option_text("FORM");
  command
      ->add_option("-o,--output", convert->writing.file, "The file to write; - is standard output")
      ->option_text("FILE");
  command->add_option("--indent", convert->writing.indent, "Blanks a level in JSON; 0 is one line")
      ->check(CLI::Range(0, 16))
      ->option_text("N");
  command->footer(
      "JSON is read into typed values. What comes out says the same, with these differences:\n"
      "members stand in the order of their names; a fraction, which a reader might take for an\n"
      "integer, is written in a lossless form ({\"ovserialize\": \"2.5\"}); an array of one "
      "element\n"
      "comes back as the element; -0 becomes 0. Nested arrays, and arrays of nulls or of "
      "different\n"
      "kinds, are refused at their position, as are names that come twice in an object.\n\n"
      "Example:\n  ovattr convert order.json --to json --indent 2 -o pretty.json");
  command->callback([convert, to] { convert->run(to->count() > 0); });
}

}  // namespace ovattr
