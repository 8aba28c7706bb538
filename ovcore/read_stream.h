// SPDX-License-Identifier: Apache-2.0
// Sources of bytes: memory, file descriptors, standard streams, or one of the caller's own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"

namespace ovcore {

/// A source that is read once, from front to back, by one thread at a time.
///
/// A source that fails raises an error (`ovcore_stream_read` from those below), which is never
/// mistaken for the end. After a failure the stream's state is that of its source.
class OV_EXPORT IReadStream : public RefCounted {
 public:
  /// The answer of `remaining` when the length is not known.
  static constexpr std::uint64_t unknown = ~std::uint64_t{0};

  /// Reads `size` bytes, waiting for them; fewer only at the end.
  virtual std::size_t read(void* buffer, std::size_t size) = 0;
  /// Reads up to `size` bytes and returns as soon as at least one is there; 0 only at the end
  /// (or for a `size` of 0).
  virtual std::size_t read_some(void* buffer, std::size_t size) = 0;
  /// The number of bytes left to read, or `unknown`.
  [[nodiscard]] virtual std::uint64_t remaining() const = 0;
};

/// Bytes in memory, of known length.
class OV_EXPORT MemoryReadStream final : public IReadStream {
 public:
  /// Refers to the bytes, which must outlive the stream.
  MemoryReadStream(const void* data, std::size_t size) noexcept
      : m_next(static_cast<const char*>(data)), m_left(size) {}
  explicit MemoryReadStream(SourceString text) noexcept
      : MemoryReadStream(text.data(), text.size()) {}

  std::size_t read(void* buffer, std::size_t size) override;
  std::size_t read_some(void* buffer, std::size_t size) override { return read(buffer, size); }
  [[nodiscard]] std::uint64_t remaining() const override { return m_left; }

 private:
  const char* m_next;
  std::size_t m_left;
};

/// A file, pipe, terminal or socket. The length is known for regular files only, and for those
/// only that lie on a disk: files in /proc or /sys do not state theirs.
class OV_EXPORT FileReadStream final : public IReadStream {
 public:
  /// Reads from an open descriptor at its current position and leaves it open.
  explicit FileReadStream(int descriptor) noexcept : m_descriptor(descriptor) {}
  /// Opens a file and closes it at the end. Raises `ovcore_stream_read`, also for a directory.
  explicit FileReadStream(const std::string& path);
  ~FileReadStream() override;

  std::size_t read(void* buffer, std::size_t size) override;
  std::size_t read_some(void* buffer, std::size_t size) override;
  [[nodiscard]] std::uint64_t remaining() const override;

 private:
  int m_descriptor;
  bool m_owned = false;
};

/// A standard stream, which must outlive this object. The length is not known. A stream that has
/// failed, such as a file that could not be opened, is an error and not the end; one that is set
/// to throw at the end has ended.
class OV_EXPORT StdReadStream final : public IReadStream {
 public:
  explicit StdReadStream(std::istream& in) noexcept : m_in(&in) {}

  std::size_t read(void* buffer, std::size_t size) override;
  std::size_t read_some(void* buffer, std::size_t size) override;
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  std::istream* m_in;
};

}  // namespace ovcore
