// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_map.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "ovattribute/error_codes.h"
#include "ovattribute/impl/map_step.h"
#include "ovcore/error_composer.h"
#include "ovcore/impl/mix_hash.h"
#include "ovcore/impl/small_memory.h"

namespace ovattribute {
namespace {

using Holder = AttributeMapBase::MapHolder;
using ovcore::impl::SmallMemory;

ovcore::SourceLocation location(const char* function, std::uint32_t line) {
  return {"ovattribute/attribute_map", function, line};
}

// Destruction of nested maps: levels that run on the stack of the calling thread, and holders that
// wait until it has unwound.
constexpr unsigned max_destruction_levels = 64;
thread_local unsigned t_destruction_level = 0;
thread_local Holder* t_doomed = nullptr;

/// Of a holder and the room beside it.
constexpr std::size_t size_with_room(std::size_t room) noexcept {
  using Map = AttributeMapBase::Map;
  return (sizeof(Holder) + Map::room_alignment - 1) / Map::room_alignment * Map::room_alignment +
         room;
}

constinit impl::NeverDestroyed<Holder> g_empty_holder(Holder::Permanent{});

}  // namespace

constinit const ovcore::RefCountPtr<Holder> AttributeMapBase::sm_pEmptyImpl(
    &g_empty_holder.value, ovcore::AdoptReference());

const AttributeMapBase::Map& AttributeMapBase::empty_map() noexcept {
  return g_empty_holder.value.map;
}

Holder::~MapHolder() = default;

void Holder::operator delete(MapHolder* holder, std::destroying_delete_t) noexcept {
  if (t_destruction_level >= max_destruction_levels) {
    holder->map.keep_at_end(t_doomed);
    t_doomed = holder;
    return;
  }
  ++t_destruction_level;
  holder->destroy();
  // Only the outermost level, or the stack would grow with every one that waits.
  while (t_destruction_level == 1 && t_doomed != nullptr) {
    std::exchange(t_doomed, static_cast<Holder*>(t_doomed->map.kept_at_end()))->destroy();
  }
  --t_destruction_level;
}

void* Holder::operator new(std::size_t size) {
  return SmallMemory::take(size);
}

void Holder::operator delete(void* memory, std::size_t size) noexcept {
  SmallMemory::give(memory, size);
}

void Holder::destroy() noexcept {
  const std::size_t room = map.size_of_lent_room();
  this->~MapHolder();
  SmallMemory::give(this, room > 0 ? size_with_room(room) : sizeof(MapHolder));
}

ovcore::RefCountPtr<Holder> Holder::make(std::size_t room, bool for_copy) {
  const std::size_t room_size = Map::room_size(room, for_copy);
  auto* const memory = static_cast<std::byte*>(SmallMemory::take(size_with_room(room_size)));
  auto* const holder = ::new (static_cast<void*>(memory)) MapHolder();
  holder->map.lend_room(memory + size_with_room(0), room, for_copy);
  return ovcore::RefCountPtr<MapHolder>::adopt(holder);
}

// The room of large maps is given back when they are emptied.
ovcore::RefCountPtr<Holder> Holder::clone() const {
  constexpr std::size_t most_beside = 64;
  if (map.size() > most_beside) return ovcore::make_ref_counted<MapHolder>(map);
  ovcore::RefCountPtr<MapHolder> copy =
      make(std::max(map.size(), Map::default_room), map.size() >= Map::lent_from);
  copy->map.copy_from(map);
  return copy;
}

AttributeMapBase::AttributeMapBase() noexcept : m_pImpl(sm_pEmptyImpl) {}

bool AttributeMapBase::is_shared() const noexcept {
  if (map().is_lent()) impl::MapStep::note_lent();
  return m_pImpl && (!m_pImpl->has_unique_ref() || impl::MapStep::has_met_lent());
}

std::size_t AttributeMapBase::hash() const {
  const impl::MapStep step;
  const bool remembers = step.remembers() && is_shared();
  if (remembers) {
    if (const std::size_t* const known = impl::MapStep::find(&map())) return *known;
  }
  std::size_t h = 0;
  for (const value_type& entry : map())
    h = h * 5 + (entry.first.hash() ^ entry.second.hash());
  if (remembers) impl::MapStep::remember(h, &map());
  return h;
}

AttributeMap AttributeMapBase::merged_with(const AttributeMapBase& other) const {
  if (empty()) return other;
  if (other.empty()) return *this;
  return AttributeMap(merged_aux(map(), other.map()));
}

ovcore::RefCountPtr<Holder> AttributeMapBase::merged_aux(const Map& preferred, const Map& second) {
  auto result = MapHolder::make();
  const auto append = [&result](const_iterator entry) {
    result->map.append(entry->first, entry->second);
  };
  auto p = preferred.begin();
  auto s = second.begin();
  while (p != preferred.end() || s != second.end()) {
    const bool take_second = p == preferred.end() || (s != second.end() && s->first < p->first);
    if (take_second) {
      append(s++);
      continue;
    }
    if (s != second.end() && s->first == p->first) ++s;
    append(p++);
  }
  return result;
}

bool AttributeMapBase::equal(const AttributeMapBase& other) const {
  if (&map() == &other.map()) return true;
  if (size() != other.size()) return false;
  const impl::MapStep step;
  const bool remembers = step.remembers() && (is_shared() || other.is_shared());
  if (remembers && impl::MapStep::find(&map(), &other.map()) != nullptr) return true;
  const const_iterator last = end();
  const_iterator theirs = other.begin();
  for (const_iterator ours = begin(); ours != last;) {
    const value_type& a = *ours++;
    const value_type& b = *theirs++;
    // What comes next is loaded meanwhile: types that nobody foresees keep the processor from it.
    if (ours != last) {
      impl::ValueAccess::prefetch(ours->second);
      impl::ValueAccess::prefetch(theirs->second);
    }
    if (a.first != b.first || !(a.second == b.second)) return false;
  }
  if (remembers) impl::MapStep::remember(0, &map(), &other.map());
  return true;
}

int AttributeMapBase::compare(const AttributeMapBase& other) const {
  if (&map() == &other.map()) return 0;
  const impl::MapStep step;
  const bool remembers = step.remembers() && (is_shared() || other.is_shared());
  if (remembers && impl::MapStep::find(&map(), &other.map()) != nullptr) return 0;
  const_iterator a = begin();
  const_iterator b = other.begin();
  for (; a != end() && b != other.end(); ++a, ++b) {
    if (a->first != b->first) return a->first < b->first ? -1 : 1;
    const int order = a->second.compare(b->second);
    if (order != 0) return order < 0 ? -1 : 1;
  }
  const int order = int{a != end()} - int{b != other.end()};
  if (remembers && order == 0) impl::MapStep::remember(0, &map(), &other.map());
  return order;
}

void AttributeMapBase::check_attribute_of_type(const AttributeName& name,
                                               const AttributeValue& value,
                                               const ValueTypeId& expected_type) {
  if (value.type() == expected_type) return;
  ovcore::ErrorComposer(
      "Attribute '{@name}': Expecting value of type '{@expectedType}'; actual type '{@actualType}'")
      .add("name", name.value())
      .add("expectedType", expected_type.name())
      .add("actualType", value.type().name())
      .throw_error(error::ovattribute_value_type_mismatch,
                   location("ovattribute::AttributeMapBase::check_attribute_of_type()", 235));
}

void AttributeMapBase::check_default_of_type(const AttributeName& name,
                                             const AttributeValue& default_value,
                                             const ValueTypeId& expected_type) {
  if (default_value.type() == expected_type) return;
  ovcore::ErrorComposer(
      "Expecting default value of type '{@expectedType}' for attribute '{@name}'; "
      "actual default value type: '{@actualType}'")
      .add("name", name.value())
      .add("expectedType", expected_type.name())
      .add("actualType", default_value.type().name())
      .throw_error(error::ovattribute_value_type_mismatch,
                   location("ovattribute::AttributeMapBase::check_default_of_type()", 251));
}

void AttributeMapBase::check_scalar_of_type(const AttributeName& name, const AttributeValue& value,
                                            const ValueTypeId& expected_type) {
  if (value.type() != expected_type) {
    ovcore::ErrorComposer(
        "Attribute '{@name}': Expecting value of type '{@expectedType}'; "
        "actual type '{@actualType}'")
        .add("name", name.value())
        .add("expectedType", expected_type.name())
        .add("actualType", value.type().name())
        .throw_error(error::ovattribute_value_type_mismatch,
                     location("ovattribute::AttributeMapBase::check_scalar_of_type()", 212));
  }
  if (value.size() == 1) return;
  ovcore::ErrorComposer(
      "Attribute '{@name}': Expecting scalar, found value with cardinality {@cardinality}")
      .add("name", name.value())
      .add("cardinality", value.size())
      .throw_error(error::ovattribute_value_cardinality_expectSingle,
                   location("ovattribute::AttributeMapBase::check_scalar_of_type()", 219));
}

void AttributeMapBase::throw_attribute_not_found(const AttributeName& name) {
  ovcore::ErrorComposer("Attribute '{@name}' not found in map")
      .add("name", name.value())
      .throw_error(error::ovattribute_map_attributeNotFound,
                   location("ovattribute::AttributeMapBase::throw_attribute_not_found()", 263));
}

AttributeMap::AttributeMap(MutableAttributeMap other) noexcept
    : AttributeMapBase(std::move(other)) {}

AttributeMap::AttributeMap(std::initializer_list<value_type> entries)
    : AttributeMap(MutableAttributeMap(entries)) {}

MutableAttributeMap::MutableAttributeMap(std::initializer_list<value_type> entries) {
  for (const value_type& entry : entries)
    add(entry.first, entry.second);
}

ovcore::RefCountPtr<Holder> MutableAttributeMap::prepare_modify() {
  ovcore::RefCountPtr<Holder> other;
  if (!m_pImpl) {
    m_pImpl = MapHolder::make();
  } else if (!m_pImpl->has_unique_ref()) {
    other = m_pImpl->clone();
    other.swap(m_pImpl);
  }
  return other;
}

MutableAttributeMap& MutableAttributeMap::add(const AttributeName& name, AttributeValue value) {
  change([&](Map& map) { map.set(name, value); });
  return *this;
}

MutableAttributeMap& MutableAttributeMap::add(const AttributeMapBase& other) {
  if (other.empty() || &other.map() == &map()) return *this;
  if (empty()) {
    m_pImpl = other.m_pImpl;
    return *this;
  }
  if (!m_pImpl->has_unique_ref()) {
    m_pImpl = merged_aux(other.map(), map());
    return *this;
  }
  m_pImpl->map.assign_all(other.map());
  return *this;
}

AttributeValue& MutableAttributeMap::operator[](const AttributeName& name) {
  return change([&](Map& map) -> AttributeValue& { return map.try_emplace(name).first->second; });
}

std::pair<MutableAttributeMap::iterator, bool> MutableAttributeMap::insert(
    const value_type& entry) {
  return change([&](Map& map) { return map.insert(entry); });
}

// A position in a holder that is about to be copied means nothing in the copy.
MutableAttributeMap::iterator MutableAttributeMap::insert(const_iterator hint,
                                                          const value_type& entry) {
  if (!m_pImpl || !m_pImpl->has_unique_ref()) return insert(entry).first;
  return m_pImpl->map.insert(hint, entry);
}

void MutableAttributeMap::insert(const_iterator first, const_iterator last) {
  change([&](Map& map) { map.insert(first, last); });
}

MutableAttributeMap::iterator MutableAttributeMap::erase(const_iterator position) {
  if (m_pImpl->has_unique_ref()) return m_pImpl->map.erase(position);
  return change([&](Map& map) { return map.erase(map.find(position->first)); });
}

MutableAttributeMap::iterator MutableAttributeMap::erase(const_iterator first,
                                                         const_iterator last) {
  if (m_pImpl && m_pImpl->has_unique_ref()) return m_pImpl->map.erase(first, last);
  const std::ptrdiff_t before = std::distance(cbegin(), first);
  const std::ptrdiff_t count = std::distance(first, last);
  return change([&](Map& map) {
    const iterator from = std::next(map.begin(), before);
    return map.erase(from, std::next(from, count));
  });
}

std::size_t MutableAttributeMap::erase(const AttributeName& name) {
  return change([&](Map& map) { return map.erase(name); });
}

void MutableAttributeMap::clear() {
  if (m_pImpl && m_pImpl->has_unique_ref()) {
    m_pImpl->map.clear();
  } else {
    m_pImpl = MapHolder::make();
  }
}

WritableAttributeMapRef::WritableAttributeMapRef(AttributeMap& map) noexcept
    : MutableAttributeMap(AttributeMap(std::move(map))), m_pMap(&map) {}

WritableAttributeMapRef::~WritableAttributeMapRef() {
  m_pMap->m_pImpl.swap(m_pImpl);
}

std::size_t impl::equality_hash(const AttributeMapBase& map) {
  const MapStep step;
  const bool remembers = step.remembers() && map.is_shared();
  if (remembers) {
    if (const std::size_t* const known = MapStep::find(&map.map())) return *known;
  }
  std::size_t h = map.size();
  for (const auto& [name, value] : map)
    h = ovcore::impl::mix_hash(ovcore::impl::mix_hash(h) ^ name.hash()) ^ equality_hash(value);
  if (remembers) MapStep::remember(h, &map.map());
  return h;
}

}  // namespace ovattribute
