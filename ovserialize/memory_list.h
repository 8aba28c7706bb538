// SPDX-License-Identifier: Apache-2.0
// Bytes in memory, in segments: what `MemoryWriter` writes, `MemoryReader` reads, and values keep.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "ovcore/export.h"
#include "ovcore/ref_count.h"

namespace ovserialize {

struct MemoryListOptions {
  /// Bytes of every segment; 0: from 256 bytes up to 64 KiB, as large as all before it together.
  std::size_t segment_size = 0;
  /// Bytes of the first segment, which costs no allocation of its own; 0: as `segment_size` says.
  std::size_t reserve = 0;
  /// Overwrites the bytes of its segments before their memory is given back.
  bool wiping = false;
};

/// A row of segments that reads as one block of bytes; where they meet is nobody's business but
/// that of `for_each_span`. Built by one thread, then shared as `RefCountPtr<const MemoryList>`
/// between any number of them and never changed again.
///
/// Lists share segments (`append`, `slice`): bytes that a second list can see are never
/// overwritten. Operations that change a list and fail leave it as it was.
class OV_EXPORT MemoryList final : public ovcore::RefCounted {
 public:
  /// Bytes below which a copy costs less than what sharing keeps alive.
  static constexpr std::size_t shared_from = 4096;

  [[nodiscard]] static ovcore::RefCountPtr<MemoryList> create(
      const MemoryListOptions& options = {});
  /// A list of its own copy of the bytes, in one segment of their size.
  [[nodiscard]] static ovcore::RefCountPtr<MemoryList> create_copy(const void* data,
                                                                   std::size_t size,
                                                                   bool wiping = false);

  [[nodiscard]] std::size_t size() const noexcept { return m_size; }
  [[nodiscard]] bool empty() const noexcept { return m_size == 0; }
  [[nodiscard]] bool wiping() const noexcept { return m_wiping; }

  /// By unsigned bytes; a prefix sorts first. -1, 0 or 1.
  [[nodiscard]] int compare(const MemoryList& other) const noexcept;
  friend bool operator==(const MemoryList& a, const MemoryList& b) noexcept {
    return a.m_size == b.m_size && a.compare(b) == 0;
  }
  /// XXH3 (64 bits) of the bytes.
  [[nodiscard]] std::size_t hash() const noexcept;

  /// Calls `f(std::span<const unsigned char>)` for each run of neighbouring bytes, none empty.
  template <class F>
  void for_each_span(F&& f) const;
  /// The same for `size` bytes from `offset`. REQUIRES: the list has them.
  template <class F>
  void for_each_span(std::size_t offset, std::size_t size, F&& f) const;
  /// Number of runs, and the run at an index; it may be empty. For walks that stop and go on.
  [[nodiscard]] std::size_t span_count() const noexcept {
    return m_first.data == nullptr ? 0 : m_more.size() + 1;
  }
  [[nodiscard]] std::span<const unsigned char> span(std::size_t index) const noexcept {
    const Piece& p = piece(index);
    return {p.data, p.size};
  }

  /// Copies `size` bytes from `offset` out. REQUIRES: the list has them.
  void copy_to(void* target, std::size_t offset, std::size_t size) const noexcept;
  /// The bytes in a list of its own, wiping when this one is.
  [[nodiscard]] ovcore::RefCountPtr<MemoryList> copy(std::size_t offset, std::size_t size) const;
  /// A list of `size` bytes from `offset` that shares the segments and so keeps them whole.
  /// REQUIRES: the list has these bytes.
  [[nodiscard]] ovcore::RefCountPtr<const MemoryList> slice(std::size_t offset,
                                                            std::size_t size) const;

  // Building. None of these may be called once another thread can see the list.

