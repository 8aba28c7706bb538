// SPDX-License-Identifier: Apache-2.0
// Bytes that must not be found in memory later, and comparing without telling where two differ.
#pragma once

#include <cstddef>
#include <cstring>

#include "ovcore/export.h"

namespace ovcrypto {

/// Overwrites bytes with zero, also where the compiler sees that nobody reads them again.
OV_EXPORT void wipe(void* memory, std::size_t size) noexcept;

/// Takes the same time wherever and whether the bytes differ.
[[nodiscard]] OV_EXPORT bool equal_in_constant_time(const void* a, const void* b,
                                                    std::size_t size) noexcept;

/// Wipes bytes of somebody else's at the end of its own life.
class WipeAtEnd {
 public:
  WipeAtEnd(void* memory, std::size_t size) noexcept : m_memory(memory), m_size(size) {}
  WipeAtEnd(const WipeAtEnd&) = delete;
  WipeAtEnd& operator=(const WipeAtEnd&) = delete;
  ~WipeAtEnd() { wipe(m_memory, m_size); }

 private:
  void* m_memory;
  std::size_t m_size;
};

/// A buffer for the stack that starts as zero and wipes itself at the end of its life.
template <std::size_t n>
class WipedBytes {
 public:
  WipedBytes() noexcept = default;
  WipedBytes(const WipedBytes&) = delete;
  WipedBytes& operator=(const WipedBytes&) = delete;
  ~WipedBytes() { wipe(m_bytes, n); }

  [[nodiscard]] unsigned char* data() noexcept { return m_bytes; }
  [[nodiscard]] const unsigned char* data() const noexcept { return m_bytes; }
  [[nodiscard]] static constexpr std::size_t size() noexcept { return n; }
  unsigned char& operator[](std::size_t i) noexcept { return m_bytes[i]; }
  const unsigned char& operator[](std::size_t i) const noexcept { return m_bytes[i]; }

  void assign(const unsigned char* bytes) noexcept { std::memcpy(m_bytes, bytes, n); }
  void set_zero() noexcept { std::memset(m_bytes, 0, n); }

 private:
  alignas(n % 16 == 0 ? 16 : 1) unsigned char m_bytes[n] = {};
};

}  // namespace ovcrypto
