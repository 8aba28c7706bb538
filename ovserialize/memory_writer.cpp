// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/memory_writer.h"

#include <utility>

namespace ovserialize {

ovcore::RefCountPtr<const MemoryList> MemoryWriter::memory_list() const {
  check_complete();
  if (!m_list) return MemoryList::create_copy(nullptr, 0, m_options.wiping);
  sync();
  const std::size_t size = m_list->size();
  if (size < MemoryList::shared_from) return m_list->copy(0, size);
  return m_list->slice(0, size);
}

ovcore::RefCountPtr<MemoryList> MemoryWriter::detach() {
  check_complete();
  if (!m_list) return MemoryList::create_copy(nullptr, 0, m_options.wiping);
  sync();
  set_window(nullptr, nullptr, 0);
  return std::exchange(m_list, nullptr);
}

void MemoryWriter::sync() const noexcept {
  m_list->commit(static_cast<std::size_t>(size()) - m_list->size());
}

void MemoryWriter::set_room() noexcept {
  const auto room = m_list->room();
  set_window(room.data(), room.data() + room.size(), m_list->size());
}

void MemoryWriter::rewind(std::uint64_t offset) noexcept {
  if (!m_list) return;
  sync();
  m_list->truncate(static_cast<std::size_t>(offset));
  set_room();
}

template <class Append>
void MemoryWriter::append(Bytes head, Append&& append_body) {
  if (m_list) {
    sync();
  } else {
    m_list = MemoryList::create(m_options);
  }
  const std::size_t before = m_list->size();
  try {
    m_list->append(head.data, head.size);
    append_body(*m_list);
  } catch (...) {
    m_list->truncate(before);
    set_room();
    throw;
  }
  set_room();
}

void MemoryWriter::write_slow(Bytes head, Bytes body) {
  append(head, [body](MemoryList& list) { list.append(body.data, body.size); });
}

void MemoryWriter::write_list(Bytes head, const MemoryList& added) {
  append(head, [&added](MemoryList& list) { list.append(added); });
}

}  // namespace ovserialize
