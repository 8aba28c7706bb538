// SPDX-License-Identifier: Apache-2.0
// The storage of attribute maps: an ordered dictionary with unique keys, where a key is compared as
// one machine word.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>

#include "ovattribute/impl/slab_pool.h"
#include "ovattribute/impl/word_index.h"

namespace ovattribute::impl {

/// An ordered map with the interface and the iterator stability of `std::map`. `WordOf` is a
/// function object that gives the word of a key, the same for equal keys only; it never throws.
///
/// Entries are nodes in a doubly linked list, so that walking is one load. They come out of a few
/// slabs, where entries that were added in order are neighbours. Up to `SmallLimit` entries are
/// searched where they lie; larger maps have an index beside them. Room of erased entries is used
/// again for new ones, and all is given back when the map becomes empty.
///
/// Every change has the strong guarantee: if an allocation or a copy throws, the map is as it was.
/// Iterators stay valid until their entry is erased, also across `swap` and moves; those to the end
/// belong to the map object. One thread at a time changes a map; many may read it.
template <class Key, class Value, class WordOf, std::size_t SmallLimit = 8,
          std::size_t PageCapacity = 56>
class OrderedMap {
  struct Link {
    Link* previous;
    Link* next;
  };
  static_assert(SmallLimit <= 8, "which is how many tags are looked at together");
  struct Node : Link {
    template <class K, class... Args>
    explicit Node(K&& key, Args&&... value)
        : entry(std::piecewise_construct, std::forward_as_tuple(std::forward<K>(key)),
                std::forward_as_tuple(std::forward<Args>(value)...)) {}

    std::pair<const Key, Value> entry;
  };

  template <bool Const>
  class Iterator {
   public:
    using iterator_category = std::bidirectional_iterator_tag;
    using value_type = std::pair<const Key, Value>;
    using difference_type = std::ptrdiff_t;
    using pointer = std::conditional_t<Const, const value_type*, value_type*>;
    using reference = std::conditional_t<Const, const value_type&, value_type&>;

    Iterator() noexcept = default;
    template <bool C>
    requires(Const && !C) Iterator(Iterator<C> other)
    noexcept : m_link(other.m_link) {}

    reference operator*() const noexcept { return static_cast<Node*>(m_link)->entry; }
    pointer operator->() const noexcept { return &**this; }
    Iterator& operator++() noexcept {
      m_link = m_link->next;
      return *this;
    }
    Iterator operator++(int) noexcept { return Iterator(std::exchange(m_link, m_link->next)); }
    Iterator& operator--() noexcept {
      m_link = m_link->previous;
      return *this;
    }
    Iterator operator--(int) noexcept { return Iterator(std::exchange(m_link, m_link->previous)); }
    friend bool operator==(Iterator a, Iterator b) noexcept { return a.m_link == b.m_link; }

   private:
    friend OrderedMap;
    friend Iterator<true>;
    explicit Iterator(Link* link) noexcept : m_link(link) {}

    Link* m_link = nullptr;
  };

 public:
  using key_type = Key;
  using mapped_type = Value;
  using value_type = std::pair<const Key, Value>;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using reference = value_type&;
  using const_reference = const value_type&;
  using iterator = Iterator<false>;
  using const_iterator = Iterator<true>;

  constexpr OrderedMap() noexcept : m_end{&m_end, &m_end} {}
  OrderedMap(const OrderedMap& other) : OrderedMap() { append_all(other); }
  OrderedMap(OrderedMap&& other) noexcept : OrderedMap() { swap(other); }
  OrderedMap& operator=(OrderedMap other) noexcept {
    swap(other);
    return *this;
  }
  ~OrderedMap() { destroy_nodes(); }

  [[nodiscard]] std::size_t size() const noexcept { return m_size; }
  [[nodiscard]] bool empty() const noexcept { return m_size == 0; }

  [[nodiscard]] iterator begin() noexcept { return iterator(m_end.next); }
  [[nodiscard]] iterator end() noexcept { return iterator(&m_end); }
  [[nodiscard]] const_iterator begin() const noexcept { return const_iterator(m_end.next); }
  [[nodiscard]] const_iterator end() const noexcept { return const_iterator(end_link()); }

