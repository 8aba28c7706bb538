// SPDX-License-Identifier: Apache-2.0
// The map's container against std::map and a sorted vector.
#include "ovattribute/impl/ordered_map.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <utility>
#include <vector>

namespace {

using Word = std::uintptr_t;

struct WordOfWord {
  Word operator()(Word word) const noexcept { return word; }
};
using Ordered = ovattribute::impl::OrderedMap<Word, void*, WordOfWord>;
using Tree = std::map<Word, void*>;

/// The obvious flat map.
class SortedVector {
 public:
  using Entries = std::vector<std::pair<Word, void*>>;

  Entries::const_iterator find(Word word) const {
    const auto at = place(word);
    return at != m_entries.end() && at->first == word ? at : m_entries.end();
  }
  void try_emplace(Word word, void* value) { m_entries.insert(place(word), {word, value}); }
  Entries::const_iterator begin() const { return m_entries.begin(); }
  Entries::const_iterator end() const { return m_entries.end(); }

 private:
  Entries::const_iterator place(Word word) const {
    return std::lower_bound(m_entries.begin(), m_entries.end(), word,
                            [](const auto& entry, Word w) { return entry.first < w; });
  }

  Entries m_entries;
};

enum Order { ascending, descending, random_order };

/// Distinct words a cache line apart, as those of names are.
std::vector<Word> words(std::size_t count, Order order) {
  std::vector<Word> result;
  for (std::size_t i = 1; i <= count; ++i)
    result.push_back(0x100000 + i * 128);
  if (order == descending) std::reverse(result.begin(), result.end());
  if (order == random_order) std::shuffle(result.begin(), result.end(), std::mt19937_64(1));
  return result;
}

template <class Map>
Map build(const std::vector<Word>& keys) {
  Map map;
  for (const Word key : keys)
    map.try_emplace(key, nullptr);
  return map;
}

constexpr std::size_t probe_count = 65536;

/// In random order and too many for the processor to learn.
std::vector<Word> probes(std::size_t count) {
  const auto keys = words(count, ascending);
  std::mt19937_64 random(2);
  std::vector<Word> result(probe_count);
  for (Word& probe : result)
    probe = keys[random() % count];
  return result;
}

/// `miss` asks for words between those present.
template <class Map, int miss>
void find(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const Map map = build<Map>(words(count, ascending));
  const auto asked = probes(count);
  std::size_t hits = 0;
  std::size_t next = 0;
  for (auto _ : state) {
    hits += map.find(asked[next] + miss) != map.end();
    next = (next + 1) % probe_count;
  }
  if ((hits == 0) != (miss == 1)) state.SkipWithError("wrong answer");
  state.SetItemsProcessed(state.iterations());
}

/// Each probe waits for the value found by the one before.
template <class Map>
void find_in_turn(benchmark::State& state) {
  const auto count = static_cast<std::size_t>(state.range(0));
  const Map map = build<Map>(words(count, ascending));
  const auto asked = probes(count);
  std::size_t next = 0;
  for (auto _ : state) {
    const auto value = reinterpret_cast<Word>(map.find(asked[next])->second);  // 0
    next = (next + 1 + value) % probe_count;
  }
  benchmark::DoNotOptimize(next);
  state.SetItemsProcessed(state.iterations());
}

template <class Map, Order order>
void build_and_destroy(benchmark::State& state) {
  const auto keys = words(static_cast<std::size_t>(state.range(0)), order);
  for (auto _ : state) {
    Map map = build<Map>(keys);
    benchmark::DoNotOptimize(map);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void copy_and_destroy(benchmark::State& state) {
  const Map map = build<Map>(words(static_cast<std::size_t>(state.range(0)), ascending));
  for (auto _ : state) {
    Map copy(map);
    benchmark::DoNotOptimize(copy);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Map>
void walk(benchmark::State& state) {
  const Map map = build<Map>(words(static_cast<std::size_t>(state.range(0)), random_order));
  for (auto _ : state) {
    Word sum = 0;
    for (const auto& entry : map)
      sum += entry.first;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <Order order>
void erase_all(benchmark::State& state) {
  const auto keys = words(static_cast<std::size_t>(state.range(0)), order);
  const Ordered map = build<Ordered>(words(keys.size(), ascending));
  for (auto _ : state) {
    Ordered copy(map);
    for (const Word key : keys)
      copy.erase(key);
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define SIZES Arg(8)->Arg(32)->Arg(1024)
#define LARGE_SIZES SIZES->Arg(1000000)

BENCHMARK(find<Ordered, 0>)->LARGE_SIZES;
BENCHMARK(find<Tree, 0>)->LARGE_SIZES;
BENCHMARK(find<SortedVector, 0>)->LARGE_SIZES;
BENCHMARK(find<Ordered, 1>)->LARGE_SIZES;
BENCHMARK(find<Tree, 1>)->LARGE_SIZES;
BENCHMARK(find<SortedVector, 1>)->LARGE_SIZES;
BENCHMARK(find_in_turn<Ordered>)->SIZES;
BENCHMARK(find_in_turn<Tree>)->SIZES;
BENCHMARK(find_in_turn<SortedVector>)->SIZES;
BENCHMARK(build_and_destroy<Ordered, ascending>)->LARGE_SIZES;
BENCHMARK(build_and_destroy<Tree, ascending>)->LARGE_SIZES;
BENCHMARK(build_and_destroy<SortedVector, ascending>)->LARGE_SIZES;
BENCHMARK(build_and_destroy<Ordered, descending>)->LARGE_SIZES;
BENCHMARK(build_and_destroy<Tree, descending>)->LARGE_SIZES;
BENCHMARK(build_and_destroy<SortedVector, descending>)->SIZES;
BENCHMARK(build_and_destroy<Ordered, random_order>)->LARGE_SIZES;
BENCHMARK(build_and_destroy<Tree, random_order>)->LARGE_SIZES;
BENCHMARK(build_and_destroy<SortedVector, random_order>)->SIZES;
BENCHMARK(copy_and_destroy<Ordered>)->LARGE_SIZES;
BENCHMARK(copy_and_destroy<Tree>)->LARGE_SIZES;
BENCHMARK(copy_and_destroy<SortedVector>)->LARGE_SIZES;
BENCHMARK(walk<Ordered>)->LARGE_SIZES;
BENCHMARK(walk<Tree>)->LARGE_SIZES;
BENCHMARK(erase_all<ascending>)->SIZES;
BENCHMARK(erase_all<random_order>)->LARGE_SIZES;

}  // namespace

BENCHMARK_MAIN();
