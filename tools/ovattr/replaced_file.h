// SPDX-License-Identifier: Apache-2.0
// A file that takes the place of an old one only once it is complete.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <string>

namespace ovattr {

/// Raises `ovcore_stream_write` for a number from `errno`.
[[noreturn]] void fail_writing(int error);

/// The folder part of a file name, with its slash; empty when there is none.
[[nodiscard]] std::string folder_of(const std::string& file);

/// While it lives, signals that would end the program wait, so that a step is done whole.
class SignalsHeld {
 public:
  SignalsHeld() noexcept;
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
  ~SignalsHeld();

 private:
  sigset_t m_former;
};

/// Written aside, in the folder of the file, and removed again when it is not committed, also by a
/// signal that ends the program. There is one at a time.
class ReplacedFile {
 public:
  /// `file` is no link and need not exist; `mode` is for a new one, before the user's mask. Raises
  /// `ovcore_stream_write`, as `commit` does.
  ReplacedFile(std::string file, mode_t mode);
  ReplacedFile(const ReplacedFile&) = delete;
  ReplacedFile& operator=(const ReplacedFile&) = delete;
  ~ReplacedFile();

  [[nodiscard]] int descriptor() const noexcept { return m_descriptor; }
  /// Syncs what was written and puts it in the old file's place, with its rights but without its
  /// set-user-id, set-group-id and sticky bits. A file that cannot be replaced, since it is mounted
  /// by itself or in a folder that cannot be written, is overwritten in place, once there is room.
  void commit();

 private:
  void open_aside();
  void take_rights() const;
  void replace();
  void overwrite() const;

  const std::string m_file;
  const mode_t m_mode;
  std::string m_temporary;  // empty for a file without a name
  int m_descriptor = -1;
};

}  // namespace ovattr
