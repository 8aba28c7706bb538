// SPDX-License-Identifier: Apache-2.0
// Memory for the nodes of one container.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>

#include "ovcore/impl/small_memory.h"

namespace ovattribute::impl {

/// Hands out room for nodes of one type from a few slabs, in ascending order within each. Room that
/// is given back is handed out again first. Knows nothing of the nodes' contents: whoever uses it
/// destroys them, then calls `clear`.
///
/// The first eight nodes of a slab have a tag of one byte each, which are looked at together. A
/// slab that was made with marks has one bit for each node.
template <class Node>
class SlabPool {
 public:
  // JSON objects and the like mostly have three to eight members.
  static constexpr std::size_t first_slab = 6;

  SlabPool() noexcept = default;
  SlabPool(const SlabPool&) = delete;
  SlabPool& operator=(const SlabPool&) = delete;
  ~SlabPool() {
    while (m_newest != nullptr)
      drop_newest();
  }

  /// Bytes that `lend` needs for a number of nodes.
  [[nodiscard]] static constexpr std::size_t lent_size(std::size_t count, bool marked) noexcept {
    return sizeof(Slab) + count * sizeof(Node) + (marked ? (count + 63) / 64 * sizeof(Marks) : 0);
  }
  /// Room for the first nodes in memory that outlives the pool, aligned as `alignment`. REQUIRES:
  /// the pool is empty.
  static constexpr std::size_t alignment = std::max(alignof(Node), alignof(void*));
  void lend(void* memory, std::size_t count, bool marked) noexcept {
    m_newest = ::new (memory) Slab(nullptr, count, marked, true);
  }

  /// The size of the memory that was lent; 0 when there was none.
  [[nodiscard]] std::size_t size_of_lent() const noexcept {
    Slab* oldest = m_newest;
    while (oldest != nullptr && oldest->older != nullptr)
      oldest = oldest->older;
    if (oldest == nullptr || !oldest->is_lent) return 0;
    return lent_size(oldest->capacity, oldest->is_marked);
  }

  /// Makes the next `count` nodes neighbours. Raises `std::bad_alloc`, as `take` does.
  void reserve(std::size_t count, bool marked = false) {
    if (count > room()) add_slab(count, marked);
  }

  /// `in_use`: nodes handed out so far; the pool doubles with them.
  [[nodiscard]] void* take(std::size_t in_use) {
    if (m_free != nullptr) return std::exchange(m_free, m_free->next);
    if (room() == 0)
      add_slab(m_newest == nullptr ? first_slab : std::max(second_slab, in_use), false);
    return m_newest->node(m_newest->used++);
  }
  /// Takes the next `count` in one piece, for which `reserve` made room; null where there is none.
  [[nodiscard]] Node* take_row(std::size_t count) noexcept {
    if (count > room()) return nullptr;
    Node* const first = m_newest->node(m_newest->used);
    m_newest->used += static_cast<std::uint32_t>(count);
    return first;
  }
  void give_back(void* node) noexcept {
    if (is_newest(static_cast<const Node*>(node))) {
      if (--m_newest->used == 0 && !m_newest->is_lent) drop_newest();
    } else {
      m_free = ::new (node) FreeNode{m_free};
    }
  }

  /// Gives a node its tag, if it is one of the first eight of its slab.
  void set_tag(const Node* node, std::uint8_t tag) noexcept {
    Slab* slab = m_newest;
    while (!slab->holds(node))
      slab = slab->older;
    const auto place = static_cast<std::size_t>(node - slab->node(0));
    if (place >= sizeof slab->tags) return;
    const std::size_t shift = 8 * place;
    slab->tags = (slab->tags & ~(std::uint64_t{0xff} << shift)) | std::uint64_t{tag} << shift;
  }
  /// The node with that tag for which `f` is true, or null. REQUIRES: no gaps, at most eight nodes,
  /// and all have tags.
  template <class F>
  [[nodiscard]] Node* find_tagged(std::uint8_t tag, F&& f) const noexcept {
    constexpr std::uint64_t ones = ~std::uint64_t{0} / 0xff;
    for (Slab* slab = m_newest; slab != nullptr; slab = slab->older) {
      // The top bit of each byte that equals the tag; false ones may stand above a true one.
      const std::uint64_t other = slab->tags ^ ones * tag;
      std::uint64_t equal = (other - ones) & ~other & ones << 7;
      while (equal != 0) {
        const auto i = static_cast<std::uint32_t>(std::countr_zero(equal)) / 8;
        if (i >= slab->used) break;
        if (f(slab->node(i))) return slab->node(i);
        equal &= equal - 1;
      }
    }
    return nullptr;
  }

