// SPDX-License-Identifier: Apache-2.0
// Attribute maps: ordered dictionaries with unique names that share their storage until changed.
#pragma once

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <new>
#include <ostream>
#include <type_traits>
#include <utility>

#include "ovattribute/attribute.h"
#include "ovattribute/attribute_name.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/impl/ordered_map.h"
#include "ovcore/export.h"
#include "ovcore/ref_count.h"
#include "ovcore/transfer_source.h"

namespace ovattribute {

class AttributeMap;
class AttributeMapBase;
class MutableAttributeMap;

namespace impl {
struct MapAccess;
/// Unlike `hash`, agrees with `==`.
[[nodiscard]] OV_EXPORT std::size_t equality_hash(const AttributeMapBase& map);
}  // namespace impl

/// What all maps have in common: one counted reference to a holder, and everything that reads.
///
/// Copies share the holder: one atomic increment, no allocation. A shared holder is never written,
/// so it may be reached from many threads; one map object is used by one thread at a time.
/// Entries are ordered by token identity of their names, an order that is stable within one process
/// only. Iterators are those of an ordered map: they stay valid until their own entry is erased or
/// the holder is given up. A mutable one writes to the holder that it was taken from: take it anew
/// after the map was copied. A map that was moved from is empty.
class OV_EXPORT AttributeMapBase {
 public:
  struct NameWord {
    std::uintptr_t operator()(const AttributeName& name) const noexcept {
      return name.key().key_value();
    }
  };
  using Map = impl::OrderedMap<AttributeName, AttributeValue, NameWord>;
  using value_type = Map::value_type;  // std::pair<const AttributeName, AttributeValue>
  using const_iterator = Map::const_iterator;

  /// The shared storage.
  class OV_EXPORT MapHolder final : public ovcore::RefCounted {
   public:
    MapHolder() noexcept = default;
    /// A holder with room for a few entries beside it, in the same piece of memory; `for_copy`: of
    /// another map.
    [[nodiscard]] static ovcore::RefCountPtr<MapHolder> make(std::size_t room = Map::default_room,
                                                             bool for_copy = false);
    /// For the empty holder, which is static.
    struct Permanent {};
    explicit constexpr MapHolder(Permanent) noexcept : RefCounted(2) {}
    explicit MapHolder(const Map& other) : map(other) {}
    explicit MapHolder(ovserialize::Reader& reader);
    MapHolder(ovserialize::Reader& reader, IAttributeNameDecoder& decoder);
    ~MapHolder() override;

    [[nodiscard]] ovcore::RefCountPtr<MapHolder> clone() const;
    void write(ovserialize::Writer& writer) const;
    void write(ovserialize::Writer& writer, IAttributeNameEncoder& encoder) const;

    /// Maps nested in maps are destroyed one after the other once they nest deep, so that no depth
    /// overflows the stack.
    static void operator delete(MapHolder* holder, std::destroying_delete_t) noexcept;
    static void* operator new(std::size_t size);
    static void operator delete(void* memory, std::size_t size) noexcept;

    Map map;

   private:
    void destroy() noexcept;
  };

  /// Shares the other's holder.
  AttributeMapBase& operator=(const AttributeMapBase& other) noexcept = default;

  [[nodiscard]] std::size_t size() const noexcept { return map().size(); }
  [[nodiscard]] bool empty() const noexcept { return map().empty(); }
  [[nodiscard]] const_iterator begin() const noexcept { return map().begin(); }
  [[nodiscard]] const_iterator end() const noexcept { return map().end(); }
  [[nodiscard]] const_iterator cbegin() const noexcept { return begin(); }
  [[nodiscard]] const_iterator cend() const noexcept { return end(); }
  [[nodiscard]] const_iterator find(const AttributeName& name) const noexcept {
    return map().find(name);
  }
  [[nodiscard]] const_iterator lower_bound(const AttributeName& name) const noexcept {
    return map().lower_bound(name);
  }
  [[nodiscard]] const_iterator upper_bound(const AttributeName& name) const noexcept {
    return map().upper_bound(name);
  }
  [[nodiscard]] std::size_t count(const AttributeName& name) const noexcept {
    return exists(name) ? 1 : 0;
  }
  [[nodiscard]] bool exists(const AttributeName& name) const noexcept {
    return query_ptr(name) != nullptr;
  }
  /// The value of that name, or `AttributeValue::null`.
  [[nodiscard]] const AttributeValue& query(const AttributeName& name) const noexcept {
    const AttributeValue* value = query_ptr(name);
    return value != nullptr ? *value : AttributeValue::null;
  }
  /// The value of that name, or null.
  [[nodiscard]] const AttributeValue* query_ptr(const AttributeName& name) const noexcept {
    const const_iterator found = find(name);
    return found != end() ? &found->second : nullptr;
  }

