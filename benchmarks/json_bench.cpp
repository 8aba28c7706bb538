// SPDX-License-Identifier: Apache-2.0
// Reading, walking and writing JSON documents, beside other libraries where those are installed.
//
// json_bench [options of Google Benchmark] [file...]; without files, two of Debian's iso-codes.
// Rates are bytes of the document as it lies in the file, also for writing, so that they compare.
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "benchmarks/rows.h"
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
#include <boost/json/basic_parser_impl.hpp>
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
std::size_t pull_ov(Text text) {
  ovcore::MemoryReadStream stream(text);
  ovjson::Reader reader(stream);
  std::size_t size = 0;
  while (const auto value = reader.next_value()) {
    if (value->kind() == ovjson::Reader::Kind::string) size += value->as_string().size();
    if (value->kind() == ovjson::Reader::Kind::number) size += value->as_double() != 0;
  }
  return size;
}

// Checks UTF-8, names, order of calls and limits; into memory that is used again.
void write(const ovattribute::AttributeValue& value, std::string& result) {
  result.clear();
  ovcore::StringWriteStream stream(result);
  ovjson::TextWriter writer(stream);
  ovattribute::write_attribute_value(writer, value);
  writer.close();
}

std::string written(Text text) {
  std::string result;
  write(read(text), result);
  return result;
}

