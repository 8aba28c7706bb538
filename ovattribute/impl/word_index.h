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

/// A B+-tree from distinct words to pointers that it does not own. Pages are half full at least,
/// save those that lost entries again: a page is given back when it is empty and not before, so
/// memory is bound by the largest number of entries held. Searches are free of branches that
/// depend on the words. Every operation but `insert` and `append` never throws; those raise
/// `std::bad_alloc` and then leave the index as it was.
template <std::size_t Capacity>
class WordIndex {
 public:
  using Word = std::uintptr_t;

 private:
  // A page is searched in two steps: which block, then where in it.
  static constexpr std::size_t block = Capacity < 8 ? Capacity : 8;
  static constexpr std::size_t first_capacity = Capacity < 16 ? Capacity : 16;
  static constexpr Word filler = std::numeric_limits<Word>::max();
  // A page of a new level has parted at least twice below: 2^32 pages would be needed for more.
  static constexpr std::size_t max_levels = 32;
  static_assert(Capacity >= 4 && Capacity % block == 0 && first_capacity % block == 0);

  struct Entry {
    Word word;   // of an inner page: above all words of the child before; the first is 0
    void* item;  // of an inner page: the child
  };

  /// Followed in memory by its entries. Those in use ascend; the rest are fillers.
  struct alignas(Entry) Page {
    std::uint32_t count;
    std::uint16_t capacity;
    std::uint16_t level;  // 0: the items are the user's
    Page* last = this;    // of a root: the last of the pages with items

    Entry* entries() noexcept { return reinterpret_cast<Entry*>(this + 1); }
    const Entry* entries() const noexcept { return reinterpret_cast<const Entry*>(this + 1); }
    Page* child(std::size_t at) const noexcept { return static_cast<Page*>(entries()[at].item); }
    bool full() const noexcept { return count == capacity; }

    void insert(std::size_t at, Entry entry) noexcept {
      std::copy_backward(entries() + at, entries() + count, entries() + count + 1);
      entries()[at] = entry;
      ++count;
    }
    void remove(std::size_t at) noexcept {
      std::copy(entries() + at + 1, entries() + count, entries() + at);
      entries()[--count] = {filler, nullptr};
    }
    /// Moves the entries from `at` on to `target`, which is empty.
    void part(std::size_t at, Page& target) noexcept {
      std::copy(entries() + at, entries() + count, target.entries());
      std::fill(entries() + at, entries() + count, Entry{filler, nullptr});
      target.count = static_cast<std::uint32_t>(count - at);
      count = static_cast<std::uint32_t>(at);
    }
  };

 public:
  /// From a page of items up to the root: which page, and where in it.
  class Path {
   private:
    friend WordIndex;
    Page* pages[max_levels];
    std::uint32_t at[max_levels];
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

  [[nodiscard]] bool empty() const noexcept { return m_root == nullptr; }

  /// The item of `word`; null when the word is absent. REQUIRES: not empty.
  [[nodiscard]] void* find(Word word) const noexcept {
    const Page* page = m_root;
    while (page->level > 0)
      page = page->child(child_for(*page, word));
    const Entry& candidate = page->entries()[rank_in_page<false>(*page, word)];
    return candidate.word == word ? candidate.item : nullptr;
  }

  /// Looks for `word` and for the place where it belongs. REQUIRES: not empty.
  Found seek(Word word, Path& path) const noexcept {
    Page* page = m_root;
    while (page->level > 0) {
      const std::size_t at = child_for(*page, word);
      path.pages[page->level] = page;
      path.at[page->level] = static_cast<std::uint32_t>(at);
      page = page->child(at);
    }
    std::size_t at = rank_in_page<false>(*page, word);
    at += page->entries()[at].word < word;
    path.pages[0] = page;
    path.at[0] = static_cast<std::uint32_t>(at);
    const bool below = at == page->count;
    return {page->entries()[at - below].item, below};
  }

