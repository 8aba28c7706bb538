// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/document.h"

#include <unistd.h>

#include <cstdint>
#include <limits>
#include <ostream>

#include "ovattribute/json_marshaler.h"
#include "ovattribute/trace_formatter.h"
#include "ovjson/reader.h"
#include "ovjson/writer.h"
#include "tools/ovattr/command.h"

namespace ovattr {

Form form_of(const std::string&) {
  return Form::json;
}

void add_reading_options(CLI::App& command, Reading& reading) {
  command.add_option("FILE", reading.file, "The document to read; - is standard input")->required();
  command.add_flag("--comments", reading.comments, "Accept // and /* */ comments in JSON");
}

ovcore::RefCountPtr<ovcore::IReadStream> open_input(const std::string& file) {
  if (file == "-") return ovcore::make_ref_counted<ovcore::FileReadStream>(STDIN_FILENO);
  return ovcore::make_ref_counted<ovcore::FileReadStream>(file);
}

ovattribute::AttributeValue read_document(const Reading& reading) {
  return about_file(input_name(reading.file), [&] {
    ovjson::Reader reader(open_input(reading.file), {}, {.allow_comments = reading.comments});
    ovattribute::AttributeValue value = ovattribute::read_attribute_value(
        reader, {.exact_integers = true, .refuse_repeated_names = true});
    reader.next_value();  // nothing but white space may follow
    return value;
  });
}

void write_document(const Writing& writing, const ovattribute::AttributeValue& value) {
  about_file(output_name(writing.file), [&] {
    Output out(writing.file);
    switch (writing.form.value_or(form_of(writing.file))) {
      case Form::json:
        write_json(out, value, writing.indent);
        break;
      case Form::trace:
        write_trace(out, value, true);
        break;
    }
    out.commit();
  });
}

void write_json(Output& out, const ovattribute::AttributeValue& value, std::size_t indent) {
  ovjson::TextWriter writer(out.stream(), {.indent = indent});
  ovattribute::write_attribute_value(writer, value,
                                     {.exact_integers = true, .order_names_by_text = true});
  writer.next_document();
  writer.close();
}

void write_trace(Output& out, const ovattribute::AttributeValue& value, bool all) {
  ovattribute::TraceFormatter::Composer composer;
  composer.order_names_by_text(true);
  if (all) {
    constexpr std::uint32_t no_limit = std::numeric_limits<std::uint32_t>::max();
    composer.max_multivalue_count(no_limit).max_string_len(no_limit).max_binary_value_dump_bytes(
        no_limit);
  }
  OutputBuffer buffer(out.stream());
  std::ostream text(&buffer);
  text.exceptions(std::ios::badbit);  // let the target's own error through
  value.write_trace(text, composer.compose(), 0);
  text.put('\n').flush();
}

}  // namespace ovattr
