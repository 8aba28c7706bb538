// SPDX-License-Identifier: Apache-2.0
// Key material: bytes that must not linger in memory and must not be printed.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <span>
#include <utility>

#include "ovcore/export.h"
#include "ovcore/read_stream.h"

namespace ovcrypto {

/// Owns the bytes of a key, in a buffer of exactly their size that is overwritten before its memory
/// is given back: on destruction, on `clear`, when the size changes and when an operation fails.
/// Moving hands the buffer over, so that no second copy comes into being; a copy is asked for with
/// `clone`. A key has no printed form and no order.
///
/// Constructors, `random`, `resize` and `read` raise `ovcrypto_key_size` for a key larger than
/// `max_size` and leave the key as it was on any failure.
class OV_EXPORT Key {
 public:
  /// 16 MiB: the longest binary block.
  static constexpr std::size_t max_size = 16'777'216;

  Key() noexcept = default;
  /// `size` zero bytes, to be filled in place through `data`.
  explicit Key(std::size_t size);
  /// Copies the bytes, which stay the caller's to wipe.
  Key(const void* data, std::size_t size);
  Key(const Key&) = delete;
  Key& operator=(const Key&) = delete;
  Key(Key&& other) noexcept { swap(other); }
  Key& operator=(Key&& other) noexcept {
    Key(std::move(other)).swap(*this);
    return *this;
  }
  ~Key();

  /// A new key of `size` bytes of libcrypto's generator for secrets, which gives out nothing else.
  /// Raises also `ovcrypto_randomProvider_failed`.
  [[nodiscard]] static Key random(std::size_t size);
  [[nodiscard]] Key clone() const { return Key(m_data, m_size); }

  [[nodiscard]] const unsigned char* data() const noexcept { return m_data; }
  [[nodiscard]] std::size_t size() const noexcept { return m_size; }
  [[nodiscard]] bool empty() const noexcept { return m_size == 0; }
  [[nodiscard]] std::span<const unsigned char> bytes() const noexcept { return {m_data, m_size}; }
  /// In constant time for keys of one size.
  friend bool operator==(const Key& a, const Key& b) noexcept { return a.equals(b); }

  [[nodiscard]] unsigned char* data() noexcept { return m_data; }
  /// Keeps the first bytes; new ones are zero.
  void resize(std::size_t size);
  /// Reads the whole stream straight into the key.
  void read(ovcore::IReadStream& stream);
  void clear() noexcept { Key().swap(*this); }
  void swap(Key& other) noexcept {
    std::swap(m_data, other.m_data);
    std::swap(m_size, other.m_size);
  }
  friend void swap(Key& a, Key& b) noexcept { a.swap(b); }

 private:
  [[nodiscard]] bool equals(const Key& other) const noexcept;
  void reallocate(std::size_t size);

  unsigned char* m_data = nullptr;  // null when empty
  std::size_t m_size = 0;
};

/// Keys are never printed.
std::ostream& operator<<(std::ostream&, const Key&) = delete;

}  // namespace ovcrypto