  /// Copies the bytes to the end.
  void append(const void* data, std::size_t size);
  /// Appends the bytes of another list: shares its segments when it is large enough for that to
  /// pay and what must be wiped stays so, else copies. `other` may be this list.
  void append(const MemoryList& other);
  /// Copies the bytes of another list to the end, never sharing.
  void append_copy(const MemoryList& other);
  /// Room for up to `wanted` bytes after the end, at least one, to be filled and then committed.
  [[nodiscard]] std::span<unsigned char> prepare(std::size_t wanted);
  /// Makes the first `size` bytes of the room part of the list.
  void commit(std::size_t size) noexcept;
  /// Drops everything behind the first `size` bytes.
  void truncate(std::size_t size) noexcept;
  /// Room that is there without allocating; may be empty.
  [[nodiscard]] std::span<unsigned char> room() noexcept;
  /// Calls `f(std::span<unsigned char>)` for each run of `size` bytes from `offset`, for changing
  /// them in place. Segments that another list shares are copied first. REQUIRES: the list has
  /// these bytes.
  template <class F>
  void for_each_mutable_span(std::size_t offset, std::size_t size, F&& f);

 private:
  class Segment;

  /// Bytes of one segment; `owner` keeps them alive, null for those behind this object.
  struct Piece {
    unsigned char* data = nullptr;
    std::size_t size = 0;
    ovcore::RefCountPtr<const ovcore::RefCounted> owner;
  };

  MemoryList(const MemoryListOptions& options, std::size_t own_size) noexcept;
  ~MemoryList() override;
  static void operator delete(void* memory) noexcept;

  [[nodiscard]] const Piece& piece(std::size_t i) const noexcept {
    return i == 0 ? m_first : m_more[i - 1];
  }
  [[nodiscard]] Piece& piece(std::size_t i) noexcept { return i == 0 ? m_first : m_more[i - 1]; }
  [[nodiscard]] Piece& last() noexcept { return m_more.empty() ? m_first : m_more.back(); }
  [[nodiscard]] unsigned char* own_bytes() noexcept {
    return reinterpret_cast<unsigned char*>(this + 1);
  }
  // Calls `f(piece, offset in the piece, bytes)` for the pieces that hold the bytes.
  template <class F>
  void for_each_piece(std::size_t offset, std::size_t size, F&& f) const;
  [[nodiscard]] std::size_t next_segment_size() const noexcept;
  [[nodiscard]] bool exclusive(const Piece& p) const noexcept;
  void add_segment(std::size_t capacity);
  void add_pieces_of(const MemoryList& other, std::size_t offset, std::size_t size);
  void make_exclusive();

  const std::size_t m_segment_size;
  const std::size_t m_own_size;  // bytes behind this object
  const bool m_wiping;
  std::size_t m_size = 0;
  std::size_t m_room = 0;  // bytes free behind the last piece, in its segment
  Piece m_first;           // no data: the list has no piece
  std::vector<Piece> m_more;
};

template <class F>
void MemoryList::for_each_span(F&& f) const {
  for (std::size_t i = 0; i < span_count(); ++i) {
    if (const auto bytes = span(i); !bytes.empty()) f(bytes);
  }
}

template <class F>
void MemoryList::for_each_span(std::size_t offset, std::size_t size, F&& f) const {
  for_each_piece(offset, size, [&f](const Piece& p, std::size_t from, std::size_t taken) {
    f(std::span<const unsigned char>(p.data + from, taken));
  });
}

template <class F>
void MemoryList::for_each_piece(std::size_t offset, std::size_t size, F&& f) const {
  for (std::size_t i = 0; size > 0; ++i) {
    const Piece& p = piece(i);
    if (offset >= p.size) {
      offset -= p.size;
      continue;
    }
    const std::size_t taken = std::min(size, p.size - offset);
    f(p, offset, taken);
    size -= taken;
    offset = 0;
  }
}

template <class F>
void MemoryList::for_each_mutable_span(std::size_t offset, std::size_t size, F&& f) {
  make_exclusive();
  for_each_span(offset, size, [&f](std::span<const unsigned char> bytes) {
    f(std::span<unsigned char>(const_cast<unsigned char*>(bytes.data()), bytes.size()));
  });
}

}  // namespace ovserialize
