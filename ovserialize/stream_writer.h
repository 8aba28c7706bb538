// SPDX-License-Identifier: Apache-2.0
// Writing the binary form to a stream.
#pragma once

#include <memory>

#include "ovcore/write_stream.h"
#include "ovserialize/binary_writer.h"

namespace ovserialize {

/// Collects what is written in a buffer and passes it on when that is full, or on `flush`. What was
/// not flushed is lost with the writer. A target that fails raises its own error. A value that
/// fails is taken back as long as all of it is in the buffer.
class OV_EXPORT StreamWriter final : public BinaryWriter {
 public:
  /// Keeps a reference to `target`, which must outlive the writer if it is not on the heap.
  explicit StreamWriter(ovcore::IWriteStream& target, const Limits& limits = {},
                        std::size_t buffer_size = 16384);

  /// Passes everything on.
  void flush();

 private:
  void write_slow(Bytes head, Bytes body) override;
  void write_list(Bytes head, const MemoryList& list) override;
  void rewind(std::uint64_t offset) noexcept override;
  void put(Bytes bytes);
  void pass_on(Bytes bytes);
  void refuse(const char* why) noexcept;

  const ovcore::RefCountPtr<ovcore::IWriteStream> m_target;
  const std::size_t m_buffer_size;
  const std::unique_ptr<unsigned char[]> m_buffer;
  const char* m_refusal = nullptr;  // why nothing more can be written
};

}  // namespace ovserialize
