// SPDX-License-Identifier: Apache-2.0
// Where a command's data comes from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "ovcore/read_stream.h"

namespace ovattr {

/// A file, or standard input for "-". What is read shows in the progress line.
class Input final : public ovcore::IReadStream {
 public:
  /// Raises `ovcore_stream_read`, and a usage error when standard input is asked for again.
  explicit Input(const std::string& file);

  std::size_t read(void* buffer, std::size_t size) override;
  std::size_t read_some(void* buffer, std::size_t size) override;
  [[nodiscard]] std::uint64_t remaining() const override { return m_source->remaining(); }

  /// Whether nothing can be read without waiting; known of standard input only.
  [[nodiscard]] bool is_idle() const noexcept;

 private:
  const bool m_standard;
  const ovcore::RefCountPtr<ovcore::FileReadStream> m_source;
};

}  // namespace ovattr
