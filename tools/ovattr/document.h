// SPDX-License-Identifier: Apache-2.0
// Reading and writing whole documents in their forms.
#pragma once

#include <CLI/CLI.hpp>
#include <cstddef>
#include <optional>
#include <string>

#include "ovattribute/attribute_value.h"
#include "ovcore/read_stream.h"
#include "tools/ovattr/output.h"

namespace ovattr {

enum class Form { json, trace };

/// By the file's ending; JSON when that says nothing.
[[nodiscard]] Form form_of(const std::string& file);

/// How a document is read; filled in by the options that `add_reading_options` adds.
struct Reading {
  std::string file;
  bool comments = false;
};
void add_reading_options(CLI::App& command, Reading& reading);

/// How a document is written.
struct Writing {
  std::optional<Form> form;  // else by the file's ending
  std::string file = "-";
  std::size_t indent = 0;
};

/// "-" is standard input.
[[nodiscard]] ovcore::RefCountPtr<ovcore::IReadStream> open_input(const std::string& file);

/// Integers of 64 bits are read exactly, repeated names refused.
[[nodiscard]] ovattribute::AttributeValue read_document(const Reading& reading);

/// Ends with a newline. Names are written in the order of their bytes.
void write_document(const Writing& writing, const ovattribute::AttributeValue& value);
void write_json(Output& out, const ovattribute::AttributeValue& value, std::size_t indent);
/// `all`: nothing is left out of long lists, texts and blocks.
void write_trace(Output& out, const ovattribute::AttributeValue& value, bool all);

}  // namespace ovattr
