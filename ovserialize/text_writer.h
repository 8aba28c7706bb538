// SPDX-License-Identifier: Apache-2.0
// Writing the text form: CBOR diagnostic notation.
#pragma once

#include <string_view>

#include "ovserialize/frame_stack.h"
#include "ovserialize/text_target.h"
#include "ovserialize/writer.h"

namespace ovserialize {

struct TextOptions {
  /// Everything on one line; else every item on its own, indented by what is open around it, and a
  /// line break at the end.
  bool one_line = true;
  /// Blanks for each open sequence or structure; more than 64 are taken for 64.
  unsigned indent = 2;
};

/// Passes each item on as it comes. Every further operation raises `ovserialize_writer_closed` once
/// the writer was closed, or when something failed that its target does not take back.
class OV_EXPORT TextWriter final : public Writer {
 public:
  /// `target` must outlive the writer.
  explicit TextWriter(ITextTarget& target, const TextOptions& options = {},
                      const Limits& limits = {}) noexcept
      : Writer(limits), m_target(&target), m_options(options) {}

  /// Ends the text.
  /// Raises `ovserialize_writer_sequence` or `ovserialize_writer_structure` while one is open.
  void close();

  void write_null() override;
  void begin_sequence(std::uint64_t count) override;
  void next_element() override;
  void end_sequence() override;
  void begin_structure() override;
  void end_structure() override;

  /// Sequences and structures that are open.
  [[nodiscard]] std::size_t depth() const noexcept { return m_frames.depth(); }

 private:
  void put_boolean(bool value) override;
  void put_integer(std::int64_t value) override;
  void put_unsigned(std::uint64_t value) override;
  void put_double(double value) override;
  void put_string(std::string_view text) override;
  void put_absolute_time(std::int64_t microseconds) override;
  void put_relative_time(std::int64_t microseconds) override;
  void put_uuid(const ovcore::Uuid& uuid) override;
  void put_binary(const void* data, std::size_t size) override;
  void put_memory_list(const MemoryList* list) override;

  void check_usable() const;
  void check_depth(bool structure);
  void item(std::string_view text);
  void separate();
  void new_line();
  void time(std::uint64_t tag, std::int64_t microseconds);
  void quoted(std::string_view text);
  void hex_digits(const unsigned char* data, std::size_t size);
  void out(std::string_view text);
  [[nodiscard]] Mark mark() const noexcept override;
  void roll_back(const Mark& mark) noexcept override;

  ITextTarget* const m_target;
  const TextOptions m_options;
  FrameStack m_frames;
  std::uint64_t m_items = 0;          // items and marks written
  std::uint64_t m_single_start = 0;   // `m_items` at the start of the latest sequence of one
  std::uint64_t m_counted_start = 0;  // the same for the others, until one ends
  std::size_t m_indentation = 0;      // open frames that indent
  std::uint64_t m_written = 0;        // characters
  const char* m_refusal = nullptr;    // why nothing more can be written
};

}  // namespace ovserialize