  [[nodiscard]] iterator find(const Key& key) noexcept { return iterator(find_or_end(key)); }
  [[nodiscard]] const_iterator find(const Key& key) const noexcept {
    return const_iterator(find_or_end(key));
  }
  [[nodiscard]] std::size_t count(const Key& key) const noexcept {
    return find_node(WordOf()(key)) != nullptr;
  }
  [[nodiscard]] iterator lower_bound(const Key& key) noexcept {
    return iterator(not_below(WordOf()(key)));
  }
  [[nodiscard]] const_iterator lower_bound(const Key& key) const noexcept {
    return const_iterator(not_below(WordOf()(key)));
  }
  [[nodiscard]] iterator upper_bound(const Key& key) noexcept {
    return iterator(above(WordOf()(key)));
  }
  [[nodiscard]] const_iterator upper_bound(const Key& key) const noexcept {
    return const_iterator(above(WordOf()(key)));
  }

  /// Memory in which the first entries will lie, aligned as `room_alignment`; it outlives the map.
  /// REQUIRES: the map is new, and never swapped for one that lives longer.
  static constexpr std::size_t room_alignment = SlabPool<Node>::alignment;
  static constexpr std::size_t default_room = SlabPool<Node>::first_slab;
  [[nodiscard]] static constexpr std::size_t room_size(std::size_t count) noexcept {
    return SlabPool<Node>::lent_size(count);
  }
  void lend_room(void* memory, std::size_t count) noexcept { m_pool.lend(memory, count); }

  /// Entries that can still be added in the room there is.
  [[nodiscard]] std::size_t spare_room() const noexcept { return m_pool.room(); }

  /// Makes room for `count` entries in all, the new ones in one piece.
  void reserve(std::size_t count) {
    if (count > m_size) m_pool.reserve(count - m_size);
  }

  /// Adds an entry unless its key is present, in which case nothing is made from the arguments.
  template <class K, class... Args>
  std::pair<iterator, bool> try_emplace(K&& key, Args&&... value);

  /// Adds an entry. REQUIRES: its key is above all others. The fastest way, for merges and readers.
  template <class K, class... Args>
  iterator append(K&& key, Args&&... value) {
    Node* const node = make_node(std::forward<K>(key), std::forward<Args>(value)...);
    return link_new(node, &m_end, [&] { m_index.append(word_of(node), node); });
  }

  /// Adds the entries of another map, in one piece. REQUIRES: this one is empty. On failure it is
  /// fit to be destroyed, and for nothing else.
  void append_all(const OrderedMap& other);

  /// An entry whose key is present stays as it is.
  std::pair<iterator, bool> insert(const value_type& entry) {
    return try_emplace(entry.first, entry.second);
  }
  /// The hint is not needed: behind the last entry it is fast without, elsewhere a search.
  iterator insert(const_iterator /*hint*/, const value_type& entry) { return insert(entry).first; }
  /// Adds every entry whose key is not present; all or, when something throws, none.
  template <std::forward_iterator It>
  void insert(It first, It last);

  /// Sets every key of `other` to a copy of its value there; all or, when something throws, none.
  void assign_all(const OrderedMap& other);

  /// Returns the iterator behind what was erased.
  iterator erase(const_iterator position) noexcept;
  iterator erase(const_iterator first, const_iterator last) noexcept;
  std::size_t erase(const Key& key) noexcept {
    Node* const node = find_node(WordOf()(key));
    if (node == nullptr) return 0;
    erase(const_iterator(node));
    return 1;
  }
  void clear() noexcept { OrderedMap().swap(*this); }

  void swap(OrderedMap& other) noexcept;
  friend void swap(OrderedMap& a, OrderedMap& b) noexcept { a.swap(b); }

 private:
  using Index = WordIndex<PageCapacity>;
  using Word = typename Index::Word;

  static Word word_of(const Link* link) noexcept {
    return WordOf()(static_cast<const Node*>(link)->entry.first);
  }
  Link* end_link() const noexcept { return const_cast<Link*>(&m_end); }
  // Addresses of one table differ in these bits, neighbours surely.
  static std::uint8_t tag_of(Word word) noexcept { return static_cast<std::uint8_t>(word >> 6); }

  Node* find_node(Word word) const noexcept {
    if (!m_index.empty()) return static_cast<Node*>(m_index.find(word, m_size));
    return find_in_pool(word);
  }
  Link* find_or_end(const Key& key) const noexcept {
    Node* const node = find_node(WordOf()(key));
    return node != nullptr ? node : end_link();
  }
  Node* find_in_pool(Word word) const noexcept;

