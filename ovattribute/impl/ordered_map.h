// SPDX-License-Identifier: Apache-2.0
// The storage of attribute maps: an ordered dictionary with unique keys, where a key is compared as
// one machine word.
#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>

#include "ovattribute/impl/lent_entries.h"
#include "ovattribute/impl/slab_pool.h"
#include "ovattribute/impl/word_index.h"
#include "ovattribute/impl/word_shortcut.h"

namespace ovattribute::impl {

/// An ordered map with the interface and the iterator stability of `std::map`. `WordOf` is a
/// function object that gives the word of a key, the same for equal keys only; it never throws.
///
/// Entries are nodes in a doubly linked list, so that walking is one load. They come out of a few
/// slabs, where entries that were added in order are neighbours: then bisecting the slabs finds a
/// word. Up to `SmallLimit` entries are searched where they lie. Larger maps whose entries came in
/// another order have an index beside them. In a map of more than `PageCapacity` entries a hash
/// table is made for those who search often. Room of erased entries is used again for new ones, and
/// all is given back when the map becomes empty.
///
/// A copy of `lent_from` entries or more takes over the bytes of the keys and values, which both
/// maps then only show: a counted list owns them (`LentEntries`). A value that is set is the map's
/// own again, which a mark says; other changes make everything the map's own first. A map that has
/// given out a mutable iterator or reference lends nothing, since that would go on writing.
///
/// Every change has the strong guarantee: if an allocation or a copy throws, the map is as it was.
/// Iterators stay valid until their entry is erased, also across `swap` and moves; those to the end
/// belong to the map object. One thread at a time changes a map; many may read and copy it.
///
/// REQUIRES: keys and values may be moved as bytes; there are fewer than 2^32 keys.
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
  OrderedMap(const OrderedMap& other) : OrderedMap() { copy_from(other); }
  OrderedMap(OrderedMap&& other) noexcept : OrderedMap() { swap(other); }
  OrderedMap& operator=(OrderedMap other) noexcept {
    swap(other);
    return *this;
  }
  ~OrderedMap() { destroy_nodes(); }

  [[nodiscard]] std::size_t size() const noexcept { return m_size; }
  [[nodiscard]] bool empty() const noexcept { return m_size == 0; }
  /// Whether other maps may show the same values.
  [[nodiscard]] bool is_lent() const noexcept {
    const Lent* const held = lent();
    return held != nullptr && held->has_values();
  }

  // Where a mutable iterator is given out, values become the map's own first, which may throw.
  [[nodiscard]] iterator begin() {
    expose();
    return iterator(m_end.next);
  }
  [[nodiscard]] iterator end() {
    expose();
    return iterator(&m_end);
  }
  [[nodiscard]] const_iterator begin() const noexcept { return const_iterator(m_end.next); }
  [[nodiscard]] const_iterator end() const noexcept { return const_iterator(end_link()); }

  [[nodiscard]] iterator find(const Key& key) {
    expose();
    return iterator(find_or_end(key));
  }
  [[nodiscard]] const_iterator find(const Key& key) const noexcept {
    return const_iterator(find_or_end(key));
  }
  [[nodiscard]] std::size_t count(const Key& key) const noexcept {
    return find_node(WordOf()(key)) != nullptr;
  }
  [[nodiscard]] iterator lower_bound(const Key& key) {
    expose();
    return iterator(not_below(WordOf()(key)));
  }
  [[nodiscard]] const_iterator lower_bound(const Key& key) const noexcept {
    return const_iterator(not_below(WordOf()(key)));
  }
  [[nodiscard]] iterator upper_bound(const Key& key) {
    expose();
    return iterator(above(WordOf()(key)));
  }
  [[nodiscard]] const_iterator upper_bound(const Key& key) const noexcept {
    return const_iterator(above(WordOf()(key)));
  }

  /// Memory in which the first entries will lie, aligned as `room_alignment`; it outlives the map.
  /// `marked`: room for a copy. REQUIRES: the map is new, and never swapped for one that lives
  /// longer.
  static constexpr std::size_t room_alignment = SlabPool<Node>::alignment;
  static constexpr std::size_t default_room = SlabPool<Node>::first_slab;
  [[nodiscard]] static constexpr std::size_t room_size(std::size_t count,
                                                       bool marked = false) noexcept {
    return SlabPool<Node>::lent_size(count, marked);
  }
  void lend_room(void* memory, std::size_t count, bool marked = false) noexcept {
    m_pool.lend(memory, count, marked);
  }
  /// The size of that memory; 0 when there is none.
  [[nodiscard]] std::size_t size_of_lent_room() const noexcept { return m_pool.size_of_lent(); }

