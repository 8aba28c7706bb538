// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/progress.h"

#include <unistd.h>

#include <cstdio>
#include <string>

namespace ovattr {
namespace {

std::string megabytes(std::uint64_t bytes) {
  return std::to_string(bytes / 1'000'000) + '.' + std::to_string(bytes / 100'000 % 10) + " MB";
}

}  // namespace

Progress& Progress::of_process() {
  static Progress progress;
  return progress;
}

Progress::Progress()
    : m_enabled(::isatty(STDERR_FILENO) != 0), m_next(Clock::now() + std::chrono::seconds(1)) {}

void Progress::add_read(std::uint64_t size) {
  m_read += size;
  if (m_enabled) update();
}

void Progress::add_written(std::uint64_t size) {
  m_written += size;
  if (m_enabled) update();
}

void Progress::stop() {
  if (m_shown) std::fputs("\r\33[K", stderr);
  m_shown = m_enabled = false;
}

void Progress::update() {
  const Clock::time_point now = Clock::now();
  if (now < m_next) return;
  m_next = now + std::chrono::milliseconds(200);
  m_shown = true;
  std::string line = "read " + megabytes(m_read);
  if (m_read <= m_expected) line += " of " + megabytes(m_expected);
  if (m_written != 0) line += ", wrote " + megabytes(m_written);
  std::fprintf(stderr, "\rovattr: %s\33[K", line.c_str());
}

}  // namespace ovattr
