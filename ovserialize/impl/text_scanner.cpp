// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/impl/text_scanner.h"

#include <algorithm>

namespace ovserialize::impl {

TextScanner::TextScanner(ovcore::IReadStream& source, std::size_t buffer_size)
    : m_source(&source),
      m_buffer_size(std::max<std::size_t>(buffer_size, 1)),
      m_buffer(new unsigned char[m_buffer_size]),
      m_cursor(m_buffer.get()),
      m_end(m_cursor) {}

int TextScanner::refill() {
  if (m_ended) return end;
  const std::uint64_t here = offset();
  const std::size_t got = m_source->read_some(m_buffer.get(), m_buffer_size);
  m_buffer_offset = here;
  m_cursor = m_buffer.get();
  m_end = m_cursor + got;
  m_ended = got == 0;
  return m_ended ? end : *m_cursor;
}

std::string_view TextScanner::take_plain() noexcept {
  const unsigned char* const start = m_cursor;
  while (m_cursor != m_end && *m_cursor >= 0x20 && *m_cursor != '"' && *m_cursor != '\\')
    take();
  return {reinterpret_cast<const char*>(start), static_cast<std::size_t>(m_cursor - start)};
}

bool TextScanner::skip_blanks() {
  for (;;) {
    switch (peek()) {
      case ' ':
      case '\t':
      case '\r':
      case '\n':
        take();
        break;
      case '/':
        do {
          take();
          if (peek() == end) return false;
        } while (peek() != '/');
        take();
        break;
      case '#':
        while (peek() != '\n' && peek() != end)
          take();
        break;
      default:
        return true;
    }
  }
}

}  // namespace ovserialize::impl