void write_ov(benchmark::State& state, Text text) {
  const ovattribute::AttributeValue value = read(text);
  std::string result;
  measure(state, text, [&] {
    write(value, result);
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
  bool number_integer(number_integer_t value) override { return number(value != 0); }
  bool number_unsigned(number_unsigned_t value) override { return number(value != 0); }
  bool number_float(number_float_t value, const string_t&) override { return number(value != 0); }
  bool number(bool counts) {
    size += counts;
    return true;
  }
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
std::size_t pull_nlohmann(Text text) {
  NlohmannCounter counter;
  nlohmann::json::sax_parse(text, &counter);
  return counter.size;
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

  bool Key(const char*, rapidjson::SizeType, bool) { return true; }
  bool Int(int value) { return number(value != 0); }
  bool Uint(unsigned value) { return number(value != 0); }
  bool Int64(std::int64_t value) { return number(value != 0); }
  bool Uint64(std::uint64_t value) { return number(value != 0); }
  bool Double(double value) { return number(value != 0); }
  bool number(bool counts) {
    size += counts;
    return true;
  }
  bool String(const char*, rapidjson::SizeType n, bool) {
    size += n;
    return true;
  }
};

// Calls back; nothing of the walk can be skipped or asked for later.
template <unsigned Flags>
std::size_t pull_rapidjson(Text text) {
  rapidjson::MemoryStream stream(text.data(), text.size());
  rapidjson::Reader reader;
  RapidjsonCounter counter;
  reader.Parse<Flags>(stream, counter);
  return counter.size;
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

struct BoostCounter {
  using View = boost::json::string_view;
  using Error = boost::json::error_code;
  static constexpr std::size_t max_object_size = ~std::size_t{0};
  static constexpr std::size_t max_array_size = ~std::size_t{0};
  static constexpr std::size_t max_key_size = ~std::size_t{0};
  static constexpr std::size_t max_string_size = ~std::size_t{0};
  std::size_t size = 0;

  bool on_document_begin(Error&) { return true; }
  bool on_document_end(Error&) { return true; }
  bool on_object_begin(Error&) { return true; }
  bool on_object_end(std::size_t, Error&) { return true; }
  bool on_array_begin(Error&) { return true; }
  bool on_array_end(std::size_t, Error&) { return true; }
  bool on_key_part(View, std::size_t, Error&) { return true; }
  bool on_key(View, std::size_t, Error&) { return true; }
  bool on_string_part(View text, std::size_t, Error&) {
    size += text.size();
    return true;
  }
  bool on_string(View text, std::size_t, Error&) {
    size += text.size();
    return true;
  }
  bool on_number_part(View, Error&) { return true; }
  bool on_int64(std::int64_t value, View, Error&) {
    size += value != 0;
    return true;
  }
  bool on_uint64(std::uint64_t value, View, Error&) {
    size += value != 0;
    return true;
  }
  bool on_double(double value, View, Error&) {
    size += value != 0;
    return true;
  }
  bool on_bool(bool, Error&) { return true; }
  bool on_null(Error&) { return true; }
  bool on_comment_part(View, Error&) { return true; }
  bool on_comment(View, Error&) { return true; }
};

// Checks UTF-8; calls back with pieces of strings; an error has no line.
std::size_t pull_boost(Text text) {
  boost::json::basic_parser<BoostCounter> parser{boost::json::parse_options()};
  boost::json::error_code error;
  parser.write_some(false, text.data(), text.size(), error);
  return error ? 0 : parser.handler().size;
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

std::size_t walk(simdjson::ondemand::value value) {
  std::size_t size = 0;
  switch (value.type()) {
    case simdjson::ondemand::json_type::object:
      for (auto field : value.get_object())
        size += walk(field.value());
      break;
    case simdjson::ondemand::json_type::array:
      for (auto element : value.get_array())
        size += walk(element.value());
      break;
    case simdjson::ondemand::json_type::string:
      size = value.get_string().value().size();
      break;
    case simdjson::ondemand::json_type::number:
      size = value.get_double().value() != 0;
      break;
    default:
      break;
  }
  return size;
}

// Text in memory with room behind it; checks UTF-8; indexes all of the text before the walk, and
// goes over it in order, once. Names are not looked at.
std::size_t pull_simdjson(Text text) {
  static simdjson::ondemand::parser parser;
  static simdjson::padded_string padded;
  if (std::string_view(padded) != text) padded = simdjson::padded_string(text);
  simdjson::ondemand::document document = parser.iterate(padded);
  return walk(document.get_value());
}

// No check of UTF-8; no limits.
void write_simdjson(benchmark::State& state, Text text) {
  simdjson::dom::parser parser;
  const simdjson::dom::element value = parser.parse(text);
  measure(state, text, [&] { benchmark::DoNotOptimize(simdjson::minify(value)); });
}
#endif

void add_rows(const std::string& name, Text text) {
  const auto add = [&](const char* topic, const char* library,
                       void (*run)(benchmark::State&, Text)) {
    benchmark::RegisterBenchmark(ovbench::row(topic, name, library).c_str(),
                                 [run, &text](benchmark::State& state) { run(state, text); });
  };
  const auto add_pull = [&](const char* library, std::size_t (*pull)(Text)) {
    ovbench::require(pull(text) == pull_ov(text), library, "the sum of a walk");
    benchmark::RegisterBenchmark(
        ovbench::row("json_pull", name, library).c_str(), [pull, &text](benchmark::State& state) {
          measure(state, text, [&] { benchmark::DoNotOptimize(pull(text)); });
        });
  };
  add("json_read", "ovattribute", read_ov);
  add("json_write", "ovattribute", write_ov);
  add_pull("ovattribute", pull_ov);
#ifdef OV_PEER_NLOHMANN
  ovbench::require(nlohmann::json::parse(written(text)) == nlohmann::json::parse(text),
                   "ovattribute", "what was written");
  add("json_read", "nlohmann", read_nlohmann);
  add("json_write", "nlohmann", write_nlohmann);
  add_pull("nlohmann", pull_nlohmann);
#endif
#ifdef OV_PEER_RAPIDJSON
  constexpr unsigned unchecked = rapidjson::kParseDefaultFlags;
  constexpr unsigned checked = rapidjson::kParseValidateEncodingFlag;
  add("json_read", "rapidjson", read_rapidjson<unchecked>);
  add("json_read", "rapidjson_utf8", read_rapidjson<checked>);
  add("json_write", "rapidjson", write_rapidjson);
  add_pull("rapidjson", pull_rapidjson<unchecked>);
  add_pull("rapidjson_utf8", pull_rapidjson<checked>);
#endif
#ifdef OV_PEER_BOOST_JSON
  add("json_read", "boost_json", read_boost);
  add("json_read", "boost_json_arena", read_boost_arena);
  add("json_write", "boost_json", write_boost);
  add_pull("boost_json", pull_boost);
#endif
#ifdef OV_PEER_SIMDJSON
  add("json_read", "simdjson", read_simdjson);
  add("json_write", "simdjson", write_simdjson);
  add_pull("simdjson", pull_simdjson);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::vector<std::string> files(argv + 1, argv + argc);
  if (files.empty()) {
    for (const char* name : {"iso_639-3", "iso_3166-2"})
      files.push_back(std::string("/usr/share/iso-codes/json/") + name + ".json");
  }
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
