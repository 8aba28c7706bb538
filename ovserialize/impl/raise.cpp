// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/impl/raise.h"

#include <string>

#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/item_kind.h"

namespace ovserialize::impl {
namespace {

/// Composes an error whose template may name `{@at}`, which becomes the place.
class ReaderError {
 public:
  ReaderError(std::string message, const Position& position)
      : m_composer(with_place(std::move(message), position.line != 0)) {
    m_composer.add("offset", position.offset);
    if (position.line == 0) return;
    m_composer.add("line", position.line).add("column", position.column);
  }

  template <class Value>
  ReaderError& add(ovcore::SourceString name, Value value) {
    m_composer.add(name, value);
    return *this;
  }
  [[noreturn]] void raise(const ovcore::ErrorCode& code, const RaiseSite& site) const {
    m_composer.throw_error(code, {site.file, site.function, 0});
  }

 private:
  static std::string with_place(std::string message, bool text) {
    constexpr std::string_view mark = "{@at}";
    return message.replace(message.find(mark), mark.size(),
                           text ? "line {@line}, column {@column}" : "offset {@offset}");
  }

  ovcore::ErrorComposer m_composer;
};

[[noreturn]] void throw_writer(const ovcore::ErrorCode& code, const char* message,
                               const RaiseSite& site) {
  ovcore::throw_error(code, message, {site.file, site.function, 0});
}

}  // namespace

const char* kind_name(int kind) noexcept {
  switch (kind) {
    case item_null:
      return "null";
    case item_boolean:
      return "a boolean";
    case item_integer:
      return "an integer";
    case item_unsigned:
      return "an unsigned integer";
    case item_double:
      return "a double";
    case item_string:
      return "a string";
    case item_absolute_time:
      return "an absolute time";
    case item_relative_time:
      return "a relative time";
    case item_uuid:
      return "a UUID";
    case item_binary:
      return "a binary block";
    case item_sequence:
      return "a sequence";
    case item_structure:
      return "a structure";
    default:
      return "no item";
  }
}

void throw_truncated(const Position& end, const RaiseSite& site) {
  ReaderError("The stream ends too early, at {@at}", end)
      .raise(error::ovserialize_reader_truncated, site);
}

void throw_malformed(const Position& position, const char* reason, const RaiseSite& site) {
  ReaderError("Malformed item at {@at}: {@reason}", position)
      .add("reason", reason)
      .raise(error::ovserialize_reader_malformed, site);
}

void throw_kind(const Position& position, const char* expected, const char* found,
                const RaiseSite& site) {
  ReaderError("Expected {@expected} at {@at}, found {@found}", position)
      .add("expected", expected)
      .add("found", found)
      .raise(error::ovserialize_reader_kind, site);
}

void throw_range(const Position& position, int kind, const RaiseSite& site) {
  ReaderError("The value of {@kind} at {@at} is beyond the range of its type", position)
      .add("kind", kind_name(kind))
      .raise(error::ovserialize_reader_range, site);
}

void throw_reader_size(const Position& position, int kind, std::uint64_t size, std::size_t limit,
                       const RaiseSite& site) {
  ReaderError error("Reading {@kind} of {@size} bytes at {@at}, the limit is {@limit}", position);
  error.add("kind", kind_name(kind));
  if (size > 0) {
    error.add("size", size);
  } else {
    error.add("size", "too many");
  }
  error.add("limit", limit).raise(error::ovserialize_reader_size, site);
}

void throw_reader_depth(const Position& position, std::size_t limit, const RaiseSite& site) {
  ReaderError("More than {@limit} nested sequences and structures at {@at}", position)
      .add("limit", limit)
      .raise(error::ovserialize_reader_depth, site);
}

void throw_no_sequence(const Position& position, const RaiseSite& site) {
  ReaderError("No sequence is open at {@at}", position)
      .raise(error::ovserialize_reader_sequence, site);
}

void throw_no_structure(const Position& position, const RaiseSite& site) {
  ReaderError("No structure is open at {@at}", position)
      .raise(error::ovserialize_reader_structure, site);
}

void throw_writer_size(int kind, std::size_t size, std::size_t limit, const RaiseSite& site) {
  ovcore::ErrorComposer("Writing {@kind} of {@size} bytes, the limit is {@limit}")
      .add("kind", kind_name(kind))
      .add("size", size)
      .add("limit", limit)
      .throw_error(error::ovserialize_writer_size, {site.file, site.function, 0});
}

void throw_writer_depth(std::size_t limit, const RaiseSite& site) {
  ovcore::ErrorComposer("More than {@limit} nested sequences and structures")
      .add("limit", limit)
      .throw_error(error::ovserialize_writer_depth, {site.file, site.function, 0});
}

void throw_next_element(bool single, const RaiseSite& site) {
  throw_writer(error::ovserialize_writer_sequence,
               single ? "A second element in a sequence announced with one"
                      : "A next element where no sequence is open",
               site);
}

void throw_end_sequence(bool single, const RaiseSite& site) {
  throw_writer(error::ovserialize_writer_sequence,
               single ? "No element in a sequence announced with one"
                      : "The end of a sequence where none is open",
               site);
}

void throw_end_structure(const RaiseSite& site) {
  throw_writer(error::ovserialize_writer_structure, "The end of a structure where none is open",
               site);
}

void throw_still_open(bool structure, const RaiseSite& site) {
  if (structure) {
    throw_writer(error::ovserialize_writer_structure, "A structure is still open", site);
  }
  throw_writer(error::ovserialize_writer_sequence, "A sequence is still open", site);
}

void throw_closed(const char* why, const RaiseSite& site) {
  throw_writer(error::ovserialize_writer_closed, why, site);
}

}  // namespace ovserialize::impl
