// SPDX-License-Identifier: Apache-2.0
#include "ovcore/write_stream.h"

#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <new>
#include <utility>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/impl/descriptor.h"

namespace ovcore {
namespace {

/// A closed pipe sends SIGPIPE to the writing thread, which would end the process: it is held back
/// and taken away, unless one was already waiting.
ssize_t write_to_pipe(int descriptor, const void* data, std::size_t size) noexcept {
  sigset_t pipe_signal;
  sigset_t old_mask;
  sigset_t pending;
  sigemptyset(&pipe_signal);
  sigaddset(&pipe_signal, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_signal, &old_mask);
  sigpending(&pending);
  const ssize_t written = ::write(descriptor, data, size);
  const int failure = errno;
  // Who leaves while a large block passes sends the signal with the number of bytes that did.
  if (written != static_cast<ssize_t>(size) && sigismember(&pending, SIGPIPE) == 0) {
    const timespec no_wait{};
    while (sigtimedwait(&pipe_signal, nullptr, &no_wait) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &old_mask, nullptr);
  errno = failure;
  return written;
}

ssize_t write_some(int descriptor, mode_t type, const void* data, std::size_t size) noexcept {
  if (type == S_IFSOCK) return ::send(descriptor, data, size, MSG_NOSIGNAL);
  if (type == S_IFIFO) return write_to_pipe(descriptor, data, size);
  return ::write(descriptor, data, size);
}

[[noreturn]] void throw_write_failed(const char* function, SourceString reason,
                                     RefCountPtr<const ErrorInfo> cause = {}) {
  ErrorComposer("Writing failed: {@reason}")
      .add("reason", reason)
      .cause(std::move(cause))
      .throw_error(error::ovcore_stream_write, {"ovcore/write_stream", function, 0});
}

}  // namespace

void StringWriteStream::write(const void* data, std::size_t size) {
  m_target->append(static_cast<const char*>(data), size);
}

void FileWriteStream::write(const void* data, std::size_t size) {
  if (size == 0) return;
  struct stat status;
  const mode_t type = ::fstat(m_descriptor, &status) == 0 ? status.st_mode & S_IFMT : 0;
  const auto* next = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t written = write_some(m_descriptor, type, next, size);
    if (written < 0 && impl::may_retry(m_descriptor, POLLOUT)) continue;
    if (written <= 0) {
      throw_write_failed("ovcore::FileWriteStream::write()",
                         impl::system_reason(written < 0 ? errno : EIO));
    }
    next += written;
    size -= static_cast<std::size_t>(written);
  }
}

void StdWriteStream::write(const void* data, std::size_t size) {
  const char* function = "ovcore::StdWriteStream::write()";
  if (size == 0) return;
  if (!*m_out) throw_write_failed(function, "the stream has failed before");
  try {
    m_out->write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    throw_write_failed(function, e.what(), error_info_of(e));
  }
  if (!*m_out) throw_write_failed(function, "the stream is bad");
}

}  // namespace ovcore
