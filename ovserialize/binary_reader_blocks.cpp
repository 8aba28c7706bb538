// SPDX-License-Identifier: Apache-2.0
// Binary blocks and runs of bytes; the items are in binary_reader.cpp.
#include "ovserialize/binary_reader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "ovcore/exception.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/impl/decode.h"
#include "ovserialize/impl/raise.h"

namespace ovserialize {
namespace {

// What is read of an announced length before more than this must have arrived.
constexpr std::size_t first_piece = 4096;

}  // namespace

/// Reads the innermost block of a reader until that goes on.
class BinaryReader::BlockStream final : public ovcore::IReadStream {
 public:
  std::size_t read(void* buffer, std::size_t size) override { return get(buffer, size, true); }
  std::size_t read_some(void* buffer, std::size_t size) override {
    return get(buffer, size, false);
  }
  [[nodiscard]] std::uint64_t remaining() const override {
    if (m_reader == nullptr) return 0;
    return m_in_memory ? m_reader->m_block_left : unknown;
  }

  void attach(BinaryReader* reader, bool in_memory) noexcept {
    m_reader = reader;
    m_in_memory = in_memory;
  }

 private:
  std::size_t get(void* buffer, std::size_t size, bool all) {
    if (m_reader != nullptr) return m_reader->read_block(buffer, size, all);
    ovcore::throw_error(
        error::ovserialize_reader_closed,
        "The reader has gone on from the block that this stream reads",
        {"ovserialize/binary_reader", "ovserialize::Reader::read_binary_stream()", 0});
  }

  BinaryReader* m_reader = nullptr;
  bool m_in_memory = false;
};

void BinaryReader::detach_block() noexcept {
  if (m_block) m_block->attach(nullptr, false);
}

BinaryReader::BinaryReader(const Limits& limits) noexcept : Reader(limits) {}

BinaryReader::~BinaryReader() {
  detach_block();
}

// Leaves the content of a block as what comes next.
std::size_t BinaryReader::block_head() {
  if (!has(1) || impl::kinds[*m_cursor] != item_binary) throw_other(impl::kind_name(item_binary));
  const std::uint64_t at = position();
  const std::uint64_t size = read_head().argument;
  if (size > limits().max_binary) {
    impl::throw_reader_size({.offset = at}, item_binary, size, limits().max_binary,
                            {"ovserialize/binary_reader", "ovserialize::Reader::read_binary()"});
  }
  return static_cast<std::size_t>(size);
}

ovcore::RefCountPtr<const MemoryList> BinaryReader::read_memory_list_as_binary() {
  return take_list(block_head());
}

ovcore::RefCountPtr<const MemoryList> BinaryReader::take_list(std::size_t size) {
  const std::size_t first = static_cast<std::size_t>(
      std::min<std::uint64_t>(size, std::max<std::uint64_t>(available(), first_piece)));
  if (first == 0) return MemoryList::create_copy(nullptr, 0);
  auto list = MemoryList::create({.reserve = first});
  while (list->size() < size) {
    const auto room = list->prepare(size - list->size());
    read_bytes(room.data(), room.size());
    list->commit(room.size());
  }
  return list;
}

ovcore::RefCountPtr<ovcore::IReadStream> BinaryReader::read_binary_stream() {
  if (!m_block || !m_block->has_unique_ref()) {
    auto stream = ovcore::make_ref_counted<BlockStream>();
    if (m_block_left > 0) finish_block();
    detach_block();
    m_block = std::move(stream);
  }
  const std::size_t size = block_head();
  m_block->attach(this, available() >= size);
  m_block_left = size;
  if (size > 0) hide_window();
  return m_block;
}

void BinaryReader::hide_window() noexcept {
  m_hidden_end = std::exchange(m_end, m_cursor);
}

// Reads on in the open block: everything asked for, or what is there.
std::size_t BinaryReader::read_block(void* target, std::size_t size, bool all) {
  size = static_cast<std::size_t>(std::min<std::uint64_t>(size, m_block_left));
  if (size == 0) return 0;
  struct Unhidden {
    explicit Unhidden(BinaryReader& r) noexcept : reader(r) { r.m_end = r.m_hidden_end; }
    ~Unhidden() {
      if (reader.m_block_left > 0) reader.hide_window();
    }
    BinaryReader& reader;
  } unhidden(*this);
  std::size_t done = 0;
  while (done < size && (all || done == 0)) {
    const std::size_t got = read_piece(static_cast<char*>(target) + done, size - done);
    done += got;
    m_block_left -= got;
  }
  return done;
}

void BinaryReader::finish_block() {
  m_end = m_hidden_end;
  const std::uint64_t left = std::exchange(m_block_left, 0);
  detach_block();
  skip(left);
}

void BinaryReader::skip(std::uint64_t size) {
  while (size > 0) {
    if (!has(1)) throw_truncated();
    const auto step = std::min<std::uint64_t>(size, in_window());
    m_cursor += step;
    size -= step;
  }
}

void BinaryReader::read_bytes(void* target, std::size_t size) {
  for (std::size_t done = 0; done < size;)
    done += read_piece(static_cast<char*>(target) + done, size - done);
}

// Up to `size` of the next bytes, and at least one.
std::size_t BinaryReader::read_piece(void* target, std::size_t size) {
  const std::size_t there = std::min(size, in_window());
  if (there > 0) {
    std::memcpy(target, m_cursor, there);
    m_cursor += there;
    return there;
  }
  const std::size_t got = take(target, size);
  if (got == 0) throw_truncated();
  return got;
}

// Takes memory only as the bytes come in.
std::string BinaryReader::gather(std::size_t size) {
  std::string text;
  while (text.size() < size) {
    const std::size_t before = text.size();
    const std::size_t in_memory =
        static_cast<std::size_t>(std::min<std::uint64_t>(available(), size));
    const std::size_t piece = std::min(size - before, std::max({before, in_memory, first_piece}));
    text.resize(before + piece);
    read_bytes(text.data() + before, piece);
  }
  return text;
}

std::size_t BinaryReader::take(void* target, std::size_t size) {
  if (!fill(1)) return 0;
  size = std::min(size, in_window());
  std::memcpy(target, m_cursor, size);
  m_cursor += size;
  return size;
}

}  // namespace ovserialize
