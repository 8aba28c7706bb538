// SPDX-License-Identifier: Apache-2.0
// Writing an item stream, whatever its form: `MemoryWriter` and `StreamWriter` write the binary
// form, `TextWriter` the text form. docs/format.md describes both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/source_string.h"
#include "ovcore/string_key.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovserialize/frame_stack.h"
#include "ovserialize/limits.h"
#include "ovserialize/memory_list.h"

namespace ovserialize {

class Rewindable;

/// Writes one item after another. Used by one thread.
///
/// An operation that raises an error (or `std::bad_alloc`) has written nothing of its item, except
/// when the target of a stream failed: then every further operation that writes raises
/// `ovserialize_writer_closed`. The same holds for whatever the libraries write as a whole, such as
/// a value or a map, and for what stands under a `Savepoint`. Strings may hold any bytes; those
/// that are not UTF-8 cost a few bytes more.
class OV_EXPORT Writer {
 public:
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;
  virtual ~Writer();

  virtual void write_null() = 0;
  Writer& operator<<(bool value) { return put_boolean(value), *this; }

  // Signed integer items.
  Writer& operator<<(int value) { return put_integer(value), *this; }
  Writer& operator<<(long value) { return put_integer(value), *this; }
  Writer& operator<<(long long value) { return put_integer(value), *this; }

  // Unsigned integer items; up to 15 they take one byte, up to 239 two.
  Writer& operator<<(unsigned value) { return put_unsigned(value), *this; }
  Writer& operator<<(unsigned long value) { return put_unsigned(value), *this; }
  Writer& operator<<(unsigned long long value) { return put_unsigned(value), *this; }
  void write_uint(std::uint32_t value) { put_unsigned(value); }

  /// Keeps every bit, also of a number that is none.
  Writer& operator<<(double value) { return put_double(value), *this; }

  // String items. Raise `ovserialize_writer_size`.
  Writer& operator<<(const std::string& text) { return put_string(text), *this; }
  Writer& operator<<(std::string_view text) { return put_string(text), *this; }
  Writer& operator<<(const char* text) {
    return put_string(ovcore::SourceString(text).view()), *this;
  }
  void write_string_key(const ovcore::StringKey& key) { put_string(key.value()); }
  /// Not a Boolean.
  Writer& operator<<(const void*) = delete;

  Writer& operator<<(const ovcore::AbsoluteTime& time) {
    return put_absolute_time(time.microseconds()), *this;
  }
  Writer& operator<<(const ovcore::RelativeTime& time) {
    return put_relative_time(time.microseconds()), *this;
  }
  Writer& operator<<(const ovcore::Uuid& uuid) { return put_uuid(uuid), *this; }

  /// Writes a block of bytes. Raises `ovserialize_writer_size`.
  void write_binary(const void* data, std::size_t size) { put_binary(data, size); }
  /// Writes the bytes of a list, which may be null, as one block. Raises `ovserialize_writer_size`.
  void write_memory_list_as_binary(const ovcore::RefCountPtr<const MemoryList>& list) {
    put_memory_list(list.get());
  }

  /// Opens a sequence of `count` elements, each one or more items. A count of 1 is a promise: the
  /// sequence must hold one element. Any other count is a hint that is not checked; 0 also says
  /// that the number is not known. Raises `ovserialize_writer_depth`.
  virtual void begin_sequence(std::uint64_t count) = 0;
  /// Between two elements. Raises `ovserialize_writer_sequence` where no sequence is the innermost
  /// frame, or one that was announced with 1.
  virtual void next_element() = 0;
  /// Raises `ovserialize_writer_sequence` where no sequence is the innermost frame, or one that was
  /// announced with 1 and holds nothing.
  virtual void end_sequence() = 0;

  /// Opens a group of items. Raises `ovserialize_writer_depth`.
  virtual void begin_structure() = 0;
  /// Raises `ovserialize_writer_structure` where no structure is the innermost frame.
  virtual void end_structure() = 0;

  [[nodiscard]] const Limits& limits() const noexcept { return m_limits; }

 protected:
  explicit Writer(const Limits& limits) noexcept : m_limits(limits) {}

  virtual void put_boolean(bool value) = 0;
  virtual void put_integer(std::int64_t value) = 0;
  virtual void put_unsigned(std::uint64_t value) = 0;
  virtual void put_double(double value) = 0;
  virtual void put_string(std::string_view text) = 0;
  virtual void put_absolute_time(std::int64_t microseconds) = 0;
  virtual void put_relative_time(std::int64_t microseconds) = 0;
  virtual void put_uuid(const ovcore::Uuid& uuid) = 0;
  virtual void put_binary(const void* data, std::size_t size) = 0;
  virtual void put_memory_list(const MemoryList* list) = 0;

  /// Where a writer stands.
  struct Mark {
    std::uint64_t position = 0;
    FrameStack::Mark frames;
    std::uint64_t single_start = 0;
    // Of the text form only.
    std::uint64_t counted_start = 0;
    std::uint64_t items = 0;
    std::size_t indentation = 0;
    bool usable = true;
  };

 private:
  friend class Rewindable;
  friend class Savepoint;

  [[nodiscard]] virtual Mark mark() const noexcept = 0;
  /// Takes back what was written since, or refuses all that follows.
  virtual void roll_back(const Mark& mark) noexcept = 0;

  const Limits m_limits;
  bool m_has_savepoint = false;
  Rewindable* m_rewindables = nullptr;  // those that take part
};

}  // namespace ovserialize
