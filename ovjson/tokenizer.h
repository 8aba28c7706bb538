// SPDX-License-Identifier: Apache-2.0
// Cuts JSON text into tokens, in the memory of one buffer whatever the size of the text.
//
// The text is RFC 8259 in UTF-8, checked strictly, with these additions:
// - member names may be identifiers: ASCII letters, digits (not first), "_" and "$";
// - a byte order mark at the start is skipped;
// - comments, "//" up to the end of the line and "/* */", when the options allow them.
//
// The tokenizer knows no nesting: which token may follow which is for the reader to say. Words that
// are no literal are identifiers, wherever they stand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ovcore/error_info.h"
#include "ovcore/export.h"
#include "ovcore/read_stream.h"
#include "ovcore/ref_count.h"
#include "ovjson/position.h"

namespace ovjson {

enum class Token : int {
  unknown = 0,
  document_start = 1,
  document_end = 2,
  error = 3,
  identifier_begin = 4,
  identifier_end = 5,
  string_begin = 6,
  string_end = 7,
  char_data = 8,
  literal_true = 9,
  literal_false = 10,
  number = 11,
  literal_null = 12,
  punctuator = 13,
};

/// The name for messages, such as "eToken_StringBegin".
[[nodiscard]] OV_EXPORT std::string token_name(Token token);

/// The most character data that one string, name or number holds: 128 MiB.
inline constexpr std::size_t default_max_value_size = 134'217'728;

struct TokenizerOptions {
  bool allow_comments = false;
  std::size_t max_value_size = default_max_value_size;  // bytes, after unescaping
  std::size_t buffer_size = 65'536;                     // bytes, at least 1
  Position start = {};                                  // of the text's first byte
};

/// Asks its source for more only when the next token needs it: a container is complete with its
/// closing bracket, a string with its quotation mark; numbers and literals with the byte behind.
/// After an error it answers `Token::error` for good. Raises only allocation failures.
class OV_EXPORT Tokenizer {
 public:
  explicit Tokenizer(ovcore::RefCountPtr<ovcore::IReadStream> source,
                     const TokenizerOptions& options = {});

  /// `document_start` first, `document_end` at the end and ever after.
  Token next();
  /// Goes behind `c`, a colon or a comma, when it is the very next byte outside of strings and
  /// names. True in place of a token; `token` and `position` stay.
  bool take_punctuator(char c) noexcept {
    if (*m_next != c) return false;
    ++m_next;
    return true;
  }
  /// Inside a string: takes all that is left of it in place of its tokens, when that has no escapes
  /// and lies in the buffer as a whole; `text` is then all of it. When false, the tokens come.
  bool take_string() noexcept;
  /// Takes a quoted name, the colon and a blank behind it in place of all their tokens, under the
  /// same conditions and unless it is empty. `position` is then that of the quotation mark.
  bool take_name() noexcept;
  /// Behind a name: takes the quotation mark that begins a string, when it is the very next byte,
  /// in place of `string_begin`.
  bool take_quote() noexcept {
    if (*m_next != '"') return false;
    m_token_offset = offset(m_next++);
    m_mode = Mode::string;
    m_text_size = 0;
    return true;
  }
  /// Goes behind the end of a string when its quotation mark is the very next byte inside it. True
  /// in place of `string_end`; `text` stays valid.
  bool take_string_end() noexcept {
    if (m_mode != Mode::string || !take_punctuator('"')) return false;
    m_mode = Mode::structure;
    return true;
  }

  [[nodiscard]] Token token() const noexcept { return m_token; }
  /// A run of unescaped character data, which never ends inside a UTF-8 sequence; a number; or a
  /// punctuator. Valid until the next call of `next`.
  [[nodiscard]] std::string_view text() const noexcept { return m_text; }
  /// Where the token begins, or where the text is at fault.
  [[nodiscard]] Position position() const noexcept {
    return {m_line, m_token_offset - m_line_start + 1, m_token_offset};
  }

  struct Fault {
    enum class Kind { none, syntax, size, stream };
    Kind kind = Kind::none;
    const char* message = nullptr;                       // a template with the parameter `found`
    std::string found;                                   // the offending character, quoted
    ovcore::RefCountPtr<const ovcore::ErrorInfo> cause;  // the error of the source
  };
  [[nodiscard]] const Fault& fault() const noexcept { return m_fault; }

  /// Lets go of the source and the buffer; only the position stays.
  void close() noexcept;

 private:
  enum class Mode { start, structure, string, identifier, ended, failed };

  Token structure();
  Token other(unsigned char c);
  const char* plain_string(const char* first) noexcept;
  Token number();
  Token word();
  Token string_run();
  Token identifier_run();
  Token escape();
  Token run(std::string_view text);
  Token scratch_run(std::size_t size);
  std::size_t unicode_escape();
  int hex_unit();
  int low_unit();
  std::size_t read_sequence(const char* cut_off);
  void skip_white() noexcept;
  const char* white_end(const char* p) noexcept;
  bool skip_byte_order_mark();
  bool skip_comment();
  bool skip_line_comment();
  bool skip_block_comment();
  void end_line(const char* behind) noexcept;

  bool fill();
  int peek();
  [[nodiscard]] std::uint64_t offset(const char* p) const noexcept {
    return m_base + static_cast<std::uint64_t>(p - m_buffer.get());
  }

  Token fail(const char* message, std::uint64_t at, std::string found);
  Token fail_here(const char* cut_off, const char* message);
  Token fail_size(std::uint64_t at);

  ovcore::RefCountPtr<ovcore::IReadStream> m_source;
  std::size_t m_capacity;
  std::unique_ptr<char[]> m_buffer;  // longer than its capacity by a block
  const char* m_next;
  const char* m_end;         // a block of zeros stands behind it and stops every search
  std::uint64_t m_base = 0;  // offset of the buffer's first byte in the text
  bool m_ended = false;      // the source has no more

  Mode m_mode = Mode::start;
  Token m_token = Token::unknown;
  std::string_view m_text;
  std::uint64_t m_text_size = 0;  // character data of the current string or name so far
  std::uint64_t m_max_text_size;
  std::uint64_t m_token_offset = 0;

  std::uint64_t m_line = 1;
  std::uint64_t m_line_start = 0;                    // offset of the line's first byte
  std::uint64_t m_after_return = ~std::uint64_t{0};  // offset behind the latest "\r"

  char m_scratch[8];  // a character that is not in the buffer as it is, or the start of a word
  std::size_t m_scratch_size = 0;
  std::string m_number;  // a number that does not lie in the buffer as a whole
  bool m_allow_comments;
  Fault m_fault;
};

}  // namespace ovjson
