// SPDX-License-Identifier: Apache-2.0
// Where a command's data comes from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>

#include "ovcore/read_stream.h"
#include "tools/ovattr/output.h"

namespace ovattr {

/// A file, or standard input for "-". What is read shows in the progress line.
class Input final : public ovcore::IReadStream {
 public:
  /// Raises `ovcore_stream_read`, and a usage error when standard input is asked for again.
  explicit Input(const std::string& file);

  std::size_t read(void* buffer, std::size_t size) override;
  std::size_t read_some(void* buffer, std::size_t size) override;
  [[nodiscard]] std::uint64_t remaining() const override { return m_source->remaining(); }

  /// What comes of the input goes to `output`, which passes on what it kept before the input may
  /// have to be waited for, and must outlive reading. Raises a usage error when it is the same
  /// file.
  void feed(Output& output);
  /// Raises the output's error, if that is why reading has failed.
  void raise_output_failure() const;

 private:
  const std::string m_file;
  const ovcore::RefCountPtr<ovcore::FileReadStream> m_source;
  bool m_may_wait = false;  // as pipes, sockets and terminals do
  Output* m_output = nullptr;
  std::exception_ptr m_output_failure;
};

}  // namespace ovattr
