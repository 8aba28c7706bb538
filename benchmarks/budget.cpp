// SPDX-License-Identifier: Apache-2.0
// Runs each operation that has a budget and prints its allocations and their bytes: all that it
// asks for, also what it would otherwise have of the memory that the thread keeps. Under callgrind,
// started with --collect-atstart=no, it also leaves a dump for each with the instructions of its
// second run, where the thread keeps what the first gave back; scripts/budget puts the two
// together.
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <new>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "benchmarks/mixed_fields.h"
#include "benchmarks/peers/ovattribute.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcore/impl/small_memory.h"
#include "ovcore/read_stream.h"
#include "ovcore/write_stream.h"
#include "ovcrypto/key.h"
#include "ovjson/reader.h"
#include "ovjson/writer.h"

#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_ZERO_STATS
#define CALLGRIND_TOGGLE_COLLECT
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif

namespace {

// What C libraries allocate is not seen.
std::size_t g_allocations = 0;
std::size_t g_bytes = 0;

void* allocate(std::size_t size) {
  ++g_allocations;
  g_bytes += size;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

namespace ovbench {
namespace {

using Map = Ovattribute::Map;
using Names = FieldsOf<Ovattribute::Name>;

template <class F>
void run(const std::string& name, F&& operation) {
  operation();
  CALLGRIND_ZERO_STATS;
  CALLGRIND_TOGGLE_COLLECT;
  operation();
  CALLGRIND_TOGGLE_COLLECT;
  CALLGRIND_DUMP_STATS_AT(name.c_str());
  const ovcore::impl::SmallMemory::Pause all_from_the_heap;
  g_allocations = g_bytes = 0;
  operation();
  std::printf("%s %zu %zu\n", name.c_str(), g_allocations, g_bytes);
}

/// Something that was computed, which the compiler must not drop.
volatile std::size_t g_kept;
template <class T>
void keep(const T& result) {
  g_kept = reinterpret_cast<std::size_t>(&result);
}

template <class T, class Stored = T>
std::size_t read_all(const Map& map, const std::vector<Ovattribute::Key<T>>& keys) {
  std::size_t sum = 0;
  for (const auto& key : keys) {
    if constexpr (is_text<T>) {
      sum += Ovattribute::get<T>(map, key).size();
    } else {
      sum += Ovattribute::get<T>(map, key) != T{};
    }
  }
  return sum;
}

void run_maps(std::size_t size) {
  const std::string suffix = "_" + std::to_string(size);
  const Fields fields = mixed_fields(size);
  const Names named = with_names<Ovattribute::Name>(fields);
  const Map map = Ovattribute::build(named);
  const Map other = Ovattribute::build(named);

  std::vector<Ovattribute::Key<std::string_view>> texts;
  std::vector<Ovattribute::Key<std::int64_t>> integers;
  for (const auto& field : named) {
    if (std::holds_alternative<std::string>(field.value)) texts.emplace_back(field.name);
    if (std::holds_alternative<std::int64_t>(field.value)) integers.emplace_back(field.name);
  }
  const auto absent_texts = absent_names(size);
  const std::vector<Ovattribute::Name> absent(absent_texts.begin(), absent_texts.end());

  run("build" + suffix, [&] { keep(Ovattribute::build(named)); });
  run("hit" + suffix, [&] {
    g_kept = read_all<std::string_view>(map, texts) + read_all<std::int64_t>(map, integers);
  });
  run("miss" + suffix, [&] {
    for (const auto& name : absent)
      g_kept = map.exists(name);
  });
  run("copy" + suffix, [&] { keep(Map(map)); });
  run("copy_set_destroy" + suffix, [&] {
    Map copy(map);
    copy.add(integers[0].name(), 1 << 20);
    keep(copy);
  });
  run("equal" + suffix, [&] { g_kept = map == other; });
  run("hash" + suffix, [&] { g_kept = map.hash(); });

  OvattributePackage::prepare(fields);
  const std::string bytes = Ovattribute::to_string(Ovattribute::encode(map));
  const std::string packaged = Ovattribute::to_string(OvattributePackage::encode(map));
  run("encode" + suffix, [&] { keep(Ovattribute::encode(map)); });
  run("encode_package" + suffix, [&] { keep(OvattributePackage::encode(map)); });
  run("decode" + suffix, [&] { keep(Ovattribute::decode(bytes)); });
  run("decode_package" + suffix, [&] { keep(OvattributePackage::decode(packaged)); });
}

void run_trace() {
  const Map map = Ovattribute::build(with_names<Ovattribute::Name>(mixed_fields(32)));
  std::ostringstream out;
  run("trace_32", [&] {
    out.str({});
    out << map;
  });
}

void run_interning() {
  const auto& known = Ovattribute::constants();
  run("intern_1024", [&] {
    for (std::size_t i = 0; i < 1024; ++i)
      keep(Ovattribute::Name(known[i].value()));
  });
}

void run_json(const char* path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  if (text.empty()) {
    std::fprintf(stderr, "budget: %s: nothing to read\n", path);
    std::exit(1);
  }
  const auto read = [&] {
    ovcore::MemoryReadStream stream(text);
    ovjson::Reader reader(stream);
    return ovattribute::read_attribute_value(reader);
  };
  const ovattribute::AttributeValue value = read();
  run("json_read", [&] { keep(read()); });
  run("json_pull", [&] {
    ovcore::MemoryReadStream stream(text);
    ovjson::Reader reader(stream);
    std::size_t size = 0;
    while (const auto item = reader.next_value()) {
      if (item->kind() == ovjson::Reader::Kind::string) size += item->as_string().size();
    }
    g_kept = size;
  });
  std::string written;
  run("json_write", [&] {
    written.clear();
    ovcore::StringWriteStream stream(written);
    ovjson::TextWriter writer(stream);
    ovattribute::write_attribute_value(writer, value);
    writer.close();
  });
}

void run_sealing(std::size_t size) {
  const std::string suffix = "_" + std::to_string(size);
  const auto cipher = ovattribute::SecuredValue::default_cipher();
  const ovcrypto::Key key("a key of 15 B..", 16);
  const std::string header = "annotation";
  const std::string bytes(size, 'x');
  const ovattribute::SecuredValue::MemoryListPtr text =
      ovserialize::MemoryList::create_copy(bytes.data(), size);
  const auto sealed = cipher->encrypt(text, header, key, ovcrypto::default_random_provider());
  run("seal" + suffix,
      [&] { keep(cipher->encrypt(text, header, key, ovcrypto::default_random_provider())); });
  run("open" + suffix, [&] { keep(cipher->decrypt(key, header, sealed)); });
}

}  // namespace
}  // namespace ovbench

int main(int argc, char** argv) {
  using namespace ovbench;
  Ovattribute::constants();
  run_maps(32);
  run_maps(1024);
  run_trace();
  run_interning();
  run_json(argc > 1 ? argv[1] : "/usr/share/iso-codes/json/iso_4217.json");
  run_sealing(16);
  run_sealing(4096);
  return 0;
}
