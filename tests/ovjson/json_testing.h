// SPDX-License-Identifier: Apache-2.0
// What the tests of ovjson share: the tables of texts, odd sources, and copying a document.
#pragma once

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "ovcore/read_stream.h"
#include "ovcore/write_stream.h"
#include "ovjson/reader.h"
#include "ovjson/writer.h"

namespace ovtest {

/// Buffers this small make every character cross an edge.
inline constexpr std::size_t buffer_sizes[] = {1, 2, 3, 5, 65'536};

inline std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot open " + path);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

/// A reader and the text that it reads.
struct Document {
  explicit Document(std::string_view text, std::string_view uri = {},
                    const ovjson::ReaderOptions& options = {})
      : source(ovcore::SourceString(text)), reader(source, ovcore::SourceString(uri), options) {}

  ovcore::MemoryReadStream source;
  ovjson::Reader reader;
};

inline void walk(auto&& reader) {
  while (reader.next_value()) {
  }
}

/// Repeats a text between a head and a tail, for documents larger than memory should get.
class RepeatStream final : public ovcore::IReadStream {
 public:
  RepeatStream(std::string head, std::string body, std::uint64_t times, std::string tail)
      : m_part(std::move(head)), m_body(std::move(body)), m_tail(std::move(tail)), m_times(times) {}

  std::size_t read(void* buffer, std::size_t size) override {
    std::size_t total = 0;
    while (const std::size_t got = read_some(static_cast<char*>(buffer) + total, size - total))
      total += got;
    return total;
  }
  std::size_t read_some(void* buffer, std::size_t size) override {
    while (m_offset == m_part.size()) {
      if (m_ended) return 0;
      m_offset = 0;
      m_ended = m_times == 0;
      m_part = m_times > 0 ? m_body : m_tail;
      if (m_times > 0) --m_times;
    }
    const std::size_t got = m_part.copy(static_cast<char*>(buffer), size, m_offset);
    m_offset += got;
    return got;
  }
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  std::string m_part, m_body, m_tail;
  std::uint64_t m_times;
  std::size_t m_offset = 0;
  bool m_ended = false;
};

/// Fails at the end of its text, in place of saying that it ends.
template <class Error>
class FailingStream final : public ovcore::IReadStream {
 public:
  FailingStream(std::string_view text, Error error) : m_text(text), m_error(std::move(error)) {}

  std::size_t read(void* buffer, std::size_t size) override { return read_some(buffer, size); }
  std::size_t read_some(void* buffer, std::size_t size) override {
    if (m_text.empty()) throw m_error;
    const std::size_t got = m_text.copy(static_cast<char*>(buffer), size);
    m_text.remove_prefix(got);
    return got;
  }
  [[nodiscard]] std::uint64_t remaining() const override { return unknown; }

 private:
  std::string_view m_text;
  Error m_error;
};

inline void copy_value(ovjson::Reader& reader, const ovjson::Reader::ValuePtr& value,
                       ovjson::Writer& writer) {
  using Kind = ovjson::Reader::Kind;
  switch (value->kind()) {
    case Kind::root:
      while (const auto child = reader.next_child(value))
        copy_value(reader, child, writer);
      break;
    case Kind::object:
      writer.begin_object();
      while (const auto child = reader.next_child(value)) {
        writer.member_name(ovcore::SourceString(child->member_name()));
        copy_value(reader, child, writer);
      }
      writer.end_object();
      break;
    case Kind::array:
      writer.begin_array();
      while (const auto child = reader.next_child(value))
        copy_value(reader, child, writer);
      writer.end_array();
      break;
    case Kind::null:
      writer.null_value();
      break;
    case Kind::boolean:
      writer.boolean_value(value->as_bool());
      break;
    case Kind::number:
      writer.number_value(ovcore::SourceString(value->number_text()));
      break;
    case Kind::string:
      writer.string_value(ovcore::SourceString(value->as_string()));
      break;
  }
}

/// Reads a document and writes it again.
inline std::string rewrite(ovcore::IReadStream& source,
                           const ovjson::ReaderOptions& reader_options = {},
                           const ovjson::TextWriterOptions& writer_options = {}) {
  std::string text;
  ovcore::StringWriteStream target(text);
  ovjson::Reader reader(source, {}, reader_options);
  ovjson::TextWriter writer(target, writer_options);
  copy_value(reader, reader.current_value(), writer);
  writer.close();
  return text;
}

inline std::string rewrite(std::string_view text, const ovjson::ReaderOptions& reader_options = {},
                           const ovjson::TextWriterOptions& writer_options = {}) {
  ovcore::MemoryReadStream source{ovcore::SourceString(text)};
  return rewrite(source, reader_options, writer_options);
}

/// Runs judge.py, which knows JSON from Python, and answers whether it agrees.
inline bool judge(const std::string& arguments) {
  return std::system(
             (OV_PYTHON " " OV_SOURCE_ROOT "/tests/ovjson/judge.py " + arguments).c_str()) == 0;
}

}  // namespace ovtest