  /// Adds a word at the place where `seek` for it ended.
  void insert(const Path& path, Word word, void* item);

  /// Makes the first page large enough for `count` words, up to a full page. REQUIRES: empty.
  void start(std::size_t count) {
    std::size_t capacity = first_capacity;
    while (capacity < count && capacity < Capacity)
      capacity *= 2;
    m_root = make_page(std::min(capacity, Capacity), 0);
  }

  /// Adds a word above all others. REQUIRES: started.
  void append(Word word, void* item) {
    if (Page* const last = m_root->last; !last->full()) {
      last->entries()[last->count++] = {word, item};
    } else {
      append_to_full(word, item);
    }
  }

  /// REQUIRES: the word is present.
  void erase(Word word) noexcept;

  void clear() noexcept {
    if (m_root != nullptr) destroy(std::exchange(m_root, nullptr));
  }

  void swap(WordIndex& other) noexcept { std::swap(m_root, other.m_root); }

 private:
  /// Pages made before anything changes, so that the change itself cannot fail.
  class Stock {
   public:
    Stock() noexcept = default;
    ~Stock() {
      while (m_count > 0)
        free_page(m_pages[--m_count]);
    }
    Stock(const Stock&) = delete;
    Stock& operator=(const Stock&) = delete;
    void fill(std::size_t count) {
      for (; m_count < count; ++m_count)
        m_pages[m_count] = make_page(Capacity, 0);
    }
    Page* take(std::size_t level) noexcept {
      Page* const page = m_pages[--m_count];
      page->level = static_cast<std::uint16_t>(level);
      return page;
    }

   private:
    std::size_t m_count = 0;
    Page* m_pages[max_levels + 1];
  };

  static constexpr std::size_t page_size(std::size_t capacity) noexcept {
    return sizeof(Page) + capacity * sizeof(Entry);
  }
  static Page* make_page(std::size_t capacity, std::size_t level) {
    void* const memory = ovcore::impl::SmallMemory::take(page_size(capacity));
    Page* const page = ::new (memory)
        Page{0, static_cast<std::uint16_t>(capacity), static_cast<std::uint16_t>(level)};
    std::fill_n(page->entries(), capacity, Entry{filler, nullptr});
    return page;
  }
  static void free_page(Page* page) noexcept {
    const std::size_t size = page_size(page->capacity);
    page->~Page();
    ovcore::impl::SmallMemory::give(page, size);
  }
  // As deep as the tree is high.
  static void destroy(Page* page) noexcept {
    if (page->level > 0) {
      for (std::size_t i = 0; i < page->count; ++i)
        destroy(page->child(i));
    }
    free_page(page);
  }
  template <bool OrEqual>
  static bool precedes(Word a, Word b) noexcept {
    return OrEqual ? a <= b : a < b;
  }
  template <bool OrEqual, std::size_t... I>
  static std::size_t count_in_block(const Entry* entries, Word word,
                                    std::index_sequence<I...>) noexcept {
    return (std::size_t{0} + ... + std::size_t{precedes<OrEqual>(entries[I].word, word)});
  }
  /// The number of words before `word`, or one less when they fill their last block.
  template <bool OrEqual>
  static std::size_t rank_in_page(const Page& page, Word word) noexcept {
    std::size_t full_blocks = 0;
    for (std::size_t i = block; i < page.capacity; i += block)
      full_blocks += precedes<OrEqual>(page.entries()[i - 1].word, word);
    const std::size_t start = full_blocks * block;
    return start + count_in_block<OrEqual>(page.entries() + start, word,
                                           std::make_index_sequence<block - 1>());
  }
  static std::size_t child_for(const Page& page, Word word) noexcept {
    std::size_t rank = rank_in_page<true>(page, word);
    rank += page.entries()[rank].word <= word;
    return std::min<std::size_t>(rank, page.count) - 1;  // fillers equal the largest word
  }

