// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/impl/ordered_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/allocations.h"

namespace ovattribute::impl {
namespace {

using Word = std::uintptr_t;
constexpr Word max_word = std::numeric_limits<Word>::max();

/// Counts what lives and throws from a copy when told to.
class Spy {
 public:
  static inline std::int64_t sm_alive = 0;
  static inline std::uint64_t sm_copies_allowed = max_word;

  Spy(Word word) noexcept : m_word(word) { ++sm_alive; }
  Spy(const Spy& other) : m_word(other.m_word) {
    if (sm_copies_allowed == 0) throw std::runtime_error("copy");
    if (sm_copies_allowed != max_word) --sm_copies_allowed;
    ++sm_alive;
  }
  Spy& operator=(const Spy&) = delete;
  ~Spy() { --sm_alive; }

  [[nodiscard]] Word word() const noexcept { return m_word; }
  friend void swap(Spy& a, Spy& b) noexcept { std::swap(a.m_word, b.m_word); }

 private:
  Word m_word;
};
struct WordOfSpy {
  Word operator()(const Spy& spy) const noexcept { return spy.word(); }
};

template <std::size_t SmallLimit, std::size_t PageCapacity>
using MapOf = OrderedMap<Spy, Spy, WordOfSpy, SmallLimit, PageCapacity>;
using Default = OrderedMap<Spy, Spy, WordOfSpy>;

static_assert(sizeof(Default) <= 64);
static_assert(std::bidirectional_iterator<Default::iterator>);
static_assert(std::bidirectional_iterator<Default::const_iterator>);
static_assert(std::is_convertible_v<Default::iterator, Default::const_iterator>);
static_assert(!std::is_convertible_v<Default::const_iterator, Default::iterator>);
static_assert(std::is_nothrow_move_constructible_v<Default>);

/// A map beside an oracle, with an iterator held to every entry.
template <class Map>
class Checked {
 public:
  using Held = typename Map::iterator;

  Map map;
  std::map<Word, Word> oracle;
  std::map<Word, Held> held;

  void insert(Word key, Word value) {
    const bool fresh = oracle.try_emplace(key, value).second;
    const auto [it, inserted] = map.try_emplace(Spy(key), Spy(value));
    EXPECT_EQ(inserted, fresh);
    if (fresh) held.emplace(key, it);
    EXPECT_EQ(it, held.at(key));
  }
  void erase_range(Word first, Word last) {
    const auto after = map.erase(map.lower_bound(first), map.lower_bound(last));
    oracle.erase(oracle.lower_bound(first), oracle.lower_bound(last));
    held.erase(held.lower_bound(first), held.lower_bound(last));
    EXPECT_EQ(after, map.lower_bound(last));
  }
  void merge(const Checked& other, bool replace) {
    if (replace) {
      map.assign_all(other.map);
    } else {
      map.insert(other.map.begin(), other.map.end());
    }
    for (const auto& [key, value] : other.oracle) {
      if (!oracle.try_emplace(key, value).second && replace) oracle[key] = value;
      held.try_emplace(key, map.find(key));
    }
  }
  void swap(Checked& other) {
    map.swap(other.map);
    oracle.swap(other.oracle);
    held.swap(other.held);
  }

