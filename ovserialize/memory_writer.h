// SPDX-License-Identifier: Apache-2.0
// Writing the binary form into memory.
#pragma once

#include "ovserialize/binary_writer.h"

namespace ovserialize {

/// Writes into a memory list. Allocates with each segment, not with each item; nothing before the
/// first item.
class OV_EXPORT MemoryWriter final : public BinaryWriter {
 public:
  explicit MemoryWriter(const MemoryListOptions& options = {}, const Limits& limits = {}) noexcept
      : BinaryWriter(limits), m_options(options) {}

  /// The bytes written so far, never null; the writer may go on. Small lists are copied to exactly
  /// their size, large ones shared.
  /// Raises `ovserialize_writer_sequence` or `ovserialize_writer_structure` while one is open.
  [[nodiscard]] ovcore::RefCountPtr<const MemoryList> memory_list() const;
  /// The list itself, never null, with whatever room is left in it; the writer starts anew.
  /// Raises as `memory_list`.
  [[nodiscard]] ovcore::RefCountPtr<MemoryList> detach();

 private:
  void write_slow(Bytes head, Bytes body) override;
  void write_list(Bytes head, const MemoryList& list) override;
  template <class Append>
  void append(Bytes head, Append&& append_body);
  void rewind(std::uint64_t offset) noexcept override;
  void set_room() noexcept;
  // Makes what stands in the window part of the list.
  void sync() const noexcept;

  const MemoryListOptions m_options;
  ovcore::RefCountPtr<MemoryList> m_list;  // null before the first item
};

}  // namespace ovserialize
