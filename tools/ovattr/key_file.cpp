// SPDX-License-Identifier: Apache-2.0
#include "tools/ovattr/key_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

#include "ovcore/read_stream.h"
#include "ovcore/write_stream.h"
#include "tools/ovattr/command.h"
#include "tools/ovattr/output.h"

namespace ovattr {
namespace {

constexpr std::size_t small_key = 16;
constexpr std::size_t large_key = 32;

bool is_hex_digit(unsigned char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

ovcrypto::Key read_from(ovcore::IReadStream& stream, const std::string& name) {
  ovcrypto::Key key(large_key + 1);  // the byte more shows what is too large
  const std::size_t size = stream.read(key.data(), key.size());
  if (size != small_key && size != large_key) fail(name, "A key is exactly 16 or 32 bytes");
  key.resize(size);
  if (std::all_of(key.data(), key.data() + size, is_hex_digit)) {  // by chance never
    fail(name, "A key is raw bytes, not hexadecimal digits");
  }
  return key;
}

/// A file that is gone again unless it is kept.
class NewFile {
 public:
  explicit NewFile(const std::string& file)
      : m_file(file),
        m_descriptor(
            ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    if (m_descriptor < 0) fail_creating();
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (m_descriptor < 0) return;
    ::close(m_descriptor);
    ::unlink(m_file.c_str());
  }

  [[nodiscard]] int descriptor() const noexcept { return m_descriptor; }
  void keep() {
    if (::fchmod(m_descriptor, S_IRUSR | S_IWUSR) != 0 || ::fsync(m_descriptor) != 0) {
      fail_creating();
    }
    ::close(m_descriptor);
    m_descriptor = -1;
  }

 private:
  [[noreturn]] void fail_creating() const {
    fail(m_file, "Creating the key file failed: " + std::generic_category().message(errno));
  }

  const SignalsHeld m_held;
  const std::string m_file;
  int m_descriptor;
};

}  // namespace

std::string KeySource::name() const {
  return descriptor ? "file descriptor " + std::to_string(*descriptor) : file;
}

std::optional<struct stat> KeySource::status() const {
  struct stat status;
  const int failure = descriptor ? ::fstat(*descriptor, &status) : ::stat(file.c_str(), &status);
  return failure != 0 ? std::nullopt : std::make_optional(status);
}

void KeySource::refuse_as_output(const std::string& output) const {
  struct stat target;
  const int failure =
      output == "-" ? ::fstat(STDOUT_FILENO, &target) : ::stat(output.c_str(), &target);
  if (failure != 0 || !S_ISREG(target.st_mode)) return;
  const auto key = status();
  if (!key || key->st_dev != target.st_dev || key->st_ino != target.st_ino) return;
  throw UsageError("The output would take the place of the key: " + output_name(output));
}

ovcrypto::Key KeySource::read(const std::string& input) const {
  if (!descriptor && file.empty()) {
    throw UsageError("--key-file or --key-fd says where the key is");
  }
  if (file == "-") throw UsageError("A key comes from standard input by --key-fd 0");
  if (descriptor == STDIN_FILENO && input == "-") {
    throw UsageError("Key and values cannot both come from standard input");
  }
  ovcrypto::Key key;
  about_file(name(), [&] {
    key = read_from(*(descriptor ? ovcore::make_ref_counted<ovcore::FileReadStream>(*descriptor)
                                 : ovcore::make_ref_counted<ovcore::FileReadStream>(file)),
                    name());
  });
  const auto found = status();
  if (found && S_ISREG(found->st_mode) && (found->st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    report(name() + ": Others than its owner may read or change this key; chmod 600 ends that");
  }
  return key;
}

void add_key_options(CLI::App& command, KeySource& source) {
  CLI::Option* const file =
      command.add_option("--key-file", source.file, "The file of the key: 16 or 32 raw bytes")
          ->option_text("FILE (or --key-fd)");
  command
      .add_option("--key-fd", source.descriptor,
                  "An open file descriptor to read the key from, instead of a file")
      ->check(CLI::Range(0, std::numeric_limits<int>::max()))
      ->option_text("N")
      ->excludes(file);
}

void write_new_key_file(const std::string& file, const ovcrypto::Key& key) {
  NewFile created(file);
  about_file(file, [&] {
    ovcore::make_ref_counted<ovcore::FileWriteStream>(created.descriptor())
        ->write(key.data(), key.size());
  });
  created.keep();
}

}  // namespace ovattr
