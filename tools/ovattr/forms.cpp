// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/forms.h"

#include <CLI/CLI.hpp>
#include <map>

#include "tools/ovattr/command.h"
#include "tools/ovattr/packages.h"
#include "tools/ovattr/values.h"

namespace ovattr {
namespace {

using Forms = std::map<std::string, Form>;

CLI::Option* add_form_option(CLI::App& command, const char* name, std::optional<Form>& form,
                             const Forms& forms, const char* description) {
  const auto set = [&form, forms](const std::string& text) { form = forms.at(text); };
  return command.add_option_function<std::string>(name, set, description)
      ->check(CLI::IsMember(forms))
      ->option_text("FORM");
}

bool ends_with(const std::string& file, std::string_view ending) {
  return file.size() > ending.size() && std::string_view(file).ends_with(ending);
}

}  // namespace

void add_reading_options(CLI::App& command, Reading& reading) {
  command.add_option("FILE", reading.file, "The file to read; - is standard input")->required();
  add_form_options(command, reading);
}

void add_form_options(CLI::App& command, Reading& reading) {
  add_form_option(command, "--from", reading.form,
                  {{"json", Form::json}, {"binary", Form::binary}, {"text", Form::text}},
                  "The form to read: json, binary or text; else by the ending .json, .ovb or .ovt, "
                  "and JSON for all else");
  command.add_flag("--strict", reading.strict,
                   "Refuse names of packages that are not given; else they get placeholders");
  add_data_options(command, reading);
}

void add_data_options(CLI::App& command, Reading& reading) {
  command.add_flag("--lines", reading.lines, "JSON holds one value a line, as in .jsonl");
  command.add_flag("--comments", reading.comments, "Accept // and /* */ comments in JSON");
  add_package_option(command, reading.packages);
}

void add_package_option(CLI::App& command, std::vector<std::string>& files) {
  command
      .add_option("--package", files,
                  "A file of packages of names, which stand as numbers in binary and text; may "
                  "come several times")
      ->allow_extra_args(false)  // what follows the one is the next argument
      ->option_text("FILE");
}

void add_to_option(CLI::App& command, Writing& writing) {
  add_form_option(command, "--to", writing.form,
                  {{"json", Form::json},
                   {"binary", Form::binary},
                   {"text", Form::text},
                   {"trace", Form::trace}},
                  "The form to write: json, binary, text or trace; else by the ending");
}

std::optional<Form> form_by_ending(const std::string& file) {
  if (ends_with(file, ".json") || ends_with(file, ".jsonl")) return Form::json;
  if (ends_with(file, ".ovb")) return Form::binary;
  if (ends_with(file, ".ovt")) return Form::text;
  return std::nullopt;
}

Form form_of(const Reading& reading) {
  return reading.form.value_or(form_by_ending(reading.file).value_or(Form::json));
}

Form form_of(const Writing& writing) {
  return writing.form.value_or(form_by_ending(writing.file).value_or(Form::json));
}

bool has_lines(const Reading& reading) {
  return reading.lines || ends_with(reading.file, ".jsonl");
}

bool has_lines(const Writing& writing) {
  return writing.lines || ends_with(writing.file, ".jsonl");
}

ovattribute::AttributeValue read_document(const Reading& reading) {
  const auto source = open_source(reading, read_packages(reading.packages));
  ovattribute::AttributeValue value;
  ovattribute::AttributeValue more;
  if (!source->next(value)) fail(input_name(reading.file), "There is no value");
  if (source->next(more)) fail(input_name(reading.file), "There is more than one value");
  return value;
}

void write_document(const Writing& writing, const ovattribute::AttributeValue& value) {
  const auto sink = open_sink(writing, ovattribute::AttributeNamePackageSet::create());
  sink->write(value);
  sink->finish();
}

}  // namespace ovattr
