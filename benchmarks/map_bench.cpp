// SPDX-License-Identifier: Apache-2.0
// Maps in memory: building, finding, copying, comparing, for people; this library beside others.
// Items are attributes, or whole maps where maps are copied. The headers in `peers` say what each
// library does and does not do.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "benchmarks/peers/all.h"
#include "benchmarks/rows.h"

namespace ovbench {
namespace {

/// Maps of different `copy` have nothing in common, not even the texts that some refer to.
template <class P>
typename P::Map mixed_map(std::size_t size, int copy = 0) {
  static std::map<std::pair<std::size_t, int>, FieldsOf<typename P::Name>> kept;
  auto& fields = kept[{size, copy}];
  if (fields.empty()) fields = with_names<typename P::Name>(mixed_fields(size));
  return P::build(fields);
}

template <class P>
void add_build(const char* topic, std::size_t size, Order order) {
  add_row(row(topic, std::to_string(size), P::name), size, [=](benchmark::State& state) {
    const auto fields = with_names<typename P::Name>(mixed_fields(size, order));
    for (auto _ : state)
      keep(P::build(fields));
  });
}

// Too many, in random order, for the processor to learn.
constexpr std::size_t probe_count = 4096;

/// The constants of a program, and the order in which it asks for them.
template <class Key>
struct Probes {
  std::vector<Key> keys;
  std::vector<const Key*> order;

  void arrange(std::size_t count) {
    std::mt19937_64 random(4);
    for (std::size_t i = 0; i < count && !keys.empty(); ++i)
      order.push_back(&keys[random() % keys.size()]);
  }
};

/// Reads of the fields of one type, as many as is their share.
template <class P, class T>
struct TypedProbes : Probes<Key<P, T>> {
  explicit TypedProbes(const Fields& fields) {
    for_each_field<std::string>(fields, [&](const std::string& name, const auto& value) {
      using Stored = std::remove_cvref_t<decltype(value)>;
      if constexpr (std::is_same_v<T, Stored> || (is_text<T> && is_text<Stored>)) {
        this->keys.emplace_back(typename P::Name(name));
      }
    });
    this->arrange(probe_count * this->keys.size() / fields.size());
  }
  std::size_t read(const typename P::Map& map) const {
    std::size_t sum = 0;
    for (const auto* key : this->order) {
      if constexpr (is_text<T>) {
        sum += static_cast<std::size_t>(P::template get<T>(map, *key).size());
      } else {
        sum += P::template get<T>(map, *key) != T{};
      }
    }
    return sum;
  }
};

template <class P>
std::size_t hit(benchmark::State& state, std::size_t size) {
  const Fields fields = mixed_fields(size);
  const typename P::Map map = mixed_map<P>(size);
  const TypedProbes<P, std::string_view> texts(fields);
  const TypedProbes<P, std::int64_t> integers(fields);
  const TypedProbes<P, double> doubles(fields);
  const TypedProbes<P, bool> booleans(fields);
  for (auto _ : state) {
    benchmark::DoNotOptimize(texts.read(map) + integers.read(map) + doubles.read(map) +
                             booleans.read(map));
  }
  return texts.order.size() + integers.order.size() + doubles.order.size() + booleans.order.size();
}

template <class P>
std::size_t miss(benchmark::State& state, std::size_t size) {
  const typename P::Map map = mixed_map<P>(size);
  Probes<typename P::Name> probes;
  for (const std::string& name : absent_names(size))
    probes.keys.emplace_back(name);
  probes.arrange(probe_count);
  for (auto _ : state) {
    std::size_t found = 0;
    for (const auto* name : probes.order)
      found += P::has(map, *name);
    benchmark::DoNotOptimize(found);
  }
  return probe_count;
}

template <class P>
void add_copies(std::size_t size) {
  const std::string variant = std::to_string(size);
  add_row(row("copy", variant, P::name), 1, [=](benchmark::State& state) {
    const typename P::Map map = mixed_map<P>(size);
    for (auto _ : state)
      keep(P::copy(map));
  });
  if constexpr (requires(typename P::Map & map, const typename P::Name& name) {
                  P::set(map, name, std::int64_t{});
                }) {
    add_row(row("copy_set_destroy", variant, P::name), 1, [=](benchmark::State& state) {
      const typename P::Map map = mixed_map<P>(size);
      std::vector<typename P::Name> names;
      for (const auto& field : mixed_fields(size)) {
        if (std::holds_alternative<std::int64_t>(field.value)) names.emplace_back(field.name);
      }
      std::size_t next = 0;
      for (auto _ : state) {
        typename P::Map copy = P::copy(map);
        P::set(copy, names[next++ % names.size()], std::int64_t{1} << 40);
        keep(copy);
      }
    });
  }
}

template <class P>
void check(std::size_t size) {
  const Fields fields = mixed_fields(size);
  const typename P::Map map = mixed_map<P>(size);
  require_fields<P>(map, fields);
  if constexpr (requires { P::copy(map); }) require_fields<P>(P::copy(map), fields);
  if constexpr (requires { P::equal(map, map); }) {
    require(P::equal(map, mixed_map<P>(size, 1)), P::name, "comparing what is equal");
    require(!P::equal(map, mixed_map<P>(size - 1)), P::name, "comparing what differs");
  }
}

template <class P>
void add_library() {
  for (const std::size_t size : {8, 32, 1024}) {
    const std::string variant = std::to_string(size);
    check<P>(size);
    add_build<P>("build", size, Order::random);
    add_build<P>("build_in_order", size, Order::declared);
    if constexpr (!requires { P::build_only; }) {
      add_row(row("hit", variant, P::name),
              [=](benchmark::State& state) { return hit<P>(state, size); });
      add_row(row("miss", variant, P::name),
              [=](benchmark::State& state) { return miss<P>(state, size); });
      if constexpr (requires(const typename P::Map& map) { P::copy(map); }) {
        if (size > 8) add_copies<P>(size);
      }
    }
  }
  constexpr std::size_t size = 1024;
  if constexpr (requires(const typename P::Map& map) { P::equal(map, map); }) {
    add_row(row("equal", "1024", P::name), size, [](benchmark::State& state) {
      const typename P::Map a = mixed_map<P>(size);
      const typename P::Map b = mixed_map<P>(size, 1);
      for (auto _ : state)
        benchmark::DoNotOptimize(P::equal(a, b));
    });
  }
  if constexpr (requires(const typename P::Map& map) { P::hash(map); }) {
    add_row(row("hash", "1024", P::name), size, [](benchmark::State& state) {
      const typename P::Map map = mixed_map<P>(size);
      for (auto _ : state)
        benchmark::DoNotOptimize(P::hash(map));
    });
  }
}

void add_trace() {
  add_row(row("trace", "32", Ovattribute::name), 32, [](benchmark::State& state) {
    const auto map = mixed_map<Ovattribute>(32);
    std::ostringstream out;
    for (auto _ : state) {
      out.str({});
      out << map;
      benchmark::DoNotOptimize(out.tellp());
    }
  });
}

}  // namespace
}  // namespace ovbench

int main(int argc, char** argv) {
  ovbench::Ovattribute::constants();
  ovbench::for_each_peer([]<class P>() { ovbench::add_library<P>(); });
  ovbench::add_trace();
  return ovbench::run(argc, argv);
}
