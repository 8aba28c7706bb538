// SPDX-License-Identifier: Apache-2.0
#include <CLI/CLI.hpp>
#include <cstdint>
#include <limits>
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

/// Prints one value after the other.
class Printer {
 public:
  explicit Printer(Output& out)
      : m_out(out),
        m_json(out.stream(), {.indent = 2}),
        m_formatter(plain()),
        m_buffer(out),
        m_text(&m_buffer) {
    m_text.exceptions(std::ios::badbit);
  }

  void print(const AttributeValue& value) {
    if (value.size() != 1 || value.type() == ValueTypeId::typeAttributeMap) {
      print_json(value);
    } else if (value.type() == ValueTypeId::typeString) {
      m_text << value.elements<std::string>().front() << '\n' << std::flush;
    } else {
      value.write_trace(m_text, m_formatter, 0);
      m_text << '\n' << std::flush;
    }
  }

 private:
  static ovattribute::TraceFormatter plain() {
    using ListParams = ovattribute::TraceFormatter::ListParams;
    constexpr std::uint32_t no_limit = std::numeric_limits<std::uint32_t>::max();
    ovattribute::TraceFormatter::Composer composer;
    composer.show_type(false)
        .max_binary_value_dump_bytes(no_limit)
        .binary_value_dump_line_size(no_limit)
        .binary_value_dump_prefix("")
        .list_default(ListParams("", ", ", "", false))
        .list_binary_value_dump(ListParams("", ", ", "", false))
        .list_error_info(ListParams("", ", ", "", false));
    return composer.compose();
  }

  void print_json(const AttributeValue& value) {
    ovattribute::write_attribute_value(m_json, value,
                                       {.exact_integers = true, .order_names_by_text = true});
    m_json.next_document();
    m_json.flush();
    m_out.keep();
  }

  Output& m_out;
  ovjson::TextWriter m_json;
  const ovattribute::TraceFormatter m_formatter;
  OutputBuffer m_buffer;
  std::ostream m_text;
};

struct Query {
  Reading reading;
  std::string text;

  void run() const {
    const std::optional<Pointer> pointer = Pointer::parse(text);
    if (!pointer) throw UsageError(text + " is not a JSON pointer");
    const auto source = open_source(reading, read_packages(reading.packages));
    const std::string name = output_name("-");
    Output out("-");
    source->feed(out);
    Printer printer(out);
    AttributeValue whole;
    bool any = false;
    while (source->next(whole)) {
      const std::optional<AttributeValue> found = pointer->find_in(whole);
      if (!found) continue;
      about_file(name, [&] { printer.print(*found); });
      any = true;
    }
    about_file(name, [&] { out.commit(); });
    if (!any) fail(input_name(reading.file), "Nothing at " + text);
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
