// SPDX-License-Identifier: Apache-2.0
#include "ovcore/read_stream.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>
#include <ext/stdio_filebuf.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <future>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "ovcore/error_codes.h"
#include "ovcore/write_stream.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovcore {
namespace {

using namespace std::chrono_literals;

class Descriptor {
 public:
  explicit Descriptor(int number) : m_number(number) {
    if (number < 0) std::abort();
  }
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  ~Descriptor() { close(); }
  void close() {
    if (m_number >= 0) ::close(std::exchange(m_number, -1));
  }
  int get() const { return m_number; }

 private:
  int m_number;
};

/// Two ends of a pipe or of a pair of sockets: what is written to one is read from the other.
struct Channel {
  Descriptor reader;
  Descriptor writer;
};
Channel make_pipe() {
  int ends[2];
  if (::pipe(ends) != 0) std::abort();
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}
Channel make_sockets() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) std::abort();
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}
void make_nonblocking(const Descriptor& descriptor) {
  ::fcntl(descriptor.get(), F_SETFL, ::fcntl(descriptor.get(), F_GETFL) | O_NONBLOCK);
}

class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& content) {
    const Descriptor file(::mkstemp(m_path.data()));
    FileWriteStream(file.get()).write(content);
  }
  ~TemporaryFile() { ::unlink(m_path.c_str()); }
  const std::string& path() const { return m_path; }

 private:
  std::string m_path = testing::TempDir() + "ovcore_stream_XXXXXX";
};

std::string read_some(IReadStream& stream, std::size_t size) {
  std::string result(size, '\0');
  result.resize(stream.read_some(result.data(), size));
  return result;
}
std::string read(IReadStream& stream, std::size_t size) {
  std::string result(size, '\0');
  result.resize(stream.read(result.data(), size));
  return result;
}

/// What every stream over a channel does. A wait for bytes that nobody sends would hang.
void check_waiting(IReadStream& stream, Descriptor& writer) {
  FileWriteStream out(writer.get());
  out.write("a");
  EXPECT_EQ(read_some(stream, 100), "a");
  EXPECT_EQ(stream.remaining(), IReadStream::unknown);
  std::promise<void> answered;
  std::thread slow([&out, &answered] {
    std::this_thread::sleep_for(5ms);
    out.write("b");
    answered.get_future().wait();
    for (const char* piece : {"c", "def"}) {
      std::this_thread::sleep_for(5ms);
      out.write(piece);
    }
  });
  EXPECT_EQ(read_some(stream, 100), "b");
  answered.set_value();
  EXPECT_EQ(read(stream, 4), "cdef");
  slow.join();
  out.write("123456");
  EXPECT_EQ(read(stream, 2), "12");
  EXPECT_EQ(read_some(stream, 0), "");
  EXPECT_EQ(read_some(stream, 3), "345");
  writer.close();
  EXPECT_EQ(read(stream, 100), "6");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(read(stream, 100), "");
    EXPECT_EQ(read_some(stream, 100), "");
  }
}

TEST(ReadStream, ReturnsTheFirstByteWithoutWaitingForMore) {
  for (const auto& make : {make_pipe, make_sockets}) {
    for (const bool nonblocking : {false, true}) {
      Channel channel = make();
      if (nonblocking) make_nonblocking(channel.reader);
      FileReadStream stream(channel.reader.get());
      check_waiting(stream, channel.writer);
    }
    Channel channel = make();
    __gnu_cxx::stdio_filebuf<char> buffer(channel.reader.get(), std::ios::in);
    std::istream in(&buffer);
    StdReadStream stream(in);
    check_waiting(stream, channel.writer);
  }
}

TEST(ReadStream, MemoryIsReadToItsEnd) {
  const std::string bytes("ab\0cd", 5);
  MemoryReadStream stream(bytes);
  EXPECT_EQ(stream.remaining(), 5u);
  EXPECT_EQ(read(stream, 3), bytes.substr(0, 3));
  EXPECT_EQ(stream.remaining(), 2u);
  EXPECT_EQ(read_some(stream, 100), "cd");
  EXPECT_EQ(read(stream, 1), "");
  EXPECT_EQ(stream.remaining(), 0u);
  MemoryReadStream nothing(nullptr, 0);
  EXPECT_EQ(nothing.read(nullptr, 0), 0u);
}

