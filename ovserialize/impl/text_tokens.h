// SPDX-License-Identifier: Apache-2.0
// What comes next in a text form, and the contents of strings, blocks and tags.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ovserialize/impl/text_scanner.h"
#include "ovserialize/item_kind.h"

namespace ovserialize::impl {

/// The beginning of the next item, as far as is needed to tell its kind: all of numbers, words and
/// marks, the opening quote of strings and blocks, the number and parenthesis of tags.
struct TextToken {
  enum class Mark : std::uint8_t {
    item,
    end,
    sequence_end,
    structure_end,
    malformed,
    truncated,
  };

  Mark mark = Mark::item;
  int kind = item_none;  // `item_none` for every other mark
  Position at;
  bool tagged = false;           // an unsigned item or a string behind its tag
  bool flag = false;             // a boolean's value; a sequence of one
  bool negative = false;         // an integer's sign
  bool in_range = true;          // of a number
  std::uint64_t number = 0;      // an integer's magnitude, an unsigned item's value
  double real = 0;               // a double's value
  const char* reason = nullptr;  // of what is malformed
};

/// Looks at one token at a time. Everything that reads raises truncated or malformed.
class TextTokens {
 public:
  TextTokens(ovcore::IReadStream& source, std::size_t buffer_size)
      : m_scanner(source, buffer_size) {}

  /// The next token, which stays the next until `take` is called. Raises only what the source does.
  [[nodiscard]] const TextToken& next() {
    if (!m_looked) look();
    return m_token;
  }
  /// Goes on behind the token; what follows is its content or, after `end_item`, the next one.
  void take() noexcept { m_looked = false; }
  /// The item that was being read is complete: a comma, or the end of what is around it, is next.
  void end_item() noexcept { m_comma_due = true; }

  /// Where the next token is, if it was looked at, or what was read ends.
  [[nodiscard]] Position position() const noexcept {
    return m_looked ? m_token.at : m_scanner.position();
  }

  // Contents.

  void skip_blanks();
  /// Takes a character, after blanks; `reason` says what is wrong with any other.
  void expect(char character, const char* reason);
  /// The same if it is this one.
  [[nodiscard]] bool take_if(char character);
  /// An integer, alone; its `at` is where it begins.
  [[nodiscard]] TextToken read_integer();
  /// The rest of a string whose opening quote was taken. Raises `ovserialize_reader_size` with the
  /// position of the token.
  void read_text(std::string& text, std::size_t limit);
  /// The rest of "h'...'" whose quote was taken, appended; `kind` is for messages.
  void read_hex(std::string& bytes, std::size_t limit, int kind);
  /// All of "h'...'".
  void read_block(std::string& bytes, std::size_t limit, int kind);

  [[noreturn]] void throw_malformed(const char* reason, const Position& at) const;
  [[noreturn]] void throw_truncated() const;
  /// Malformed, or truncated at the end of the text.
  [[noreturn]] void throw_unexpected(const char* reason);

 private:
  void look();
  void find();
  void find_word(bool negative);
  void find_number();
  void find_simple();
  void find_float();
  void find_sequence();
  void set_item(int kind) noexcept { m_token.kind = kind; }
  void set_malformed(const char* reason) noexcept;
  void set_truncated() noexcept { m_token.mark = TextToken::Mark::truncated; }
  /// Malformed, or truncated at the end of the text.
  void set_unexpected(const char* reason);
  [[nodiscard]] bool scan_count(std::uint64_t& count);
  void read_escape(std::string& text);
  [[nodiscard]] unsigned read_code_unit();

  TextScanner m_scanner;
  TextToken m_token;
  std::string m_characters;  // of the word or number being read
  bool m_looked = false;
  bool m_comma_due = false;
};

}  // namespace ovserialize::impl
