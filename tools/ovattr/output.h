// SPDX-License-Identifier: Apache-2.0
// Where a command's result goes.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <streambuf>
#include <string>

#include "ovcore/write_stream.h"

namespace ovattr {

/// While it lives, signals by which users end the program wait, so that a step is done whole.
class SignalsHeld {
 public:
  SignalsHeld() noexcept;
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
  ~SignalsHeld();

 private:
  sigset_t m_former;
};

/// Standard output for "-", else a file that takes the place of an old one only once it is
/// complete: what fails half way leaves the old file as it was, or none.
class Output {
 public:
  /// `new_file_mode`: of a file that does not exist, before the user's mask. Raises
  /// `ovcore_stream_write`.
  explicit Output(const std::string& file, mode_t new_file_mode = 0666);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  /// Without `commit` before, nothing has happened.
  ~Output();

  [[nodiscard]] ovcore::IWriteStream& stream() noexcept { return *m_stream; }
  /// Before binary is written: it can do harm on a terminal. Raises a usage error.
  void refuse_terminal() const;
  void commit();

 private:
  std::string m_file;
  mode_t m_new_file_mode;
  std::string m_temporary;  // empty when the target is written directly
  int m_descriptor;
  ovcore::RefCountPtr<ovcore::IWriteStream> m_stream;
};

/// Lets a standard stream write to a target, in blocks. Errors of the target pass through streams
/// that let badbit raise.
class OutputBuffer final : public std::streambuf {
 public:
  explicit OutputBuffer(ovcore::IWriteStream& target) noexcept : m_target(target) {
    setp(m_block, m_block + sizeof m_block);
  }

 private:
  int_type overflow(int_type c) override;
  int sync() override;

  ovcore::IWriteStream& m_target;
  char m_block[16384];
};

}  // namespace ovattr
