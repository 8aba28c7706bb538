// SPDX-License-Identifier: Apache-2.0
// Which operations share the storage of maps, which copy it, and what they leave when they fail.
#include <gtest/gtest.h>

#include <functional>
#include <iterator>
#include <limits>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/json_marshaler.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "tests/ovattribute/map_testing.h"
#include "tests/support/allocations.h"

namespace ovattribute {
namespace {

using Pair = AttributeMapBase::value_type;

const AttributeValue& long_text() {
  static const AttributeValue text(std::string(100, 'x'));
  return text;
}

/// `size` entries, in a holder that nobody else has.
MutableAttributeMap own_map(std::size_t size) {
  MutableAttributeMap map;
  for (std::size_t i = 0; i < size; ++i)
    map.add(name(i), i % 2 == 0 ? long_text() : AttributeValue(i));
  return map;
}

TEST(MapSharing, CopiesCostNoAllocation) {
  using Make = AttributeMap (*)(const AttributeMap&);
  const std::pair<const char*, Make> cases[] = {
      {"copy, thaw and freeze",
       [](const AttributeMap& m) {
         const MutableAttributeMap changing = AttributeMap(m);
         const AttributeMap frozen(changing);
         const MutableAttributeMap of_base(static_cast<const AttributeMapBase&>(frozen));
         return AttributeMap(static_cast<const AttributeMapBase&>(of_base));
       }},
      {"assign",
       [](const AttributeMap& m) {
         AttributeMap a, b, c;
         MutableAttributeMap changing;
         a = m;
         changing = a;
         b = changing;
         static_cast<AttributeMapBase&>(c) = b;
         return c;
       }},
      {"swap and transfer",
       [](const AttributeMap& m) {
         AttributeMap a = m, b;
         a.swap(b);
         MutableAttributeMap c = AttributeMap(b.transfer()), d;
         c.swap(d);
         return AttributeMap(MutableAttributeMap(d.transfer()));
       }},
      {"lend and give back",
       [](const AttributeMap& m) {
         AttributeMap a = m;
         { const WritableAttributeMapRef lent(a); }
         return a;
       }},
      {"merge an empty map", [](const AttributeMap& m) { return m.merged_with(AttributeMap()); }},
      {"merge into an empty map",
       [](const AttributeMap& m) { return AttributeMap().merged_with(m); }},
      {"add to an empty map",
       [](const AttributeMap& m) { return AttributeMap(MutableAttributeMap().add(m)); }},
      {"add an empty map",
       [](const AttributeMap& m) {
         return AttributeMap(MutableAttributeMap(m).add(AttributeMap()));
       }},
      {"add itself",
       [](const AttributeMap& m) {
         MutableAttributeMap a = m;
         a.add(a).add(m);
         return AttributeMap(a);
       }},
      {"read only",
       [](const AttributeMap& m) {
         const MutableAttributeMap a = m;
         EXPECT_EQ(a.find(name(0)), a.begin());
         EXPECT_EQ(a.lower_bound(name(0)), a.begin());
         EXPECT_NE(a.upper_bound(name(0)), a.begin());
         EXPECT_NE(a.begin(), a.end());
         EXPECT_EQ(a.count(name(0)), 1u);
         EXPECT_EQ(a.query_ptr(name(50)), nullptr);
         return AttributeMap(a);
       }},
  };
  for (const std::size_t size : {1, 40}) {
    const AttributeMap map = own_map(size);
    for (const auto& [what, make] : cases) {
      SCOPED_TRACE(what);
      bool shares = false;
      const auto f = make;  // clang 14 captures no structured bindings
      EXPECT_EQ(ovtest::allocations_of([&] { shares = f(map).shares_holder_with(map); }), 0u);
      EXPECT_TRUE(shares);
    }
    const AttributeValue value(map);
    EXPECT_TRUE(value.get<AttributeMap>().shares_holder_with(map)) << "also within a value";
  }
}

AttributeMap own_copy(const AttributeMap& map) {
  MutableAttributeMap copy = map;
  static_cast<void>(copy.begin());
  return copy;
}

TEST(MapSharing, MapsThatWereAddedToOrReadAreCopiedAsBytes) {
  MutableAttributeMap added;
  for (int i = 0; i < 100; ++i)
    added.add(name(i), 1000 + i);
  ovserialize::MemoryWriter writer;
  writer << added;
  ovserialize::MemoryReader reader(writer.memory_list());
  const AttributeMap maps[] = {added, AttributeMap(reader),
                               parse_json(to_json(added)).get<AttributeMap>()};
  for (const AttributeMap& map : maps) {
    MutableAttributeMap copy = map;
    EXPECT_LE(ovtest::allocations_of([&] { copy.add(name(5), 7000); }), 6u);
    EXPECT_EQ(copy.query(name(5)), AttributeValue(7000));
    EXPECT_EQ(map, added);
  }
}

/// Two ways from a map to the next, and so 2^n to the last of n.
struct TwoWays {
  const char* title;
  AttributeMap (*around)(const AttributeMap& inner, std::size_t level, bool left);
  std::size_t (*hash_around)(std::size_t inner, std::size_t n0, std::size_t n1);

