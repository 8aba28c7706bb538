// SPDX-License-Identifier: Apache-2.0
// Reading the binary form from memory.
#pragma once

#include <span>

#include "ovserialize/binary_reader.h"

namespace ovserialize {

/// Reads a memory list, which it shares, or bytes of the caller's, which must outlive it.
class OV_EXPORT MemoryReader final : public BinaryReader {
 public:
  /// `list` may be null: nothing to read.
  explicit MemoryReader(ovcore::RefCountPtr<const MemoryList> list,
                        const Limits& limits = {}) noexcept;
  MemoryReader(const void* data, std::size_t size, const Limits& limits = {}) noexcept;
  ~MemoryReader() override;

  /// All the bytes that this reader reads, whatever it has read of them; never null. Shared, or a
  /// copy of the caller's bytes.
  [[nodiscard]] ovcore::RefCountPtr<const MemoryList> memory_list() const;

 private:
  static constexpr std::size_t edge_size = 32;

  bool fill(std::size_t size) override;
  ovcore::RefCountPtr<const MemoryList> take_list(std::size_t size) override;
  [[nodiscard]] std::uint64_t available() const noexcept override { return in_window() + m_beyond; }
  std::span<const unsigned char> next_run() noexcept;

  const ovcore::RefCountPtr<const MemoryList> m_list;
  const std::span<const unsigned char> m_data;  // without a list
  std::span<const unsigned char> m_rest;        // of the run whose first bytes are in the edge
  std::size_t m_next = 0;                       // index of the next run
  std::size_t m_beyond;                         // bytes behind the window
  unsigned char m_edge[edge_size];              // a head that lies across runs
};

}  // namespace ovserialize
