// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/text_target.h"

#include <cstring>
#include <utility>

#include "ovserialize/impl/raise.h"

namespace ovserialize {

bool ITextTarget::take_back(std::uint64_t) noexcept {
  return false;
}

bool StringTextTarget::take_back(std::uint64_t size) noexcept {
  if (size > m_text->size()) return false;
  m_text->resize(m_text->size() - static_cast<std::size_t>(size));
  return true;
}

void StreamTextTarget::put(char character) {
  if (m_used == buffer_size) flush();
  m_buffer[m_used++] = character;
}

void StreamTextTarget::write(const char* text, std::size_t size) {
  if (size > buffer_size - m_used) flush();
  if (size > buffer_size) return pass_on(text, size);
  std::memcpy(m_buffer + m_used, text, size);
  m_used += size;
}

void StreamTextTarget::flush() {
  pass_on(m_buffer, std::exchange(m_used, 0));
}

void StreamTextTarget::pass_on(const char* text, std::size_t size) {
  if (m_failed) {
    impl::throw_closed(impl::closed_by_target,
                       {"ovserialize/text_target", "ovserialize::StreamTextTarget::pass_on()"});
  }
  if (size == 0) return;
  m_failed = true;
  m_stream->write(text, size);
  m_failed = false;
}

bool StreamTextTarget::take_back(std::uint64_t size) noexcept {
  if (m_failed || size > m_used) return false;
  m_used -= static_cast<std::size_t>(size);
  return true;
}

}  // namespace ovserialize
