// SPDX-License-Identifier: Apache-2.0
#include "ovcore/operating_system.h"

#include <sys/random.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "ovcore/error_codes.h"
#include "ovcore/exception.h"

namespace ovcore {

void fill_random(void* buffer, std::size_t size) {
  auto* out = static_cast<unsigned char*>(buffer);
  while (size > 0) {
    const ssize_t got = ::getrandom(out, size, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      throw_error(error::ovcore_random, "The system's random source failed",
                  {"ovcore/operating_system", "ovcore::fill_random()", 0});
    }
    out += got;
    size -= static_cast<std::size_t>(got);
  }
}

void cleanse(void* memory, std::size_t size) noexcept {
  ::explicit_bzero(memory, size);
}

void debug_break() noexcept {
  // Where the signal is ignored or blocked, which a process may have from its parent, it would pass
  // unnoticed.
  struct sigaction action {};
  if (::sigaction(SIGTRAP, nullptr, &action) == 0 && action.sa_handler == SIG_IGN) {
    ::signal(SIGTRAP, SIG_DFL);
  }
  sigset_t trap;
  sigemptyset(&trap);
  sigaddset(&trap, SIGTRAP);
  ::pthread_sigmask(SIG_UNBLOCK, &trap, nullptr);
  ::raise(SIGTRAP);
}

bool has_environment_variable(const char* name) noexcept {
  return std::getenv(name) != nullptr;
}

}  // namespace ovcore
