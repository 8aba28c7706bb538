// SPDX-License-Identifier: Apache-2.0
// The element type of Binary values: an owned block of bytes.
#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <utility>

#include "ovcore/export.h"
#include "ovcore/read_stream.h"
#include "ovcore/transfer_source.h"

namespace ovserialize {
class Reader;
class Writer;
}  // namespace ovserialize

namespace ovattribute {

/// A growable block without spare capacity: the buffer is as long as the block, save for a stream
/// that announces more bytes than it delivers. An empty block made by `clear` has no buffer.
class OV_EXPORT BinaryValue {
 public:
  /// The longest block taken from a stream that announces its length: 16 MiB.
  static constexpr std::size_t max_stream_size = 16'777'216;

  BinaryValue() noexcept = default;
  /// `size` zero bytes.
  explicit BinaryValue(std::size_t size) { resize(size); }
  BinaryValue(const unsigned char* data, std::size_t size) { set(data, size); }
  explicit BinaryValue(ovcore::IReadStream& stream) { set(stream); }
  BinaryValue(const BinaryValue& other) : BinaryValue(other.data(), other.size()) {}
  BinaryValue(BinaryValue&& other) noexcept { swap(other); }
  BinaryValue(ovcore::TransferSource<BinaryValue> other) noexcept : BinaryValue(other.take()) {}
  BinaryValue& operator=(const BinaryValue& other) {
    if (this != &other) set(other.data(), other.size());
    return *this;
  }
  BinaryValue& operator=(BinaryValue&& other) noexcept {
    BinaryValue(std::move(other)).swap(*this);
    return *this;
  }

  /// Copies `size` bytes; `data` may lie inside this block. Any size is taken.
  void set(const unsigned char* data, std::size_t size);
  /// Reads the whole stream. Raises `ovattribute_value_binary_size` when the stream announces more
  /// than `max_stream_size`; a stream of unknown length is not limited. The value is unchanged
  /// after a failure.
  void set(ovcore::IReadStream& stream);
  /// Keeps the first bytes; new ones are zero.
  void resize(std::size_t size);
  void clear() noexcept { BinaryValue().swap(*this); }
  void swap(BinaryValue& other) noexcept {
    m_data.swap(other.m_data);
    std::swap(m_size, other.m_size);
  }
  friend void swap(BinaryValue& a, BinaryValue& b) noexcept { a.swap(b); }

  [[nodiscard]] unsigned char* data() noexcept { return m_data.get(); }
  [[nodiscard]] const unsigned char* data() const noexcept { return m_data.get(); }
  [[nodiscard]] std::size_t size() const noexcept { return m_size; }
  [[nodiscard]] bool empty() const noexcept { return m_size == 0; }

  /// By unsigned bytes; a prefix sorts first.
  [[nodiscard]] int compare(const BinaryValue& other) const noexcept;
  /// h = h * 5 + byte on 32 bits.
  [[nodiscard]] std::size_t hash() const noexcept;

  friend bool operator==(const BinaryValue& a, const BinaryValue& b) noexcept {
    return a.m_size == b.m_size && a.compare(b) == 0;
  }
  friend bool operator<(const BinaryValue& a, const BinaryValue& b) noexcept {
    return a.compare(b) < 0;
  }
  friend bool operator<=(const BinaryValue& a, const BinaryValue& b) noexcept {
    return a.compare(b) <= 0;
  }
  friend bool operator>(const BinaryValue& a, const BinaryValue& b) noexcept {
    return a.compare(b) > 0;
  }
  friend bool operator>=(const BinaryValue& a, const BinaryValue& b) noexcept {
    return a.compare(b) >= 0;
  }

 private:
  void set_from_unknown_length(ovcore::IReadStream& stream);

  std::unique_ptr<unsigned char[]> m_data;
  std::size_t m_size = 0;
};

/// As one binary block. The value is unchanged when it cannot be read.
OV_EXPORT void write_binary_value(ovserialize::Writer& writer, const BinaryValue& value);
OV_EXPORT void read_binary_value(ovserialize::Reader& reader, BinaryValue& value);

/// What GoogleTest prints in its messages, as for a value of one such element.
OV_EXPORT void PrintTo(const BinaryValue& value, std::ostream* out);

}  // namespace ovattribute
