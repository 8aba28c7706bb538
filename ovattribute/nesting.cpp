// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/nesting.h"

#include <atomic>
#include <new>
#include <typeinfo>
#include <unordered_map>
#include <utility>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value_impl.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/impl/map_step.h"
#include "ovcore/error_composer.h"

namespace ovattribute {
namespace {

std::atomic<std::size_t> g_limit{default_nesting_limit};
constinit thread_local impl::MapStep::Walk t_walk;

impl::MapStep::Walk& enter_level() {
  impl::MapStep::Walk& walk = t_walk;
  const std::size_t limit = nesting_limit();
  if (walk.level >= limit) {
    ovcore::ErrorComposer("Attribute values are nested deeper than {@limit} maps")
        .add("limit", limit)
        .throw_error(error::ovattribute_invalidParameter,
                     {"ovattribute/nesting", "ovattribute::impl::NestingGuard()", 0});
  }
  ++walk.level;
  return walk;
}

using Storages = std::pair<const void*, const void*>;

struct StoragesHash {
  std::size_t operator()(const Storages& key) const noexcept {
    const auto a = reinterpret_cast<std::uintptr_t>(key.first);
    const auto b = reinterpret_cast<std::uintptr_t>(key.second);
    return (a * 31 + b) * 0x9e3779b97f4a7c15 >> 16;
  }
};

}  // namespace

std::size_t nesting_limit() noexcept {
  return g_limit.load(std::memory_order_relaxed);
}

void set_nesting_limit(std::size_t limit) noexcept {
  g_limit.store(limit, std::memory_order_relaxed);
}

namespace impl {

NestingGuard::NestingGuard() {
  enter_level();
}

NestingGuard::~NestingGuard() {
  --t_walk.level;
}

class MapStep::Memory : public std::unordered_map<Storages, std::size_t, StoragesHash> {};

MapStep::Walk& MapStep::enter() {
  Walk& walk = enter_level();
  ++walk.open_steps;
  ++walk.steps;
  return walk;
}

void MapStep::Walk::forget() noexcept {
  delete std::exchange(memory, nullptr);
}

/// True once in 16 times, so that remembering costs little where nothing is met twice. What is met
/// again and again is entered 16 times on the average before it is known.
bool MapStep::Walk::draw() noexcept {
  random = random * 6364136223846793005 + 1442695040888963407;
  return random >> 60 == 0;
}

bool MapStep::remembers(const ValueBase& maps) noexcept {
  using List = RefCountedValueImpl<AttributeMap>;
  return t_walk.remembers() && typeid(maps) == typeid(List) &&
         (t_walk.has_met_lent || static_cast<const List&>(maps).is_shared());
}

void MapStep::note_lent() noexcept {
  t_walk.has_met_lent = true;
}

bool MapStep::has_met_lent() noexcept {
  return t_walk.has_met_lent;
}

const std::size_t* MapStep::find(const void* a, const void* b) noexcept {
  const Memory* const memory = t_walk.memory;
  if (memory == nullptr) return nullptr;
  const auto found = memory->find({a, b});
  return found != memory->end() ? &found->second : nullptr;
}

void MapStep::remember(std::size_t result, const void* a, const void* b) noexcept {
  Walk& walk = t_walk;
  if (!walk.draw()) return;
  try {
    if (walk.memory == nullptr) walk.memory = new Memory();
    walk.memory->emplace(Storages{a, b}, result);
  } catch (const std::bad_alloc&) {
    walk.steps = 0;  // until the next try
  }
}

}  // namespace impl
}  // namespace ovattribute
