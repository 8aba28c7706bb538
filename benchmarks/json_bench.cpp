// SPDX-License-Identifier: Apache-2.0
// Reading, walking and writing JSON documents, beside other libraries where those are installed.
//
// json_bench [options of Google Benchmark] [file...]; without files, Debian's iso-codes.
// Rates are bytes of the document as it lies in the file, also for writing, so that they compare.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/json_marshaler.h"
#include "ovcore/read_stream.h"
#include "ovcore/write_stream.h"
#include "ovjson/reader.h"
#include "ovjson/writer.h"

#ifdef OV_PEER_NLOHMANN
#include <nlohmann/json.hpp>
#endif
#ifdef OV_PEER_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/reader.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif
#ifdef OV_PEER_BOOST_JSON
#include <boost/json.hpp>
#endif
#ifdef OV_PEER_SIMDJSON
#include <simdjson.h>
#endif

namespace {

using Text = const std::string&;

/// Calls `f` as often as is measured.
template <class F>
void measure(benchmark::State& state, Text text, F&& f) {
  for (auto _ : state)
    f();
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

// Checks UTF-8 and knows the line of an error. The text comes from a stream in pieces; names are
// interned, values shared by count. Giving the value up is part of reading, here and below.
ovattribute::AttributeValue read(Text text) {
  ovcore::MemoryReadStream stream(text);
  ovjson::Reader reader(stream);
  return ovattribute::read_attribute_value(reader);
}

void read_ov(benchmark::State& state, Text text) {
  measure(state, text, [&] { benchmark::DoNotOptimize(read(text)); });
}

// Every string is put together, every number converted.
void pull_ov(benchmark::State& state, Text text) {
  measure(state, text, [&] {
    ovcore::MemoryReadStream stream(text);
    ovjson::Reader reader(stream);
    std::size_t size = 0;
    while (const auto value = reader.next_value()) {
      if (value->kind() == ovjson::Reader::Kind::string) size += value->as_string().size();
      if (value->kind() == ovjson::Reader::Kind::number) size += value->as_double() != 0;
    }
    benchmark::DoNotOptimize(size);
  });
}

// Checks UTF-8, names, order of calls and limits; into memory that is used again.
void write_ov(benchmark::State& state, Text text) {
  const ovattribute::AttributeValue value = read(text);
  std::string result;
  measure(state, text, [&] {
    result.clear();
    ovcore::StringWriteStream stream(result);
    ovjson::TextWriter writer(stream);
    ovattribute::write_attribute_value(writer, value);
    writer.close();
    benchmark::DoNotOptimize(result);
  });
}

#ifdef OV_PEER_NLOHMANN
// Text in memory; checks UTF-8; no limit of depth; a `std::map` of `std::string` an object.
void read_nlohmann(benchmark::State& state, Text text) {
  measure(state, text, [&] { benchmark::DoNotOptimize(nlohmann::json::parse(text)); });
}

struct NlohmannCounter : nlohmann::json_sax<nlohmann::json> {
  std::size_t size = 0;

  bool null() override { return true; }
  bool boolean(bool) override { return true; }
  bool number_integer(number_integer_t) override { return true; }
  bool number_unsigned(number_unsigned_t) override { return true; }
  bool number_float(number_float_t, const string_t&) override { return true; }
  bool string(string_t& text) override {
    size += text.size();
    return true;
  }
  bool binary(binary_t&) override { return true; }
  bool start_object(std::size_t) override { return true; }
  bool key(string_t&) override { return true; }
  bool end_object() override { return true; }
  bool start_array(std::size_t) override { return true; }
  bool end_array() override { return true; }
  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }
};

// Calls back; nothing of the walk can be skipped or asked for later.
void pull_nlohmann(benchmark::State& state, Text text) {
  measure(state, text, [&] {
    NlohmannCounter counter;
    nlohmann::json::sax_parse(text, &counter);
    benchmark::DoNotOptimize(counter.size);
  });
}

// Checks UTF-8; no limits.
void write_nlohmann(benchmark::State& state, Text text) {
  const auto value = nlohmann::json::parse(text);
  measure(state, text, [&] { benchmark::DoNotOptimize(value.dump()); });
}
#endif

#ifdef OV_PEER_RAPIDJSON
// Text in memory; no check of UTF-8 (see the next); repeated names stay; no limit of depth; an
// object is a vector, in an arena that is given up as a whole; nothing is shared or owned singly.
template <unsigned Flags>
void read_rapidjson(benchmark::State& state, Text text) {
  measure(state, text, [&] {
    rapidjson::Document document;
    document.Parse<Flags>(text.data(), text.size());
    benchmark::DoNotOptimize(document);
  });
}

struct RapidjsonCounter : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, RapidjsonCounter> {
  std::size_t size = 0;

