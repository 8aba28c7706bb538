// SPDX-License-Identifier: Apache-2.0
// Where the text form of an item stream goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/write_stream.h"

namespace ovserialize {

/// Takes text from one writer, by one thread. A target that fails raises its own error; it took
/// nothing then, or takes nothing back any more.
class OV_EXPORT ITextTarget {
 public:
  virtual void put(char character) = 0;
  virtual void write(const char* text, std::size_t size) = 0;
  /// Drops the last `size` characters, or changes nothing and gives false where that cannot be.
  [[nodiscard]] virtual bool take_back(std::uint64_t size) noexcept;

 protected:
  ~ITextTarget() = default;
};

/// Appends to a string, which must outlive this object.
class OV_EXPORT StringTextTarget final : public ITextTarget {
 public:
  explicit StringTextTarget(std::string& text) noexcept : m_text(&text) {}

  void put(char character) override { m_text->push_back(character); }
  void write(const char* text, std::size_t size) override { m_text->append(text, size); }
  [[nodiscard]] bool take_back(std::uint64_t size) noexcept override;

 private:
  std::string* m_text;
};

/// Passes text on to a stream, through a buffer. What was not flushed is lost with this object.
/// Once the stream has failed, what would pass on more raises `ovserialize_writer_closed`.
class OV_EXPORT StreamTextTarget final : public ITextTarget {
 public:
  /// Keeps a reference to `stream`, which must outlive this object if it is not on the heap.
  explicit StreamTextTarget(ovcore::IWriteStream& stream) noexcept : m_stream(&stream) {}

  void put(char character) override;
  void write(const char* text, std::size_t size) override;
  [[nodiscard]] bool take_back(std::uint64_t size) noexcept override;
  void flush();

 private:
  void pass_on(const char* text, std::size_t size);

  static constexpr std::size_t buffer_size = 4096;

  const ovcore::RefCountPtr<ovcore::IWriteStream> m_stream;
  std::size_t m_used = 0;
  bool m_failed = false;
  char m_buffer[buffer_size];
};

}  // namespace ovserialize
