// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/savepoint.h"

namespace ovserialize {

void Rewindable::unlink() noexcept {
  Rewindable** link = &m_writer->m_rewindables;
  while (*link != this)
    link = &(*link)->m_next;
  *link = m_next;
  m_writer = nullptr;
}

bool Savepoint::include(Rewindable& state) noexcept {
  if (state.m_writer == &m_writer) return false;
  state.leave();
  state.m_writer = &m_writer;
  state.m_next = std::exchange(m_writer.m_rewindables, &state);
  return true;
}

void Savepoint::roll_back() noexcept {
  m_writer.roll_back(m_mark);
  for (Rewindable* r = m_writer.m_rewindables; r != nullptr; r = r->m_next)
    r->rewind(m_mark.position);
}

void Savepoint::let_go() noexcept {
  while (m_writer.m_rewindables != nullptr)
    m_writer.m_rewindables->leave();
}

}  // namespace ovserialize