  void append_to_full(Word word, void* item);
  Page* enlarge_root();
  std::size_t where_to_part(const Path& path) const noexcept;
  void update_last() noexcept;

  Page* m_root = nullptr;
};

template <std::size_t Capacity>
void WordIndex<Capacity>::append_to_full(Word word, void* item) {
  Path path;
  for (Page* page = m_root;; page = page->child(page->count - 1)) {
    path.pages[page->level] = page;
    path.at[page->level] = page->level > 0 ? page->count - 1 : page->count;
    if (page->level == 0) break;
  }
  insert(path, word, item);
}

template <std::size_t Capacity>
void WordIndex<Capacity>::insert(const Path& path, Word word, void* item) {
  Page* page = path.pages[0];
  if (page->full() && page->capacity < Capacity) page = enlarge_root();
  if (!page->full()) {
    page->insert(path.at[0], {word, item});
    return;
  }

  std::size_t full_levels = 1;
  while (full_levels <= m_root->level && path.pages[full_levels]->full())
    ++full_levels;
  const bool grows = full_levels > m_root->level;
  Stock stock;
  stock.fill(full_levels + grows);

  Entry entry{word, item};
  std::size_t middle = where_to_part(path);
  for (std::size_t level = 0; level < full_levels; ++level) {
    page = path.pages[level];
    Page* const right = stock.take(level);
    page->part(middle, *right);
    // A page that parts gets its new right neighbour entered behind it.
    const std::size_t at = path.at[level] + (level > 0);
    const bool to_the_right = at > middle || right->count == 0;
    to_the_right ? right->insert(at - middle, entry) : page->insert(at, entry);
    entry = {right->entries()[0].word, right};
    if (level > 0) right->entries()[0].word = 0;
    if (middle < Capacity) middle = Capacity / 2;
  }
  if (grows) {
    Page* const root = stock.take(full_levels);
    root->insert(0, {0, m_root});
    root->insert(1, entry);
    m_root = root;
  } else {
    path.pages[full_levels]->insert(path.at[full_levels] + 1, entry);
  }
  update_last();
}

/// The root of a small index, its only page, gives way to a larger one.
template <std::size_t Capacity>
auto WordIndex<Capacity>::enlarge_root() -> Page* {
  Page* const larger = make_page(std::min<std::size_t>(2 * m_root->capacity, Capacity), 0);
  m_root->part(0, *larger);
  free_page(m_root);
  m_root = larger;
  return larger;
}

/// In the middle; but before the first of all words and behind the last, so that pages stay full
/// when words arrive in order.
template <std::size_t Capacity>
std::size_t WordIndex<Capacity>::where_to_part(const Path& path) const noexcept {
  bool first = path.at[0] == 0;
  bool last = path.at[0] == Capacity;
  for (std::size_t level = 1; level <= m_root->level; ++level) {
    first &= path.at[level] == 0;
    last &= path.at[level] + 1 == path.pages[level]->count;
  }
  return first ? 0 : last ? Capacity : Capacity / 2;
}

template <std::size_t Capacity>
void WordIndex<Capacity>::erase(Word word) noexcept {
  Path path;
  seek(word, path);
  std::size_t level = 0;
  path.pages[0]->remove(path.at[0]);
  if (path.pages[0]->count > 0) return;
  while (level < m_root->level && path.pages[level]->count == 0) {
    free_page(path.pages[level]);
    ++level;
    path.pages[level]->remove(path.at[level]);
    path.pages[level]->entries()[0].word = 0;
  }
  if (m_root->count == 0) {
    free_page(std::exchange(m_root, nullptr));
    return;
  }
  while (m_root->level > 0 && m_root->count == 1)
    free_page(std::exchange(m_root, m_root->child(0)));
  update_last();
}

template <std::size_t Capacity>
void WordIndex<Capacity>::update_last() noexcept {
  Page* page = m_root;
  while (page->level > 0)
    page = page->child(page->count - 1);
  m_root->last = page;
}

}  // namespace ovattribute::impl
