// SPDX-License-Identifier: Apache-2.0
// How far long work has come, for who watches a terminal.
#pragma once

#include <chrono>
#include <cstdint>

namespace ovattr {

/// A line on standard error that is written over and over, beginning after a second. Nothing is
/// shown when standard error is no terminal.
class Progress {
 public:
  /// The only one, since there is one terminal. Used by one thread.
  static Progress& of_process();

  /// Bytes that will be read, as far as this is known.
  void expect(std::uint64_t size) noexcept { m_expected += size; }
  void add_read(std::uint64_t size);
  void add_written(std::uint64_t size);
  /// Erases the line, for good: something else is written to the terminal.
  void stop();

 private:
  using Clock = std::chrono::steady_clock;

  Progress();
  void update();

  bool m_enabled;
  bool m_shown = false;
  std::uint64_t m_expected = 0;
  std::uint64_t m_read = 0;
  std::uint64_t m_written = 0;
  Clock::time_point m_next;  // when the line is due again
};

}  // namespace ovattr
