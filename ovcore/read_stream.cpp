// SPDX-License-Identifier: Apache-2.0
#include "ovcore/read_stream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/impl/descriptor.h"

namespace ovcore {
namespace {

/// Opens what can be read as bytes; `errno` tells why when the result is -1.
int open_to_read(const std::string& path) noexcept {
  if (path.find('\0') != std::string::npos) {  // else the part before it would be opened
    errno = EINVAL;
    return -1;
  }
  int descriptor;
  do {
    descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (descriptor < 0 && errno == EINTR);
  struct stat status;
  if (descriptor >= 0 && ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
    ::close(descriptor);
    errno = EISDIR;
    return -1;
  }
  return descriptor;
}

[[noreturn]] void throw_read_failed(const char* function, SourceString reason,
                                    RefCountPtr<const ErrorInfo> cause = {}) {
  ErrorComposer("Reading failed: {@reason}")
      .add("reason", reason)
      .cause(std::move(cause))
      .throw_error(error::ovcore_stream_read, {"ovcore/read_stream", function, 0});
}

/// False at the end. Also a file that could not be opened looks empty, but has failed.
bool is_readable(const std::istream& in, const char* function) {
  if (in.eof() && !in.bad()) return false;
  if (in.fail()) throw_read_failed(function, "the stream has failed before");
  return true;
}

/// Runs `f`, which reads from `in`, and raises failures only: streams may be set to throw at the
/// end as well.
template <class F>
void run_reading(const std::istream& in, const char* function, F&& f) {
  try {
    f();
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::exception& e) {
    if (in.bad() || !in.eof()) throw_read_failed(function, e.what(), error_info_of(e));
  }
  if (in.bad()) throw_read_failed(function, "the stream is bad");
}

}  // namespace

std::size_t MemoryReadStream::read(void* buffer, std::size_t size) {
  size = std::min(size, m_left);
  if (size == 0) return 0;
  std::memcpy(buffer, m_next, size);
  m_next += size;
  m_left -= size;
  return size;
}

FileReadStream::FileReadStream(const std::string& path)
    : m_descriptor(open_to_read(path)), m_owned(true) {
  if (m_descriptor >= 0) return;
  const std::string reason = impl::system_reason(errno);
  ErrorComposer("Opening '{@path}' failed: {@reason}")
      .add("path", path)
      .add("reason", reason)
      .throw_error(error::ovcore_stream_read,
                   {"ovcore/read_stream", "ovcore::FileReadStream::FileReadStream()", 0});
}

FileReadStream::~FileReadStream() {
  if (m_owned) ::close(m_descriptor);
}

std::size_t FileReadStream::read(void* buffer, std::size_t size) {
  std::size_t total = 0;
  while (total < size) {
    const std::size_t got = read_some(static_cast<char*>(buffer) + total, size - total);
    if (got == 0) break;
    total += got;
  }
  return total;
}

std::size_t FileReadStream::read_some(void* buffer, std::size_t size) {
  if (size == 0) return 0;
  for (;;) {
    const ssize_t got = ::read(m_descriptor, buffer, size);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (impl::may_retry(m_descriptor, POLLIN)) continue;
    throw_read_failed("ovcore::FileReadStream::read_some()", impl::system_reason(errno));
  }
}

std::uint64_t FileReadStream::remaining() const {
  struct stat status;
  if (::fstat(m_descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return unknown;
  // Files that the kernel makes up, as in /proc and /sys, occupy no blocks and state any size.
  if (status.st_size == 0 || status.st_blocks == 0) return unknown;
  const off_t position = ::lseek(m_descriptor, 0, SEEK_CUR);
  if (position < 0) return unknown;
  return position < status.st_size ? static_cast<std::uint64_t>(status.st_size - position) : 0;
}

std::size_t StdReadStream::read(void* buffer, std::size_t size) {
  const char* function = "ovcore::StdReadStream::read()";
  if (size == 0 || !is_readable(*m_in, function)) return 0;
  run_reading(*m_in, function,
              [&] { m_in->read(static_cast<char*>(buffer), static_cast<std::streamsize>(size)); });
  return static_cast<std::size_t>(m_in->gcount());
}

std::size_t StdReadStream::read_some(void* buffer, std::size_t size) {
  const char* function = "ovcore::StdReadStream::read_some()";
  if (size == 0 || !is_readable(*m_in, function)) return 0;
  auto* out = static_cast<char*>(buffer);
  // Waits for one byte, then takes what has come with it.
  run_reading(*m_in, function, [&] { m_in->read(out, 1); });
  auto got = static_cast<std::size_t>(m_in->gcount());
  if (got == 0 || got == size) return got;
  run_reading(*m_in, function, [&] {
    const std::streamsize ready =
        std::min(m_in->rdbuf()->in_avail(), static_cast<std::streamsize>(size - got));
    if (ready > 0) got += static_cast<std::size_t>(m_in->rdbuf()->sgetn(out + 1, ready));
  });
  return got;
}

}  // namespace ovcore
