// SPDX-License-Identifier: Apache-2.0
// Writing JSON text, value by value: the interface that all writers share, and the one that writes
// to a stream.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"
#include "ovcore/to_string.h"
#include "ovcore/write_stream.h"

namespace ovjson {

class Savepoint;

/// Takes a document's values in order. A call that does not fit where it comes raises an error of
/// the family `ovjson_writer` and changes nothing; text is UTF-8.
class OV_EXPORT Writer {
 public:
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  /// In an object, before each value. Not empty. That names differ is for the caller to see to.
  virtual void member_name(const char* chars, std::size_t size) = 0;
  virtual void string_value(const char* chars, std::size_t size) = 0;
  virtual void boolean_value(bool value) = 0;
  virtual void integer_value(std::int64_t value) = 0;
  /// Finite.
  virtual void double_value(double value) = 0;
  /// A number as JSON writes it, which is passed on as it is.
  virtual void number_value(const char* chars, std::size_t size) = 0;
  virtual void null_value() = 0;
  virtual void begin_object() = 0;
  virtual void end_object() = 0;
  virtual void begin_array() = 0;
  virtual void end_array() = 0;
  /// A string in pieces: only `string_data` may come until its end. Pieces may split characters.
  virtual void begin_streamed_string() = 0;
  virtual void string_data(const char* chars, std::size_t size) = 0;
  virtual void end_streamed_string() = 0;
  virtual ~Writer();

  void member_name(ovcore::SourceString name) { member_name(name.data(), name.size()); }
  void string_value(ovcore::SourceString text) { string_value(text.data(), text.size()); }
  void number_value(ovcore::SourceString text) { number_value(text.data(), text.size()); }
  void string_data(ovcore::SourceString text) { string_data(text.data(), text.size()); }
  /// Whole, also beyond the signed range.
  template <std::unsigned_integral I>
  requires(sizeof(I) == sizeof(std::uint64_t)) void integer_value(I value) {
    number_value(ovcore::SourceString(ovcore::NumberText(value).view()));
  }

 protected:
  Writer() noexcept = default;

  /// Where a writer stands.
  struct Mark {
    std::uint64_t position = 0;  // bytes of text
    std::size_t depth = 0;
    bool empty = true;
    bool after_name = false;
    bool has_value = false;
    bool in_string = false;
  };

 private:
  friend class Savepoint;

  [[nodiscard]] virtual Mark mark() const noexcept;
  /// Takes back what was written since, or refuses all that follows. A writer that does neither, as
  /// this one, goes on inside a value that failed.
  virtual void roll_back(const Mark& mark) noexcept;
};

/// A place in what a writer writes. Unless `commit` is called, its end takes back what was written
/// since; where some of it was passed on to the target already, every further call raises
/// `ovjson_writer`. Savepoints nest.
///
/// REQUIRES: what was open before stays open meanwhile, and no streamed string is open before.
class OV_EXPORT Savepoint {
 public:
  explicit Savepoint(Writer& writer) noexcept : m_writer(writer), m_mark(writer.mark()) {}
  ~Savepoint() {
    if (!m_committed) m_writer.roll_back(m_mark);
  }
  Savepoint(const Savepoint&) = delete;
  Savepoint& operator=(const Savepoint&) = delete;

  void commit() noexcept { m_committed = true; }

