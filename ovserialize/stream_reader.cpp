// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/stream_reader.h"

#include <algorithm>
#include <cstring>

namespace ovserialize {
namespace {

constexpr std::size_t smallest_buffer = 32;

}  // namespace

StreamReader::StreamReader(ovcore::IReadStream& source, const Limits& limits,
                           std::size_t buffer_size)
    : BinaryReader(limits),
      m_source(&source),
      m_buffer_size(std::max(buffer_size, smallest_buffer)),
      m_buffer(new unsigned char[m_buffer_size]) {
  set_window(m_buffer.get(), 0, 0);
}

bool StreamReader::fill(std::size_t size) {
  std::size_t kept = in_window();
  unsigned char* const buffer = m_buffer.get();
  if (kept > 0) std::memmove(buffer, cursor(), kept);
  set_window(buffer, kept, position());
  while (kept < size && !m_ended) {
    const std::size_t got = m_source->read_some(buffer + kept, m_buffer_size - kept);
    m_ended = got == 0;
    kept += got;
    set_window(buffer, kept, position());
  }
  return kept >= size;
}

// Large pieces go where they belong without passing through the buffer.
std::size_t StreamReader::take(void* target, std::size_t size) {
  if (size < m_buffer_size) return BinaryReader::take(target, size);
  if (m_ended) return 0;
  const std::size_t got = m_source->read_some(target, size);
  m_ended = got == 0;
  set_window(m_buffer.get(), 0, position() + got);
  return got;
}

}  // namespace ovserialize
