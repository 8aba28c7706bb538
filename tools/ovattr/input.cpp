// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/input.h"

#include <sys/stat.h>
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

Input::Input(const std::string& file) : m_file(file), m_source(open_file(file)) {
  const std::uint64_t size = m_source->remaining();
  m_may_wait = size == unknown;
  if (!m_may_wait) Progress::of_process().expect(size);
}

std::size_t Input::read(void* buffer, std::size_t size) {
  std::size_t total = 0;
  while (total < size) {
    const std::size_t got = read_some(static_cast<char*>(buffer) + total, size - total);
    if (got == 0) break;
    total += got;
  }
  return total;
}

std::size_t Input::read_some(void* buffer, std::size_t size) {
  if (m_may_wait && m_output != nullptr) {
    try {
      m_output->flush();
    } catch (...) {  // readers take all that is raised here for a failure to read
      m_output_failure = std::current_exception();
      throw;
    }
  }
  const std::size_t got = m_source->read_some(buffer, size);
  Progress::of_process().add_read(got);
  return got;
}

void Input::feed(Output& output) {
  struct stat status;
  const bool known =
      m_file == "-" ? ::fstat(STDIN_FILENO, &status) == 0 : ::stat(m_file.c_str(), &status) == 0;
  if (known) output.refuse_input(status);
  m_output = &output;
}

void Input::raise_output_failure() const {
  if (m_output_failure) std::rethrow_exception(m_output_failure);
}

}  // namespace ovattr