TEST(ReadStream, StatesTheLengthOfRegularFilesOnly) {
  const TemporaryFile file("0123456789");
  FileReadStream stream(file.path());
  EXPECT_EQ(stream.remaining(), 10u);
  EXPECT_EQ(read(stream, 4), "0123");
  EXPECT_EQ(stream.remaining(), 6u);
  EXPECT_EQ(read(stream, 100), "456789");
  EXPECT_EQ(stream.remaining(), 0u);

  const Descriptor beyond(::open(file.path().c_str(), O_RDONLY));
  ::lseek(beyond.get(), 20, SEEK_SET);
  EXPECT_EQ(FileReadStream(beyond.get()).remaining(), 0u);

  const TemporaryFile empty("");
  for (const std::string& path :
       {empty.path(), std::string("/proc/self/status"), std::string("/dev/null"),
        std::string("/sys/kernel/mm/transparent_hugepage/enabled")}) {
    if (::access(path.c_str(), R_OK) != 0) continue;
    EXPECT_EQ(FileReadStream(path).remaining(), IReadStream::unknown) << path;
  }
  EXPECT_EQ(FileReadStream(-1).remaining(), IReadStream::unknown);
}

TEST(ReadStream, FailuresAreErrorsAndNotTheEnd) {
  char buffer[4];
  struct Case {
    int descriptor;
    const char* reason;
  };
  Channel channel = make_pipe();
  const Descriptor folder(::open("/", O_RDONLY));
  for (const Case& c : {Case{-1, "Bad file descriptor"},
                        {channel.writer.get(), "Bad file descriptor"},
                        {folder.get(), "Is a directory"}}) {
    FileReadStream stream(c.descriptor);
    EXPECT_EQ(stream.read(buffer, 0), 0u);
    for (const bool some : {false, true}) {
      const auto info =
          ovtest::error_of([&] { some ? stream.read_some(buffer, 4) : stream.read(buffer, 4); });
      ovtest::expect_error(info, error::ovcore_stream_read,
                           "Reading failed: " + std::string(c.reason),
                           {"ovcore/read_stream", "ovcore::FileReadStream::read_some()", 0});
      ASSERT_TRUE(info && info->parameter("reason"));
      EXPECT_EQ(*info->parameter("reason"), c.reason);
    }
  }
}

TEST(ReadStream, FilesThatCannotBeOpenedAreNamed) {
  struct Case {
    std::string path;
    const char* reason;
  };
  const TemporaryFile file("text");
  for (const Case& c : {Case{"/nowhere/at all", "No such file or directory"},
                        {"", "No such file or directory"},
                        {"/", "Is a directory"},
                        {file.path() + '\0' + "more", "Invalid argument"}}) {
    EXPECT_ERROR(FileReadStream(c.path), error::ovcore_stream_read,
                 "Opening '" + c.path + "' failed: " + c.reason,
                 {"ovcore/read_stream", "ovcore::FileReadStream::FileReadStream()", 0});
  }
}

TEST(ReadStream, OpenedFilesAreClosedAndOthersAreNot) {
  const TemporaryFile file("x");
  const int next = Descriptor(::open("/dev/null", O_RDONLY)).get();
  { const FileReadStream stream(file.path()); }
  EXPECT_ERROR(FileReadStream("/"), error::ovcore_stream_read,
               "Opening '/' failed: Is a directory");
  const Descriptor same(::open("/dev/null", O_RDONLY));
  EXPECT_EQ(same.get(), next);
  { const FileReadStream stream(same.get()); }
  EXPECT_NE(::fcntl(same.get(), F_GETFD), -1);
}

/// Delivers "ab", one character at a time and without announcing any, then ends or throws.
class OddBuffer final : public std::streambuf {
 public:
  explicit OddBuffer(std::function<void()> at_end) : m_at_end(std::move(at_end)) {}

 private:
  int_type underflow() override {
    if (m_next == 2) {
      m_at_end();
      return traits_type::eof();
    }
    m_character = "ab"[m_next++];
    setg(&m_character, &m_character, &m_character + 1);
    return traits_type::to_int_type(m_character);
  }
  int_type overflow(int_type) override {
    m_at_end();
    return traits_type::eof();
  }

  std::function<void()> m_at_end;
  int m_next = 0;
  char m_character = 0;
};

