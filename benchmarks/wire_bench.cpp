// SPDX-License-Identifier: Apache-2.0
// Maps on the wire: from the map to bytes, and from bytes to a map that is destroyed; this library
// beside others. Items are attributes; `bytes` is the size of the stream. All allocate what they
// write to anew. The headers in `peers` say what each library does and does not do.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "benchmarks/peers/all.h"
#include "benchmarks/rows.h"

namespace ovbench {
namespace {

template <class Bytes>
std::string to_string(const Bytes& bytes) {
  return std::string(reinterpret_cast<const char*>(bytes.data()),
                     static_cast<std::size_t>(bytes.size()));
}
std::string to_string(const Ovattribute::Bytes& bytes) {
  return Ovattribute::to_string(bytes);
}

template <class P>
void prepare(const Fields& fields) {
  if constexpr (requires { P::prepare(fields); }) P::prepare(fields);
}

template <class P>
void add_decode(const char* topic, const std::string& variant, const Fields& fields,
                std::size_t items, const std::string& bytes) {
  add_row(row(topic, variant, P::name), items, [=](benchmark::State& state) {
    prepare<P>(fields);
    for (auto _ : state)
      keep(P::decode(bytes));
  });
}

template <class P>
void add_variant(const std::string& variant, const Fields& fields, std::size_t items) {
  const auto& named = *new auto(with_names<typename P::Name>(fields));  // some keep references
  prepare<P>(fields);
  const bool flat = items == fields.size();
  const typename P::Map map = P::build(named);
  if constexpr (requires { P::size(map); }) {  // the map is what goes to the wire
    add_row(row("size", variant, P::name), [size = P::size(map)](benchmark::State& state) {
      for (auto _ : state)
        benchmark::DoNotOptimize(size);
      state.counters["bytes"] = static_cast<double>(size);
      return std::size_t{1};
    });
  }
  if constexpr (requires { P::encode(map); }) {
    const std::string bytes = to_string(P::encode(map));
    add_row(row("encode", variant, P::name), [=, &named](benchmark::State& state) {
      prepare<P>(fields);
      const typename P::Map source = P::build(named);
      for (auto _ : state)
        keep(P::encode(source));
      state.counters["bytes"] = static_cast<double>(bytes.size());
      return items;
    });
    if constexpr (requires { P::decode(bytes); }) {
      if (flat) require_fields<P>(P::decode(bytes), fields);
      require(P::equal(P::decode(bytes), map), P::name, "what was decoded");
      add_decode<P>("decode", variant, fields, items, bytes);
    }
  }
}

/// From a process whose names lie in another order.
template <class P>
void add_other_order(const std::string& variant, const Fields& fields) {
  prepare<P>(fields);
  const std::string bytes = P::encode_in_order(with_names<typename P::Name>(fields));
  require_fields<P>(P::decode(bytes), fields);
  add_decode<P>("decode_other_order", variant, fields, fields.size(), bytes);
}

}  // namespace
}  // namespace ovbench

int main(int argc, char** argv) {
  using namespace ovbench;
  Ovattribute::constants();
  const auto add = []<class P>() {
    if constexpr (!requires { P::build_only; }) {
      for (const std::size_t size : {32, 1024})
        add_variant<P>(std::to_string(size), mixed_fields(size), size);
      add_variant<P>("nested", nested_fields(), 800);
    }
  };
  for_each_peer(add);
  add.operator()<OvattributePackage>();
#ifdef OV_PEER_NLOHMANN
  add.operator()<NlohmannCbor>();
  add.operator()<NlohmannMsgpack>();
#endif
  for (const std::size_t size : {32, 1024}) {
    add_other_order<Ovattribute>(std::to_string(size), mixed_fields(size));
    add_other_order<OvattributePackage>(std::to_string(size), mixed_fields(size));
  }
  return run(argc, argv);
}
