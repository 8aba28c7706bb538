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
  if (m_failed) {
    impl::throw_closed(true, {"ovserialize/stream_writer", "ovserialize::StreamWriter::flush()"});
  }
  const Bytes bytes = pending();
  pass_on(bytes);
  set_window(m_buffer.get(), m_buffer.get() + m_buffer_size, size());
}

// Once the target has failed there is no window, so that every operation ends in `flush`.
void StreamWriter::pass_on(Bytes bytes) {
  if (bytes.size == 0) return;
  try {
    m_target->write(bytes.data, bytes.size);
  } catch (...) {
    m_failed = true;
    set_window(nullptr, nullptr, size());
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
