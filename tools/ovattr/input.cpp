// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/input.h"

#include <poll.h>
#include <unistd.h>

#include <utility>

#include "tools/ovattr/command.h"
#include "tools/ovattr/progress.h"

namespace ovattr {
namespace {

ovcore::RefCountPtr<ovcore::FileReadStream> open_file(const std::string& file) {
  if (file == "-") {
    static bool taken = false;
    if (std::exchange(taken, true)) throw UsageError("Standard input can be read only once");
    return ovcore::make_ref_counted<ovcore::FileReadStream>(STDIN_FILENO);
  }
  return ovcore::make_ref_counted<ovcore::FileReadStream>(file);
}

}  // namespace

Input::Input(const std::string& file) : m_standard(file == "-"), m_source(open_file(file)) {
  const std::uint64_t size = m_source->remaining();
  if (size != unknown) Progress::of_process().expect(size);
}

std::size_t Input::read(void* buffer, std::size_t size) {
  const std::size_t got = m_source->read(buffer, size);
  Progress::of_process().add_read(got);
  return got;
}

std::size_t Input::read_some(void* buffer, std::size_t size) {
  const std::size_t got = m_source->read_some(buffer, size);
  Progress::of_process().add_read(got);
  return got;
}

bool Input::is_idle() const noexcept {
  if (!m_standard) return false;
  pollfd wait = {STDIN_FILENO, POLLIN, 0};
  return ::poll(&wait, 1, 0) == 0;
}

}  // namespace ovattr
