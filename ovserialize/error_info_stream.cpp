// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/error_info_stream.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ovcore/error_composer.h"
#include "ovcore/impl/wiped_text.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/savepoint.h"

namespace ovserialize {
namespace {

using ovcore::ErrorInfo;
using ErrorPtr = ovcore::RefCountPtr<const ErrorInfo>;

constexpr std::size_t max_reserve = 128;

ovcore::SourceLocation location(const char* function) {
  return {"ovserialize/error_info_stream", function, 0};
}

bool has_too_many_marks(std::string_view text) noexcept {
  std::size_t marks = 0;
  for (std::size_t at = 0; (at = text.find("{@", at)) != text.npos; at += 2) {
    if (++marks > max_error_marks) return true;
  }
  return false;
}

/// From the error to its first cause.
std::vector<const ErrorInfo*> chain_of(const ErrorInfo& error) {
  std::vector<const ErrorInfo*> chain;
  for (const ErrorInfo* e = &error; e != nullptr; e = e->cause().get()) {
    if (chain.size() == max_error_chain) {
      ovcore::ErrorComposer("An error with more than {@limit} causes")
          .add("limit", max_error_chain - 1)
          .throw_error(error::ovserialize_writer_depth,
                       location("ovserialize::write_error_info()"));
    }
    if (has_too_many_marks(e->message_template())) {
      ovcore::ErrorComposer("A message template with more than {@limit} marks")
          .add("limit", max_error_marks)
          .throw_error(error::ovserialize_writer_size, location("ovserialize::write_error_info()"));
    }
    chain.push_back(e);
  }
  return chain;
}

void write_link(Writer& writer, const ErrorInfo& e) {
  writer << e.code().text().view() << e.message_template();
  writer.begin_sequence(e.parameters().size());
  bool first = true;
  for (const ErrorInfo::Parameter& p : e.parameters()) {
    if (!std::exchange(first, false)) writer.next_element();
    writer << p.name << p.value;
  }
  writer.end_sequence();
  writer << e.location().file << e.location().function;
  writer.write_uint(e.location().line);
}

std::string read_template(Reader& reader) {
  const std::uint64_t offset = reader.offset();
  std::string text;
  reader >> text;
  if (!has_too_many_marks(text)) return text;
  ovcore::ErrorComposer(
      "Reading a message template at offset {@offset} with more than {@limit} marks")
      .add("offset", offset)
      .add("limit", max_error_marks)
      .throw_error(error::ovserialize_reader_size, location("ovserialize::read_error_info()"));
}

std::vector<ErrorInfo::Parameter> read_parameters(Reader& reader) {
  std::vector<ErrorInfo::Parameter> parameters;
  parameters.reserve(std::min<std::uint64_t>(reader.begin_sequence(), max_reserve));
  while (reader.has_next_element()) {
    ErrorInfo::Parameter& p = parameters.emplace_back();
    reader >> p.name >> p.value;
  }
  parameters.shrink_to_fit();
  return parameters;
}

ErrorPtr read_link(Reader& reader, ErrorPtr cause) {
  ovcore::impl::WipedText code;
  reader >> *code;
  std::string message_template = read_template(reader);
  std::vector<ErrorInfo::Parameter> parameters = read_parameters(reader);
  ovcore::SourceLocation place;
  reader >> place.file >> place.function >> place.line;
  return ErrorInfo::create(ovcore::ErrorCode(ovcore::SourceString(*code)),
                           std::move(message_template), std::move(parameters), std::move(place),
                           std::move(cause));
}

}  // namespace

void write_error_info(Writer& writer, const ErrorPtr& error) {
  if (!error) return writer.write_null();
  const std::vector<const ErrorInfo*> chain = chain_of(*error);
  Savepoint whole(writer);
  writer.begin_structure();
  for (auto e = chain.rbegin(); e != chain.rend(); ++e)
    write_link(writer, **e);
  writer.end_structure();
  whole.commit();
}

ErrorPtr read_error_info(Reader& reader) {
  if (reader.item_kind() == item_null) return reader.read_null(), nullptr;
  reader.begin_structure();
  ErrorPtr result;
  std::size_t links = 0;
  do {
    if (links++ == max_error_chain) {
      ovcore::ErrorComposer("An error with more than {@limit} causes at offset {@offset}")
          .add("limit", max_error_chain - 1)
          .add("offset", reader.offset())
          .throw_error(error::ovserialize_reader_depth, location("ovserialize::read_error_info()"));
    }
    result = read_link(reader, std::move(result));
  } while (reader.item_kind() == item_string);
  reader.end_structure();
  return result;
}

}  // namespace ovserialize
