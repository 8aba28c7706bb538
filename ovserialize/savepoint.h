// SPDX-License-Identifier: Apache-2.0
// Several items that are written as one: all of them or none.
#pragma once

#include <cstdint>
#include <utility>

#include "ovcore/export.h"
#include "ovserialize/writer.h"

namespace ovserialize {

/// State that says what a stream holds, such as the announcements of an encoder, and so must go
/// back when the writer does. A copy takes part in nothing, and neither does the target of a move:
/// copy and move nothing under a savepoint.
class OV_EXPORT Rewindable {
 public:
  Rewindable(const Rewindable&) noexcept {}
  Rewindable& operator=(const Rewindable&) noexcept {
    leave();
    return *this;
  }

 protected:
  Rewindable() noexcept = default;
  ~Rewindable() { leave(); }

 private:
  friend class Savepoint;

  /// What was written from `position` on is gone.
  virtual void rewind(std::uint64_t position) noexcept = 0;
  void leave() noexcept {
    if (m_writer != nullptr) unlink();
  }
  void unlink() noexcept;

  Writer* m_writer = nullptr;
  Rewindable* m_next = nullptr;
};

/// A place in what a writer writes. Unless `commit` is called, its end takes back what was written
/// since: frames are closed again, bytes dropped, and all that took part is told. Where bytes of it
/// have left the writer's buffer, every further operation that writes raises
/// `ovserialize_writer_closed`. Savepoints nest.
///
/// REQUIRES: what was open before stays open meanwhile, and the writer gives away no list.
class OV_EXPORT Savepoint {
 public:
  explicit Savepoint(Writer& writer) noexcept
      : m_writer(writer),
        m_mark(writer.mark()),
        m_outermost(!std::exchange(writer.m_has_savepoint, true)) {}
  ~Savepoint() {
    if (!m_committed) roll_back();
    if (!m_outermost) return;
    m_writer.m_has_savepoint = false;
    if (m_writer.m_rewindables != nullptr) let_go();
  }
  Savepoint(const Savepoint&) = delete;
  Savepoint& operator=(const Savepoint&) = delete;

  void commit() noexcept { m_committed = true; }

  /// Counted like the position that `Rewindable::rewind` gets.
  [[nodiscard]] std::uint64_t position() const noexcept { return m_mark.position; }
  /// Lets `state` take part until the outermost savepoint of the writer ends; false when it does
  /// already.
  bool include(Rewindable& state) noexcept;

 private:
  void roll_back() noexcept;
  void let_go() noexcept;

  Writer& m_writer;
  const Writer::Mark m_mark;
  const bool m_outermost;
  bool m_committed = false;
};

}  // namespace ovserialize
