// SPDX-License-Identifier: Apache-2.0
// What a reader and its values share: the walk from token to token.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ovcore/source_location.h"
#include "ovjson/reader.h"
#include "ovjson/tokenizer.h"

namespace ovjson {

/// Lives until the reader and all its values are gone. Not thread-safe, as these are not.
class Reader::State {
 public:
  enum class Step { value, close, end };

  State(ovcore::RefCountPtr<ovcore::IReadStream> source, ovcore::SourceString uri,
        const ReaderOptions& options);
  /// The reader is gone.
  void close() noexcept;

  /// Goes on to the next value, which it puts into `target`, or to the next closing bracket.
  /// Skips what is unread of a string.
  Step step(Value& target);
  [[nodiscard]] std::size_t depth() const noexcept { return m_open.size(); }
  [[nodiscard]] bool is_open(const Value& container) const noexcept;

  /// The next run of the current string's character data, empty at its end.
  std::string_view next_run();
  /// Of the current number.
  [[nodiscard]] std::string_view number_text() const noexcept { return m_tokenizer.text(); }
  [[nodiscard]] bool is_failed() const noexcept { return m_failed; }

  [[nodiscard]] ovcore::StringKey intern(std::string_view name);

  /// A value that nobody uses.
  [[nodiscard]] ovcore::RefCountPtr<Value> new_value();
  void recycle(const Value* value) noexcept;
  void set_current(ovcore::RefCountPtr<Value> value) noexcept { m_current.swap(value); }
  [[nodiscard]] const ovcore::RefCountPtr<Value>& current() const noexcept { return m_current; }

  [[nodiscard]] Position position() const noexcept;
  [[noreturn]] void raise(const Position& position, const ovcore::ErrorCode& code,
                          ovcore::SourceString message_template,
                          std::initializer_list<ovcore::ErrorInfo::Parameter> parameters,
                          const ovcore::SourceLocation& location,
                          ovcore::RefCountPtr<const ovcore::ErrorInfo> cause = {}) const;

 private:
  /// An open container.
  struct Container {
    std::uint64_t id;
    bool is_array;
  };

  ~State();
  Step walk(Value& target);
  Token next_token();
  [[nodiscard]] bool is_punctuator(Token token, char c) const noexcept {
    return token == Token::punctuator && m_tokenizer.text()[0] == c;
  }
  std::string_view next_text();
  void skip_text();
  Step begin_value(Token token, Value& target);
  void begin_container(Value& target);
  void read_name(Token token, Value& target);
  [[noreturn]] void raise_fault();
  [[noreturn]] void raise_unexpected(Token token);
  [[noreturn]] void raise_token(Token token);

  const std::string m_uri;
  const std::size_t m_max_depth;
  const std::size_t m_max_value_size;
  Tokenizer m_tokenizer;
  std::vector<Container> m_open;
  std::uint64_t m_last_id = 0;
  bool m_in_text = false;      // the current string is not read to its end
  bool m_after_value = false;  // inside the innermost container
  bool m_started = false;      // the document's value was met
  bool m_failed = false;       // also while the walk goes on, so that every way out counts

  const Value* m_free = nullptr;
  std::size_t m_values_in_use = 0;
  bool m_closed = false;
  ovcore::RefCountPtr<Value> m_current;
  std::array<ovcore::StringKey, 64> m_names;  // at the places that `intern` gives them
};

}  // namespace ovjson
