// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/output.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <utility>

#include "ovcore/exception.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/progress.h"
#include "tools/ovattr/quoted.h"

namespace ovattr {
namespace {

constexpr std::size_t block_size = 65536;

/// Empty when it does not exist.
std::string real_path(const std::string& file) {
  const std::unique_ptr<char, decltype(&std::free)> path(::realpath(file.c_str(), nullptr),
                                                         &std::free);
  return path ? path.get() : "";
}

std::optional<int> parse_descriptor(std::string_view text) noexcept {
  int number = -1;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0) return std::nullopt;
  return number;
}

/// Behind all links, the last of which need not lead to a file that exists.
struct Destination {
  std::string file;
  bool is_descriptor = false;  // "/proc/PID/fd/N"
  std::optional<int> own;      // the descriptor when it is one of this process
};

Destination destination_of(std::string file) {
  for (int links = 0; links < 40; ++links) {
    const std::string folder = folder_of(file);
    const std::string real = real_path(folder.empty() ? "." : folder);
    if (real.starts_with("/proc/") && real.ends_with("/fd")) {
      const std::optional<int> number = parse_descriptor(file.substr(folder.size()));
      const bool own =
          real == real_path("/proc/self/fd") || real == real_path("/proc/thread-self/fd");
      if (number) return {std::move(file), true, own ? number : std::nullopt};
    }
    char target[4096];
    const ssize_t size = ::readlink(file.c_str(), target, sizeof target);
    if (size < 0 || size == sizeof target) return {std::move(file), false, {}};  // no link
    const std::string_view path(target, static_cast<std::size_t>(size));
    file = path.starts_with('/') ? std::string(path) : folder + std::string(path);
  }
  fail_writing(ELOOP);
}

bool is_special(const std::string& file) {
  struct stat old;
  return ::stat(file.c_str(), &old) == 0 && !S_ISREG(old.st_mode);
}

}  // namespace

/// Writes to a descriptor, which shows in the progress line. Errors name the file.
class Output::Target {
 public:
  Target(std::string name, int descriptor)
      : m_name(std::move(name)),
        m_descriptor(descriptor),
        m_terminal(::isatty(descriptor) != 0),
        m_stream(ovcore::make_ref_counted<ovcore::FileWriteStream>(descriptor)) {}

  void write(std::string_view text) {
    std::string shown;
    if (m_terminal) {
      Progress::of_process().stop();
      shown = without_controls(text, "\n\t");
    }
    about_file(m_name, [&] { put(m_terminal ? shown : text); });
    Progress::of_process().add_written(text.size());
  }

 private:
  void put(std::string_view text) {
    try {
      m_stream->write(text.data(), text.size());
    } catch (const ovcore::Exception&) {
      if (nobody_reads()) throw Finding();  // as after `| head`, no failure of ours
      throw;
    }
  }
  /// A pipe that was named must be read to its end.
  [[nodiscard]] bool nobody_reads() const noexcept {
    pollfd state = {m_descriptor, POLLOUT, 0};
    return m_descriptor == STDOUT_FILENO && ::poll(&state, 1, 0) == 1 &&
           (state.revents & POLLERR) != 0;
  }

  const std::string m_name;
  const int m_descriptor;
  const bool m_terminal;
  const ovcore::RefCountPtr<ovcore::FileWriteStream> m_stream;
};

/// Holds back what is not whole, unless all is dropped after a failure anyway.
class Output::Pending final : public ovcore::IWriteStream {
 public:
  Pending(Target target, bool all_or_nothing)
      : m_target(std::move(target)), m_all_or_nothing(all_or_nothing) {}

  using IWriteStream::write;
  void write(const void* data, std::size_t size) override {
    m_text.append(static_cast<const char*>(data), size);
    if (m_all_or_nothing && m_text.size() >= block_size) pass_on(m_text.size());
  }
  void keep(std::string_view ending) {
    m_whole = m_text.size();
    m_ending = ending;
    if (m_whole >= block_size) flush();
  }
  void flush() { pass_on(m_whole); }
  void finish() {
    m_ending.clear();
    pass_on(m_text.size());
  }
  void drop_rest() {
    if (m_failed || m_all_or_nothing) return;
    m_text.resize(m_whole);
    m_text += m_ending;
    finish();
  }

 private:
  void pass_on(std::size_t size) {
    if (size == 0) return;
    m_failed = true;
    m_target.write(std::string_view(m_text).substr(0, size));
    m_failed = false;
    m_text.erase(0, size);
    m_whole -= std::min(m_whole, size);
    if (m_text.empty() && m_text.capacity() > 16 * block_size) m_text = {};
  }

  Target m_target;
  const bool m_all_or_nothing;
  std::string m_text;
  std::size_t m_whole = 0;  // bytes of it
  std::string m_ending;
  bool m_failed = false;
};

Output::Output(const std::string& file, mode_t mode)
    : m_name(output_name(file)), m_descriptor(STDOUT_FILENO) {
  if (file != "-") {
    const Destination destination = destination_of(file);
    if (destination.own) {
      m_descriptor = *destination.own;
      if (::fcntl(m_descriptor, F_GETFD) < 0) fail_writing(errno);
    } else if (destination.is_descriptor || is_special(destination.file)) {
      const int append = destination.is_descriptor ? O_APPEND : 0;
      m_descriptor = ::open(destination.file.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | append);
      if (m_descriptor < 0) fail_writing(errno);
      m_owned = true;
    } else {
      m_replaced.emplace(destination.file, mode);
      m_descriptor = m_replaced->descriptor();
    }
  }
  m_stream =
      ovcore::make_ref_counted<Pending>(Target(m_name, m_descriptor), m_replaced.has_value());
}

Output::~Output() {
  try {
    m_stream->drop_rest();
  } catch (...) {  // what went wrong before matters more
  }
  if (m_owned) ::close(m_descriptor);
}

ovcore::IWriteStream& Output::stream() noexcept {
  return *m_stream;
}

void Output::refuse_terminal() const {
  if (::isatty(m_descriptor) == 0) return;
  throw UsageError("Binary is not written to a terminal; give -o FILE");
}

void Output::refuse_input(const struct stat& input) const {
  struct stat own;
  if (m_replaced || ::fstat(m_descriptor, &own) != 0 || !S_ISREG(own.st_mode)) return;
  if (own.st_dev != input.st_dev || own.st_ino != input.st_ino) return;
  throw UsageError("The file that is read is the " + m_name + ", too; give -o FILE to replace it");
}

void Output::keep(std::string_view ending) {
  m_stream->keep(ending);
}

void Output::flush() {
  if (!m_replaced) m_stream->flush();
}

void Output::commit() {
  m_stream->finish();
  if (m_replaced) m_replaced->commit();
  if (std::exchange(m_owned, false) && ::close(m_descriptor) != 0) fail_writing(errno);
}

OutputBuffer::int_type OutputBuffer::overflow(int_type c) {
  pass_on();
  if (!traits_type::eq_int_type(c, traits_type::eof())) sputc(traits_type::to_char_type(c));
  return traits_type::not_eof(c);
}

int OutputBuffer::sync() {
  pass_on();
  m_output.keep();
  return 0;
}

void OutputBuffer::pass_on() {
  m_output.stream().write(pbase(), static_cast<std::size_t>(pptr() - pbase()));
  setp(m_block, m_block + sizeof m_block);
}

}  // namespace ovattr
