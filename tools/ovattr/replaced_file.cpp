// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/replaced_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "ovcore/write_stream.h"

namespace ovattr {
namespace {

constexpr mode_t permissions = 0777;

mode_t users_mask() noexcept {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

/// Whether a signal ends the program, unless the program says otherwise.
bool ends_program(int signal) noexcept {
  switch (signal) {
    case SIGKILL:
    case SIGSTOP:
    case SIGTSTP:
    case SIGTTIN:
    case SIGTTOU:
    case SIGCONT:
    case SIGCHLD:
    case SIGURG:
    case SIGWINCH:
      return false;
    default:
      return true;
  }
}

template <class F>
void for_each_ending_signal(F&& f) {
  for (int signal = 1; signal <= SIGRTMAX; ++signal) {
    if (ends_program(signal)) f(signal);
  }
}

// The file to remove when a signal ends the program; empty for none.
char temporary_file[4096];

extern "C" void remove_temporary(int signal) {
  if (temporary_file[0] != '\0') ::unlink(temporary_file);
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

/// Signals that are ignored, or that somebody else handles, stay so.
void remove_when_interrupted(const std::string& file) {
  if (file.size() >= sizeof temporary_file) return;
  std::strcpy(temporary_file, file.c_str());
  for_each_ending_signal([](int signal) {
    struct sigaction action;
    if (::sigaction(signal, nullptr, &action) != 0 || action.sa_handler != SIG_DFL) return;
    ::signal(signal, remove_temporary);
  });
}

/// Not all file systems can.
void sync(int descriptor) {
  if (::fsync(descriptor) != 0 && errno != EINVAL && errno != ENOSYS) fail_writing(errno);
}

/// Makes room for `size` bytes before the first of the old ones is lost. Not all file systems can.
void reserve(int descriptor, off_t old_size, off_t size) {
  if (size == 0 || ::fallocate(descriptor, 0, 0, size) == 0) return;
  const int reason = errno;
  if (reason == EOPNOTSUPP || reason == ENOSYS) return;
  static_cast<void>(::ftruncate(descriptor, old_size));  // some of it may be there
  fail_writing(reason);
}

/// A file without a name, where temporary files are kept.
int open_nameless() {
  std::FILE* const file = std::tmpfile();
  if (file == nullptr) return -1;
  const int descriptor = ::fcntl(::fileno(file), F_DUPFD_CLOEXEC, 0);
  std::fclose(file);
  return descriptor;
}

}  // namespace

void fail_writing(int error) {
  ovcore::ErrorComposer("Writing failed: {@reason}")
      .add("reason", std::generic_category().message(error))
      .throw_error(ovcore::error::ovcore_stream_write,
                   {"tools/ovattr/output", "ovattr::Output()", 0});
}

std::string folder_of(const std::string& file) {
  return file.substr(0, file.rfind('/') + 1);
}

SignalsHeld::SignalsHeld() noexcept {
  sigset_t held;
  ::sigemptyset(&held);
  for_each_ending_signal([&held](int signal) { ::sigaddset(&held, signal); });
  ::pthread_sigmask(SIG_BLOCK, &held, &m_former);
}

SignalsHeld::~SignalsHeld() {
  ::pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
}

ReplacedFile::ReplacedFile(std::string file, mode_t mode)
    : m_file(std::move(file)), m_mode(mode & ~users_mask()) {
  open_aside();
  if (m_descriptor < 0) fail_writing(errno);
}

ReplacedFile::~ReplacedFile() {
  ::close(m_descriptor);
  if (m_temporary.empty()) return;
  const SignalsHeld held;
  ::unlink(m_temporary.c_str());
  temporary_file[0] = '\0';
}

void ReplacedFile::open_aside() {
  m_temporary = folder_of(m_file) + ".ovattr-XXXXXX";  // any name of a file leaves room for it
  const SignalsHeld held;
  m_descriptor = ::mkostemp(m_temporary.data(), O_CLOEXEC);
  if (m_descriptor >= 0) return remove_when_interrupted(m_temporary);
  m_temporary.clear();
  const int reason = errno;
  const bool folder_refuses = reason == EACCES || reason == EPERM || reason == EROFS;
  if (folder_refuses && ::access(m_file.c_str(), W_OK) == 0) m_descriptor = open_nameless();
  errno = reason;
}

void ReplacedFile::commit() {
  sync(m_descriptor);
  if (m_temporary.empty()) return overwrite();
  take_rights();
  replace();
}

void ReplacedFile::take_rights() const {
  mode_t mode = m_mode;
  struct stat old;
  if (::stat(m_file.c_str(), &old) == 0) {
    mode = old.st_mode & permissions;
    constexpr auto same = static_cast<uid_t>(-1);
    const bool group_kept = ::fchown(m_descriptor, old.st_uid, old.st_gid) == 0 ||
                            ::fchown(m_descriptor, same, old.st_gid) == 0;
    // Another group may do no more than everybody.
    if (!group_kept) mode &= ~(S_IRWXG & ~(mode << 3));
  }
  if (::fchmod(m_descriptor, mode) != 0) fail_writing(errno);
}

void ReplacedFile::replace() {
  const SignalsHeld held;
  if (std::rename(m_temporary.c_str(), m_file.c_str()) == 0) {
    m_temporary.clear();
    temporary_file[0] = '\0';
    return;
  }
  if (errno != EBUSY) fail_writing(errno);
  overwrite();
}

void ReplacedFile::overwrite() const {
  const SignalsHeld held;
  const int target = ::open(m_file.c_str(), O_WRONLY | O_CLOEXEC);
  if (target < 0) fail_writing(errno);
  const struct Closer {
    ~Closer() { ::close(descriptor); }
    const int descriptor;
  } closer{target};
  struct stat written;
  struct stat status;
  if (::fstat(m_descriptor, &written) != 0 || ::fstat(target, &status) != 0) fail_writing(errno);
  reserve(target, status.st_size, written.st_size);
  if ((status.st_mode & ~(S_IFMT | permissions)) != 0) {
    ::fchmod(target, status.st_mode & permissions);
  }
  const auto out = ovcore::make_ref_counted<ovcore::FileWriteStream>(target);
  char block[65536];
  for (off_t done = 0;;) {
    const ssize_t size = ::pread(m_descriptor, block, sizeof block, done);
    if (size < 0) fail_writing(errno);
    if (size == 0) break;
    out->write(block, static_cast<std::size_t>(size));
    done += size;
  }
  if (::ftruncate(target, written.st_size) != 0) fail_writing(errno);
  sync(target);
}

}  // namespace ovattr
