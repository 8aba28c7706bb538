// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <memory>

#include "ovattribute/json_marshaler.h"
#include "ovattribute/trace_formatter.h"
#include "ovjson/writer.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/forms.h"
#include "tools/ovattr/output.h"
#include "tools/ovattr/packages.h"
#include "tools/ovattr/pointer.h"
#include "tools/ovattr/values.h"

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

void write_json(Output& out, const AttributeValue& value) {
  ovjson::TextWriter writer(out.stream(), {.indent = 2});
  ovattribute::write_attribute_value(writer, value,
                                     {.exact_integers = true, .order_names_by_text = true});
  writer.next_document();
  writer.close();
}

struct Query {
  Reading reading;
  std::string text;

  void run() const {
    const std::optional<Pointer> pointer = Pointer::parse(text);
    if (!pointer) throw UsageError(text + " is not a JSON pointer");
    const auto source = open_source(reading, read_packages(reading.packages));
    AttributeValue whole;
    bool any = false;
    while (source->next(whole)) {
      const std::optional<AttributeValue> found = pointer->find_in(whole);
      if (!found) continue;
      print(*found);
      any = true;
    }
    if (!any) fail(input_name(reading.file), "Nothing at " + text);
  }

  static void print(const AttributeValue& value) {
    about_file(output_name("-"), [&] {
      Output out("-");
      const bool plain = value.size() == 1 && value.type() != ValueTypeId::typeAttributeMap;
      if (plain) {
        write_plain(out, value);
      } else {
        write_json(out, value);
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
      "Of several values in a file, those that have nothing there are passed over.\n\n"
      "Example:\n  ovattr query /usr/share/iso-codes/json/iso_639-3.json /639-3/0/name");
  command->callback([query] { query->run(); });
}

}  // namespace ovattr