  /// Entries that can still be added in the room there is.
  [[nodiscard]] std::size_t spare_room() const noexcept { return m_pool.room(); }

  /// Makes room for `count` entries in all, the new ones in one piece.
  void reserve(std::size_t count) {
    if (count > m_size) m_pool.reserve(count - m_size);
  }

  /// Adds an entry unless its key is present, in which case nothing is made from the arguments.
  template <class K, class... Args>
  std::pair<iterator, bool> try_emplace(K&& key, Args&&... value) {
    expose();
    const std::pair<Node*, bool> added = add(std::forward<K>(key), std::forward<Args>(value)...);
    return {iterator(added.first), added.second};
  }
  /// Sets a key to a value, and the value to what the key had or to what is left after a move.
  /// Gives no iterator out, so the map may lend its entries afterwards.
  template <class K>
  void set(K&& key, Value& value);

  /// Adds an entry. REQUIRES: its key is above all others. The fastest way, for merges and readers.
  template <class K, class... Args>
  void append(K&& key, Args&&... value) {
    append_node(std::forward<K>(key), std::forward<Args>(value)...);
  }

  /// Adds the entries of another map, in one piece. REQUIRES: this one is empty. On failure it is
  /// fit to be destroyed, and for nothing else.
  void copy_from(const OrderedMap& other);
  /// From how many entries on a copy costs less than counting each of them.
  static constexpr std::size_t lent_from = 12;

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

  /// Returns the iterator behind what was erased. May throw, and then erases nothing, where entries
  /// are not the map's own.
  iterator erase(const_iterator position) {
    own();
    expose();
    return iterator(remove(static_cast<Node*>(position.m_link)));
  }
  iterator erase(const_iterator first, const_iterator last);
  std::size_t erase(const Key& key) {
    Node* const node = find_node(WordOf()(key));
    if (node == nullptr) return 0;
    own();
    remove(node);
    return 1;
  }
  void clear() noexcept;

  /// A pointer that the owner keeps in a map which is only to be destroyed any more.
  void keep_at_end(void* pointer) noexcept { m_end.previous = static_cast<Link*>(pointer); }
  [[nodiscard]] void* kept_at_end() const noexcept { return m_end.previous; }

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
  void set_tag(const Node* node) noexcept { m_pool.set_tag(node, tag_of(word_of(node))); }
  /// Of a row.
  void set_tags() noexcept {
    const Node* const row = m_pool.row();
    for (std::size_t i = 0; i < std::min<std::size_t>(m_size, SmallLimit); ++i)
      set_tag(row + i);
  }

  using Lent = LentEntries<Key, Value>;

  Node* find_node(Word word) const noexcept;
  Node* find_in_small(Word word) const noexcept;
  [[gnu::noinline]] Node* find_in_large(Word word) const noexcept;
  Link* find_or_end(const Key& key) const noexcept {
    Node* const node = find_node(WordOf()(key));
    return node != nullptr ? node : end_link();
  }
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
  std::pair<Node*, bool> add(K&& key, Args&&... value);
  template <class K, class... Args>
  Node* append_node(K&& key, Args&&... value) {
    Node* const node = make_node(std::forward<K>(key), std::forward<Args>(value)...);
    link_new(node, &m_end, [&] { m_index.append(word_of(node), node); });
    return node;
  }
  template <class K, class... Args>
  Node* make_node(K&& key, Args&&... value);
  template <class AddToIndex>
  void link_new(Node* node, Link* next, AddToIndex&& add_to_index);
  void start_index();
  void leave_order() noexcept;
  void take_all(OrderedMap& added);
  Link* prepare_place(Link* link);
  Link* remove(Node* node) noexcept;