 private:
  Writer& m_writer;
  const Writer::Mark m_mark;
  bool m_committed = false;
};

struct TextWriterOptions {
  std::size_t indent = 0;                    // blanks a level, at most 64; 0 writes one line
  std::size_t max_depth = 1'040;             // open objects and arrays
  std::size_t max_value_size = 134'217'728;  // bytes of one string, name or number
  bool replace_invalid_utf8 = false;         // by U+FFFD, else it is an error
  std::size_t buffer_size = 16'384;          // bytes held back, at least 1
};

/// Writes RFC 8259 text to a stream, in blocks: what is written last is there after `flush` or
/// `close` only, and lost without. Strings escape quotation marks, backslashes and control
/// characters; doubles are the shortest text that reads back the same, never mistaken for integers.
///
/// Errors: `ovjson_writer_unexpected_container_begin`, `..._container_end`, `..._literal`,
/// `..._name`, `..._number`, `..._string`, `..._string_end`, `..._string_data` for calls out of
/// order and for what is beyond a limit, `..._container` for a document that is not complete,
/// `..._character` for invalid UTF-8, `ovjson_writer_unsupported_value_inf` and `..._nan`, and
/// `ovjson_writer` once the target failed or part of a failed value was passed on to it. All but
/// the last leave the writer as it was. Numbers are written in one way only, so
/// `ovjson_writer_config` and the codes below it are not raised.
class OV_EXPORT TextWriter final : public Writer {
 public:
  /// The writer shares the target.
  explicit TextWriter(ovcore::RefCountPtr<ovcore::IWriteStream> target,
                      const TextWriterOptions& options = {});
  /// The target must outlive the writer.
  explicit TextWriter(ovcore::IWriteStream& target, const TextWriterOptions& options = {})
      : TextWriter(ovcore::RefCountPtr<ovcore::IWriteStream>(&target), options) {}
  ~TextWriter() override;

  using Writer::integer_value;
  using Writer::member_name;
  using Writer::number_value;
  using Writer::string_data;
  using Writer::string_value;
  void member_name(const char* chars, std::size_t size) override;
  void string_value(const char* chars, std::size_t size) override;
  void boolean_value(bool value) override;
  void integer_value(std::int64_t value) override;
  void double_value(double value) override;
  void number_value(const char* chars, std::size_t size) override;
  void null_value() override;
  void begin_object() override;
  void end_object() override;
  void begin_array() override;
  void end_array() override;
  void begin_streamed_string() override;
  void string_data(const char* chars, std::size_t size) override;
  void end_streamed_string() override;

  /// Ends a complete document with "\n" and makes ready for another one: JSON Lines, when nothing
  /// is indented.
  void next_document();
  /// Checks that the document is complete (or not begun) and passes on all text.
  void close();
  /// Passes on the text so far, wherever it stands.
  void flush();

 private:
  class Site;

  [[nodiscard]] Mark mark() const noexcept override;
  void roll_back(const Mark& mark) noexcept override;

  void check_going(const Site& site) const;
  void check_open(const Site& site) const;
  void check_value(const Site& site) const;
  [[noreturn]] void raise_value(const Site& site) const;
  void check_size(const Site& site, std::size_t size) const;
  void check_complete(const Site& site) const;
  [[nodiscard]] bool check_characters(const Site& site, std::string_view text,
                                      std::size_t offset = 0) const;
  void begin_container(char bracket, const Site& site);
  void end_container(char bracket, const Site& site);

  void put_string(std::string_view text, const Site& site);
  bool put_plain(std::string_view text);
  void put_literal(std::string_view text, const Site& site);
  [[nodiscard]] bool needs_separator() const noexcept { return m_inside != 0 && !m_after_name; }
  [[nodiscard]] std::size_t separator_size() const noexcept;
  void put_separator();
  void put_line_start();
  void put_quoted(std::string_view text, bool well_formed);
  void put_replaced(std::string_view text);
  void put_escaped(std::string_view text);
  void put_escape(char c);
  void put(std::string_view text);
  void put(char c);
  void pass_on(std::string_view text);
  void end_value() noexcept {
    m_empty = false;
    m_after_name = false;
    m_has_value = m_inside == 0;
  }

  const ovcore::RefCountPtr<ovcore::IWriteStream> m_target;
  const TextWriterOptions m_options;
  const std::size_t m_capacity;
  const std::unique_ptr<char[]> m_buffer;
  std::size_t m_used = 0;
  std::uint64_t m_passed_on = 0;    // bytes
  std::string m_open;               // the opening brackets of what is open
  char m_inside = 0;                // the last of these
  bool m_empty = true;              // nothing stands in the innermost of these
  bool m_after_name = false;        // a member's value must follow
  bool m_has_value = false;         // the document has
  bool m_in_string = false;         // a streamed one
  const char* m_refusal = nullptr;  // why nothing more can be written
  std::size_t m_string_size = 0;    // of the streamed string so far
  char m_cut[4];                    // its last character, as long as bytes of it are missing
  std::size_t m_cut_size = 0;
};

}  // namespace ovjson