  using Marks = std::uint64_t;
  /// The marks of the only slab, 64 nodes to a word from the lowest bit on; null if it has none or
  /// there are several.
  [[nodiscard]] Marks* marks() const noexcept {
    const bool has_marks = m_newest != nullptr && m_newest->is_marked && m_newest->older == nullptr;
    return has_marks ? m_newest->marks() : nullptr;
  }
  /// The first node of the newest slab. REQUIRES: there is one.
  [[nodiscard]] Node* row() const noexcept { return m_newest->node(0); }

  /// Nodes that the newest slab has not handed out.
  [[nodiscard]] std::size_t room() const noexcept {
    return m_newest != nullptr ? m_newest->capacity - m_newest->used : 0;
  }
  /// Whether it is the one that was handed out last of the newest slab.
  [[nodiscard]] bool is_newest(const Node* node) const noexcept {
    return m_newest->used > 0 && node == m_newest->node(m_newest->used - 1);
  }
  /// Whether nodes were given back that lie between others.
  [[nodiscard]] bool has_gaps() const noexcept { return m_free != nullptr; }
  /// Of nodes that ascend from the oldest slab to the newest, the last for which `precedes` is
  /// true, or null. REQUIRES: no gaps.
  template <class Precedes>
  [[nodiscard]] Node* bisect(Precedes&& precedes) const noexcept {
    for (Slab* slab = m_newest; slab != nullptr; slab = slab->older) {
      Node* low = slab->node(0);
      if (slab->used == 0 || !precedes(low)) continue;
      for (std::size_t count = slab->used; count > 1;) {
        const std::size_t half = count / 2;
        low = precedes(low + half) ? low + half : low;
        count -= half;
      }
      return low;
    }
    return nullptr;
  }

  /// Takes over the nodes of `other`, which is left empty. REQUIRES: neither is empty, and `other`
  /// has no gaps.
  void adopt(SlabPool& other) noexcept {
    Slab* oldest = other.m_newest;
    while (oldest->older != nullptr)
      oldest = oldest->older;
    // The newest slab stays the newest, since it may have room.
    oldest->older = std::exchange(m_newest->older, std::exchange(other.m_newest, nullptr));
  }

  void clear() noexcept {
    while (m_newest != nullptr && !m_newest->is_lent)
      drop_newest();
    if (m_newest != nullptr) m_newest->start();
    m_free = nullptr;
  }
  void swap(SlabPool& other) noexcept {
    std::swap(m_newest, other.m_newest);
    std::swap(m_free, other.m_free);
  }

 private:
  static constexpr std::size_t second_slab = 4;
  static constexpr std::size_t largest_slab = (std::size_t{1} << 30) - 1;
  static_assert(alignof(Node) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

  /// Followed in memory by its nodes, of which the first `used` are handed out or on the free list,
  /// and its marks.
  struct alignas(Node) Slab {
    Slab(Slab* before, std::size_t room, bool with_marks, bool is_lent_to_us) noexcept
        : older(before),
          capacity(static_cast<std::uint32_t>(room)),
          is_marked(with_marks),
          is_lent(is_lent_to_us) {
      start();
    }
    void start() noexcept {
      used = 0;
      if (is_marked) std::fill_n(marks(), (capacity + 63) / 64, Marks{0});
    }

    Slab* older;
    std::uint64_t tags = 0;  // of the first eight, from the lowest byte on
    std::uint32_t used;
    std::uint32_t capacity : 30;
    std::uint32_t is_marked : 1;
    std::uint32_t is_lent : 1;

    Node* node(std::size_t i) noexcept { return reinterpret_cast<Node*>(this + 1) + i; }
    Marks* marks() noexcept { return reinterpret_cast<Marks*>(node(capacity)); }
    bool holds(const Node* memory) noexcept {
      const auto offset =
          reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(this);
      return offset < lent_size(capacity, false);
    }
  };
  struct FreeNode {
    FreeNode* next;
  };

  void add_slab(std::size_t capacity, bool marked) {
    capacity = std::min(capacity, largest_slab);
    void* const memory = ovcore::impl::SmallMemory::take(lent_size(capacity, marked));
    m_newest = ::new (memory) Slab(m_newest, capacity, marked, false);
  }
  void drop_newest() noexcept {
    Slab* const slab = std::exchange(m_newest, m_newest->older);
    if (slab->is_lent) return;
    ovcore::impl::SmallMemory::give(slab, lent_size(slab->capacity, slab->is_marked));
  }

  Slab* m_newest = nullptr;
  FreeNode* m_free = nullptr;
};

}  // namespace ovattribute::impl