  Lent* lent() const noexcept { return m_lent.load(std::memory_order_acquire); }
  Lent* lend() const;
  void show_all(const OrderedMap& other, Lent* lent);
  void append_all(const OrderedMap& other);
  /// Makes values, or everything, the map's own.
  void own_values() {
    if (Lent* const held = lent(); held != nullptr && held->has_values()) take_values(held);
  }
  void own() {
    if (lent() != nullptr) take_keys();
  }
  void expose() {
    own_values();
    m_is_exposed = true;
  }
  void take_values(Lent* held);
  void take_keys();
  template <class T>
  static void move_bytes(const T* to, const T* from) noexcept {
    std::memcpy(const_cast<void*>(static_cast<const void*>(to)), static_cast<const void*>(from),
                sizeof(T));
  }
  static bool has_mark(const std::uint64_t* marks, std::size_t i) noexcept {
    return marks != nullptr && (marks[i / 64] >> i % 64 & 1) != 0;
  }
  /// Calls `f` with the number of each node of a copy whose value is its own.
  template <class F>
  void for_each_mark(F&& f) const {
    const std::uint64_t* const marks = m_pool.marks();
    if (marks == nullptr) return;
    for (std::size_t i = 0; i < (m_size + 63) / 64; ++i) {
      for (std::uint64_t word = marks[i]; word != 0; word &= word - 1)
        f(64 * i + static_cast<std::size_t>(std::countr_zero(word)));
    }
  }
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
  std::uint32_t m_size = 0;
  bool m_is_in_order = true;  // nodes ascend from the oldest slab to the newest
  bool m_is_exposed = false;  // who changes values need not ask the map
  Index m_index;              // of a large map that is not in order
  mutable WordShortcut m_shortcut;
  SlabPool<Node> m_pool;
  // What owns the keys, and maybe the values. Lending a shared map's values sets it, once.
  mutable std::atomic<Lent*> m_lent = nullptr;
};

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::find_node(Word word) const noexcept
    -> Node* {
  if (m_size <= SmallLimit && m_index.empty()) return find_in_small(word);
  if (m_size > PageCapacity) {
    if (WordShortcut::Table* table = m_shortcut.table()) {
      return static_cast<Node*>(table->find(word));
    }
  }
  return find_in_large(word);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::find_in_large(
    Word word) const noexcept -> Node* {
  if (m_size > PageCapacity) {
    m_shortcut.count_search(m_size, [this](auto& table) {
      for (Link* link = m_end.next; link != &m_end; link = link->next) {
        if (!table.insert(word_of(link), static_cast<Node*>(link))) return false;
      }
      return true;
    });
  }
  if (!m_index.empty()) return static_cast<Node*>(m_index.find(word));
  if (m_is_in_order) {
    Node* const last = m_pool.bisect([word](const Node* node) { return word_of(node) <= word; });
    return last != nullptr && word_of(last) == word ? last : nullptr;
  }
  Link* const link = not_below(word);
  return link != &m_end && word_of(link) == word ? static_cast<Node*>(link) : nullptr;
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::find_in_small(
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
  if (m_is_in_order) {
    Node* const last = m_pool.bisect([word](const Node* node) { return word_of(node) <= word; });
    if (last == nullptr) return m_end.next;
    return word_of(last) == word ? last : last->next;
  }
  Link* link = m_end.next;
  while (link != &m_end && word_of(link) < word)
    link = link->next;
  return link;
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
template <class K, class... Args>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::add(K&& key, Args&&... value)
    -> std::pair<Node*, bool> {
  own();
  const Word word = WordOf()(key);
  if (empty() || word_of(m_end.previous) < word) {
    return {append_node(std::forward<K>(key), std::forward<Args>(value)...), true};
  }
  typename Index::Path path;
  Link* const next = not_below(word, path);
  if (word_of(next) == word) return {static_cast<Node*>(next), false};

  Node* const node = make_node(std::forward<K>(key), std::forward<Args>(value)...);
  link_new(node, next, [&] { m_index.insert(path, word, node); });
  return {node, true};
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
template <class K>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::set(K&& key, Value& value) {
  Node* const node = lent() != nullptr ? find_node(WordOf()(key)) : nullptr;
  if (node == nullptr) {
    const std::pair<Node*, bool> added = add(std::forward<K>(key), std::move(value));
    if (!added.second) std::ranges::swap(added.first->entry.second, value);
    return;
  }
  Lent* const held = lent();
  std::uint64_t* const marks = m_pool.marks();
  if (!held->has_values() || held->has_unique_ref() || marks == nullptr) {
    own_values();
  } else if (const auto i = static_cast<std::size_t>(node - m_pool.row()); !has_mark(marks, i)) {
    alignas(Value) std::byte made[sizeof(Value)];
    move_bytes(&node->entry.second, ::new (static_cast<void*>(made)) Value(std::move(value)));
    marks[i / 64] |= std::uint64_t{1} << i % 64;
    return;
  }
  std::ranges::swap(node->entry.second, value);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::copy_from(const OrderedMap& other) {
  if (other.empty()) return;
  if (other.m_size < lent_from || other.m_is_exposed) return append_all(other);
  std::size_t changed = 0;
  other.for_each_mark([&](std::size_t) { ++changed; });
  constexpr std::size_t most_changed = 8;  // of which one may be
  if (changed > other.m_size / most_changed) return append_all(other);
  m_pool.reserve(other.m_size, true);
  if (m_pool.marks() == nullptr || m_pool.room() < other.m_size) return append_all(other);
  show_all(other, other.lend());
}

/// Shows the keys and values of another map as its own, save those that it changed.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::show_all(const OrderedMap& other,
                                                                        Lent* lent) {
  Node* node = m_pool.take_row(other.m_size);
  Link* last = &m_end;
  for (const Link* theirs = other.m_end.next; theirs != other.end_link(); theirs = theirs->next) {
    move_bytes(&node->entry, &static_cast<const Node*>(theirs)->entry);
    node->previous = last;
    last = last->next = node++;
  }
  m_end.previous = last;
  last->next = &m_end;
  m_size = other.m_size;
  lent->add_ref();
  m_lent.store(lent, std::memory_order_relaxed);
  std::uint64_t* const marks = m_pool.marks();
  other.for_each_mark([&](std::size_t i) {
    Node* const changed = m_pool.row() + i;
    ::new (static_cast<void*>(&changed->entry.second))
        Value((other.m_pool.row() + i)->entry.second);
    marks[i / 64] |= std::uint64_t{1} << i % 64;
  });
  set_tags();
}

/// The list that owns the values from now on. Many threads may copy a map at once: the first list
/// counts.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::lend() const -> Lent* {
  Lent* held = lent();
  if (held != nullptr && held->has_values()) return held;
  Lent* keys = held;
  if (keys == nullptr) {
    keys = Lent::make_keys(m_size);
    Key* key = keys->keys();
    for (const value_type& entry : *this)
      move_bytes(key++, &entry.first);
  }
  Lent* values = nullptr;
  try {
    values = Lent::make_values(m_size, keys);
  } catch (...) {
    if (held == nullptr) keys->free_memory();
    throw;
  }
  Value* value = values->values();
  for (const value_type& entry : *this)
    move_bytes(value++, &entry.second);
  if (m_lent.compare_exchange_strong(held, values, std::memory_order_acq_rel)) return values;
  values->free_memory();
  if (keys != held->keys_list()) keys->free_memory();
  return held;
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::take_values(Lent* held) {
  std::uint64_t* const marks = m_pool.marks();
  if (held->has_unique_ref()) {
    for_each_mark([&](std::size_t i) { std::destroy_at(held->values() + i); });
    m_lent.store(held->keys_list(), std::memory_order_relaxed);
    held->free_memory();
  } else {
    Lent* const copies = Lent::make_values(m_size, held->keys_list());
    const auto for_each_shown = [&](auto&& f) {
      Value* copy = copies->values();
      std::size_t i = 0;
      for (Link* link = m_end.next; link != &m_end; link = link->next) {
        if (!has_mark(marks, i++)) f(&static_cast<Node*>(link)->entry.second, copy++);
      }
    };
    Value* end = copies->values();
    try {
      for_each_shown([&end](const Value* shown, Value* copy) {
        ::new (static_cast<void*>(copy)) Value(*shown);
        ++end;
      });
    } catch (...) {
      std::destroy(copies->values(), end);
      copies->free_memory();
      throw;
    }
    for_each_shown([](Value* shown, const Value* copy) { move_bytes(shown, copy); });
    copies->free_memory();
    held->keys_list()->add_ref();
    m_lent.store(held->keys_list(), std::memory_order_relaxed);
    held->release();
  }
  if (marks != nullptr) std::fill_n(marks, (m_size + 63) / 64, 0);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::take_keys() {
  own_values();
  Lent* const held = lent();
  if (held->has_unique_ref() && held->count() == m_size) {
    held->free_memory();
  } else {
    Lent* const copies = Lent::make_keys(m_size);
    Key* copy = copies->keys();
    try {
      for (Link* link = m_end.next; link != &m_end; link = link->next, ++copy)
        ::new (static_cast<void*>(copy)) Key(static_cast<Node*>(link)->entry.first);
    } catch (...) {
      std::destroy(copies->keys(), copy);
      copies->free_memory();
      throw;
    }
    copy = copies->keys();
    for (Link* link = m_end.next; link != &m_end; link = link->next)
      move_bytes(&static_cast<Node*>(link)->entry.first, copy++);
    copies->free_memory();
    held->release();
  }
  m_lent.store(nullptr, std::memory_order_relaxed);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::append_all(const OrderedMap& other) {
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
  set_tags();
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
    if (count(first->first) == 0) added.add(first->first, first->second);
  }
  take_all(added);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::assign_all(const OrderedMap& other) {
  if (this == &other) return;
  own();
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
  for (Link* link = replaced.m_end.next; link != &replaced.m_end; link = link->next)
    swap(find_node(word_of(link))->entry.second, static_cast<Node*>(link)->entry.second);
}

/// Makes the entries of another map its own. REQUIRES: no key is in both.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::take_all(OrderedMap& added) {
  if (added.empty()) return;
  if (empty()) return swap(added);
  own();

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
  m_size += added.m_size;
  added.m_size = 0;
  m_pool.adopt(added.m_pool);
  m_is_in_order = false;
  m_shortcut.forget();
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
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::link_new(Node* node, Link* next,
                                                                        AddToIndex&& add_to_index) {
  const bool stays_in_order = m_is_in_order && next == &m_end;
  insert_before(next, node);
  ++m_size;
  if (!stays_in_order && (m_size > SmallLimit || !m_index.empty())) {
    try {
      m_index.empty() ? start_index() : add_to_index();
    } catch (...) {
      remove_from_list(node);
      --m_size;
      destroy(node);
      throw;
    }
  }
  m_is_in_order = stays_in_order;
  if (m_index.empty()) set_tag(node);
  m_shortcut.forget();
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::start_index() {
  Index index;
  index.start(m_size);
  for (Link* link = m_end.next; link != &m_end; link = link->next)
    index.append(word_of(link), static_cast<Node*>(link));
  m_index.swap(index);
}

/// Before an entry goes that is not the last. Without memory for the index, every search walks
/// until something is added.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::leave_order() noexcept {
  try {
    if (m_index.empty() && m_size > SmallLimit) start_index();
  } catch (const std::bad_alloc&) {
  }
  m_is_in_order = false;
}

/// Erases, of a map whose entries are its own.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::remove(Node* node) noexcept
    -> Link* {
  if (m_size == 1) {
    clear();
    return &m_end;
  }
  Link* const next = node->next;
  if (m_is_in_order && !m_pool.is_newest(node)) leave_order();
  if (!m_index.empty()) m_index.erase(word_of(node));
  m_shortcut.forget();
  remove_from_list(node);
  --m_size;
  destroy(node);
  return next;
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
auto OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::erase(const_iterator first,
                                                                     const_iterator last)
    -> iterator {
  expose();
  if (first.m_link == m_end.next && last.m_link == &m_end) {
    clear();
    return iterator(&m_end);
  }
  own();
  while (first != last)
    first = const_iterator(remove(static_cast<Node*>(first.m_link)));
  return iterator(last.m_link);
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::destroy_nodes() noexcept {
  Lent* const held = lent();
  if (held == nullptr) {
    if constexpr (!std::is_trivially_destructible_v<value_type>) {
      for (Link* link = m_end.next; link != &m_end;)
        static_cast<Node*>(std::exchange(link, link->next))->~Node();
    }
    return;
  }
  if (held->has_values()) {
    for_each_mark([this](std::size_t i) { std::destroy_at(&(m_pool.row() + i)->entry.second); });
  } else {
    for (Link* link = m_end.next; link != &m_end; link = link->next)
      std::destroy_at(&static_cast<Node*>(link)->entry.second);
  }
  held->release();
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::swap(OrderedMap& other) noexcept {
  std::swap(m_end, other.m_end);
  std::swap(m_size, other.m_size);
  std::swap(m_is_in_order, other.m_is_in_order);
  // Iterators to the end stay with the map.
  m_is_exposed = other.m_is_exposed = m_is_exposed || other.m_is_exposed;
  m_index.swap(other.m_index);
  m_shortcut.swap(other.m_shortcut);
  m_pool.swap(other.m_pool);
  m_lent.store(other.m_lent.exchange(lent(), std::memory_order_relaxed), std::memory_order_relaxed);
  close_list();
  other.close_list();
}

template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::clear() noexcept {
  destroy_nodes();
  m_end = {&m_end, &m_end};
  m_size = 0;
  m_is_in_order = true;
  m_index.clear();
  m_shortcut.forget();
  m_pool.clear();
  m_lent.store(nullptr, std::memory_order_relaxed);
}

/// Makes the list end here, after it came from another map or was taken away.
template <class Key, class Value, class WordOf, std::size_t SmallLimit, std::size_t PageCapacity>
void OrderedMap<Key, Value, WordOf, SmallLimit, PageCapacity>::close_list() noexcept {
  if (m_size == 0) m_end = {&m_end, &m_end};
  m_end.previous->next = &m_end;
  m_end.next->previous = &m_end;
}

}  // namespace ovattribute::impl
