// SPDX-License-Identifier: Apache-2.0
// The encoder of the binary form, common to `MemoryWriter` and `StreamWriter`.
#pragma once

#include "ovserialize/frame_stack.h"
#include "ovserialize/writer.h"

namespace ovserialize {

/// Encodes straight into a window of memory that its derived class provides and replaces when it
/// is full; only then is there a virtual call beyond the one per item.
class OV_EXPORT BinaryWriter : public Writer {
 public:
  void write_null() final;
  void begin_sequence(std::uint64_t count) final;
  void next_element() final;
  void end_sequence() final;
  void begin_structure() final;
  void end_structure() final;

  /// Bytes written so far.
  [[nodiscard]] std::uint64_t size() const noexcept {
    return m_window_offset + static_cast<std::size_t>(m_cursor - m_window);
  }
  /// Sequences and structures that are open.
  [[nodiscard]] std::size_t depth() const noexcept { return m_frames.depth(); }

 protected:
  struct Bytes {
    const unsigned char* data;
    std::size_t size;
  };

  explicit BinaryWriter(const Limits& limits) noexcept : Writer(limits) {}

  /// Writes head and body where the window has no room for them, and sets up the window anew.
  /// All or nothing.
  virtual void write_slow(Bytes head, Bytes body) = 0;
  /// As `write_slow`, with the bytes of a list for a body.
  virtual void write_list(Bytes head, const MemoryList& list) = 0;
  /// Drops all bytes from `offset` on, or refuses all that follows.
  virtual void rewind(std::uint64_t offset) noexcept = 0;

  void set_window(unsigned char* begin, unsigned char* end, std::uint64_t offset) noexcept {
    m_window = m_cursor = begin;
    m_end = end;
    m_window_offset = offset;
  }
  /// Copies the bytes into the window; false when it has no room for them.
  [[nodiscard]] bool put_in_window(Bytes bytes) noexcept;
  /// The same, where these bytes are still in the window; else false.
  [[nodiscard]] bool rewind_window(std::uint64_t offset) noexcept;
  /// Bytes in the window.
  [[nodiscard]] Bytes pending() const noexcept {
    return {m_window, static_cast<std::size_t>(m_cursor - m_window)};
  }
  /// Raises `ovserialize_writer_sequence` or `ovserialize_writer_structure` while one is open.
  void check_complete() const;
  void reset_frames() noexcept { m_frames.clear(); }

  void put_boolean(bool value) final;
  void put_integer(std::int64_t value) final;
  void put_unsigned(std::uint64_t value) final;
  void put_double(double value) final;
  void put_string(std::string_view text) final;
  void put_absolute_time(std::int64_t microseconds) final;
  void put_relative_time(std::int64_t microseconds) final;
  void put_uuid(const ovcore::Uuid& uuid) final;
  void put_binary(const void* data, std::size_t size) final;
  void put_memory_list(const MemoryList* list) final;

 private:
  [[nodiscard]] std::size_t room() const noexcept {
    return static_cast<std::size_t>(m_end - m_cursor);
  }
  template <class Store>
  void emit(Store&& store);
  void emit_byte(unsigned char byte);
  void emit_block(Bytes head, Bytes body);
  void put_time(std::uint64_t tag, std::int64_t microseconds);
  void open(Frame frame);
  [[nodiscard]] Mark mark() const noexcept final;
  void roll_back(const Mark& mark) noexcept final;

  unsigned char* m_cursor = nullptr;
  unsigned char* m_end = nullptr;
  unsigned char* m_window = nullptr;
  std::uint64_t m_window_offset = 0;  // of the window's first byte
  // Where the element of the latest sequence of one begins. Enough to know whether the innermost
  // one is empty: one that holds a further one is not.
  std::uint64_t m_single_start = 0;
  FrameStack m_frames;
};

}  // namespace ovserialize