  /// The first entry not below the word, or the end.
  Link* not_below(Word word) const noexcept {
    typename Index::Path path;
    return not_below(word, path);
  }
  Link* not_below(Word word, typename Index::Path& path) const noexcept;
  Link* above(Word word) const noexcept {
    Link* const link = not_below(word);
    return link != &m_end && word_of(link) == word ? link->next : link;
  }

  template <class K, class... Args>
  Node* make_node(K&& key, Args&&... value);
  template <class AddToIndex>
  iterator link_new(Node* node, Link* next, AddToIndex&& add_to_index);
  void start_index();
  void take_all(OrderedMap& added);
  Link* prepare_place(Link* link);
  void destroy(Node* node) noexcept {
    node->~Node();
    m_pool.give_back(node);
  }
  void destroy_nodes() noexcept;

  static void insert_before(Link* next, Link* link) noexcept {
    link->previous = next->previous;
    link->next = next;
    next->previous->next = link;
    next->previous = link;
  }
  static void remove_from_list(Link* link) noexcept {
    link->previous->next = link->next;
    link->next->previous = link->previous;
  }
  void close_list() noexcept;

  Link m_end;  // next: the first entry; previous: the last
  std::size_t m_size = 0;
  Index m_index;  // empty in a small map
  SlabPool<Node> m_pool;
};

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::find_in_pool(
    Word word) const noexcept -> Node* {
  if (m_pool.has_gaps()) {
    Link* const link = not_below(word);
    return link != &m_end && word_of(link) == word ? static_cast<Node*>(link) : nullptr;
  }
  return m_pool.find_tagged(tag_of(word), [=](Node* node) { return word_of(node) == word; });
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::not_below(
    Word word, typename Index::Path& path) const noexcept -> Link* {
  if (!m_index.empty()) {
    const auto found = m_index.seek(word, path);
    Node* const node = static_cast<Node*>(found.item);
    return found.below ? node->next : node;
  }
  if (m_pool.has_gaps()) {
    Link* link = m_end.next;
    while (link != &m_end && word_of(link) < word)
      link = link->next;
    return link;
  }
  // In any order, and all of them: that costs no branch that depends on the word.
  Link* least = end_link();
  Word least_word = std::numeric_limits<Word>::max();
  m_pool.for_each([&](Node* node) {
    const Word w = word_of(node);
    const bool better = w >= word && w <= least_word;
    least = better ? node : least;
    least_word = better ? w : least_word;
  });
  return least;
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
template <class K, class... Args>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::try_emplace(K&& key, Args&&... value)
    -> std::pair<iterator, bool> {
  const Word word = WordOf()(key);
  if (empty() || word_of(m_end.previous) < word) {
    return {append(std::forward<K>(key), std::forward<Args>(value)...), true};
  }
  typename Index::Path path;
  Link* const next = not_below(word, path);
  if (word_of(next) == word) return {iterator(next), false};

  Node* const node = make_node(std::forward<K>(key), std::forward<Args>(value)...);
  return {link_new(node, next, [&] { m_index.insert(path, word, node); }), true};
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::append_all(const OrderedMap& other) {
  if (other.empty()) return;
  reserve(other.size());
  Node* node = m_pool.take_row(other.size());
  if (node == nullptr) {  // more than a slab can have
    for (const value_type& entry : other)
      append(entry.first, entry.second);
    return;
  }
  Link* last = &m_end;
  for (const value_type& entry : other) {
    try {
      ::new (static_cast<void*>(node)) Node(entry.first, entry.second);
    } catch (...) {
      close_list();
      throw;
    }
    node->previous = last;
    last = last->next = node++;
    m_end.previous = last;
    ++m_size;
  }
  close_list();
  if (m_size > SmallLimit) return start_index();
  for (Link* link = m_end.next; link != &m_end; link = link->next)
    m_pool.set_tag(static_cast<Node*>(link), tag_of(word_of(link)));
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
template <std::forward_iterator It>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::insert(It first, It last) {
  std::size_t absent = 0;
  for (It it = first; it != last; ++it)
    absent += 1 - count(it->first);
  OrderedMap added;
  added.reserve(absent);
  for (; first != last; ++first) {
    if (count(first->first) == 0) added.try_emplace(first->first, first->second);
  }
  take_all(added);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::assign_all(const OrderedMap& other) {
  if (this == &other) return;
  std::size_t present = 0;
  for (const value_type& entry : other)
    present += count(entry.first);
  OrderedMap added;
  OrderedMap replaced;
  added.reserve(other.size() - present);
  replaced.reserve(present);
  for (const value_type& entry : other)
    (count(entry.first) == 0 ? added : replaced).append(entry.first, entry.second);

  take_all(added);
  using std::swap;
  static_assert(std::is_nothrow_swappable_v<Value>);
  for (value_type& entry : replaced)
    swap(find_node(WordOf()(entry.first))->entry.second, entry.second);
}

/// Makes the entries of another map its own. REQUIRES: no key is in both.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::take_all(OrderedMap& added) {
  if (added.empty()) return;
  if (empty()) return swap(added);

  // First all that may fail; until a new entry is linked, `previous` keeps the place for it.
  const bool starts_index = m_index.empty() && m_size + added.m_size > SmallLimit;
  Link* const added_end = &added.m_end;
  Link* link = added_end->next;
  try {
    if (starts_index) start_index();
    for (; link != added_end; link = link->next)
      link->previous = prepare_place(link);
  } catch (...) {
    if (starts_index) m_index.clear();
    for (Link* done = added_end->next; !m_index.empty() && done != link; done = done->next)
      m_index.erase(word_of(done));
    throw;
  }

  link = added_end->next;
  while (link != added_end) {
    Link* const next = link->next;
    insert_before(link->previous, link);
    link = next;
  }
  m_size += std::exchange(added.m_size, 0);
  m_pool.adopt(added.m_pool);
  added.m_index.clear();
  added.close_list();
}

/// Enters a link of another list, whose predecessors there are entered, into the index. Returns the
/// link of this list that it belongs in front of.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::prepare_place(Link* link) -> Link* {
  const Word word = word_of(link);
  if (word_of(m_end.previous) < word) {
    if (!m_index.empty()) m_index.append(word, static_cast<Node*>(link));
    return &m_end;
  }
  typename Index::Path path;
  Link* const place = not_below(word, path);
  // In the index, the predecessor there may be the one here.
  const bool follows_new = place == link;
  if (!m_index.empty()) m_index.insert(path, word, static_cast<Node*>(link));
  return follows_new ? link->previous->previous : place;
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
template <class K, class... Args>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::make_node(K&& key, Args&&... value)
    -> Node* {
  void* const memory = m_pool.take(m_size);
  try {
    return ::new (memory) Node(std::forward<K>(key), std::forward<Args>(value)...);
  } catch (...) {
    m_pool.give_back(memory);
    throw;
  }
}

/// Links a new node in front of `next`; destroys it when there is no memory for the index.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
template <class AddToIndex>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::link_new(Node* node, Link* next,
                                                                        AddToIndex&& add_to_index)
    -> iterator {
  insert_before(next, node);
  ++m_size;
  try {
    if (!m_index.empty()) {
      add_to_index();
    } else if (m_size > SmallLimit) {
      start_index();
    } else {
      m_pool.set_tag(node, tag_of(word_of(node)));
    }
  } catch (...) {
    remove_from_list(node);
    --m_size;
    destroy(node);
    throw;
  }
  return iterator(node);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::start_index() {
  Index index;
  index.start(m_size);
  for (Link* link = m_end.next; link != &m_end; link = link->next)
    index.append(word_of(link), static_cast<Node*>(link));
  m_index.swap(index);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::erase(
    const_iterator position) noexcept -> iterator {
  Node* const node = static_cast<Node*>(position.m_link);
  if (m_size == 1) {
    clear();
    return end();
  }
  Link* const next = node->next;
  if (!m_index.empty()) m_index.erase(word_of(node));
  remove_from_list(node);
  --m_size;
  destroy(node);
  return iterator(next);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::erase(const_iterator first,
                                                                     const_iterator last) noexcept
    -> iterator {
  if (first == begin() && last == end()) {
    clear();
    return end();
  }
  while (first != last)
    first = erase(first);
  return iterator(last.m_link);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::destroy_nodes() noexcept {
  if constexpr (!std::is_trivially_destructible_v<value_type>) {
    for (Link* link = m_end.next; link != &m_end;)
      static_cast<Node*>(std::exchange(link, link->next))->~Node();
  }
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::swap(OrderedMap& other) noexcept {
  std::swap(m_end, other.m_end);
  std::swap(m_size, other.m_size);
  m_index.swap(other.m_index);
  m_pool.swap(other.m_pool);
  close_list();
  other.close_list();
}

/// Makes the list end here, after it came from another map or was taken away.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::close_list() noexcept {
  if (m_size == 0) m_end = {&m_end, &m_end};
  m_end.previous->next = &m_end;
  m_end.next->previous = &m_end;
}

}  // namespace ovattribute::impl
