// SPDX-License-Identifier: Apache-2.0
// A binary item stream as one line for each item and end mark: offset, bytes, kind, meaning.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "ovcore/uuid.h"
#include "ovserialize/item_kind.h"
#include "ovserialize/stream_reader.h"

namespace ovattr {

/// Reads one item after another and prints each once it is read, indented by what is open around
/// it. Errors are those of the reader.
class ItemLines {
 public:
  /// Both must outlive this object.
  ItemLines(ovserialize::StreamReader& reader, std::ostream& out);

  [[nodiscard]] int kind() { return m_reader.item_kind(); }
  /// True only outside of sequences and structures.
  [[nodiscard]] bool at_end() { return m_open.empty() && m_reader.at_end(); }
  [[nodiscard]] std::uint64_t offset() const noexcept { return m_reader.offset(); }

  /// Any item but a sequence or structure; `label` says what it is, and may be empty.
  void scalar(const std::string& label);
  /// An unsigned integer or UUID whose line is the caller's to print, with the two below.
  std::uint64_t read_unsigned();
  ovcore::Uuid read_uuid();
  void print_unsigned(const std::string& meaning) { print("unsigned", meaning); }
  void print_uuid(const std::string& meaning) { print("uuid", meaning); }

  void open_sequence(const std::string& label);
  /// Whether an element of the innermost frame follows, which must be a sequence; prints its end.
  bool has_next_element();
  void open_structure(const std::string& label);
  void close_structure();

  /// Prints all that is left, knowing nothing of what it means.
  void print_rest();

 private:
  void start() noexcept { m_start = m_reader.offset(); }
  void print(const char* kind, const std::string& meaning);
  void next_of_rest();

  ovserialize::StreamReader& m_reader;
  std::ostream& m_out;
  std::vector<bool> m_open;   // whether it is a structure
  std::uint64_t m_start = 0;  // of the item that is being read
};

}  // namespace ovattr
