// SPDX-License-Identifier: Apache-2.0
// Memory for the nodes of one container.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include "ovcore/impl/small_memory.h"

namespace ovattribute::impl {

/// Hands out room for nodes of one type from a few slabs, in ascending order within each. Room that
/// is given back is handed out again first. Knows nothing of the nodes' contents: whoever uses it
/// destroys them, then calls `clear`.
///
/// The first nodes of a slab have a tag of one byte each, the slab's first eight of which are
/// looked at together.
template <class Node>
class SlabPool {
 public:
  // JSON objects and the like mostly have three to eight members.
  static constexpr std::size_t first_slab = 6;

  SlabPool() noexcept = default;
  SlabPool(const SlabPool&) = delete;
  SlabPool& operator=(const SlabPool&) = delete;
  ~SlabPool() { clear(); }

  /// Bytes that `lend` needs for a number of nodes.
  [[nodiscard]] static constexpr std::size_t lent_size(std::size_t count) noexcept {
    return sizeof(Slab) + count * sizeof(Node);
  }
  /// Room for the first nodes in memory that outlives the pool, aligned as `alignment`. REQUIRES:
  /// the pool is empty.
  static constexpr std::size_t alignment = std::max(alignof(Node), alignof(void*));
  void lend(void* memory, std::size_t count) noexcept {
    m_newest = ::new (memory) Slab{nullptr, 0, 0, static_cast<std::uint32_t>(count), true};
  }

  /// Makes the next `count` nodes neighbours. Raises `std::bad_alloc`, as `take` does.
  void reserve(std::size_t count) {
    if (count > room()) add_slab(count);
  }

  /// `in_use`: nodes handed out so far; the pool doubles with them.
  [[nodiscard]] void* take(std::size_t in_use) {
    if (m_free != nullptr) return std::exchange(m_free, m_free->next);
    if (room() == 0) add_slab(m_newest == nullptr ? first_slab : std::max(second_slab, in_use));
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
    if (m_newest->used > 0 && node == m_newest->node(m_newest->used - 1)) {
      if (--m_newest->used == 0 && !m_newest->is_lent) drop_newest();
    } else {
      m_free = ::new (node) FreeNode{m_free};
    }
  }

  /// Gives a node its tag. REQUIRES: no more than eight nodes were ever in use together.
  void set_tag(const void* node, std::uint8_t tag) noexcept {
    Slab* slab = m_newest;
    while (!slab->holds(node))
      slab = slab->older;
    const unsigned shift =
        8 * static_cast<unsigned>(static_cast<const Node*>(node) - slab->node(0));
    slab->tags = (slab->tags & ~(std::uint64_t{0xff} << shift)) | std::uint64_t{tag} << shift;
  }
  /// The node with that tag for which `f` is true, or null. REQUIRES: no gaps, and all have tags.
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

  /// Nodes that the newest slab has not handed out.
  [[nodiscard]] std::size_t room() const noexcept {
    return m_newest != nullptr ? m_newest->capacity - m_newest->used : 0;
  }
  /// Whether nodes were given back that lie between others.
  [[nodiscard]] bool has_gaps() const noexcept { return m_free != nullptr; }
  /// Calls `f` with every node handed out. REQUIRES: no gaps.
  template <class F>
  void for_each(F&& f) const noexcept {
    for (Slab* slab = m_newest; slab != nullptr; slab = slab->older) {
      for (std::uint32_t i = 0; i < slab->used; ++i)
        f(slab->node(i));
    }
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
    while (m_newest != nullptr)
      drop_newest();
    m_free = nullptr;
  }
  void swap(SlabPool& other) noexcept {
    std::swap(m_newest, other.m_newest);
    std::swap(m_free, other.m_free);
  }

 private:
  static constexpr std::size_t second_slab = 4;
  static_assert(alignof(Node) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);

  /// Followed in memory by its nodes, of which the first `used` are handed out or on the free list.
  struct alignas(Node) Slab {
    Slab* older;
    std::uint64_t tags;  // of the first eight, from the lowest byte on
    std::uint32_t used;
    std::uint32_t capacity : 31;
    bool is_lent : 1;

    Node* node(std::size_t i) noexcept { return reinterpret_cast<Node*>(this + 1) + i; }
    bool holds(const void* memory) noexcept {
      const auto offset =
          reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(this);
      return offset < lent_size(capacity);
    }
  };
  struct FreeNode {
    FreeNode* next;
  };

  void add_slab(std::size_t capacity) {
    capacity = std::min<std::size_t>(capacity, std::numeric_limits<std::int32_t>::max());
    void* const memory = ovcore::impl::SmallMemory::take(lent_size(capacity));
    m_newest = ::new (memory)
        Slab{m_newest, 0, 0, static_cast<std::uint32_t>(capacity) & 0x7fffffff, false};
  }
  void drop_newest() noexcept {
    Slab* const slab = std::exchange(m_newest, m_newest->older);
    if (!slab->is_lent) ovcore::impl::SmallMemory::give(slab, lent_size(slab->capacity));
  }

  Slab* m_newest = nullptr;
  FreeNode* m_free = nullptr;
};

}  // namespace ovattribute::impl