  void check(Word probe) const {
    const auto same = [this](auto it, auto expected) {
      return expected == oracle.end() ? it == map.end() : it == held.at(expected->first);
    };
    EXPECT_TRUE(same(map.find(probe), oracle.find(probe)));
    EXPECT_TRUE(same(map.lower_bound(probe), oracle.lower_bound(probe)));
    EXPECT_TRUE(same(map.upper_bound(probe), oracle.upper_bound(probe)));
    EXPECT_EQ(map.count(probe), oracle.count(probe));
  }
  void check_all() const {
    ASSERT_EQ(map.size(), oracle.size());
    ASSERT_EQ(map.empty(), oracle.empty());
    auto it = map.begin();
    for (const auto& [key, value] : oracle) {
      ASSERT_EQ(it, held.at(key));
      ASSERT_EQ(it->first.word(), key);
      ASSERT_EQ(it->second.word(), value);
      ++it;
    }
    ASSERT_EQ(it, map.end());
    for (auto expected = oracle.rbegin(); expected != oracle.rend(); ++expected)
      ASSERT_EQ((*--it).first.word(), expected->first);
    for (const auto& entry : oracle) {
      check(entry.first - 1);
      check(entry.first);
      check(entry.first + 1);
    }
  }
};

template <class Map>
class OrderedMapTest : public testing::Test {
 protected:
  void SetUp() override { Spy::sm_alive = 0; }
  void TearDown() override { EXPECT_EQ(Spy::sm_alive, 0); }
};
// No small map, pages of odd capacity, a small map beyond a page, pages of two blocks.
using Maps = testing::Types<MapOf<0, 4>, MapOf<2, 5>, MapOf<6, 4>, MapOf<2, 16>, Default>;
TYPED_TEST_SUITE(OrderedMapTest, Maps);

TYPED_TEST(OrderedMapTest, AgreesWithStdMapUnderRandomOperations) {
  std::mt19937_64 random(7);
  for (const Word universe : {6u, 14u, 60u, 300u, 3000u}) {
    SCOPED_TRACE(universe);
    Checked<TypeParam> a;
    Checked<TypeParam> b;
    // The two ends of the range of words are among the keys.
    const auto any_key = [&] { return random() % universe - universe / 2; };
    for (Word step = 0; step < 4000; ++step) {
      const Word key = any_key();
      switch (random() % 100) {
        case 0:
          a.erase_range(std::min(key, key + 5), std::max(key, key + 5));
          break;
        case 1:
          a.swap(b);
          break;
        case 2:
          a.merge(b, false);
          break;
        case 3:
          a.merge(b, true);
          break;
        case 4: {
          TypeParam moved = std::move(a.map);
          EXPECT_TRUE(a.map.empty());
          a.map = std::move(moved);
          break;
        }
        case 5: {
          if (random() % 8 > 0) break;
          a.map.clear();
          a.oracle.clear();
          a.held.clear();
          break;
        }
        case 6: {
          if (a.map.empty()) break;
          const auto last = std::prev(a.oracle.end())->first;
          EXPECT_EQ(a.map.erase(std::prev(a.map.end())), a.map.end());
          a.oracle.erase(last);
          a.held.erase(last);
          break;
        }
        default:
          if (random() % 2 == 0) {
            a.insert(key, step);
          } else {
            EXPECT_EQ(a.map.erase(key), a.oracle.erase(key));
            a.held.erase(key);
          }
      }
      a.check(any_key());
      if (step % 200 == 0) a.check_all();
    }
    a.check_all();
    b.check_all();
  }
}

std::vector<Word> ordered_keys(std::size_t count, const std::string& order) {
  std::vector<Word> keys;
  for (std::size_t i = 0; i < count; ++i)
    keys.push_back(10 + 3 * i);
  if (order == "descending") std::reverse(keys.begin(), keys.end());
  if (order == "random") std::shuffle(keys.begin(), keys.end(), std::mt19937_64(count));
  if (order == "back half falling")
    std::reverse(std::next(keys.begin(), static_cast<std::ptrdiff_t>(count / 2)), keys.end());
  if (order == "from both ends") {
    std::vector<Word> mixed;
    for (std::size_t i = 0; i < count; ++i)
      mixed.push_back(keys[i % 2 == 0 ? i / 2 : count - 1 - i / 2]);
    keys = mixed;
  }
  return keys;
}
const char* const all_orders[] = {"ascending", "descending", "random", "back half falling",
                                  "from both ends"};

TYPED_TEST(OrderedMapTest, IsBuiltCopiedAndErasedInEveryOrder) {
  for (const std::size_t count : {1, 2, 3, 4, 5, 8, 9, 16, 17, 33, 65, 200, 1100}) {
    for (const char* build_order : all_orders) {
      for (const char* erase_order : all_orders) {
        SCOPED_TRACE(std::string(build_order) + ", then " + erase_order + std::to_string(count));
        Checked<TypeParam> checked;
        for (const Word key : ordered_keys(count, build_order))
          checked.insert(key, key * 2);
        checked.check_all();
        const TypeParam copy(checked.map);
        std::size_t left = count;
        for (const Word key : ordered_keys(count, erase_order)) {
          ASSERT_EQ(checked.map.erase(key), 1u);
          checked.oracle.erase(key);
          checked.held.erase(key);
          if (--left == count / 2 || left == count / 8) checked.check_all();
        }
        EXPECT_EQ(checked.map.begin(), checked.map.end());
        ASSERT_EQ(copy.size(), count);
        Word expected = 10;
        for (const auto& [key, value] : copy) {
          ASSERT_EQ(key.word(), expected);
          ASSERT_EQ(value.word(), expected * 2);
          expected += 3;
        }
      }
    }
  }
}

template <class Map>
Map built(std::size_t count, const std::string& order) {
  Map map;
  for (const Word key : ordered_keys(count, order))
    map.try_emplace(Spy(key), Spy(key));
  return map;
}

template <class Map>
std::vector<std::pair<const void*, Word>> entries_of(const Map& map) {
  std::vector<std::pair<const void*, Word>> entries;
  for (const auto& entry : map) {
    EXPECT_EQ(&*map.find(entry.first), &entry);
    entries.emplace_back(&entry, entry.second.word());
  }
  EXPECT_EQ(map.size(), entries.size());
  return entries;
}

/// Whether `operation` succeeds when the n-th allocation or the n-th copy fails.
template <class Operation>
bool succeeds(Operation&& operation, std::uint64_t n, bool fail_copies) {
  bool done = false;
  try {
    if (fail_copies) Spy::sm_copies_allowed = n;
    const ovtest::FailAllocations fail(fail_copies ? max_word : n);
    operation();
    done = true;
  } catch (const std::bad_alloc&) {
  } catch (const std::runtime_error&) {
  }
  Spy::sm_copies_allowed = max_word;
  return done;
}

/// Runs `operation(map)` failing at every point. After each failure the map must be as it was, at
/// the same addresses, and must then take the operation; in the end nothing may be left.
template <class Map, class Operation>
void expect_strong_guarantee(std::size_t size, Operation&& operation) {
  for (const bool fail_copies : {false, true}) {
    for (std::uint64_t n = 0;; ++n) {
      const ovtest::AllocationCounts before = ovtest::allocation_counts();
      bool done = false;
      {
        Map map = built<Map>(size, "random");
        const auto entries = entries_of(map);
        const std::int64_t alive = Spy::sm_alive;
        done = succeeds([&] { operation(map); }, n, fail_copies);
        if (!done) {
          EXPECT_EQ(Spy::sm_alive, alive);
          ASSERT_EQ(entries_of(map), entries) << "failure " << n;
          operation(map);
        }
        entries_of(map);
      }
      const ovtest::AllocationCounts after = ovtest::allocation_counts();
      ASSERT_EQ(after.made - before.made, after.freed - before.freed) << "failure " << n;
      if (done) break;
    }
  }
}

TYPED_TEST(OrderedMapTest, IsAsItWasWhenAnythingThrows) {
  const TypeParam other = [] {
    TypeParam map;
    for (Word key = 1; key < 150; key += 2)
      map.append(Spy(key), Spy(key + 1000));
    return map;
  }();
  for (const std::size_t size : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 16, 17, 18, 32, 33, 40, 100}) {
    SCOPED_TRACE(size);
    for (const Word key : {Word{0}, Word{size * 3 / 2 / 3 * 3 + 11}, max_word}) {
      expect_strong_guarantee<TypeParam>(size, [key](TypeParam& map) {
        const Spy value(key);
        map.try_emplace(value, value);
      });
    }
    expect_strong_guarantee<TypeParam>(size, [&](TypeParam& map) { map.assign_all(other); });
    expect_strong_guarantee<TypeParam>(
        size, [&](TypeParam& map) { map.insert(other.begin(), other.end()); });
    expect_strong_guarantee<TypeParam>(size, [&](TypeParam& map) { map = TypeParam(map); });
    expect_strong_guarantee<TypeParam>(size, [&](TypeParam& map) { map.reserve(1000); });
  }
}

template <class Map>
void set(Map& map, Word key, Word value) {
  Spy spy(value);
  map.set(Spy(key), spy);
}

template <class Map>
Map appended(std::size_t size) {
  Map map;
  for (Word key = 0; key < size; ++key)
    map.append(Spy(2 * key), Spy(key));
  return map;
}

TYPED_TEST(OrderedMapTest, CopiesAgreeWithStdMapWhicheverChanges) {
  struct Pair {
    TypeParam map;
    std::map<Word, Word> oracle;
  };
  std::mt19937_64 random(11);
  for (const std::size_t size : {11, 12, 64, 65, 200}) {
    SCOPED_TRACE(size);
    std::vector<Pair> pairs(4);
    for (int step = 0; step < 600; ++step) {
      Pair& pair = pairs[random() % pairs.size()];
      const Pair& other = pairs[random() % pairs.size()];
      const Word key = random() % (2 * size + 3);
      const Word value = random() % 1000;
      switch (const std::uint64_t what = random() % 32) {
        case 0:
          pair = {appended<TypeParam>(size), {}};
          for (Word i = 0; i < size; ++i)
            pair.oracle[2 * i] = i;
          break;
        case 1:
          pair.map.assign_all(other.map);
          for (const auto& entry : Pair(other).oracle)
            pair.oracle[entry.first] = entry.second;
          break;
        case 2:
          if (const auto it = pair.map.find(Spy(key)); it != pair.map.end()) {
            Spy spy(value);
            swap(it->second, spy);
            pair.oracle[key] = value;
          }
          break;
        case 3:
          pair.map.clear();
          pair.oracle.clear();
          break;
        case 4:
        case 5:
          ASSERT_EQ(pair.map.erase(Spy(key)), pair.oracle.erase(key));
          break;
        default:
          if (what < 14) {
            pair = Pair(other);
          } else {
            set(pair.map, what < 30 ? key & ~Word{1} : key, value);
            pair.oracle[what < 30 ? key & ~Word{1} : key] = value;
          }
      }
      for (const Pair& each : pairs) {
        const TypeParam& map = each.map;
        ASSERT_EQ(map.size(), each.oracle.size());
        auto entry = map.begin();
        for (const auto& expected : each.oracle) {
          ASSERT_EQ(entry->first.word(), expected.first) << "step " << step;
          ASSERT_EQ(entry->second.word(), expected.second) << "step " << step;
          ++entry;
        }
        EXPECT_EQ(map.count(Spy(key)), each.oracle.count(key));
      }
    }
  }
}

TYPED_TEST(OrderedMapTest, CopiesAreAsTheyWereWhenAnythingThrows) {
  using Change = void (*)(TypeParam&);
  const Change changes[] = {
      [](TypeParam& map) { set(map, 20, 1); },
      [](TypeParam& map) { set(map, 21, 1); },
      [](TypeParam& map) { map.erase(Spy(20)); },
      [](TypeParam& map) { static_cast<void>(map.begin()); },
      [](TypeParam& map) {
        TypeParam copy(map), changed(copy);
        set(changed, 2, 3);
      },
  };
  for (const Change change : changes) {
    for (const int changed : {0, 1, 2}) {  // nothing, the copy, the copy whose original is gone
      for (const bool fail_copies : {false, true}) {
        bool done = false;
        for (std::uint64_t n = 0; !done; ++n) {
          auto original = std::make_unique<TypeParam>(appended<TypeParam>(40));
          TypeParam copy(*original);
          if (changed > 0) set(copy, 10, 77);
          if (changed > 1) original.reset();
          const auto words = [](const TypeParam& map) {
            std::vector<Word> all;
            for (const auto& entry : map)
              all.insert(all.end(), {entry.first.word(), entry.second.word()});
            return all;
          };
          const std::vector<Word> before = words(copy);
          done = succeeds([&] { change(copy); }, n, fail_copies);
          if (!done) {
            ASSERT_EQ(words(copy), before) << "failure " << n;
          }
          if (original != nullptr) {
            ASSERT_EQ(words(*original), words(appended<TypeParam>(40)));
          }
        }
      }
    }
  }
}

TEST(OrderedMap, ACopyCopiesNoEntryUntilSomethingMayWriteWithoutAsking) {
  const auto copies_of = [](const Default& map) {
    Spy::sm_copies_allowed = 1000;
    Default copy(map);
    set(copy, 2, 7);
    const std::uint64_t made = 1000 - std::exchange(Spy::sm_copies_allowed, max_word);
    return made;
  };
  Default map = appended<Default>(100);
  EXPECT_EQ(copies_of(map), 1u);
  EXPECT_EQ(copies_of(map), 1u);
  const auto held = map.find(Spy(4));
  EXPECT_EQ(copies_of(map), 200u);
  Default copy(map);
  Spy spy(5);
  swap(held->second, spy);
  EXPECT_EQ(std::as_const(copy).find(Spy(4))->second.word(), 2u);
}

TEST(OrderedMap, InsertKeepsAndAssignReplaces) {
  Default map;
  map.append(Spy(5), Spy(50));
  EXPECT_FALSE(map.insert({Spy(5), Spy(51)}).second);
  EXPECT_EQ(map.insert(map.end(), {Spy(5), Spy(52)})->second.word(), 50u);
  EXPECT_EQ(std::next(map.insert(map.end(), {Spy(4), Spy(40)})), map.find(5));
  Default other;
  other.append(Spy(5), Spy(53));
  other.append(Spy(6), Spy(60));
  map.insert(other.begin(), other.end());
  EXPECT_EQ(map.find(5)->second.word(), 50u);
  map.assign_all(other);
  EXPECT_EQ(map.find(5)->second.word(), 53u);
  map.assign_all(map);
  map.insert(map.begin(), map.end());
  EXPECT_EQ(map.size(), 3u);
}

// Also where one falling run begins behind a rising one, every page has its share of entries.
TEST(OrderedMap, MemoryIsBoundInEveryOrder) {
  using Plain = OrderedMap<Word, void*, std::identity>;
  for (const char* order : all_orders) {
    SCOPED_TRACE(order);
    const auto keys = ordered_keys(100000, order);
    const ovtest::AllocationCounts before = ovtest::allocation_counts();
    Plain map;
    for (const Word key : keys)
      map.try_emplace(key, nullptr);
    const ovtest::AllocationCounts after = ovtest::allocation_counts();
    EXPECT_LT(after.made - before.made, keys.size() / 14);
    EXPECT_LT(after.bytes - before.bytes, keys.size() * 110);
  }
}

TEST(OrderedMap, FindsWhatIsSoughtOftenByItsHashWhereThatHelps) {
  const auto allocations_for = [](Word factor) {
    OrderedMap<Word, void*, std::identity> map;
    for (Word i = 0; i < 400; ++i)
      map.try_emplace(i * factor, nullptr);
    return ovtest::allocations_of([&] {
      for (Word i = 0; i < 400; ++i)
        ASSERT_TRUE(map.count(i * factor) == 1 && map.count(i * factor + 1) == 0);
    });
  };
  EXPECT_EQ(allocations_for(64), 1u);
  // Undoes the hash, so that all words belong in one place: tried a few times.
  EXPECT_LE(allocations_for(0xf1de83e19937733d), 8u);
}

TEST(OrderedMap, SmallMapsCostOneAllocation) {
  using Plain = OrderedMap<Word, void*, std::identity>;
  Plain map;
  const ovtest::AllocationCounts before = ovtest::allocation_counts();
  for (Word key = 6; key > 0; --key)
    map.try_emplace(key, nullptr);
  const ovtest::AllocationCounts after = ovtest::allocation_counts();
  EXPECT_EQ(after.made - before.made, 1u);
  EXPECT_LE(after.bytes - before.bytes, 6 * 36u);
  EXPECT_EQ(ovtest::allocations_of([&] { Plain copy(map); }), 1u);
  EXPECT_EQ(ovtest::allocations_of([&] { Plain empty, copy(empty), moved(std::move(empty)); }), 0u);

  Plain reserved;
  reserved.reserve(8);
  EXPECT_EQ(ovtest::allocations_of([&] {
              for (Word key = 0; key < 8; ++key)
                reserved.append(key, nullptr);
            }),
            0u);
}

}  // namespace
}  // namespace ovattribute::impl
