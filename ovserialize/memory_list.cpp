// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/memory_list.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <cassert>
#include <cstring>
#include <new>

#include "ovcore/operating_system.h"

namespace ovserialize {
namespace {

constexpr std::size_t smallest_segment = 256;
constexpr std::size_t largest_segment = std::size_t{64} << 10;

}  // namespace

/// Memory for bytes, allocated together with this head.
class MemoryList::Segment final : public ovcore::RefCounted {
 public:
  static ovcore::RefCountPtr<Segment> create(std::size_t capacity, bool wiping) {
    void* memory = ::operator new(sizeof(Segment) + capacity);
    return ovcore::RefCountPtr<Segment>::adopt(::new (memory) Segment(capacity, wiping));
  }
  [[nodiscard]] unsigned char* bytes() noexcept {
    return reinterpret_cast<unsigned char*>(this + 1);
  }

 private:
  Segment(std::size_t capacity, bool wiping) noexcept : m_capacity(capacity), m_wiping(wiping) {}
  ~Segment() override {
    if (m_wiping) ovcore::cleanse(bytes(), m_capacity);
  }
  static void operator delete(void* memory) noexcept { ::operator delete(memory); }

  const std::size_t m_capacity;
  const bool m_wiping;
};

MemoryList::MemoryList(const MemoryListOptions& options, std::size_t own_size) noexcept
    : m_segment_size(options.segment_size), m_own_size(own_size), m_wiping(options.wiping) {
  if (own_size == 0) return;
  m_first.data = own_bytes();
  m_room = own_size;
}

MemoryList::~MemoryList() {
  if (m_wiping) ovcore::cleanse(own_bytes(), m_own_size);
}

void MemoryList::operator delete(void* memory) noexcept {
  ::operator delete(memory);
}

ovcore::RefCountPtr<MemoryList> MemoryList::create(const MemoryListOptions& options) {
  std::size_t own_size = options.reserve;
  if (own_size == 0) own_size = options.segment_size;
  if (own_size == 0) own_size = smallest_segment;
  void* memory = ::operator new(sizeof(MemoryList) + own_size);
  return ovcore::RefCountPtr<MemoryList>::adopt(::new (memory) MemoryList(options, own_size));
}

ovcore::RefCountPtr<MemoryList> MemoryList::create_copy(const void* data, std::size_t size,
                                                        bool wiping) {
  void* memory = ::operator new(sizeof(MemoryList) + size);
  auto result =
      ovcore::RefCountPtr<MemoryList>::adopt(::new (memory) MemoryList({.wiping = wiping}, size));
  if (size > 0) {
    std::memcpy(result->own_bytes(), data, size);
    result->commit(size);
  }
  return result;
}

int MemoryList::compare(const MemoryList& other) const noexcept {
  std::span<const unsigned char> a;
  std::span<const unsigned char> b;
  std::size_t next_a = 0;
  std::size_t next_b = 0;
  for (std::size_t left = std::min(m_size, other.m_size); left > 0;) {
    while (a.empty())
      a = span(next_a++);
    while (b.empty())
      b = other.span(next_b++);
    const std::size_t common = std::min({a.size(), b.size(), left});
    if (a.data() != b.data()) {
      const int order = std::memcmp(a.data(), b.data(), common);
      if (order != 0) return order < 0 ? -1 : 1;
    }
    a = a.subspan(common);
    b = b.subspan(common);
    left -= common;
  }
  return m_size < other.m_size ? -1 : m_size > other.m_size ? 1 : 0;
}

std::size_t MemoryList::hash() const noexcept {
  if (m_first.size == m_size) return XXH3_64bits(m_first.data, m_size);
  XXH3_state_t state;
  XXH3_64bits_reset(&state);
  for_each_span([&state](auto bytes) { XXH3_64bits_update(&state, bytes.data(), bytes.size()); });
  return XXH3_64bits_digest(&state);
}

void MemoryList::copy_to(void* target, std::size_t offset, std::size_t size) const noexcept {
  auto* out = static_cast<unsigned char*>(target);
  for_each_span(offset, size, [&out](auto bytes) {
    std::memcpy(out, bytes.data(), bytes.size());
    out += bytes.size();
  });
}

ovcore::RefCountPtr<MemoryList> MemoryList::copy(std::size_t offset, std::size_t size) const {
  if (size == 0) return create_copy(nullptr, 0, m_wiping);
  auto result = create({.reserve = size, .wiping = m_wiping});
  copy_to(result->prepare(size).data(), offset, size);
  result->commit(size);
  return result;
}

ovcore::RefCountPtr<const MemoryList> MemoryList::slice(std::size_t offset,
                                                        std::size_t size) const {
  auto result = create_copy(nullptr, 0, m_wiping);
  result->add_pieces_of(*this, offset, size);
  return result;
}

void MemoryList::append(const void* data, std::size_t size) {
  const std::size_t before = m_size;
  const auto* in = static_cast<const unsigned char*>(data);
  try {
    while (size > 0) {
      if (m_room == 0) {
        add_segment(m_segment_size != 0 ? m_segment_size : std::max(next_segment_size(), size));
      }
      const std::size_t taken = std::min(size, m_room);
      std::memcpy(room().data(), in, taken);
      commit(taken);
      in += taken;
      size -= taken;
    }
  } catch (...) {
    truncate(before);
    throw;
  }
}

void MemoryList::append(const MemoryList& other) {
  if (other.m_size < shared_from || (m_wiping && !other.m_wiping) || &other == this) {
    append_copy(other);
  } else {
    add_pieces_of(other, 0, other.m_size);
  }
}

void MemoryList::append_copy(const MemoryList& other) {
  const std::size_t before = m_size;
  try {
    // By index and size, since the list may be this one.
    std::size_t left = other.m_size;
    for (std::size_t i = 0; left > 0; ++i) {
      const auto bytes = other.span(i).first(std::min(left, other.span(i).size()));
      append(bytes.data(), bytes.size());
      left -= bytes.size();
    }
  } catch (...) {
    truncate(before);
    throw;
  }
}

std::span<unsigned char> MemoryList::prepare(std::size_t wanted) {
  if (m_room == 0) add_segment(std::min(next_segment_size(), std::max<std::size_t>(wanted, 1)));
  return room().first(std::min(m_room, std::max<std::size_t>(wanted, 1)));
}

void MemoryList::commit(std::size_t size) noexcept {
  assert(size <= m_room);
  last().size += size;
  m_size += size;
  m_room -= size;
}

void MemoryList::truncate(std::size_t size) noexcept {
  assert(size <= m_size);
  while (m_size > size) {
    Piece& p = last();
    const std::size_t dropped = std::min(m_size - size, p.size);
    m_size -= dropped;
    if (dropped == p.size && !m_more.empty()) {
      m_more.pop_back();
      m_room = 0;
      continue;
    }
    p.size -= dropped;
    if (exclusive(p)) {
      if (m_wiping) ovcore::cleanse(p.data + p.size, dropped);
      m_room += dropped;
    } else {
      m_room = 0;  // another list still sees these bytes
    }
  }
}

std::span<unsigned char> MemoryList::room() noexcept {
  if (m_room == 0) return {};
  return {last().data + last().size, m_room};
}

std::size_t MemoryList::next_segment_size() const noexcept {
  if (m_segment_size != 0) return m_segment_size;
  return std::clamp(m_size, smallest_segment, largest_segment);
}

// Whether nobody else can see the bytes of the piece.
bool MemoryList::exclusive(const Piece& p) const noexcept {
  return p.owner ? p.owner->has_unique_ref() : has_unique_ref();
}

void MemoryList::add_segment(std::size_t capacity) {
  auto segment = Segment::create(capacity, m_wiping);
  unsigned char* const bytes = segment->bytes();
  if (m_first.data == nullptr) {
    m_first = {bytes, 0, std::move(segment)};
  } else {
    m_more.push_back({bytes, 0, std::move(segment)});
  }
  m_room = capacity;
}

void MemoryList::add_pieces_of(const MemoryList& other, std::size_t offset, std::size_t size) {
  std::size_t added = 0;
  other.for_each_piece(offset, size, [&added](const Piece&, auto, auto) { ++added; });
  if (added == 0) return;
  if (m_first.data == nullptr) --added;
  if (m_more.capacity() < m_more.size() + added) {
    m_more.reserve(std::max(m_more.size() + added, m_more.size() * 2));
  }
  other.for_each_piece(offset, size, [&](const Piece& p, std::size_t from, std::size_t taken) {
    auto owner = p.owner ? p.owner : ovcore::RefCountPtr<const ovcore::RefCounted>(&other);
    Piece shared{p.data + from, taken, std::move(owner)};
    if (m_first.data == nullptr) {
      m_first = std::move(shared);
    } else {
      m_more.push_back(std::move(shared));
    }
  });
  m_size += size;
  m_room = 0;
}

void MemoryList::make_exclusive() {
  for (std::size_t i = 0; i < span_count(); ++i) {
    Piece& p = piece(i);
    if (p.size == 0 || exclusive(p)) continue;
    auto segment = Segment::create(p.size, m_wiping);
    std::memcpy(segment->bytes(), p.data, p.size);
    unsigned char* const bytes = segment->bytes();
    p = {bytes, p.size, std::move(segment)};
    if (&p == &last()) m_room = 0;
  }
}

}  // namespace ovserialize
