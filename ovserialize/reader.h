// SPDX-License-Identifier: Apache-2.0
// Reading an item stream, whatever its form: `MemoryReader` and `StreamReader` read the binary
// form, `TextReader` the text form. docs/format.md describes both.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>

#include "ovcore/export.h"
#include "ovcore/read_stream.h"
#include "ovcore/ref_count.h"
#include "ovcore/string_key.h"
#include "ovcore/time.h"
#include "ovcore/uuid.h"
#include "ovserialize/frame_stack.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/limits.h"
#include "ovserialize/memory_list.h"

namespace ovserialize {

namespace impl {
class KnownNames;
class Window;
}  // namespace impl

/// Reads one item after another. Used by one thread.
///
/// Every operation raises, all with the parameter `offset` (bytes from the start of the stream):
/// `ovserialize_reader_truncated` where the stream ends too early, `ovserialize_reader_malformed`
/// for bytes that no writer produces, and those that read an item `ovserialize_reader_kind` for an
/// item of another kind, which is then still the next one. After any other error the reader's place
/// in the stream is not defined. Targets are changed only by an operation that succeeds.
class OV_EXPORT Reader {
 public:
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  virtual ~Reader();

  /// The kind of the next item, an `ItemKind`, without reading it. Never raises malformed or
  /// truncated, but for what is missing of a block whose stream was left unread: what is no item
  /// is 0.
  [[nodiscard]] virtual int item_kind() = 0;
  /// True when nothing is left. May wait for one byte.
  [[nodiscard]] virtual bool at_end() = 0;
  /// Bytes from the start of the stream to the next item.
  [[nodiscard]] virtual std::uint64_t offset() const noexcept = 0;

  virtual void read_null() = 0;
  Reader& operator>>(bool& value) { return value = get_boolean(), *this; }

  // Signed integer items. Raise `ovserialize_reader_range`, never cut.
  Reader& operator>>(int& value) { return read_integer(value); }
  Reader& operator>>(long& value) { return read_integer(value); }
  Reader& operator>>(long long& value) { return read_integer(value); }

  // Unsigned integer items. Raise `ovserialize_reader_range`, never cut.
  Reader& operator>>(unsigned& value) { return read_unsigned(value); }
  Reader& operator>>(unsigned long& value) { return read_unsigned(value); }
  Reader& operator>>(unsigned long long& value) { return read_unsigned(value); }
  [[nodiscard]] std::uint32_t read_uint() {
    return static_cast<std::uint32_t>(get_unsigned(0xffffffff));
  }

  Reader& operator>>(double& value) { return value = get_double(), *this; }

  /// Raises `ovserialize_reader_size`.
  Reader& operator>>(std::string& text) { return get_string(text), *this; }
  /// A string item, interned. A name that is interned already costs no copy.
  /// Raises `ovserialize_reader_size`.
  [[nodiscard]] virtual ovcore::StringKey read_string_key() = 0;

  /// Raises `ovserialize_reader_range`.
  Reader& operator>>(ovcore::AbsoluteTime& time) {
    return time = ovcore::AbsoluteTime::from_microseconds(get_absolute_time()), *this;
  }
  /// Raises `ovserialize_reader_range`.
  Reader& operator>>(ovcore::RelativeTime& time) {
    return time = ovcore::RelativeTime::from_microseconds(get_relative_time()), *this;
  }
  Reader& operator>>(ovcore::Uuid& uuid) { return uuid = get_uuid(), *this; }

  /// Reads a binary block; never null. Raises `ovserialize_reader_size`.
  [[nodiscard]] virtual ovcore::RefCountPtr<const MemoryList> read_memory_list_as_binary() = 0;
  /// Opens a binary block for reading piece by piece. Its `remaining` is known only when the whole
  /// block is in memory. The reader's next operation skips what was not read of the block; from
  /// then on, and once the reader is gone, the stream raises `ovserialize_reader_closed`. A block
  /// that was read to its end may go on saying so.
  /// Raises `ovserialize_reader_size`.
  [[nodiscard]] virtual ovcore::RefCountPtr<ovcore::IReadStream> read_binary_stream() = 0;

  /// Opens a sequence and returns its announced count, a mere hint: 0 says that none was given or
  /// that there are no elements. Raises `ovserialize_reader_depth`.
  virtual std::uint64_t begin_sequence() = 0;
  /// Whether a further element follows in the innermost sequence; false closes it. A sequence
  /// announced with 1 answers true once, then false, whatever was read; so one may ask twice and
  /// then read the element. Any other answers true as often as it is asked until its end is
  /// reached. Raises `ovserialize_reader_sequence` where no sequence is the innermost frame.
  virtual bool has_next_element() = 0;

  /// Raises `ovserialize_reader_depth`.
  virtual void begin_structure() = 0;
  /// Raises `ovserialize_reader_structure` where no structure is the innermost frame, and
  /// `ovserialize_reader_kind` when items of it are left.
  virtual void end_structure() = 0;

  /// Sequences and structures that are open.
  [[nodiscard]] std::size_t depth() const noexcept { return m_frames.depth(); }
  [[nodiscard]] const Limits& limits() const noexcept { return m_limits; }

 protected:
  explicit Reader(const Limits& limits) noexcept;

  virtual bool get_boolean() = 0;
  virtual std::int64_t get_integer(std::int64_t min, std::int64_t max) = 0;
  virtual std::uint64_t get_unsigned(std::uint64_t max) = 0;
  virtual double get_double() = 0;
  virtual void get_string(std::string& text) = 0;
  virtual std::int64_t get_absolute_time() = 0;
  virtual std::int64_t get_relative_time() = 0;
  virtual ovcore::Uuid get_uuid() = 0;

 private:
  friend class BinaryReader;
  friend class TextReader;
  friend impl::Window;

  template <class I>
  Reader& read_integer(I& value) {
    value =
        static_cast<I>(get_integer(std::numeric_limits<I>::min(), std::numeric_limits<I>::max()));
    return *this;
  }
  template <class U>
  Reader& read_unsigned(U& value) {
    value = static_cast<U>(get_unsigned(std::numeric_limits<U>::max()));
    return *this;
  }

  const Limits m_limits;
  FrameStack m_frames;
  // What is in memory of the binary form, from the next item on; empty for other forms.
  const unsigned char* m_cursor = nullptr;
  const unsigned char* m_end = nullptr;
  std::unique_ptr<impl::KnownNames> m_names;  // those that were read
  unsigned m_windows = 0;                     // that use them
};

}  // namespace ovserialize
