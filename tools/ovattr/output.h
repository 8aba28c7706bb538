// SPDX-License-Identifier: Apache-2.0
// Where a command's result goes.
#pragma once

#include <sys/stat.h>

#include <optional>
#include <streambuf>
#include <string>
#include <string_view>

#include "ovcore/write_stream.h"
#include "tools/ovattr/replaced_file.h"

namespace ovattr {

/// Standard output for "-"; an open descriptor, where the name leads to one (/dev/stderr,
/// /dev/fd/3); a device or pipe; else a file that takes the place of an old one only once it is
/// complete: what fails half way leaves the old file as it was, or none.
///
/// All but such a file gets what is whole: what was kept before a failure arrives, and no part of
/// what was not.
class Output {
 public:
  /// `mode` is for a new file, before the user's mask. Raises `ovcore_stream_write`.
  explicit Output(const std::string& file, mode_t mode = 0666);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  /// Without `commit` before, passes on what was kept, and drops what was not.
  ~Output();

  [[nodiscard]] ovcore::IWriteStream& stream() noexcept;
  /// Before binary is written: it can do harm on a terminal. Raises a usage error.
  void refuse_terminal() const;
  /// A file that is read cannot be appended to. Raises a usage error.
  void refuse_input(const struct stat& input) const;

  /// What was written so far is whole. `ending` stands behind it if nothing else comes to do so.
  void keep(std::string_view ending = {});
  /// Passes on what was kept, which else happens block by block.
  void flush();
  /// All was written.
  void commit();

 private:
  class Target;
  class Pending;

  std::string m_name;
  std::optional<ReplacedFile> m_replaced;
  int m_descriptor;
  bool m_owned = false;  // the descriptor is
  ovcore::RefCountPtr<Pending> m_stream;
};

/// Lets a standard stream write to an output, which keeps what was flushed. Errors of the output
/// pass through streams that let badbit raise.
class OutputBuffer final : public std::streambuf {
 public:
  explicit OutputBuffer(Output& output) noexcept : m_output(output) {
    setp(m_block, m_block + sizeof m_block);
  }

 private:
  int_type overflow(int_type c) override;
  int sync() override;
  void pass_on();

  Output& m_output;
  char m_block[16384];
};

}  // namespace ovattr
