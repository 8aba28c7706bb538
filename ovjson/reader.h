// SPDX-License-Identifier: Apache-2.0
// The pull reader of JSON text: walks a document value by value, without building a tree and in
// bounded memory. What text is accepted stands in ovjson/tokenizer.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "ovcore/error_info.h"
#include "ovcore/export.h"
#include "ovcore/read_stream.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"
#include "ovcore/string_key.h"
#include "ovjson/impl/kept_text.h"
#include "ovjson/position.h"

namespace ovjson {

namespace impl {
class ItemWalk;
}

struct ReaderOptions {
  std::size_t max_depth = 1'040;             // open objects and arrays
  std::size_t max_value_size = 134'217'728;  // bytes of one string, name or number
  bool allow_comments = false;               // "//" and "/* */"
  std::size_t buffer_size = 65'536;          // bytes of text in memory, at least 1
  Position start = {};                       // of the text's first byte, in a larger text
};

/// Reads one document, whose only value is the child of a root. A value is delivered as soon as its
/// first byte is there, a container is closed with its bracket: a reader on a socket waits for no
/// byte that it does not need. To be sure that only white space follows, ask for a value behind the
/// last one.
///
/// Used by one thread at a time, together with the values and streams it gave out.
///
/// Errors carry the position of the current value, or that of what is wrong with the text, as the
/// parameters `line`, `linePos` and `sourcePos`, and in a suffix of the message:
/// " [line 1, pos 9, uri <file.json>]".
/// - `ovjson_reader_tokenizer_syntaxError`: not JSON, or (in its message) cut off.
/// - `ovjson_reader_tokenizer_stream`: the source failed; its error is the cause.
/// - `ovjson_reader_unexpected_token`, `ovjson_reader_unexpected_size`.
/// - `ovjson_reader`: the text ends inside a container, an invalid name, too much nesting.
/// - `ovjson_reader_value`: from a value's accessors.
/// After an error in the text, or an allocation that failed amid it, the reader stays failed: all
/// that reads raises "Value cannot be read after a parse error".
class OV_EXPORT Reader {
 public:
  enum class Kind : int {
    root = 0,
    object = 1,
    array = 2,
    null = 3,
    boolean = 4,
    number = 5,
    string = 6,
  };
  /// The name for messages, such as "Object".
  [[nodiscard]] static std::string kind_name(Kind kind);

  class Value;
  using ValuePtr = ovcore::RefCountPtr<const Value>;

  /// `uri` names the source in messages; empty for none. The reader shares the stream.
  explicit Reader(ovcore::RefCountPtr<ovcore::IReadStream> source, ovcore::SourceString uri = {},
                  const ReaderOptions& options = {});
  /// The stream must outlive the reader.
  explicit Reader(ovcore::IReadStream& source, ovcore::SourceString uri = {},
                  const ReaderOptions& options = {})
      : Reader(ovcore::RefCountPtr<ovcore::IReadStream>(&source), uri, options) {}
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader();

  /// The newest value: the root at first, null once a container was found closed or the document
  /// over.
  [[nodiscard]] ValuePtr current_value() const;
  /// The next value in document order, inside containers and behind them. Null at the end, having
  /// checked that everything is closed and nothing follows.
  ValuePtr next_value();
  /// The next direct child of an object, an array or the root, skipping what is unread of the
  /// previous one. Null when `parent` is closed, and for values of other kinds.
  ValuePtr next_child(const ValuePtr& parent);