  bool String(const char*, rapidjson::SizeType n, bool) {
    size += n;
    return true;
  }
};

// Calls back; nothing of the walk can be skipped or asked for later.
template <unsigned Flags>
void pull_rapidjson(benchmark::State& state, Text text) {
  measure(state, text, [&] {
    rapidjson::MemoryStream stream(text.data(), text.size());
    rapidjson::Reader reader;
    RapidjsonCounter counter;
    reader.Parse<Flags>(stream, counter);
    benchmark::DoNotOptimize(counter.size);
  });
}

// No check of UTF-8 or of the order of calls; no limits; into memory that is used again.
void write_rapidjson(benchmark::State& state, Text text) {
  rapidjson::Document document;
  document.Parse(text.data(), text.size());
  rapidjson::StringBuffer buffer;
  measure(state, text, [&] {
    buffer.Clear();
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    benchmark::DoNotOptimize(buffer.GetString());
  });
}
#endif

#ifdef OV_PEER_BOOST_JSON
// Text in memory; checks UTF-8; an error has no line; a value owns what it holds, copies are deep.
void read_boost(benchmark::State& state, Text text) {
  measure(state, text, [&] { benchmark::DoNotOptimize(boost::json::parse(text)); });
}

// The same in an arena that is given up as a whole.
void read_boost_arena(benchmark::State& state, Text text) {
  measure(state, text, [&] {
    boost::json::monotonic_resource arena;
    benchmark::DoNotOptimize(boost::json::parse(text, &arena));
  });
}

// No check of UTF-8; no limits.
void write_boost(benchmark::State& state, Text text) {
  const boost::json::value value = boost::json::parse(text);
  measure(state, text, [&] { benchmark::DoNotOptimize(boost::json::serialize(value)); });
}
#endif

#ifdef OV_PEER_SIMDJSON
// Text in memory, copied with room behind it; checks UTF-8; the result cannot be changed, a member
// is found by walking, and it is the parser's, whose memory is kept from document to document.
void read_simdjson(benchmark::State& state, Text text) {
  simdjson::dom::parser parser;
  measure(state, text, [&] { benchmark::DoNotOptimize(parser.parse(text).error()); });
}

// No check of UTF-8; no limits.
void write_simdjson(benchmark::State& state, Text text) {
  simdjson::dom::parser parser;
  const simdjson::dom::element value = parser.parse(text);
  measure(state, text, [&] { benchmark::DoNotOptimize(simdjson::minify(value)); });
}
#endif

void add_rows(const std::string& name, Text text) {
  const auto add = [&](const char* row, void (*run)(benchmark::State&, Text)) {
    benchmark::RegisterBenchmark((row + ("/" + name)).c_str(),
                                 [run, &text](benchmark::State& state) { run(state, text); });
  };
  add("read/ovattribute", read_ov);
#ifdef OV_PEER_NLOHMANN
  add("read/nlohmann", read_nlohmann);
#endif
#ifdef OV_PEER_RAPIDJSON
  add("read/rapidjson", read_rapidjson<rapidjson::kParseDefaultFlags>);
  add("read/rapidjson_utf8", read_rapidjson<rapidjson::kParseValidateEncodingFlag>);
#endif
#ifdef OV_PEER_BOOST_JSON
  add("read/boost", read_boost);
  add("read/boost_arena", read_boost_arena);
#endif
#ifdef OV_PEER_SIMDJSON
  add("read/simdjson", read_simdjson);
#endif
  add("pull/ovattribute", pull_ov);
#ifdef OV_PEER_NLOHMANN
  add("pull/nlohmann", pull_nlohmann);
#endif
#ifdef OV_PEER_RAPIDJSON
  add("pull/rapidjson", pull_rapidjson<rapidjson::kParseDefaultFlags>);
  add("pull/rapidjson_utf8", pull_rapidjson<rapidjson::kParseValidateEncodingFlag>);
#endif
  add("write/ovattribute", write_ov);
#ifdef OV_PEER_NLOHMANN
  add("write/nlohmann", write_nlohmann);
#endif
#ifdef OV_PEER_RAPIDJSON
  add("write/rapidjson", write_rapidjson);
#endif
#ifdef OV_PEER_BOOST_JSON
  add("write/boost", write_boost);
#endif
#ifdef OV_PEER_SIMDJSON
  add("write/simdjson", write_simdjson);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::vector<std::string> files(argv + 1, argv + argc);
  if (files.empty()) files.push_back("/usr/share/iso-codes/json/iso_639-3.json");
  std::vector<std::string> texts(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::ifstream file(files[i], std::ios::binary);
    texts[i].assign(std::istreambuf_iterator<char>(file), {});
    if (texts[i].empty()) {
      std::fprintf(stderr, "json_bench: %s: nothing to read\n", files[i].c_str());
      return 1;
    }
    add_rows(files[i].substr(files[i].rfind('/') + 1), texts[i]);
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
