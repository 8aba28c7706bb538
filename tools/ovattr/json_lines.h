// SPDX-License-Identifier: Apache-2.0
// JSON Lines: one value a line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ovcore/read_stream.h"
#include "ovjson/position.h"

namespace ovattr {

/// Gives out its source line by line: reading ends with each line, until `next_line`.
class LineStream final : public ovcore::IReadStream {
 public:
  explicit LineStream(ovcore::RefCountPtr<ovcore::IReadStream> source);

  /// Goes to the next line that holds anything but white space, and to the first byte there; false
  /// when there is none.
  bool next_line();
  /// Where `next_line` has gone to.
  [[nodiscard]] const ovjson::Position& start() const noexcept { return m_start; }

  std::size_t read(void* buffer, std::size_t size) override;
  std::size_t read_some(void* buffer, std::size_t size) override;
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  std::string_view take_run(std::size_t size);
  void start_line() noexcept;
  bool fill();

  const ovcore::RefCountPtr<ovcore::IReadStream> m_source;
  std::string m_buffer;
  std::size_t m_next = 0;
  std::size_t m_end = 0;
  bool m_in_line = false;
  ovjson::Position m_position;  // of `m_next`; inside a line without its `line_pos`
  ovjson::Position m_start;
};

}  // namespace ovattr
