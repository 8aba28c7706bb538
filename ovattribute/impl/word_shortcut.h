// SPDX-License-Identifier: Apache-2.0
// Finding the words of a map by their hash, once it is worth it.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

namespace ovattribute::impl {

/// A hash table beside a map, from its words to its items. It is made after a quarter as many
/// searches as there are words, which took about as long as making it takes; so it never more than
/// doubles what searching costs, and a map that nobody searches has none. Where there is no
/// memory, or words collide too often, the map does without.
///
/// One thread at a time may change the map and call `forget`; many may search. One of those makes
/// the table, while the others go on without it.
class WordShortcut {
 public:
  using Word = std::uintptr_t;

  class Table {
   public:
    /// Raises `std::bad_alloc`.
    static std::unique_ptr<Table> make(std::size_t count) {
      const auto bits = static_cast<unsigned>(std::bit_width(2 * count - 1));
      const std::size_t size = (std::size_t{1} << bits) + most_steps;
      void* const memory = ::operator new(sizeof(Table) + size * sizeof(Entry));
      std::unique_ptr<Table> table(::new (memory) Table(64 - bits));
      std::uninitialized_fill_n(table->entries(), size, Entry{0, nullptr});
      return table;
    }
    static void operator delete(void* memory) noexcept { ::operator delete(memory); }

    /// The item of `word`; null when the word is absent.
    [[nodiscard]] void* find(Word word) noexcept {
      const Entry* const first = place_of(word);
      for (const Entry* entry = first; entry != first + most_steps; ++entry)
        if (entry->word == word || entry->item == nullptr) return entry->item;
      return nullptr;
    }
    /// False when too many places are taken where the word belongs.
    bool insert(Word word, void* item) noexcept {
      Entry* const first = place_of(word);
      Entry* const vacant = std::find_if(first, first + most_steps,
                                         [](const Entry& entry) { return entry.item == nullptr; });
      if (vacant == first + most_steps) return false;
      *vacant = {word, item};
      return true;
    }

   private:
    struct Entry {
      Word word;
      void* item;
    };
    static constexpr std::size_t most_steps = 32;

    explicit Table(unsigned shift) noexcept : m_shift(shift) {}
    Entry* entries() noexcept { return reinterpret_cast<Entry*>(this + 1); }
    Entry* place_of(Word word) noexcept {
      return entries() + (word * 0x9e3779b97f4a7c15 >> m_shift);
    }

    alignas(Entry) std::size_t m_shift;
  };

  WordShortcut() noexcept = default;
  WordShortcut(const WordShortcut&) = delete;
  WordShortcut& operator=(const WordShortcut&) = delete;
  ~WordShortcut() { forget(); }

  /// Null while there is none.
  [[nodiscard]] Table* table() const noexcept {
    const std::uintptr_t state = m_state.load(std::memory_order_acquire);
    // Beside a mark there is no other way. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return (state & (counting | making)) == 0 ? reinterpret_cast<Table*>(state) : nullptr;
  }

  /// Counts a search among `count` words, without a table. `fill(table)` enters all of them, and
  /// tells whether that went well.
  template <class Fill>
  void count_search(std::size_t count, Fill&& fill) noexcept {
    std::uintptr_t state = m_state.load(std::memory_order_relaxed);
    if ((state & counting) == 0) return;
    if (state / 2 < count / 4) {
      m_state.compare_exchange_weak(state, state + 2, std::memory_order_relaxed);
      return;
    }
    if (!m_state.compare_exchange_strong(state, making, std::memory_order_relaxed)) return;
    std::unique_ptr<Table> table;
    try {
      table = Table::make(count);
      if (!fill(*table)) table.reset();
    } catch (const std::bad_alloc&) {
    }
    const auto next =
        table != nullptr ? reinterpret_cast<std::uintptr_t>(table.release()) : counting;
    m_state.store(next, std::memory_order_release);
  }

  /// Of maps that nobody searches meanwhile.
  void swap(WordShortcut& other) noexcept {
    const std::uintptr_t state = m_state.load(std::memory_order_relaxed);
    m_state.store(other.m_state.load(std::memory_order_relaxed), std::memory_order_relaxed);
    other.m_state.store(state, std::memory_order_relaxed);
  }

  /// What was counted and made no longer holds.
  void forget() noexcept {
    if (m_state.load(std::memory_order_relaxed) == counting) return;
    delete table();
    m_state.store(counting, std::memory_order_relaxed);
  }

 private:
  static constexpr std::uintptr_t counting = 1;
  static constexpr std::uintptr_t making = 2;
  static_assert(alignof(Table) > (counting | making));

  // The address of the table or, while there is none, `making` or twice the number of searches plus
  // `counting`.
  std::atomic<std::uintptr_t> m_state{counting};
};

}  // namespace ovattribute::impl
