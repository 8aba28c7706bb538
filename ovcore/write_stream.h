// SPDX-License-Identifier: Apache-2.0
// Targets of bytes: memory, file descriptors, standard streams, or one of the caller's own.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"

namespace ovcore {

/// A target that is written from front to back, by one thread at a time. Writers keep their own
/// buffers and call it with blocks, not with single bytes.
///
/// A target that fails raises an error (`ovcore_stream_write` from those below).
class OV_EXPORT IWriteStream : public RefCounted {
 public:
  /// Writes all bytes, waiting where the target is slow.
  virtual void write(const void* data, std::size_t size) = 0;
  void write(SourceString text) { write(text.data(), text.size()); }
};

/// Appends to a string, which must outlive this object.
class OV_EXPORT StringWriteStream final : public IWriteStream {
 public:
  explicit StringWriteStream(std::string& target) noexcept : m_target(&target) {}

  using IWriteStream::write;
  void write(const void* data, std::size_t size) override;

 private:
  std::string* m_target;
};

/// A file, pipe, terminal or socket. A closed pipe or socket raises an error, no signal.
class OV_EXPORT FileWriteStream final : public IWriteStream {
 public:
  /// Writes to an open descriptor and leaves it open.
  explicit FileWriteStream(int descriptor) noexcept : m_descriptor(descriptor) {}

  using IWriteStream::write;
  void write(const void* data, std::size_t size) override;

 private:
  int m_descriptor;
};

/// A standard stream, which must outlive this object. It keeps its own buffer: its owner flushes
/// it and looks for failures then.
class OV_EXPORT StdWriteStream final : public IWriteStream {
 public:
  explicit StdWriteStream(std::ostream& out) noexcept : m_out(&out) {}

  using IWriteStream::write;
  void write(const void* data, std::size_t size) override;

 private:
  std::ostream* m_out;
};

}  // namespace ovcore
