// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/json_lines.h"

#include <algorithm>
#include <utility>

namespace ovattr {
namespace {

constexpr std::size_t buffer_size = 65536;

bool is_white(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r';
}

}  // namespace

LineStream::LineStream(ovcore::RefCountPtr<ovcore::IReadStream> source)
    : m_source(std::move(source)), m_buffer(buffer_size, '\0') {}

bool LineStream::next_line() {
  while (m_in_line)  // what is unread of the last line
    take_run(buffer_size);
  while (m_next != m_end || fill()) {
    const char c = m_buffer[m_next];
    if (is_white(c)) {
      ++m_next;
      ++m_position.line_pos;
      ++m_position.source_pos;
    } else if (c == '\n') {
      ++m_next;
      start_line();
    } else {
      m_in_line = true;
      m_start = m_position;
      return true;
    }
  }
  return false;
}

std::size_t LineStream::read(void* buffer, std::size_t size) {
  std::size_t got = 0;
  while (got < size) {
    const std::size_t more = read_some(static_cast<char*>(buffer) + got, size - got);
    if (more == 0) break;
    got += more;
  }
  return got;
}

std::size_t LineStream::read_some(void* buffer, std::size_t size) {
  const std::string_view run = take_run(size);
  return run.copy(static_cast<char*>(buffer), run.size());
}

/// The next bytes of the line; empty at its end, which is left behind.
std::string_view LineStream::take_run(std::size_t size) {
  if (!m_in_line) return {};
  if (m_next == m_end && !fill()) {
    m_in_line = false;
    return {};
  }
  const std::string_view rest = std::string_view(m_buffer).substr(m_next, m_end - m_next);
  const std::string_view run = rest.substr(0, std::min(size, rest.find('\n')));
  m_next += run.size();
  m_position.source_pos += run.size();
  if (run.empty() && size != 0) {
    ++m_next;
    m_in_line = false;
    start_line();
  }
  return run;
}

void LineStream::start_line() noexcept {
  ++m_position.line;
  m_position.line_pos = 1;
  ++m_position.source_pos;
}

bool LineStream::fill() {
  m_next = m_end = 0;
  m_end = m_source->read_some(m_buffer.data(), m_buffer.size());
  return m_end != 0;
}

}  // namespace ovattr
