// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <system_error>
#include <utility>

#include "ovcore/error_codes.h"
#include "ovcore/error_composer.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/progress.h"

namespace ovattr {
namespace {

[[noreturn]] void fail_writing(int error) {
  ovcore::ErrorComposer("Writing failed: {@reason}")
      .add("reason", std::generic_category().message(error))
      .throw_error(ovcore::error::ovcore_stream_write,
                   {"tools/ovattr/output", "ovattr::Output()", 0});
}

/// What a new file may be done with: as an old one, else as asked for, less the user's mask.
mode_t mode_of(const std::string& file, mode_t new_file_mode) {
  struct stat old;
  if (::stat(file.c_str(), &old) == 0) return old.st_mode & 07777;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return new_file_mode & ~mask;
}

bool is_special(const std::string& file) {
  struct stat old;
  return ::stat(file.c_str(), &old) == 0 && !S_ISREG(old.st_mode);
}

/// As /dev/stdout is, and its like.
bool is_standard_output(const std::string& file) {
  struct stat named;
  struct stat open;
  return ::stat(file.c_str(), &named) == 0 && ::fstat(STDOUT_FILENO, &open) == 0 &&
         named.st_dev == open.st_dev && named.st_ino == open.st_ino;
}

/// The file that a link leads to, so that the link stays what it is.
std::string behind_links(const std::string& file) {
  struct stat link;
  if (::lstat(file.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) return file;
  const std::unique_ptr<char, decltype(&std::free)> target(::realpath(file.c_str(), nullptr),
                                                           &std::free);
  if (!target) fail_writing(errno);
  return target.get();
}

constexpr int ending_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

// The file to remove when a signal ends the program; empty for none.
char temporary_file[4096];

extern "C" void remove_temporary(int signal) {
  if (temporary_file[0] != '\0') ::unlink(temporary_file);
  ::signal(signal, SIG_DFL);
  ::raise(signal);
}

/// Signals that are ignored stay so.
void remove_when_interrupted(const std::string& file) {
  if (file.size() >= sizeof temporary_file) return;
  std::strcpy(temporary_file, file.c_str());
  for (const int number : ending_signals) {
    if (::signal(number, remove_temporary) == SIG_IGN) ::signal(number, SIG_IGN);
  }
}

/// Writes to a descriptor, which shows in the progress line. Errors name the file.
class Target final : public ovcore::IWriteStream {
 public:
  Target(std::string name, int descriptor)
      : m_name(std::move(name)),
        m_descriptor(descriptor),
        m_terminal(::isatty(descriptor) != 0),
        m_stream(ovcore::make_ref_counted<ovcore::FileWriteStream>(descriptor)) {}

  using IWriteStream::write;
  void write(const void* data, std::size_t size) override {
    if (m_terminal) {
      Progress::of_process().stop();
      const std::string text = harmless(std::string(static_cast<const char*>(data), size));
      about_file(m_name, [&] { put(text.data(), size); });
    } else {
      about_file(m_name, [&] { put(data, size); });
    }
    Progress::of_process().add_written(size);
  }

 private:
  void put(const void* data, std::size_t size) {
    try {
      m_stream->write(data, size);
    } catch (const ovcore::Exception&) {
      if (nobody_reads()) throw Finding();  // as after `| head`, no failure of ours
      throw;
    }
  }
  /// A terminal is not to be steered by control characters, the ones of two bytes included.
  std::string harmless(std::string text) {
    for (char& c : text) {
      const auto byte = static_cast<unsigned char>(c);
      const bool second = m_last == 0xc2 && byte >= 0x80 && byte < 0xa0;
      m_last = byte;
      if ((byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7f || second) c = '?';
    }
    return text;
  }
  [[nodiscard]] bool nobody_reads() const noexcept {
    pollfd state = {m_descriptor, POLLOUT, 0};
    return ::poll(&state, 1, 0) == 1 && (state.revents & POLLERR) != 0;
  }

  const std::string m_name;
  const int m_descriptor;
  const bool m_terminal;
  const ovcore::RefCountPtr<ovcore::FileWriteStream> m_stream;
  unsigned char m_last = 0;
};

}  // namespace

SignalsHeld::SignalsHeld() noexcept {
  sigset_t held;
  ::sigemptyset(&held);
  for (const int number : ending_signals)
    ::sigaddset(&held, number);
  ::pthread_sigmask(SIG_BLOCK, &held, &m_former);
}

SignalsHeld::~SignalsHeld() {
  ::pthread_sigmask(SIG_SETMASK, &m_former, nullptr);
}

Output::Output(const std::string& file, mode_t new_file_mode)
    : m_file(file), m_new_file_mode(new_file_mode), m_descriptor(-1) {
  if (file == "-" || is_standard_output(file)) {
    m_descriptor = STDOUT_FILENO;
  } else if (is_special(file)) {
    m_descriptor = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
  } else {
    m_file = behind_links(file);
    m_temporary = m_file + ".XXXXXX";
    const SignalsHeld held;
    m_descriptor = ::mkostemp(m_temporary.data(), O_CLOEXEC);
    if (m_descriptor < 0) m_temporary.clear();
    remove_when_interrupted(m_temporary);
  }
  if (m_descriptor < 0) fail_writing(errno);
  m_stream = ovcore::make_ref_counted<Target>(output_name(file), m_descriptor);
}

Output::~Output() {
  if (m_descriptor >= 0 && m_descriptor != STDOUT_FILENO) ::close(m_descriptor);
  if (!m_temporary.empty()) ::unlink(m_temporary.c_str());
}

void Output::refuse_terminal() const {
  if (::isatty(m_descriptor) == 0) return;
  throw UsageError("Binary is not written to a terminal; give -o FILE");
}

void Output::commit() {
  if (m_descriptor == STDOUT_FILENO) return;
  if (!m_temporary.empty() && ::fchmod(m_descriptor, mode_of(m_file, m_new_file_mode)) != 0) {
    fail_writing(errno);
  }
  const int descriptor = m_descriptor;
  m_descriptor = -1;
  if (::close(descriptor) != 0) fail_writing(errno);
  if (m_temporary.empty()) return;
  if (std::rename(m_temporary.c_str(), m_file.c_str()) != 0) fail_writing(errno);
  m_temporary.clear();
}

OutputBuffer::int_type OutputBuffer::overflow(int_type c) {
  sync();
  if (!traits_type::eq_int_type(c, traits_type::eof())) sputc(traits_type::to_char_type(c));
  return traits_type::not_eof(c);
}

int OutputBuffer::sync() {
  m_target.write(pbase(), static_cast<std::size_t>(pptr() - pbase()));
  setp(m_block, m_block + sizeof m_block);
  return 0;
}

}  // namespace ovattr