  /// The entries of both; on equal names this map's value is kept. Merging with an empty map shares
  /// the other's holder.
  [[nodiscard]] AttributeMap merged_with(const AttributeMapBase& other) const;

  /// Entry by entry, names by token identity; a prefix sorts first. -1, 0 or 1. Raises
  /// `ovattribute_invalidParameter` when maps nest deeper than `nesting_limit()`, as do the
  /// operators and `hash`.
  [[nodiscard]] int compare(const AttributeMapBase& other) const;
  /// Of the entries in order, h = h * 5 + (name hash xor value hash).
  [[nodiscard]] std::size_t hash() const;

  friend bool operator==(const AttributeMapBase& a, const AttributeMapBase& b) {
    return a.equal(b);
  }
  friend bool operator<(const AttributeMapBase& a, const AttributeMapBase& b) {
    return a.compare(b) < 0;
  }
  friend bool operator<=(const AttributeMapBase& a, const AttributeMapBase& b) {
    return a.compare(b) <= 0;
  }
  friend bool operator>(const AttributeMapBase& a, const AttributeMapBase& b) {
    return a.compare(b) > 0;
  }
  friend bool operator>=(const AttributeMapBase& a, const AttributeMapBase& b) {
    return a.compare(b) >= 0;
  }

  /// As a value holding the map is written.
  void write_trace(std::ostream& out, const TraceFormatter& formatter, unsigned level) const;
  /// For each entry, with `separator` between two: `prefix`, the name in single quotes, " => " and
  /// the value, whose further lines begin with `prefix` too. Nothing for an empty map.
  void write_trace(std::ostream& out, const char* prefix, const char* separator) const;

  /// The entries as a sequence, each its name and its value, in the map's order; a coder has all
  /// names, also of maps inside values. Raise what the writer or the coder raises, and
  /// `ovserialize_writer_depth` when maps nest deeper than `nesting_limit()`; then nothing of the
  /// map was written.
  void write(ovserialize::Writer& writer) const;
  void write(ovserialize::Writer& writer, IAttributeNameEncoder& encoder) const;
  /// One entry as in `write`.
  static void write_element_aux(ovserialize::Writer& writer, const value_type& entry);
  static void write_element_aux(ovserialize::Writer& writer, IAttributeNameEncoder& encoder,
                                const value_type& entry);

  // Whether two maps share their storage; for tests and diagnostics.
  [[nodiscard]] bool shares_holder_with(const AttributeMapBase& other) const noexcept {
    return m_pImpl == other.m_pImpl;
  }

 protected:
  /// Shares the empty holder.
  AttributeMapBase() noexcept;
  explicit AttributeMapBase(const ovcore::RefCountPtr<MapHolder>& holder) noexcept
      : m_pImpl(holder) {}
  explicit AttributeMapBase(ovcore::RefCountPtr<MapHolder>&& holder) noexcept
      : m_pImpl(std::move(holder)) {}
  AttributeMapBase(const AttributeMapBase&) noexcept = default;
  AttributeMapBase(AttributeMapBase&&) noexcept = default;
  ~AttributeMapBase() = default;

  /// Typed checks for accessors. They return when the check passes and raise otherwise
  /// (`ovattribute_value_type_mismatch`, `ovattribute_value_cardinality_expectSingle`,
  /// `ovattribute_map_attributeNotFound`). See `TypedAttribute` for ready-made accessors.
  static void check_attribute_of_type(const AttributeName& name, const AttributeValue& value,
                                      const ValueTypeId& expected_type);
  static void check_default_of_type(const AttributeName& name, const AttributeValue& default_value,
                                    const ValueTypeId& expected_type);
  static void check_scalar_of_type(const AttributeName& name, const AttributeValue& value,
                                   const ValueTypeId& expected_type);
  [[noreturn]] static void throw_attribute_not_found(const AttributeName& name);

  [[nodiscard]] const Map& map() const noexcept { return m_pImpl ? m_pImpl->map : empty_map(); }

  /// The holder of every default-built map, initialised at compile time and never destroyed.
  static const ovcore::RefCountPtr<MapHolder> sm_pEmptyImpl;

