// SPDX-License-Identifier: Apache-2.0
// How rows of the benchmarks are registered: topic/variant/library.
#pragma once

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace ovbench {

/// Ends the program unless it does what it is measured for.
inline void require(bool holds, const char* library, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "%s: %s is wrong\n", library, what);
  std::exit(1);
}

inline std::string row(const char* topic, const std::string& variant, const char* library) {
  return std::string(topic) + '/' + variant + '/' + library;
}

/// `f(state)` runs the loop and returns the number of items that one iteration handles.
template <class F>
benchmark::internal::Benchmark* add_row(const std::string& name, F f) {
  return benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
    const std::size_t items = f(state);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(items));
  });
}

/// The same for loops whose iteration handles so many items, or bytes.
template <class F>
void add_row(const std::string& name, std::size_t items, F f) {
  add_row(name, [=](benchmark::State& state) {
    f(state);
    return items;
  });
}

template <class T>
void keep(const T& result) {
  benchmark::DoNotOptimize(&result);
  benchmark::ClobberMemory();
}

inline int run(int argc, char** argv) {
  // As in a process that lives for long, the heap keeps what is given back. Else what lies at its
  // end by chance decides whether all of it goes back to the system after each iteration.
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_MMAP_THRESHOLD, 1 << 30);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace ovbench
