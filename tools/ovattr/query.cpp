// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include "ovattribute/trace_formatter.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/document.h"
#include "tools/ovattr/pointer.h"

namespace ovattr {
namespace {

using ovattribute::AttributeValue;
using ovattribute::ValueTypeId;

/// One element that is no map: its plain text.
void write_plain(Output& out, const AttributeValue& value) {
  if (value.type() == ValueTypeId::typeString) {
    out.stream().write(value.get<std::string>());
    out.stream().write("\n");
    return;
  }
  using ListParams = ovattribute::TraceFormatter::ListParams;
  ovattribute::TraceFormatter::Composer composer;
  composer.show_type(false)
      .list_default(ListParams("", ", ", "", false))
      .list_binary_value_dump(ListParams("", ", ", "", false))
      .list_error_info(ListParams("", ", ", "", false));
  OutputBuffer buffer(out.stream());
  std::ostream text(&buffer);
  text.exceptions(std::ios::badbit);
  value.write_trace(text, composer.compose(), 0);
  text.put('\n').flush();
}

struct Query {
  Reading reading;
  std::string text;

  void run() const {
    const std::optional<Pointer> pointer = Pointer::parse(text);
    if (!pointer) throw CLI::ValidationError("POINTER", text + " is not a JSON pointer");
    const std::optional<AttributeValue> found = pointer->find_in(read_document(reading));
    if (!found) fail(input_name(reading.file), "Nothing at " + text);
    about_file(output_name("-"), [&] {
      Output out("-");
      const bool plain = found->size() == 1 && found->type() != ValueTypeId::typeAttributeMap;
      if (plain) {
        write_plain(out, *found);
      } else {
        write_json(out, *found, 2);
      }
      out.commit();
    });
  }
};

}  // namespace

void add_query(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "query", "Print one value of a document: a scalar as plain text, all else as JSON");
  const auto query = std::make_shared<Query>();
  add_reading_options(*command, query->reading);
  command->add_option("POINTER", query->text, "A JSON pointer (RFC 6901); empty for the whole")
      ->required();
  command->footer(
      "Example:\n  ovattr query /usr/share/iso-codes/json/iso_639-3.json /639-3/0/name");
  command->callback([query] { query->run(); });
}

}  // namespace ovattr