  // Null only after a move and while the storage is lent out; such a map reads as empty.
  ovcore::RefCountPtr<MapHolder> m_pImpl;

 private:
  friend class AttributeMap;
  friend class MutableAttributeMap;
  friend class WritableAttributeMapRef;

  friend std::size_t impl::equality_hash(const AttributeMapBase& map);

  [[nodiscard]] static const Map& empty_map() noexcept;
  [[nodiscard]] bool is_shared() const noexcept;
  [[nodiscard]] bool equal(const AttributeMapBase& other) const;
  [[nodiscard]] static ovcore::RefCountPtr<MapHolder> merged_aux(const Map& preferred,
                                                                 const Map& second);
};

/// The immutable view.
class OV_EXPORT AttributeMap : public AttributeMapBase {
 public:
  AttributeMap() noexcept = default;
  AttributeMap(const AttributeMap&) noexcept = default;
  AttributeMap(AttributeMap&&) noexcept = default;
  AttributeMap(const AttributeMapBase& other) noexcept : AttributeMapBase(other) {}
  /// Freezes a map without copying its entries.
  AttributeMap(MutableAttributeMap other) noexcept;
  AttributeMap(ovcore::TransferSource<AttributeMap> other) noexcept : AttributeMap(other.take()) {}
  /// Of equal names the last counts.
  AttributeMap(std::initializer_list<value_type> entries);
  /// Reads what `write` wrote; see `MutableAttributeMap::read`.
  explicit AttributeMap(ovserialize::Reader& reader);
  AttributeMap(ovserialize::Reader& reader, IAttributeNameDecoder& decoder);
  AttributeMap& operator=(AttributeMap other) noexcept {
    swap(other);
    return *this;
  }
  ~AttributeMap() = default;

  void swap(AttributeMap& other) noexcept { m_pImpl.swap(other.m_pImpl); }
  friend void swap(AttributeMap& a, AttributeMap& b) noexcept { a.swap(b); }
  [[nodiscard]] ovcore::TransferSource<AttributeMap> transfer() noexcept {
    return ovcore::TransferSource<AttributeMap>(*this);
  }

 private:
  friend class AttributeMapBase;
  friend class WritableAttributeMapRef;
  friend struct impl::MapAccess;

  explicit AttributeMap(const ovcore::RefCountPtr<MapHolder>& holder) noexcept
      : AttributeMapBase(holder) {}
  explicit AttributeMap(ovcore::RefCountPtr<MapHolder>&& holder) noexcept
      : AttributeMapBase(std::move(holder)) {}
};

/// The copy-on-write view. Every operation that could change the map, mutable iterators included,
/// first copies a holder that is shared. Allocation failures leave the map unchanged.
class OV_EXPORT MutableAttributeMap : public AttributeMapBase {
 public:
  using iterator = Map::iterator;

  MutableAttributeMap() noexcept = default;
  MutableAttributeMap(const MutableAttributeMap&) noexcept = default;
  MutableAttributeMap(MutableAttributeMap&&) noexcept = default;
  MutableAttributeMap(const AttributeMapBase& other) noexcept : AttributeMapBase(other) {}
  /// Takes over the holder of a map; it is copied at the first change if it is shared then.
  MutableAttributeMap(AttributeMap other) noexcept : AttributeMapBase(std::move(other)) {}
  MutableAttributeMap(ovcore::TransferSource<MutableAttributeMap> other) noexcept
      : MutableAttributeMap(other.take()) {}
  /// Of equal names the last counts.
  MutableAttributeMap(std::initializer_list<value_type> entries);
  MutableAttributeMap& operator=(MutableAttributeMap other) noexcept {
    swap(other);
    return *this;
  }
  ~MutableAttributeMap() = default;

  void swap(MutableAttributeMap& other) noexcept { m_pImpl.swap(other.m_pImpl); }
  friend void swap(MutableAttributeMap& a, MutableAttributeMap& b) noexcept { a.swap(b); }
  [[nodiscard]] ovcore::TransferSource<MutableAttributeMap> transfer() noexcept {
    return ovcore::TransferSource<MutableAttributeMap>(*this);
  }

  using AttributeMapBase::begin;
  using AttributeMapBase::end;
  using AttributeMapBase::find;
  using AttributeMapBase::lower_bound;
  using AttributeMapBase::upper_bound;
  [[nodiscard]] iterator begin() {
    return change([](Map& map) { return map.begin(); });
  }
  [[nodiscard]] iterator end() {
    return change([](Map& map) { return map.end(); });
  }
  [[nodiscard]] iterator find(const AttributeName& name) {
    return change([&](Map& map) { return map.find(name); });
  }
  [[nodiscard]] iterator lower_bound(const AttributeName& name) {
    return change([&](Map& map) { return map.lower_bound(name); });
  }
  [[nodiscard]] iterator upper_bound(const AttributeName& name) {
    return change([&](Map& map) { return map.upper_bound(name); });
  }

