// SPDX-License-Identifier: Apache-2.0
// Characters of the text form, one after another, and where they stand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include "ovcore/read_stream.h"
#include "ovserialize/impl/raise.h"

namespace ovserialize::impl {

/// Bytes of a stream through a buffer. Nothing is read ahead of what is asked for, beyond what the
/// source has ready.
class TextScanner {
 public:
  /// The answer of `peek` at the end of the text.
  static constexpr int end = -1;

  TextScanner(ovcore::IReadStream& source, std::size_t buffer_size);

  /// The next byte, or `end`.
  [[nodiscard]] int peek() { return m_cursor != m_end ? *m_cursor : refill(); }
  /// Takes the byte that `peek` has shown.
  void take() noexcept {
    const unsigned char byte = *m_cursor++;
    if (byte == '\n') {
      m_line_start = offset();
      ++m_line;
      m_continuations = 0;
    } else if ((byte & 0xc0) == 0x80) {
      ++m_continuations;
    }
  }
  /// Takes the next byte if it is this one.
  [[nodiscard]] bool take_if(char byte) {
    if (peek() != static_cast<unsigned char>(byte)) return false;
    take();
    return true;
  }
  /// Takes what stands for itself in a string, as far as it is in the buffer: no quote, backslash
  /// or control character. Good until the next call.
  [[nodiscard]] std::string_view take_plain() noexcept;
  /// Takes blanks, line breaks and comments: "/ ... /", and "#" up to the end of the line.
  /// False when the text ends within a comment.
  [[nodiscard]] bool skip_blanks();

  [[nodiscard]] std::uint64_t offset() const noexcept {
    return m_buffer_offset + static_cast<std::size_t>(m_cursor - m_buffer.get());
  }
  /// Columns count characters, not bytes.
  [[nodiscard]] Position position() const noexcept {
    return {offset(), m_line, offset() - m_line_start - m_continuations + 1};
  }

 private:
  int refill();

  const ovcore::RefCountPtr<ovcore::IReadStream> m_source;
  const std::size_t m_buffer_size;
  const std::unique_ptr<unsigned char[]> m_buffer;
  const unsigned char* m_cursor;
  const unsigned char* m_end;
  std::uint64_t m_buffer_offset = 0;  // of the buffer's first byte
  std::uint64_t m_line = 1;
  std::uint64_t m_line_start = 0;     // offset
  std::uint64_t m_continuations = 0;  // bytes of this line that begin no character
  bool m_ended = false;
};

}  // namespace ovserialize::impl