TEST(ReadStream, StandardStreamsEndOrFailWhateverTheyThrow) {
  using std::ios;
  for (const ios::iostate throwing : {ios::goodbit, ios::eofbit, ios::failbit, ios::badbit,
                                      ios::eofbit | ios::failbit | ios::badbit}) {
    OddBuffer ends([] {});
    std::istream in(&ends);
    in.exceptions(throwing);
    StdReadStream ending(in);
    EXPECT_EQ(read_some(ending, 10), "a");
    EXPECT_EQ(read(ending, 10), "b");
    EXPECT_EQ(read(ending, 10), "");
    EXPECT_EQ(read_some(ending, 10), "");

    for (const bool some : {false, true}) {
      OddBuffer breaks([] { throw std::ios_base::failure("cable pulled"); });
      std::istream broken(&breaks);
      broken.exceptions(throwing);
      StdReadStream failing(broken);
      EXPECT_EQ(read(failing, 2), "ab");
      for (int i = 0; i < 2; ++i) {
        const auto info = ovtest::error_of([&] {
          char c;
          some ? failing.read_some(&c, 1) : failing.read(&c, 1);
        });
        ASSERT_TRUE(info);
        EXPECT_EQ(info->code(), error::ovcore_stream_read);
      }
    }
  }
  OddBuffer breaks([] { throw std::runtime_error("cable pulled"); });
  std::istream broken(&breaks);
  broken.exceptions(ios::badbit);
  StdReadStream failing(broken);
  EXPECT_ERROR(read(failing, 3), error::ovcore_stream_read, "Reading failed: cable pulled",
               {"ovcore/read_stream", "ovcore::StdReadStream::read()", 0});
}

TEST(ReadStream, AStandardFileThatDidNotOpenIsNotEmpty) {
  std::ifstream in("/nowhere/at all");
  StdReadStream stream(in);
  EXPECT_ERROR(read_some(stream, 1), error::ovcore_stream_read,
               "Reading failed: the stream has failed before",
               {"ovcore/read_stream", "ovcore::StdReadStream::read_some()", 0});
  std::istringstream misread("text 5");
  int number;
  misread >> number;
  StdReadStream failed(misread);
  EXPECT_ERROR(read(failed, 1), error::ovcore_stream_read,
               "Reading failed: the stream has failed before");
}

TEST(ReadStream, StandardStreamsGiveWhatTheyHold) {
  std::istringstream in("0123456789");
  StdReadStream stream(in);
  EXPECT_EQ(read_some(stream, 4), "0123");
  EXPECT_EQ(read_some(stream, 100), "456789");
  EXPECT_EQ(read_some(stream, 100), "");
}

std::atomic<int> g_interruptions = 0;

TEST(ReadStream, InterruptionsAreNoFailures) {
  struct sigaction action {};
  struct sigaction old_action;
  action.sa_handler = [](int) { ++g_interruptions; };  // without SA_RESTART
  ::sigaction(SIGUSR1, &action, &old_action);
  Channel channel = make_pipe();
  const pthread_t reader = ::pthread_self();
  std::thread writer([&] {
    for (const char* piece : {"a", "b"}) {
      for (const int enough = g_interruptions + 3; g_interruptions < enough;) {
        std::this_thread::sleep_for(2ms);
        ::pthread_kill(reader, SIGUSR1);
      }
      FileWriteStream(channel.writer.get()).write(piece);
    }
    channel.writer.close();
  });
  FileReadStream stream(channel.reader.get());
  std::string got = read_some(stream, 10);
  got += read(stream, 10);
  EXPECT_EQ(got, "ab");
  writer.join();
  ::sigaction(SIGUSR1, &old_action, nullptr);
}

TEST(WriteStream, WritesEverythingToSlowTargets) {
  std::string text;
  while (text.size() < 1'000'000)
    text += std::to_string(text.size());
  for (const auto& make : {make_pipe, make_sockets}) {
    for (const bool nonblocking : {false, true}) {
      Channel channel = make();
      if (nonblocking) make_nonblocking(channel.writer);
      std::thread writer([&] {
        FileWriteStream out(channel.writer.get());
        out.write(text);
        out.write(nullptr, 0);
        channel.writer.close();
      });
      FileReadStream in(channel.reader.get());
      std::string got = read(in, 1000);
      std::this_thread::sleep_for(5ms);  // the writer fills the channel
      got += read(in, text.size());
      writer.join();
      EXPECT_TRUE(got == text);
    }
  }
}

bool pipe_signal_is_pending() {
  sigset_t pending;
  ::sigpending(&pending);
  return ::sigismember(&pending, SIGPIPE) == 1;
}