  /// Sets the name to the value, replacing any value it had.
  MutableAttributeMap& add(const AttributeName& name, AttributeValue value);
  MutableAttributeMap& add(const Attribute& attribute) {
    return add(attribute.name(), attribute.value());
  }
  /// Adds every entry of the other map; on equal names the other map's value counts. An empty map
  /// shares the other's holder.
  MutableAttributeMap& add(const AttributeMapBase& other);
  /// The value of that name, Null when it was absent before. Good for as long as a mutable
  /// iterator: in `map["a"].set(map)` it is taken before the map is copied, so the holder would
  /// come to hold itself; `map.add("a", map)` copies first.
  AttributeValue& operator[](const AttributeName& name);

  /// An entry that exists already is kept, and `false` returned.
  std::pair<iterator, bool> insert(const value_type& entry);
  iterator insert(const_iterator hint, const value_type& entry);
  /// From another map.
  void insert(const_iterator first, const_iterator last);

  /// The entry behind the one erased.
  iterator erase(const_iterator position);
  iterator erase(const_iterator first, const_iterator last);
  std::size_t erase(const AttributeName& name);
  void clear();

  /// Replaces the entries by those read, as `AttributeMapBase::write` wrote them; names may come in
  /// any order, and of equal names the first counts. Raise what the reader or the coder raises, and
  /// `ovserialize_reader_depth` when maps nest deeper than `nesting_limit()`; then the map is
  /// unchanged.
  void read(ovserialize::Reader& reader);
  void read(ovserialize::Reader& reader, IAttributeNameDecoder& decoder);

 protected:
  explicit MutableAttributeMap(const ovcore::RefCountPtr<MapHolder>& holder) noexcept
      : AttributeMapBase(holder) {}

  /// Makes the holder this map's own. Returns the one given up, or null; what the caller was passed
  /// may lie in it, and its other owners may let go at any time.
  ovcore::RefCountPtr<MapHolder> prepare_modify();

 private:
  template <class F>
  std::invoke_result_t<F, Map&> change(F&& f) {
    if (m_pImpl && m_pImpl->has_unique_ref()) return f(m_pImpl->map);
    const ovcore::RefCountPtr<MapHolder> given_up = prepare_modify();
    return f(m_pImpl->map);
  }
};

/// Lends the storage of an `AttributeMap` to a mutable view for a scope. The map must not be used
/// between construction and destruction; then it holds the result.
class OV_EXPORT WritableAttributeMapRef : public MutableAttributeMap {
 public:
  explicit WritableAttributeMapRef(AttributeMap& map) noexcept;
  WritableAttributeMapRef(const WritableAttributeMapRef&) = delete;
  WritableAttributeMapRef& operator=(const WritableAttributeMapRef&) = delete;
  using MutableAttributeMap::operator=;
  ~WritableAttributeMapRef();

 private:
  AttributeMap* m_pMap;
};

/// Writes the trace text with the default formatter at level 0, as the map would be written as a
/// value.
OV_EXPORT std::ostream& operator<<(std::ostream& out, const AttributeMapBase& map);
/// As for values.
OV_EXPORT void PrintTo(const AttributeMap& map, std::ostream* out);
OV_EXPORT void PrintTo(const MutableAttributeMap& map, std::ostream* out);

OV_EXPORT ovserialize::Writer& operator<<(ovserialize::Writer& writer, const AttributeMapBase& map);
OV_EXPORT ovserialize::Reader& operator>>(ovserialize::Reader& reader, AttributeMap& map);
OV_EXPORT ovserialize::Reader& operator>>(ovserialize::Reader& reader, MutableAttributeMap& map);

}  // namespace ovattribute

template <>
struct std::hash<ovattribute::AttributeMapBase> {
  std::size_t operator()(const ovattribute::AttributeMapBase& map) const {
    return ovattribute::impl::equality_hash(map);
  }
};
template <>
struct std::hash<ovattribute::AttributeMap> : std::hash<ovattribute::AttributeMapBase> {};
template <>
struct std::hash<ovattribute::MutableAttributeMap> : std::hash<ovattribute::AttributeMapBase> {};
