// SPDX-License-Identifier: Apache-2.0
// The decoder of the binary form, common to `MemoryReader` and `StreamReader`.
#pragma once

#include <string>

#include "ovserialize/reader.h"

namespace ovserialize {

/// Decodes from a window of memory that its derived class provides and replaces when it is used
/// up; only then is there a virtual call beyond the one per item.
class OV_EXPORT BinaryReader : public Reader {
 public:
  ~BinaryReader() override;

  [[nodiscard]] int item_kind() final;
  [[nodiscard]] bool at_end() final;
  [[nodiscard]] std::uint64_t offset() const noexcept final { return position() + m_block_left; }

  void read_null() final;
  [[nodiscard]] ovcore::StringKey read_string_key() final;
  [[nodiscard]] ovcore::RefCountPtr<const MemoryList> read_memory_list_as_binary() final;
  [[nodiscard]] ovcore::RefCountPtr<ovcore::IReadStream> read_binary_stream() final;
  std::uint64_t begin_sequence() final;
  bool has_next_element() final;
  void begin_structure() final;
  void end_structure() final;

 protected:
  explicit BinaryReader(const Limits& limits) noexcept;

  /// Makes the next `size` bytes, 32 at most, stand in the window, which has fewer, and keeps
  /// those. Waits for no byte beyond. False when the data ends before; what is left is in the
  /// window then.
  virtual bool fill(std::size_t size) = 0;
  /// Copies up to `size` of the next bytes, at least one unless the data ends; the window is empty.
  virtual std::size_t take(void* target, std::size_t size);
  /// The next bytes as a list of their own.
  virtual ovcore::RefCountPtr<const MemoryList> take_list(std::size_t size);
  /// Bytes that are in memory from the cursor on, inside and behind the window.
  [[nodiscard]] virtual std::uint64_t available() const noexcept = 0;

  void set_window(const unsigned char* begin, std::size_t size, std::uint64_t offset) noexcept {
    m_window = m_cursor = begin;
    m_end = begin + size;
    m_window_offset = offset;
  }
  [[nodiscard]] const unsigned char* cursor() const noexcept { return m_cursor; }
  [[nodiscard]] std::size_t in_window() const noexcept {
    return static_cast<std::size_t>(m_end - m_cursor);
  }
  [[nodiscard]] std::uint64_t position() const noexcept {
    return m_window_offset + static_cast<std::size_t>(m_cursor - m_window);
  }
  void skip(std::uint64_t size);
  void read_bytes(void* target, std::size_t size);

  bool get_boolean() final;
  std::int64_t get_integer(std::int64_t min, std::int64_t max) final;
  std::uint64_t get_unsigned(std::uint64_t max) final;
  double get_double() final;
  void get_string(std::string& text) final;
  std::int64_t get_absolute_time() final;
  std::int64_t get_relative_time() final;
  ovcore::Uuid get_uuid() final;

 private:
  class BlockStream;

  struct Head {
    unsigned char initial;
    std::uint8_t size;  // bytes
    std::uint64_t argument;
    [[nodiscard]] unsigned major() const noexcept;
  };

  // True when the next `size` bytes stand in the window.
  bool has(std::size_t size) { return in_window() >= size || more(size); }
  bool more(std::size_t size);
  int kind_of_more(int kind);
  Head peek_head(std::size_t skipped = 0);
  Head read_head();
  std::uint64_t read_head_of(unsigned major, const char* reason);
  bool skip_tag(std::uint64_t tag);
  std::int64_t read_time(std::uint64_t tag, int kind);
  std::int64_t integer_of(const Head& head, std::uint64_t at) const;
  std::size_t block_head();
  std::string read_other_string();
  std::string gather(std::size_t size);
  void open(Frame frame);

  std::size_t read_piece(void* target, std::size_t size);
  std::size_t read_block(void* target, std::size_t size, bool all);
  void hide_window() noexcept;
  void finish_block();
  void detach_block() noexcept;

  [[noreturn]] void throw_truncated() const;
  [[noreturn]] void throw_malformed(const char* reason, std::uint64_t at) const;
  [[noreturn]] void throw_range(int kind, std::uint64_t at) const;
  [[noreturn]] void throw_other(const char* expected);

  const unsigned char* m_window = nullptr;
  std::uint64_t m_window_offset = 0;  // of the window's first byte
  // While a block is being read through its stream, the window ends at the cursor, so that
  // whatever comes next ends up in `more`.
  ovcore::RefCountPtr<BlockStream> m_block;
  std::uint64_t m_block_left = 0;
  const unsigned char* m_hidden_end = nullptr;
};

}  // namespace ovserialize
