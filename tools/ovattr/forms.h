// SPDX-License-Identifier: Apache-2.0
// The forms that values are read from and written in, and the options that choose among them. Who
// reads or writes one whole document needs no more than `read_document` and `write_document`;
// values.h has the streams of many values.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ovattribute/attribute_value.h"

namespace CLI {
class App;
}

namespace ovattr {

/// Trace text is written only.
enum class Form { json, binary, text, trace };

/// How values are read; filled in by the options that `add_reading_options` adds.
struct Reading {
  std::string file;                   // "-" is standard input
  std::optional<Form> form;           // else by the file's ending
  bool lines = false;                 // JSON of one value a line
  bool comments = false;              // in JSON
  bool strict = false;                // refuse packages that are not among these:
  std::vector<std::string> packages;  // files
};

/// How values are written.
struct Writing {
  std::string file = "-";    // "-" is standard output
  std::optional<Form> form;  // else by the file's ending
  bool lines = false;        // JSON of one value a line
  std::size_t indent = 0;    // blanks a level in JSON and text; 0 puts everything on one line
  bool announce = false;     // all packages before the first value
  bool shorten = false;      // leave out of long lists, texts and blocks in trace text
  mode_t mode = 0666;        // of a new file, before the user's mask
};

/// Adds FILE and what `add_form_options` adds.
void add_reading_options(CLI::App& command, Reading& reading);
/// Adds --from, --strict and what `add_data_options` adds.
void add_form_options(CLI::App& command, Reading& reading);
/// Adds --lines, --comments and --package.
void add_data_options(CLI::App& command, Reading& reading);
void add_package_option(CLI::App& command, std::vector<std::string>& files);
/// Adds --to.
void add_to_option(CLI::App& command, Writing& writing);

/// .json, .jsonl and .ndjson, .ovb (binary), .ovt (text); nothing for other endings.
[[nodiscard]] std::optional<Form> form_by_ending(const std::string& file);
/// JSON when neither option nor ending says anything.
[[nodiscard]] Form form_of(const Reading& reading);
/// JSON when there is neither option nor ending. Raises a usage error for an unknown ending, lest
/// something else be written than what the name promises.
[[nodiscard]] Form form_of(const Writing& writing);
/// Whether JSON holds one value a line, by option or ending.
[[nodiscard]] bool has_lines(const Reading& reading);
[[nodiscard]] bool has_lines(const Writing& writing);

/// The only value in a file of any form; none or several are an error. JSON integers of 64 bits are
/// read exactly, repeated names refused.
[[nodiscard]] ovattribute::AttributeValue read_document(const Reading& reading);
/// Writes a file that holds one value, without name packages.
void write_document(const Writing& writing, const ovattribute::AttributeValue& value);

}  // namespace ovattr
