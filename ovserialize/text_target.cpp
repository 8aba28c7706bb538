// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/text_target.h"

#include <cstring>
#include <utility>

namespace ovserialize {

void StreamTextTarget::put(char character) {
  if (m_used == buffer_size) flush();
  m_buffer[m_used++] = character;
}

void StreamTextTarget::write(const char* text, std::size_t size) {
  if (size > buffer_size - m_used) flush();
  if (size > buffer_size) return m_stream->write(text, size);
  std::memcpy(m_buffer + m_used, text, size);
  m_used += size;
}

void StreamTextTarget::flush() {
  if (m_used > 0) m_stream->write(m_buffer, std::exchange(m_used, 0));
}

}  // namespace ovserialize
