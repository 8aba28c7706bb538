// SPDX-License-Identifier: Apache-2.0
// The search structure of an ordered map: machine words in ascending order, each with a pointer.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include "ovcore/impl/small_memory.h"

namespace ovattribute::impl {

/// A row of pages of distinct words and pointers that it does not own, and a directory of the
/// pages. Both are bisected without branches that depend on the words. Pages are half full at
/// least, save those that lost entries again: a page is given back when it is empty and not before,
/// so memory is bound by the largest number of entries held. Where there are many pages they become
/// larger, so that their directory, which is moved when a page is added, stays short. Every
/// operation but `insert`, `append` and `start` never throws; those raise `std::bad_alloc` and then
/// leave the index as it was.
template <std::size_t Capacity>
class WordIndex {
 public:
  using Word = std::uintptr_t;

 private:
  static constexpr std::size_t first_capacity = std::min<std::size_t>(Capacity, 16);
  static constexpr std::size_t many_pages = 512;
  static constexpr std::size_t large_capacity = 8 * Capacity;

  // A page is searched in two steps: which block, then where in it.
  static constexpr std::size_t block = Capacity < 8 ? Capacity : 8;
  static_assert(Capacity >= 4 && Capacity % block == 0);

  struct Entry {
    Word word;
    void* item;
  };
  static constexpr Entry filler{std::numeric_limits<Word>::max(), nullptr};

  template <std::size_t... I>
  static std::size_t count_in_block(const Entry* entries, Word word,
                                    std::index_sequence<I...>) noexcept {
    return (std::size_t{0} + ... + std::size_t{entries[I].word < word});
  }

  /// Followed in memory by its entries. Those in use ascend; the rest are fillers. A page's items
  /// are the user's, those of the directory are pages with the words that are the least they can
  /// hold; the first one's counts for nothing.
  struct alignas(Entry) Page {
    std::uint32_t count;
    std::uint32_t capacity;

    Entry* entries() noexcept { return reinterpret_cast<Entry*>(this + 1); }
    const Entry* entries() const noexcept { return reinterpret_cast<const Entry*>(this + 1); }
    Page* page(std::size_t at) const noexcept { return static_cast<Page*>(entries()[at].item); }
    bool is_full() const noexcept { return count == capacity; }

    /// The number of words below, or one less when they fill their last block.
    std::size_t rank_or_less(Word word) const noexcept {
      std::size_t full_blocks = 0;
      for (std::size_t i = block; i < capacity; i += block)
        full_blocks += entries()[i - 1].word < word;
      const std::size_t start = full_blocks * block;
      return start + count_in_block(entries() + start, word, std::make_index_sequence<block - 1>());
    }
    std::size_t rank(Word word) const noexcept {
      const std::size_t at = rank_or_less(word);
      return at + (entries()[at].word < word);
    }
    /// Of a directory: where the page is that `word` belongs to.
    std::size_t place(Word word) const noexcept {
      const Entry* low = entries();
      for (std::size_t left = count; left > 1;) {
        const std::size_t half = left / 2;
        low = low[half].word <= word ? low + half : low;
        left -= half;
      }
      return static_cast<std::size_t>(low - entries());
    }

    void insert(std::size_t at, Entry entry) noexcept {
      std::copy_backward(entries() + at, entries() + count, entries() + count + 1);
      entries()[at] = entry;
      ++count;
    }
    void remove(std::size_t at) noexcept {
      std::copy(entries() + at + 1, entries() + count, entries() + at);
      entries()[--count] = filler;
    }
    /// Moves the entries from `at` on to `target`, which is empty.
    void part(std::size_t at, Page& target) noexcept {
      std::copy(entries() + at, entries() + count, target.entries());
      std::fill(entries() + at, entries() + count, filler);
      target.count = static_cast<std::uint32_t>(count - at);
      count = static_cast<std::uint32_t>(at);
    }
  };

 public:
  /// Which page, and where in it.
  struct Path {
    std::size_t page;
    std::size_t at;
  };

  /// What `seek` found. `item` is that of the first word not below the one sought, unless all in
  /// its page are below it: then the item of the last of them, which is the next smaller word.
  struct Found {
    void* item;
    bool below;
  };

  WordIndex() noexcept = default;
  WordIndex(const WordIndex&) = delete;
  WordIndex& operator=(const WordIndex&) = delete;
  ~WordIndex() { clear(); }

