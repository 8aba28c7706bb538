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

  /// Goes on to the next value, which it puts into `item`, or to the next closing bracket. Skips
  /// what is unread of a string. A value without a name has an empty one, or null.
  Step step(Item& item, impl::KeptText& name);
  /// The name is interned, and valid until the next step.
  Step step(Item& item, const ovcore::StringKey*& name);
  [[nodiscard]] std::size_t depth() const noexcept { return m_open.size(); }
  [[nodiscard]] bool is_open(const Item& container) const noexcept;

  /// The next run of the current string's character data, empty at its end.
  std::string_view next_run();
  /// Makes `text` all of the current string that is unread.
  void read_text(std::string& text);
  /// The current string, of which nothing was read, when it need not be put together.
  bool take_plain_text(std::string_view& text) noexcept {
    if (!m_in_text || !m_tokenizer.take_string()) return false;
    m_in_text = false;
    text = m_tokenizer.text();
    return true;
  }
  /// Of the current number.
  [[nodiscard]] std::string_view number_text() const noexcept { return m_tokenizer.text(); }
  [[nodiscard]] bool is_failed() const noexcept { return m_failed; }

  /// Valid until the next call. The name is not empty.
  [[nodiscard]] const ovcore::StringKey& intern(std::string_view name);

  /// A value that nobody uses.
  [[nodiscard]] ovcore::RefCountPtr<Value> new_value();
  /// Makes the current value one that nobody else holds: the same as before where that is so.
  Value& renew_current();
  void recycle(const Value* value) noexcept;
  void set_current(ovcore::RefCountPtr<Value> value) noexcept { m_current.swap(value); }
  [[nodiscard]] const ovcore::RefCountPtr<Value>& current() const noexcept { return m_current; }
  [[nodiscard]] bool is_readable(const Value& value) const noexcept {
    return !m_failed && m_current.get() == &value;
  }

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
  template <class Name>
  Step walk(Item& item, Name& name);
  template <class Name>
  Step walk_inside(Item& item, Name& name);
  Step walk_top(Item& item);
  Token next_token() {
    const Token token = m_tokenizer.next();
    if (token == Token::error) [[unlikely]]
      raise_fault();
    return token;
  }
  [[nodiscard]] bool is_punctuator(Token token, char c) const noexcept {
    return token == Token::punctuator && m_tokenizer.text()[0] == c;
  }
  std::string_view next_text();
  void skip_text();
  void begin_unnamed(Token token, Item& item);
  void begin_value(Token token, Item& item);
  void begin_container(Item& item);
  void read_name(Token token, Item& item);
  void begin_string(Item& item) noexcept;
  static void clear_name(impl::KeptText& name) noexcept { name.clear(); }
  void clear_name(const ovcore::StringKey*& name) noexcept {
    if (name == &m_long_name) m_long_name.clear();
    name = nullptr;
  }
  /// From the tokenizer's buffer.
  static void take_name(impl::KeptText& name, std::string_view text) { name.assign_words(text); }
  void take_name(const ovcore::StringKey*& name, std::string_view text) {
    clear_name(name);
    name = &intern(text);
  }
  static void set_name(impl::KeptText& name, std::string_view text) { name.assign(text); }
  void set_name(const ovcore::StringKey*& name, std::string_view text) { name = &intern(text); }
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
  std::string m_name;                         // one that was put together
  std::array<ovcore::StringKey, 64> m_names;  // at the places that `intern` gives them
  ovcore::StringKey m_long_name;
};

}  // namespace ovjson
