// SPDX-License-Identifier: Apache-2.0
// Reading the text form: CBOR diagnostic notation.
#pragma once

#include <memory>
#include <string>

#include "ovserialize/reader.h"

namespace ovserialize {

namespace impl {
class TextTokens;
struct TextToken;
}  // namespace impl

/// Reads items straight from the text as it comes in. Errors also carry `line` and `column`, from 1
/// on, columns in characters; `offset` is in bytes. A number is complete only when what follows it
/// has been seen.
class OV_EXPORT TextReader final : public Reader {
 public:
  /// Keeps a reference to `source`, which must outlive the reader if it is not on the heap.
  explicit TextReader(ovcore::IReadStream& source, const Limits& limits = {},
                      std::size_t buffer_size = 4096);
  ~TextReader() override;

  [[nodiscard]] int item_kind() override;
  [[nodiscard]] bool at_end() override;
  [[nodiscard]] std::uint64_t offset() const noexcept override;

  void read_null() override;
  [[nodiscard]] ovcore::StringKey read_string_key() override;
  [[nodiscard]] ovcore::RefCountPtr<const MemoryList> read_memory_list_as_binary() override;
  /// The block is in memory, and the stream good for as long as it is kept.
  [[nodiscard]] ovcore::RefCountPtr<ovcore::IReadStream> read_binary_stream() override;
  std::uint64_t begin_sequence() override;
  bool has_next_element() override;
  void begin_structure() override;
  void end_structure() override;

 private:
  bool get_boolean() override;
  std::int64_t get_integer(std::int64_t min, std::int64_t max) override;
  std::uint64_t get_unsigned(std::uint64_t max) override;
  double get_double() override;
  void get_string(std::string& text) override;
  std::int64_t get_absolute_time() override;
  std::int64_t get_relative_time() override;
  ovcore::Uuid get_uuid() override;

  const impl::TextToken& next_of_kind(int kind);
  void end_item();
  void open(const impl::TextToken& token, Frame frame);
  std::string read_string();
  std::string read_block();
  std::int64_t read_time(int kind);
  [[noreturn]] void throw_other(const char* expected);

  const std::unique_ptr<impl::TextTokens> m_tokens;
};

}  // namespace ovserialize
