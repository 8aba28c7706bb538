// SPDX-License-Identifier: Apache-2.0
// Reading the binary form from a stream.
#pragma once

#include <memory>

#include "ovserialize/binary_reader.h"

namespace ovserialize {

/// Reads through a buffer, which takes in what the source has ready: bytes behind the last item
/// may be in it. An item is handed out as soon as its last byte is there. Memory is bounded by the
/// buffer and what has arrived of the item that is being read. A source that fails raises its own
/// error.
class OV_EXPORT StreamReader final : public BinaryReader {
 public:
  /// Keeps a reference to `source`, which must outlive the reader if it is not on the heap.
  explicit StreamReader(ovcore::IReadStream& source, const Limits& limits = {},
                        std::size_t buffer_size = 16384);

 private:
  bool fill(std::size_t size) override;
  std::size_t take(void* target, std::size_t size) override;
  [[nodiscard]] std::uint64_t available() const noexcept override { return in_window(); }

  const ovcore::RefCountPtr<ovcore::IReadStream> m_source;
  const std::size_t m_buffer_size;
  const std::unique_ptr<unsigned char[]> m_buffer;
  bool m_ended = false;
};

}  // namespace ovserialize