TEST(WriteStream, AClosedTargetIsAnErrorWithoutASignal) {
  for (const auto& make : {make_pipe, make_sockets}) {
    Channel channel = make();
    channel.reader.close();
    for (int i = 0; i < 2; ++i) {
      EXPECT_ERROR(FileWriteStream(channel.writer.get()).write("x"), error::ovcore_stream_write,
                   "Writing failed: Broken pipe",
                   {"ovcore/write_stream", "ovcore::FileWriteStream::write()", 0});
    }
    // The thread's signal mask is as before, and a signal of somebody else is kept.
    sigset_t mask;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(::sigismember(&mask, SIGPIPE), 0);
    sigset_t pipe_signal;
    ::sigemptyset(&pipe_signal);
    ::sigaddset(&pipe_signal, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipe_signal, &mask);
    EXPECT_FALSE(pipe_signal_is_pending());
    ::raise(SIGPIPE);
    EXPECT_ERROR(FileWriteStream(channel.writer.get()).write("x"), error::ovcore_stream_write,
                 "Writing failed: Broken pipe");
    const timespec no_wait{};
    EXPECT_EQ(::sigtimedwait(&pipe_signal, nullptr, &no_wait), SIGPIPE);
    ::pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  }
}

TEST(WriteStream, APipeThatClosesMeanwhileIsAnErrorToo) {
  Channel channel = make_pipe();
  std::thread reader([&channel] {
    char bytes[10];
    EXPECT_EQ(::read(channel.reader.get(), bytes, sizeof bytes), 10);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // the writer waits for room
    channel.reader.close();
  });
  EXPECT_ERROR(FileWriteStream(channel.writer.get()).write(std::string(1 << 20, 'x')),
               error::ovcore_stream_write, "Writing failed: Broken pipe");
  reader.join();
}

TEST(WriteStream, FailuresAreErrors) {
  const Descriptor full(::open("/dev/full", O_WRONLY));
  EXPECT_ERROR(FileWriteStream(full.get()).write("x"), error::ovcore_stream_write,
               "Writing failed: No space left on device");
  EXPECT_ERROR(FileWriteStream(-1).write("x"), error::ovcore_stream_write,
               "Writing failed: Bad file descriptor");

  for (const auto throwing : {std::ios::goodbit, std::ios::badbit | std::ios::failbit}) {
    OddBuffer ends([] {});
    std::ostream out(&ends);
    out.exceptions(throwing);
    StdWriteStream stream(out);
    for (int i = 0; i < 2; ++i) {
      const auto info = ovtest::error_of([&] { stream.write("x"); });
      ASSERT_TRUE(info);
      EXPECT_EQ(info->code(), error::ovcore_stream_write);
    }
  }
  OddBuffer breaks([] { throw std::runtime_error("disk on fire"); });
  std::ostream out(&breaks);
  out.exceptions(std::ios::badbit);
  EXPECT_ERROR(StdWriteStream(out).write("x"), error::ovcore_stream_write,
               "Writing failed: disk on fire",
               {"ovcore/write_stream", "ovcore::StdWriteStream::write()", 0});
}

TEST(WriteStream, StringsAndStandardStreamsTakeBytesAsTheyAre) {
  const std::string bytes("a\0\n\xff", 4);
  std::string text = "before ";
  StringWriteStream to_string(text);
  to_string.write(bytes);
  to_string.write(nullptr, 0);
  EXPECT_EQ(text, "before " + bytes);
  std::ostringstream out;
  StdWriteStream to_stream(out);
  to_stream.write(bytes);
  to_stream.write("more");
  EXPECT_EQ(out.str(), bytes + "more");
}

TEST(Streams, ReadingAndWritingDoNotAllocate) {
  Channel channel = make_pipe();
  std::istringstream in("text");
  EXPECT_EQ(ovtest::allocations_of([&] {
              char buffer[4];
              FileWriteStream(channel.writer.get()).write("text");
              FileReadStream file(channel.reader.get());
              MemoryReadStream memory("text");
              StdReadStream standard(in);
              for (IReadStream* stream : std::array<IReadStream*, 3>{&file, &memory, &standard}) {
                if (stream->read_some(buffer, 2) != 2 || stream->read(buffer, 2) != 2) std::abort();
              }
            }),
            0u);
}

}  // namespace
}  // namespace ovcore