  /// Of the current value; without one, of the token read last.
  [[nodiscard]] Position position() const noexcept;
  /// Raises an error at the current position, with its suffix and parameters behind those given.
  [[noreturn]] void raise_error(const ovcore::ErrorCode& code,
                                ovcore::SourceString message_template,
                                std::initializer_list<ovcore::ErrorInfo::Parameter> parameters,
                                const ovcore::SourceLocation& location,
                                ovcore::RefCountPtr<const ovcore::ErrorInfo> cause = {}) const;
  /// The same at another position, such as that of a value's name.
  [[noreturn]] void raise_error_at(const Position& position, const ovcore::ErrorCode& code,
                                   ovcore::SourceString message_template,
                                   std::initializer_list<ovcore::ErrorInfo::Parameter> parameters,
                                   const ovcore::SourceLocation& location,
                                   ovcore::RefCountPtr<const ovcore::ErrorInfo> cause = {}) const;

 private:
  friend class impl::ItemWalk;
  class State;
  class ValueStream;

  /// What is known of a value besides its name and its text.
  struct Item {
    Kind kind = Kind::root;
    bool boolean = false;
    std::size_t depth = 0;
    std::uint64_t id = 0;  // of a container, unique within the reader
    Position position;
    Position name_position;
  };

  void check(const char* function) const;

  State* m_state;  // lives on while values do
};

/// One value, whose content can be read while it is the newest one; what it is can be asked for as
/// long as it is held. Recycled when it is not held any more.
class OV_EXPORT Reader::Value {
 public:
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;

  [[nodiscard]] Kind kind() const noexcept { return m_item.kind; }
  /// 0 for the root, 1 for its child, one more for each container around.
  [[nodiscard]] std::size_t depth() const noexcept { return m_item.depth; }
  /// Empty unless the value is a member of an object, whose names are never empty.
  [[nodiscard]] std::string_view member_name() const noexcept { return m_name.view(); }
  /// The same, interned. The reader remembers a few short names until its end, so that a name that
  /// comes again is neither hashed nor looked up.
  [[nodiscard]] ovcore::StringKey member_key() const;
  [[nodiscard]] Position position() const noexcept { return m_item.position; }
  /// Of the member's name; else of the value.
  [[nodiscard]] Position name_position() const noexcept { return m_item.name_position; }

  [[nodiscard]] bool as_bool() const;
  /// The nearest double. A number too large for one is an error (`ovjson_reader_value`), one too
  /// small is zero.
  [[nodiscard]] double as_double() const;
  /// The exact number when it is written without fraction and exponent and 64 bits hold it.
  [[nodiscard]] std::optional<std::int64_t> as_integer() const;
  /// The number as it is written; valid while the value is the newest one.
  [[nodiscard]] std::string_view number_text() const;
  /// The character data of a string, valid while the value is held or the newest one. Can be asked
  /// for again, until one of the two below gave the data out.
  [[nodiscard]] const std::string& as_string() const;
  /// The same, moved out instead of copied.
  [[nodiscard]] std::string take_string() const;
  /// The character data of a string as a stream of unknown length, so that a long one need not be
  /// held whole. Read while the value is the newest one, it raises the reader's errors.
  [[nodiscard]] ovcore::RefCountPtr<ovcore::IReadStream> as_stream() const;

  void add_ref() const noexcept { ++m_refs; }
  void release() const noexcept {
    if (--m_refs == 0) recycle();
  }

 private:
  friend class Reader;
  friend class impl::ItemWalk;
  enum class Text { unread, held, gone };

  explicit Value(State& state) noexcept : m_state(&state) {}
  ~Value() = default;
  void recycle() const noexcept;
  [[noreturn]] void raise(ovcore::SourceString message, const char* function) const;
  void check_readable(const char* function) const;
  void check_kind(Kind kind, const char* message, const char* function) const;
  [[noreturn]] void raise_kind(const char* message, const char* function) const;
  void check_text(const char* function) const;
  void read_text() const;
  void forget_text() const noexcept;

  State* m_state;
  mutable std::size_t m_refs = 0;  // of one thread
  mutable Text m_text_state = Text::unread;
  Item m_item;
  impl::KeptText m_name;
  mutable std::string m_text;
  mutable const Value* m_next_free = nullptr;
};

}  // namespace ovjson