  AttributeMap build(AttributeValue last, std::size_t levels, bool left) const {
    AttributeMap map{{name(0), std::move(last)}};
    for (std::size_t level = 0; level < levels; ++level)
      map = around(map, level, left);
    return map;
  }
  std::size_t hash(std::size_t last, std::size_t levels) const {
    const std::size_t n0 = name(0).hash(), n1 = name(1).hash();
    std::size_t h = n0 ^ last;
    for (std::size_t level = 0; level < levels; ++level)
      h = hash_around(h, n0, n1);
    return h;
  }
};

constexpr auto hash_of_two = [](std::size_t inner, std::size_t n0, std::size_t n1) {
  return (n0 ^ inner) * 5 + (n1 ^ inner);
};

const TwoWays two_ways[] = {
    {"one map twice",
     [](const AttributeMap& inner, std::size_t, bool) {
       return AttributeMap{{name(0), inner}, {name(1), inner}};
     },
     hash_of_two},
    {"one map twice in a list",
     [](const AttributeMap& inner, std::size_t, bool) {
       return AttributeMap{{name(0), AttributeValue{inner, inner}}};
     },
     [](std::size_t inner, std::size_t n0, std::size_t) { return n0 ^ (inner * 5 + inner); }},
    {"one list twice, whose map nobody else has",
     [](const AttributeMap& inner, std::size_t, bool) {
       const AttributeValue list = AttributeValue::list_of(std::vector{own_copy(inner)});
       return AttributeMap{{name(0), list}, {name(1), list}};
     },
     hash_of_two},
    {"one map twice on every other level, where what it is compared with has two",
     [](const AttributeMap& inner, std::size_t level, bool left) {
       const bool shared = (level % 2 == 0) == left;
       return AttributeMap{{name(0), shared ? inner : own_copy(inner)},
                           {name(1), shared ? inner : own_copy(inner)}};
     },
     hash_of_two},
    {"two maps of which one shows what the other has",
     [](const AttributeMap& inner, std::size_t, bool) {
       MutableAttributeMap one{{name(0), inner}};
       for (int i = 1; i < 20; ++i)
         one.add(name(i), i);
       MutableAttributeMap other = one;
       other.add(name(19), 100);
       return AttributeMap{{name(0), one}, {name(1), other}};
     },
     [](std::size_t inner, std::size_t n0, std::size_t n1) {
       const auto hash = [=](std::size_t last) {
         std::size_t h = n0 ^ inner;
         for (std::size_t i = 1; i < 20; ++i)
           h = h * 5 + (name(i).hash() ^ (i < 19 ? i : last));
         return h;
       };
       return (n0 ^ hash(19)) * 5 + (n1 ^ hash(100));
     }},
};

TEST(MapSharing, WalksThroughASharedMapOnce) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const auto check = [&](const TwoWays& ways, std::size_t levels, const auto& with) {
    SCOPED_TRACE(ways.title);
    const AttributeMap a = ways.build(42, levels, true);
    const AttributeMap b = ways.build(42, levels, false);
    const AttributeMap larger = ways.build(43, levels, false);
    const AttributeMap not_equal = ways.build(nan, levels, true);
    const AttributeMap not_equal_either = ways.build(nan, levels, false);
    with([&] {
      EXPECT_EQ(a.hash(), ways.hash(42, levels));
      EXPECT_EQ(std::hash<AttributeMap>()(a), std::hash<AttributeMap>()(b));
      EXPECT_TRUE(a == b && b == a);
      EXPECT_EQ(a.compare(b), 0);
      EXPECT_FALSE(a == larger);
      EXPECT_EQ(a.compare(larger), -1);
      EXPECT_EQ(larger.compare(b), 1);
      EXPECT_FALSE(not_equal == not_equal_either);
      EXPECT_EQ(not_equal.compare(not_equal_either), 0);
    });
  };
  for (const TwoWays& ways : two_ways) {
    check(ways, 60, [](const auto& look) { look(); });
    check(ways, 12, [](const auto& look) {
      const ovtest::FailAllocations no_memory(0);
      look();
    });
  }
}

TEST(MapSharing, MovesKeepTheHolderUnique) {
  using Move = MutableAttributeMap (*)(MutableAttributeMap&);
  const std::pair<const char*, Move> cases[] = {
      {"move", [](MutableAttributeMap& m) { return MutableAttributeMap(std::move(m)); }},
      {"transfer", [](MutableAttributeMap& m) { return MutableAttributeMap(m.transfer()); }},
      {"freeze and thaw",
       [](MutableAttributeMap& m) { return MutableAttributeMap(AttributeMap(std::move(m))); }},
      {"move frozen",
       [](MutableAttributeMap& m) {
         AttributeMap a(std::move(m));
         AttributeMap b(std::move(a));
         AttributeMap c(b.transfer());
         AttributeMap d;
         d = std::move(c);
         return MutableAttributeMap(std::move(d));
       }},
      {"move by assignment",
       [](MutableAttributeMap& m) {
         MutableAttributeMap a;
         a = std::move(m);
         return a;
       }},
      {"swap",
       [](MutableAttributeMap& m) {
         MutableAttributeMap a;
         swap(a, m);
         return a;
       }},
      {"lend, change and give back",
       [](MutableAttributeMap& m) {
         AttributeMap a(std::move(m));
         {
           WritableAttributeMapRef lent(a);
           lent.begin()->second = 1;
         }
         EXPECT_EQ(a.begin()->second, AttributeValue(1));
         return MutableAttributeMap(std::move(a));
       }},
  };
  for (const auto& [what, move] : cases) {
    SCOPED_TRACE(what);
    MutableAttributeMap source = own_map(12);
    const Pair* const first = &*source.begin();
    const auto f = move;
    EXPECT_EQ(ovtest::allocations_of([&] {
                MutableAttributeMap moved = f(source);
                EXPECT_EQ(&*moved.begin(), first) << "a copy was made";
                EXPECT_EQ(moved.size(), 12u);
              }),
              0u);
    EXPECT_TRUE(source.empty());
    EXPECT_EQ(source, AttributeMap());
    EXPECT_EQ(source.query_ptr(name(0)), nullptr);
  }
}

TEST(MapSharing, MapsThatWereMovedFromAreEmptyAndOfUse) {
  const auto moved_from = [] {
    MutableAttributeMap map = own_map(3);
    const AttributeMap gone(std::move(map));
    return map;
  };
  const AttributeMap one{{"n0", 1}};
  for (const auto& use : std::initializer_list<std::function<void(MutableAttributeMap&)>>{
           [](auto& m) { m.add(name(0), 1); }, [](auto& m) { m[name(0)] = 1; },
           [](auto& m) {
             m.insert({name(0), 1});
           },
           [](auto& m) {
             m.insert(m.end(), {name(0), 1});
           },
           [&](auto& m) { m.add(one); }, [&](auto& m) { m.insert(one.begin(), one.end()); },
           [&](auto& m) { m = m.merged_with(one); }, [&](auto& m) { m = one.merged_with(m); },
           [&](auto& m) { m = one; }}) {
    MutableAttributeMap map = moved_from();
    use(map);
    EXPECT_EQ(map, one);
  }
  MutableAttributeMap map = moved_from();
  map.clear();
  EXPECT_EQ(map.erase(name(0)), 0u);
  MutableAttributeMap other = moved_from();
  EXPECT_EQ(other.erase(std::as_const(other).begin(), std::as_const(other).end()), other.end());
  EXPECT_EQ(MutableAttributeMap(one).add(moved_from()), one);
  EXPECT_EQ(moved_from().merged_with(moved_from()), AttributeMap());
}

TEST(MapSharing, DefaultMapsShareOneHolderUntilTheyAreChanged) {
  EXPECT_EQ(ovtest::allocations_of([] { EXPECT_TRUE(AttributeMap().empty()); }), 0u);
  MutableAttributeMap a;
  const MutableAttributeMap b;
  EXPECT_TRUE(a.shares_holder_with(b));
  EXPECT_TRUE(a.shares_holder_with(AttributeMap()));
  EXPECT_EQ(a, b);
  EXPECT_TRUE(a["x"].is_null());
  EXPECT_EQ(a.size(), 1u);
  EXPECT_TRUE(b.empty());
  EXPECT_TRUE(b.shares_holder_with(AttributeMap()));
  a.clear();
  EXPECT_FALSE(a.shares_holder_with(b)) << "a holder of its own, emptied in place";
}

TEST(MapSharing, ClearCopiesNothing) {
  for (const std::size_t size : {0, 1, 40}) {
    MutableAttributeMap own = own_map(size);
    EXPECT_EQ(own.begin() == own.end(), size == 0) << "a holder of its own by now";
    EXPECT_EQ(ovtest::allocations_of([&] { own.clear(); }), 0u) << "in place";
    const AttributeMap kept = own_map(size);
    MutableAttributeMap shared = kept;
    EXPECT_EQ(ovtest::allocations_of([&] { shared.clear(); }), 1u) << "a new holder";
    EXPECT_TRUE(shared.empty());
    EXPECT_FALSE(shared.shares_holder_with(AttributeMap()));
    EXPECT_EQ(kept, own_map(size));
  }
}

TEST(MapSharing, AddingToASharedMapMergesWithoutACopyBefore) {
  const AttributeMap kept = own_map(40);
  const AttributeMap other{{name(39), 1}, {name(50), 2}};
  MutableAttributeMap shared = kept;
  const auto cost_of = [](auto&& operation) {
    const ovtest::AllocationCounts before = ovtest::allocation_counts();
    operation();
    const ovtest::AllocationCounts after = ovtest::allocation_counts();
    return std::pair(after.made - before.made, after.bytes - before.bytes);
  };
  const auto merging = cost_of([&] { static_cast<void>(other.merged_with(kept)); });
  EXPECT_EQ(cost_of([&] { shared.add(other); }), merging);
  EXPECT_EQ(shared, other.merged_with(kept));
}

TEST(MapSharing, ElementsKeepTheirPlaceWhileTheHolderIsUnique) {
  MutableAttributeMap map = own_map(2);
  const Pair* const first = &*std::as_const(map).find(name(0));
  const auto held = map.find(name(1));
  for (std::size_t i = 2; i < 60; ++i)
    map.add(name(i), i);
  const AttributeMap more{{name(1), "new"}, {name(99), 1}};
  map.add(more);
  map.insert(more.begin(), more.end());
  for (std::size_t i = 2; i < 60; ++i)
    map.erase(name(i));
  EXPECT_EQ(&*map.find(name(0)), first);
  EXPECT_EQ(map.find(name(1)), held);
  EXPECT_EQ(held->second, AttributeValue("new"));
}

TEST(MapSharing, AMapLentAndChangedLeavesItsCopiesAlone) {
  AttributeMap map = own_map(3);
  const AttributeMap old = map;
  {
    WritableAttributeMapRef lent(map);
    EXPECT_EQ(lent, old);
    lent.add(name(0), "changed");
    lent = MutableAttributeMap(lent).add(name(9), 9);
    map = AttributeMap{{"in between", 1}};  // given up again at the end
  }
  EXPECT_EQ(old, own_map(3));
  EXPECT_EQ(map, own_map(3).add(name(0), "changed").add(name(9), 9));
}

// ------------------------------------------------------------------------------------- changes --

/// One operation that changes maps, and what it does to entries. The names n0, n1 are mostly there;
/// n60, n61 never are.
struct Change {
  const char* what;
  void (*apply)(MutableAttributeMap&);
  void (*expect)(Entries&);
};

const AttributeMap& other_map() {
  static const AttributeMap map{{name(0), "other"}, {name(60), 60}, {name(61), long_text()}};
  return map;
}
const AttributeName& n0 = name(0);
const AttributeName& n60 = name(60);

void keep(Entries&) {}
void set_n60(Entries& e) {
  e["n60"] = long_text();
}
void insert_others(Entries& e) {
  e.insert({{"n0", "other"}, {"n60", 60}, {"n61", long_text()}});
}

const Change changes[] = {
    {"add a new name", [](auto& m) { m.add(n60, long_text()); }, set_n60},
    {"add a name", [](auto& m) { EXPECT_EQ(&m.add(n0, long_text()), &m); },
     [](Entries& e) { e["n0"] = long_text(); }},
    {"find or insert Null",
     [](auto& m) {
       const AttributeValue* const value = &m[n60];
       EXPECT_EQ(&m.find(n60)->second, value);
     },
     [](Entries& e) { e["n60"]; }},
    {"insert a new name",
     [](auto& m) {
       const auto [at, inserted] = m.insert({n60, long_text()});
       EXPECT_TRUE(inserted);
       EXPECT_EQ(at, m.find(n60));
     },
     set_n60},
    {"insert a name",
     [](auto& m) {
       const bool present = m.exists(n0);
       EXPECT_EQ(m.insert({n0, "other"}).second, !present);
     },
     [](Entries& e) {
       e.insert({"n0", "other"});
     }},
    {"insert with a hint",
     [](auto& m) {
       const auto at = m.insert(m.end(), {n60, long_text()});
       EXPECT_EQ(m.find(n60), at);
       EXPECT_EQ(m.insert(m.begin(), {n60, 1}), at);
     },
     set_n60},
    {"insert with a constant hint",
     [](auto& m) {
       m.insert(std::as_const(m).begin(), {n60, long_text()});
     },
     set_n60},
    {"insert a range", [](auto& m) { m.insert(other_map().begin(), other_map().end()); },
     insert_others},
    {"insert a range of mutable iterators",
     [](auto& m) {
       MutableAttributeMap other = other_map();
       m.insert(other.begin(), other.end());
     },
     insert_others},
    {"add a map", [](auto& m) { m.add(other_map()); },
     [](Entries& e) {
       e["n0"] = "other";
       insert_others(e);
     }},
    {"erase a name",
     [](auto& m) {
       const std::size_t present = m.count(n0);
       EXPECT_EQ(m.erase(n0), present);
     },
     [](Entries& e) { e.erase("n0"); }},
    {"erase where an iterator is",
     [](auto& m) {
       const auto at = std::as_const(m).find(n0);
       if (at == std::as_const(m).end()) return;
       const bool last = std::next(at) == std::as_const(m).end();
       const AttributeName behind = last ? AttributeName() : std::next(at)->first;
       const auto next = m.erase(at);
       EXPECT_EQ(next, last ? m.end() : m.find(behind));
     },
     [](Entries& e) { e.erase("n0"); }},
    {"erase a range",
     [](auto& m) {
       const auto last = std::as_const(m).lower_bound(name(3));
       const auto next = m.erase(std::as_const(m).begin(), last);
       EXPECT_EQ(m.begin(), next);
     },
     [](Entries& e) { std::erase_if(e, [](const auto& x) { return x.first < name(3); }); }},
    {"clear", [](auto& m) { m.clear(); }, [](Entries& e) { e.clear(); }},
    {"begin", [](auto& m) { EXPECT_EQ(m.begin() == m.end(), m.empty()); }, keep},
    {"end",
     [](auto& m) {
       const auto end = m.end();
       EXPECT_EQ(std::as_const(m).end(), end);
     },
     keep},
    {"lower_bound", [](auto& m) { EXPECT_EQ(m.lower_bound(n0), m.find(n0)); }, keep},
    {"upper_bound", [](auto& m) { EXPECT_EQ(m.upper_bound(n60), m.lower_bound(n60)); }, keep},
    {"write through iterators",
     [](auto& m) {
       for (auto& [n, value] : m)
         value = long_text();
     },
     [](Entries& e) {
       for (auto& entry : e)
         entry.second = long_text();
     }},
    {"write through find",
     [](auto& m) {
       if (const auto at = m.find(n0); at != m.end()) at->second.set("found");
     },
     [](Entries& e) {
       if (e.count("n0") != 0) e["n0"] = "found";
     }},
    // What is passed lies in the map itself.
    {"add itself", [](auto& m) { m.add(m); }, keep},
    {"insert itself", [](auto& m) { m.insert(std::as_const(m).begin(), std::as_const(m).end()); },
     keep},
    {"insert its own entry",
     [](auto& m) { EXPECT_TRUE(m.empty() || !m.insert(*std::as_const(m).begin()).second); }, keep},
    {"add its own value", [](auto& m) { m.add(n60, std::as_const(m).query(n0)); },
     [](Entries& e) { e["n60"] = e.empty() ? AttributeValue() : e["n0"]; }},
    {"add by its own name",
     [](auto& m) {
       if (!m.empty()) m.add(std::as_const(m).find(n0)->first, long_text());
     },
     [](Entries& e) {
       if (!e.empty()) e["n0"] = long_text();
     }},
    {"erase by its own name",
     [](auto& m) {
       if (!m.empty()) m.erase(std::as_const(m).find(n0)->first);
     },
     [](Entries& e) { e.erase("n0"); }},
    {"put itself into itself", [](auto& m) { m.add(n60, AttributeMap(m)); },
     [](Entries& e) { e["n60"] = AttributeMap(map_of(e)); }},
    {"assign to itself",
     [](auto& m) {
       auto& same = m;
       m = same;
     },
     keep},
};

enum class Start { unique, shared, default_built };

void check_change(const Change& change, Start start, std::size_t size) {
  const AttributeMap before = own_map(size);
  Entries expected = entries_of(before);
  change.expect(expected);
  const AttributeMap after = map_of(expected);

  bool kept = true;
  bool unchanged = true;
  bool right = true;
  const auto operation = [&] {
    MutableAttributeMap map = start == Start::default_built ? MutableAttributeMap() : own_map(size);
    std::optional<AttributeMap> old;
    if (start == Start::shared) old = map;
    try {
      change.apply(map);
      right = right && map == after;
    } catch (const std::bad_alloc&) {
      unchanged = unchanged && map == before;
      kept = kept && (!old || *old == before);
      throw;
    }
    kept = kept && (!old || *old == before);
  };
  ovtest::for_each_failed_allocation(operation, [] {});
  EXPECT_TRUE(right);
  EXPECT_TRUE(unchanged) << "after a failure";
  EXPECT_TRUE(kept) << "the other handle";
}

TEST(MapSharing, AChangeChangesOneMapOrNone) {
  for (const Change& change : changes) {
    for (const std::size_t size : {1, 2, 5, 6, 7, 8, 9, 20}) {
      SCOPED_TRACE(std::string(change.what) + ", " + std::to_string(size));
      check_change(change, Start::unique, size);
      check_change(change, Start::shared, size);
    }
    SCOPED_TRACE(change.what);
    check_change(change, Start::default_built, 0);
  }
  EXPECT_TRUE(AttributeMap().empty()) << "the holder that all default-built maps share";
}

TEST(MapSharing, EveryChangeUnsharesTheHolderExceptForWhatNeedsNone) {
  for (const Change& change : changes) {
    SCOPED_TRACE(change.what);
    const AttributeMap map = own_map(5);
    MutableAttributeMap changing = map;
    change.apply(changing);
    const std::string_view what = change.what;
    EXPECT_EQ(changing.shares_holder_with(map), what == "add itself" || what == "assign to itself");
  }
}

}  // namespace
}  // namespace ovattribute
