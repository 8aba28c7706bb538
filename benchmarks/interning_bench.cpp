// SPDX-License-Identifier: Apache-2.0
// Interning names that are known already, by one thread and by two at once, which ask for names of
// their own or for the same; this library beside others. Times are of the clock; the items of both
// threads count.
//
// Here the handle is counted and given up each time, as the value of an attribute's name is. GLib
// keeps what was interned for good. The hash map of oneTBB is what one would make oneself: the
// accessor locks its entry, which may go.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "benchmarks/mixed_fields.h"
#include "benchmarks/rows.h"
#include "ovcore/string_key.h"

#ifdef OV_PEER_GLIB
#include <glib.h>
#endif
#ifdef OV_PEER_TBB
#include <tbb/concurrent_hash_map.h>
#endif

namespace ovbench {
namespace {

constexpr std::size_t asked_count = 512;

struct Ovcore {
  static constexpr const char* name = "ovattribute";
  static void know(const std::vector<std::string>& names) {
    static const std::vector<ovcore::StringKey> kept(names.begin(), names.end());
  }
  static std::string_view intern(const std::string& text) {
    const ovcore::StringKey key(text);
    return key.value();  // which is known, and so stays
  }
};

#ifdef OV_PEER_GLIB
struct GlibQuark {
  static constexpr const char* name = "glib_quark";
  static void know(const std::vector<std::string>& names) {
    for (const std::string& text : names)
      g_quark_from_string(text.c_str());
  }
  static std::string_view intern(const std::string& text) {
    return g_quark_to_string(g_quark_from_string(text.c_str()));
  }
};

struct GlibString : GlibQuark {
  static constexpr const char* name = "glib_intern_string";
  static std::string_view intern(const std::string& text) { return g_intern_string(text.c_str()); }
};
#endif

#ifdef OV_PEER_TBB
struct Tbb {
  static constexpr const char* name = "tbb_hash_map";
  using Map = tbb::concurrent_hash_map<std::string, std::size_t>;
  static Map& map() {
    static Map result;
    return result;
  }
  static void know(const std::vector<std::string>& names) {
    for (const std::string& text : names)
      map().insert({text, map().size()});
  }
  static std::string_view intern(const std::string& text) {
    Map::const_accessor found;
    map().find(found, text);
    return found->first;
  }
};
#endif

template <class P>
void add_library() {
  const std::vector<std::string> names = all_names();
  P::know(names);
  for (const std::string& text : names)
    require(P::intern(text) == text, P::name, "what was interned");
  const auto add = [&](const char* variant, int threads, bool distinct) {
    add_row(row("intern", variant, P::name),
            [=](benchmark::State& state) {
              const auto thread = static_cast<std::size_t>(state.thread_index());
              const auto first =
                  names.begin() + (distinct ? static_cast<long>(thread * asked_count) : 0);
              std::vector<std::string> asked(first, first + asked_count);
              std::shuffle(asked.begin(), asked.end(), std::mt19937_64(thread));
              for (auto _ : state) {
                for (const std::string& text : asked)
                  benchmark::DoNotOptimize(P::intern(text).data());
              }
              return asked_count;
            })
        ->Threads(threads)
        ->UseRealTime();
  };
  add("1_thread", 1, true);
  add("2_threads_distinct", 2, true);
  add("2_threads_same", 2, false);
}

}  // namespace
}  // namespace ovbench

int main(int argc, char** argv) {
  using namespace ovbench;
  add_library<Ovcore>();
#ifdef OV_PEER_GLIB
  add_library<GlibQuark>();
  add_library<GlibString>();
#endif
#ifdef OV_PEER_TBB
  add_library<Tbb>();
#endif
  return run(argc, argv);
}