  [[nodiscard]] bool empty() const noexcept { return m_directory == nullptr; }

  /// The item of `word`; null when the word is absent. REQUIRES: not empty.
  [[nodiscard]] void* find(Word word) const noexcept {
    const Page& page = *m_directory->page(m_directory->place(word));
    const Entry& candidate = page.entries()[page.rank_or_less(word)];
    return candidate.word == word ? candidate.item : nullptr;
  }

  /// Looks for `word` and for the place where it belongs. REQUIRES: not empty.
  Found seek(Word word, Path& path) const noexcept {
    path.page = m_directory->place(word);
    const Page& page = *m_directory->page(path.page);
    path.at = page.rank(word);
    const bool below = path.at == page.count;
    return {page.entries()[path.at - below].item, below};
  }

  /// Makes a page for `count` words, or a full one. REQUIRES: empty.
  void start(std::size_t count) {
    std::size_t capacity = first_capacity;
    while (capacity < count && capacity < Capacity)
      capacity *= 2;
    Page* const directory = make_page(2);
    try {
      directory->insert(0, {0, make_page(std::min(capacity, Capacity))});
    } catch (...) {
      free_page(directory);
      throw;
    }
    m_directory = directory;
  }

  /// Adds a word above all others. REQUIRES: started.
  void append(Word word, void* item) {
    const std::size_t last = m_directory->count - 1;
    insert({last, m_directory->page(last)->count}, word, item);
  }

  /// Adds a word at the place where `seek` for it ended.
  void insert(const Path& path, Word word, void* item) {
    Page* page = m_directory->page(path.page);
    if (page->is_full()) {
      if (page->capacity >= (m_directory->count < many_pages ? Capacity : large_capacity)) {
        return insert_into_full(path, {word, item});
      }
      page = enlarge(page);
      m_directory->entries()[path.page].item = page;
    }
    page->insert(path.at, {word, item});
  }

  /// REQUIRES: the word is present.
  void erase(Word word) noexcept {
    const std::size_t place = m_directory->place(word);
    Page* const page = m_directory->page(place);
    page->remove(page->rank(word));
    if (page->count > 0) return;
    free_page(page);
    m_directory->remove(place);
    if (m_directory->count == 0) free_page(std::exchange(m_directory, nullptr));
  }

  void clear() noexcept {
    if (m_directory == nullptr) return;
    for (std::size_t i = 0; i < m_directory->count; ++i)
      free_page(m_directory->page(i));
    free_page(std::exchange(m_directory, nullptr));
  }

  void swap(WordIndex& other) noexcept { std::swap(m_directory, other.m_directory); }

 private:
  static constexpr std::size_t size_of(std::size_t capacity) noexcept {
    return sizeof(Page) + capacity * sizeof(Entry);
  }
  static Page* make_page(std::size_t capacity) {
    Page* const page = ::new (ovcore::impl::SmallMemory::take(size_of(capacity)))
        Page{0, static_cast<std::uint32_t>(capacity)};
    std::fill_n(page->entries(), capacity, filler);
    return page;
  }
  static void free_page(Page* page) noexcept {
    ovcore::impl::SmallMemory::give(page, size_of(page->capacity));
  }
  /// Returns what takes the place of the page.
  static Page* enlarge(Page* page) {
    Page* const larger = make_page(2 * page->capacity);
    page->part(0, *larger);
    free_page(page);
    return larger;
  }

  /// Parts a page in the middle; but before the first of all words and behind the last, so that
  /// pages stay full when words arrive in order.
  void insert_into_full(const Path& path, Entry entry) {
    if (m_directory->is_full()) m_directory = enlarge(m_directory);
    Page* const page = m_directory->page(path.page);
    const bool first = path.page == 0 && path.at == 0;
    const bool last = path.page + 1 == m_directory->count && path.at == page->count;
    const std::size_t middle = first ? 0 : last ? page->count : page->count / 2;
    Page* const right = make_page(page->capacity);
    page->part(middle, *right);
    const bool to_the_right = path.at > middle || right->count == 0;
    to_the_right ? right->insert(path.at - middle, entry) : page->insert(path.at, entry);
    m_directory->insert(path.page + 1, {right->entries()[0].word, right});
  }

  Page* m_directory = nullptr;
};

}  // namespace ovattribute::impl
