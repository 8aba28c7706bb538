// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/stream_writer.h"

#include <algorithm>
#include <cstring>

#include "ovserialize/impl/raise.h"

namespace ovserialize {

StreamWriter::StreamWriter(ovcore::IWriteStream& target, const Limits& limits,
                           std::size_t buffer_size)
    : BinaryWriter(limits),
      m_target(&target),
      m_buffer_size(std::max<std::size_t>(buffer_size, 1)),
      m_buffer(new unsigned char[m_buffer_size]) {
  set_window(m_buffer.get(), m_buffer.get() + m_buffer_size, 0);
}

void StreamWriter::flush() {
  if (m_refusal != nullptr) {
    impl::throw_closed(m_refusal,
                       {"ovserialize/stream_writer", "ovserialize::StreamWriter::flush()"});
  }
  const Bytes bytes = pending();
  pass_on(bytes);
  set_window(m_buffer.get(), m_buffer.get() + m_buffer_size, size());
}

// Then there is no window, so that every operation ends in `flush`.
void StreamWriter::refuse(const char* why) noexcept {
  m_refusal = why;
  set_window(nullptr, nullptr, size());
}

void StreamWriter::rewind(std::uint64_t offset) noexcept {
  if (m_refusal == nullptr && !rewind_window(offset)) refuse(impl::closed_by_part);
}

void StreamWriter::pass_on(Bytes bytes) {
  if (bytes.size == 0) return;
  try {
    m_target->write(bytes.data, bytes.size);
  } catch (...) {
    refuse(impl::closed_by_target);
    throw;
  }
}

void StreamWriter::put(Bytes bytes) {
  if (put_in_window(bytes)) return;
  flush();
  if (put_in_window(bytes)) return;
  pass_on(bytes);
  set_window(m_buffer.get(), m_buffer.get() + m_buffer_size, size() + bytes.size);
}

void StreamWriter::write_slow(Bytes head, Bytes body) {
  put(head);
  put(body);
}

void StreamWriter::write_list(Bytes head, const MemoryList& list) {
  put(head);
  list.for_each_span([this](auto bytes) { put({bytes.data(), bytes.size()}); });
}

}  // namespace ovserialize
