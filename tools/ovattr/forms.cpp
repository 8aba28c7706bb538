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

struct Ending {
  std::string_view text;
  Form form;
  bool lines;
};
constexpr Ending endings[] = {{".json", Form::json, false},
                              {".jsonl", Form::json, true},
                              {".ndjson", Form::json, true},
                              {".ovb", Form::binary, false},
                              {".ovt", Form::text, false}};

/// With its dot; empty when the name of the file has none, or nothing else.
std::string_view ending_of(std::string_view file) {
  file.remove_prefix(file.rfind('/') + 1);
  const std::size_t dot = file.rfind('.');
  if (dot == 0 || dot == file.npos || dot + 1 == file.size()) return {};
  return file.substr(dot);
}

const Ending* known_ending(const std::string& file) {
  for (const Ending& ending : endings) {
    if (ending.text == ending_of(file)) return &ending;
  }
  return nullptr;
}

}  // namespace

void add_reading_options(CLI::App& command, Reading& reading) {
  command.add_option("FILE", reading.file, "The file to read; - is standard input")->required();
  add_form_options(command, reading);
}

void add_form_options(CLI::App& command, Reading& reading) {
  add_form_option(command, "--from", reading.form,
                  {{"json", Form::json}, {"binary", Form::binary}, {"text", Form::text}},
                  "The form to read: json, binary or text; else by the ending .json, .jsonl, "
                  ".ndjson, .ovb or .ovt, and JSON for all else");
  command.add_flag("--strict", reading.strict,
                   "Refuse names of packages that are not given; else they get placeholders");
  add_data_options(command, reading);
}

void add_data_options(CLI::App& command, Reading& reading) {
  command.add_flag("--lines", reading.lines,
                   "JSON holds one value a line, as in .jsonl and .ndjson");
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
  add_form_option(
      command, "--to", writing.form,
      {{"json", Form::json},
       {"binary", Form::binary},
       {"text", Form::text},
       {"trace", Form::trace}},
      "The form to write: json, binary, text or trace; else by the ending .json, .jsonl, "
      ".ndjson, .ovb or .ovt, and JSON for a name without one");
}

std::optional<Form> form_by_ending(const std::string& file) {
  const Ending* const ending = known_ending(file);
  return ending != nullptr ? std::optional(ending->form) : std::nullopt;
}

Form form_of(const Reading& reading) {
  return reading.form.value_or(form_by_ending(reading.file).value_or(Form::json));
}

Form form_of(const Writing& writing) {
  if (writing.form) return *writing.form;
  const std::optional<Form> form = form_by_ending(writing.file);
  const std::string_view ending = ending_of(writing.file);
  if (form || ending.empty()) return form.value_or(Form::json);
  std::string known;
  for (const Ending& other : endings)
    known.append(known.empty() ? "" : ", ").append(other.text);
  throw UsageError(writing.file + ": the ending " + std::string(ending) + " is none of " + known +
                   "; give --to FORM");
}

bool has_lines(const Reading& reading) {
  const Ending* const ending = known_ending(reading.file);
  return reading.lines || (ending != nullptr && ending->lines);
}

bool has_lines(const Writing& writing) {
  const Ending* const ending = known_ending(writing.file);
  return writing.lines || (ending != nullptr && ending->lines);
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
