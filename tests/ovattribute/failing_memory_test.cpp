// SPDX-License-Identifier: Apache-2.0
// Every public operation that allocates, of all libraries, with its n-th allocation failing for
// every n until it succeeds: nothing leaks, the target is as it was, and what succeeds in the end
// gives what it gives with enough memory. Changes of maps and of values under all ways of sharing
// are in map_sharing_test.cpp and value_sharing_test.cpp.
#include <gtest/gtest.h>

#include <iostream>
#include <limits>
#include <set>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_name_package.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/nesting.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovattribute/serialized_value.h"
#include "ovattribute/trace_formatter.h"
#include "ovattribute/typed_attribute.h"
#include "ovcore/error_composer.h"
#include "ovcore/exception.h"
#include "ovcore/write_stream.h"
#include "ovcrypto/aes.h"
#include "ovjson/reader.h"
#include "ovjson/tokenizer.h"
#include "ovjson/writer.h"
#include "ovmoduleregistry/module_registry.h"
#include "ovserialize/error_info_stream.h"
#include "ovserialize/simple_date_time_stream.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/stream_writer.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "ovuri/uri_reference.h"
#include "ovuri/uri_stream.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/ovattribute/sealing.h"
#include "tests/support/allocations.h"
#include "tests/support/splits.h"

namespace ovattribute {
namespace {

using ovserialize::MemoryList;
using ovserialize::MemoryReader;
using ovserialize::MemoryWriter;

enum class Ends { well, with_error };

/// A NaN in one copy is like the NaN in another.
template <class T>
bool equal(const T& a, const T& b) {
  if constexpr (requires { a.compare(b); }) {
    return a.compare(b) == 0;
  } else {
    return a == b;
  }
}

/// Runs `operation(target)` on targets of `make()`, and compares what it returns, if anything, with
/// what it returned at first. An error of the catalog ends what `ends` with one.
template <class Make, class Operation, class Same>
std::uint64_t failures_of(Make make, Operation operation, Same same, Ends ends) {
  using Result = decltype([&] {
    auto target = make();
    return operation(target);
  }());
  constexpr bool has_result = !std::is_void_v<Result>;
  std::conditional_t<has_result, std::remove_cvref_t<Result>, int> expected{};
  bool first = true;
  const auto succeeds = [&](std::uint64_t allowed) {
    auto target = make();
    bool error = false;
    try {
      const ovtest::FailAllocations fail(allowed);
      if constexpr (has_result) {
        auto result = operation(target);
        if (first) {
          expected = std::move(result);
        } else {
          EXPECT_TRUE(equal(result, expected)) << "half of it";
        }
      } else {
        operation(target);
      }
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(same(target)) << "changed when allocation " << allowed << " failed";
      return false;
    } catch (const ovcore::Exception& e) {
      error = true;
      if (ends == Ends::well) ADD_FAILURE() << e.what();
    }
    EXPECT_EQ(error, ends == Ends::with_error);
    return true;
  };
  EXPECT_TRUE(succeeds(std::numeric_limits<std::uint64_t>::max()));  // what is made once
  first = false;
  for (std::uint64_t n = 0;; ++n) {
    const ovtest::AllocationCounts before = ovtest::allocation_counts();
    const bool succeeded = succeeds(n);
    const ovtest::AllocationCounts after = ovtest::allocation_counts();
    EXPECT_EQ(after.made - before.made, after.freed - before.freed)
        << "leak when allocation " << n << " fails";
    if (succeeded) return n;
  }
}

/// Runs each operation as it is named, and says in the end what that came to.
class Operations {
 public:
  ~Operations() {
    testing::Test::RecordProperty("failures", std::to_string(m_failures));
    std::cout << m_failures << " allocations failed in " << m_count << " operations\n";
  }

  /// What makes something new.
  template <class Make>
  void makes(const char* name, Make make, Ends ends = Ends::well) {
    run(
        name, [] { return 0; }, [&](int) { return make(); }, [](int) { return true; }, ends);
  }
  template <class Raise>
  void raises(const char* name, Raise raise) {
    makes(
        name, [&] { static_cast<void>(raise()); }, Ends::with_error);
  }
  /// What changes a copy of `before`.
  template <class T, class Change>
  void changes(const char* name, const T& before, Change change) {
    changes(
        name, [&] { return before; }, change, [](const T& target) { return target; });
  }
  /// What changes something of its own making; `content` says what is in it.
  template <class Make, class Change, class Content>
  void changes(const char* name, Make make, Change change, Content content) {
    const auto untouched = make();
    const auto before = content(untouched);
    run(
        name, make, [&](auto& target) { static_cast<void>(change(target)); },
        [&](auto& target) { return equal(content(target), before); }, Ends::well);
  }

 private:
  template <class... F>
  void run(const char* name, F&&... f) {
    SCOPED_TRACE(name);
    const std::uint64_t failures = failures_of(f...);
    EXPECT_GT(failures, 0u) << "allocates nothing";
    m_failures += failures;
    ++m_count;
  }

  std::uint64_t m_failures = 0;
  std::uint64_t m_count = 0;
};

const std::string long_text(300, 'x');
const std::string uuid_text = "00112233-4455-6677-8899-aabbccddeeff";
const ovcore::ErrorCode code("error.test", true);

std::string bytes_of_value(const AttributeValue& value) {
  return bytes_of([&](ovserialize::Writer& writer) { write_attribute_value(writer, value); });
}
template <class T>
std::string bytes_of_object(const T& object) {
  return bytes_of([&](ovserialize::Writer& writer) { object.write(writer); });
}
/// `read(reader)` of bytes, from memory.
template <class Read>
auto reading(std::string bytes, Read read) {
  return [bytes = std::move(bytes), read](auto&... target) {
    MemoryReader reader(bytes.data(), bytes.size());
    return read(reader, target...);
  };
}
template <class Write>
auto writing(Write write) {
  return [write] {
    MemoryWriter writer;
    write(writer);
    return writer.detach()->hash();
  };
}
std::string text_form(const std::string& binary) {
  std::string text;
  ovserialize::StringTextTarget target(text);
  MemoryReader reader(binary.data(), binary.size());
  ovserialize::TextWriter writer(target);
  ovserialize::copy_items(reader, writer);
  writer.close();
  return text;
}

/// Takes text without memory.
struct FixedBuffer final : std::streambuf {
  std::size_t sum = 0;
  int overflow(int c) override { return sum = sum * 31 + static_cast<unsigned char>(c), c; }
};
template <class Print>
auto printing(Print print) {
  return [print] {
    FixedBuffer buffer;
    std::ostream out(&buffer);
    print(out);
    EXPECT_TRUE(out.good()) << "a failure became a state of the stream";
    return buffer.sum;
  };
}

ovcore::RefCountPtr<const ovcore::ErrorInfo> sample_error() {
  return ovcore::ErrorComposer("{@first} and {@second}, which is a text for the heap")
      .add("first", long_text)
      .add("second", 2)
      .cause(ovcore::ErrorInfo::create(code, "cause", {}, {}))
      .compose(code, {"file", "function", 1});
}

TEST(FailingMemory, OfTheCore) {
  Operations ops;
  using namespace ovcore;
  const std::runtime_error foreign(long_text);
  ops.makes("ErrorCode::ErrorCode", [] { return ErrorCode(SourceString(long_text)); });
  ops.makes("ErrorCode::parent", [] { return ErrorCode("error.parent.child", false).parent(); });
  ops.makes("ErrorComposer::compose, ErrorInfo::create", [] { return sample_error()->hash(); });
  ops.raises("ErrorComposer::throw_error", [] { ErrorComposer("{@a}").throw_error(code, {}); });
  ops.raises("throw_error", [] { throw_error(code, SourceString(long_text), {}); });
  ops.raises("throw_with_nested_exception",
             [&] { throw_with_nested_exception(code, "a", {}, foreign); });
  ops.makes("error_info_of", [&] { return error_info_of(foreign)->hash(); });
  ops.makes("StringKey::StringKey", [] { return StringKey(SourceString(long_text)).empty(); });
  ops.makes("Uuid::as_string, to_string, SimpleDateTime::as_string", [] {
    return Uuid().as_string(1) + AbsoluteTime::max().as_string() +
           SimpleDateTime(2024, 2, 29, 12, 34, 56, 123456).as_string() + to_string(-1e300);
  });
  ops.raises("Uuid::parse", [] { return Uuid::parse("nothing"); });
  ops.raises("AbsoluteTime::parse", [] { return AbsoluteTime::parse("nothing"); });
  ops.raises("RelativeTime::parse", [] { return RelativeTime::parse("nothing"); });
  ops.raises("RelativeTime::operator+",
             [] { return RelativeTime::max() + RelativeTime::from_days(1); });
  ops.raises("SimpleDateTime::SimpleDateTime", [] { return SimpleDateTime(2023, 2, 29); });
  ops.raises("SimpleDateTime::parse", [] { return SimpleDateTime::parse("nothing"); });
  ops.raises("SimpleDateTime::from_absolute_time",
             [] { return SimpleDateTime::from_absolute_time(AbsoluteTime::max()); });
  ops.raises("FileReadStream::FileReadStream", [] { FileReadStream("/nothing/here"); });
  char byte = 0;
  std::istream no_source(nullptr);
  std::ostream no_target(nullptr);
  ops.raises("FileReadStream::read", [&] { return FileReadStream(-1).read(&byte, 1); });
  ops.raises("StdReadStream::read", [&] { return StdReadStream(no_source).read(&byte, 1); });
  ops.raises("StdWriteStream::write", [&] { StdWriteStream(no_target).write("text"); });
  ops.raises("FileWriteStream::write", [] { FileWriteStream(-1).write("text"); });
  ops.changes("StringWriteStream::write", std::string("before"),
              [](std::string& text) { StringWriteStream(text).write(SourceString(long_text)); });
  ops.changes(
      "ovmoduleregistry::query_module_info, add_module_info",
      [] { return ovmoduleregistry::ModuleInfo(); },
      [](ovmoduleregistry::ModuleInfo& info) {
        struct Removed {
          ~Removed() { ovmoduleregistry::remove_module_info("failing memory"); }
        } removed;
        EXPECT_TRUE(ovmoduleregistry::add_module_info("failing memory", SourceString(long_text)));
        EXPECT_TRUE(ovmoduleregistry::query_module_info("failing memory", &info));
      },
      [](const ovmoduleregistry::ModuleInfo& info) { return info.data; });
  ops.makes("UriReference::UriReference",
            [] { return ovuri::UriReference("http://h/" + std::string(500, '/')); });
  ops.raises("UriReference::UriReference, bad", [] { return ovuri::UriReference("a b"); });
  ops.makes("UriReference::try_parse", [] { return ovuri::UriReference::try_parse("http://h"); });
  ops.makes("UriReference::resolve",
            [base = ovuri::UriReference("http://h/a/b"), uri = ovuri::UriReference("../c")] {
              return uri.resolve(base);
            });
  ops.makes("write_uri", writing([uri = ovuri::UriReference("http://h")](auto& writer) {
              write_uri(writer, uri);
            }));
  ops.makes("read_uri", reading(from_hex("6161"), [](auto& r) { return ovuri::read_uri(r); }));
}

ovcore::RefCountPtr<MemoryList> small_list() {
  auto list = MemoryList::create({.segment_size = 16});
  list->append("six and ten bytes", 16);
  return list;
}

TEST(FailingMemory, OfItemStreams) {
  Operations ops;
  using namespace ovserialize;
  const auto list_text = [](const auto& list) { return text_of(*list); };
  const auto other = small_list();
  other->append(std::string(9000, 'y').data(), 9000);
  const auto error = sample_error();
  // Every kind of item, in sequences and structures deeper than frames have room of their own.
  const std::string items = bytes_of([&](Writer& writer) {
    for (int i = 0; i < 200; ++i)
      i % 2 == 0 ? writer.begin_structure() : writer.begin_sequence(0);
    write_attribute_value(writer, nested_samples(1));
    writer << 1e300 << true << -70000 << 70000u << ovcore::Uuid() << ovcore::AbsoluteTime::max();
    writer << "\xff" << ovcore::RelativeTime::min() << long_text;
    for (int i = 199; i >= 0; --i)
      i % 2 == 0 ? writer.end_structure() : writer.end_sequence();
  });
  const std::string text = text_form(items);
  const auto copied = [](Reader& reader) {
    MemoryWriter writer;
    copy_items(reader, writer);
    return writer.detach()->hash();
  };
  const std::string block = bytes_of([](Writer& w) { w.write_binary(long_text.data(), 300); });
  ops.makes("MemoryList::create", [] { return MemoryList::create({.reserve = 100})->size(); });
  ops.makes("MemoryList::create_copy", [] { return MemoryList::create_copy("abc", 3)->hash(); });
  ops.makes("MemoryList::copy", [&] { return other->copy(3, 5000)->hash(); });
  ops.makes("MemoryList::slice", [&] { return other->slice(3, 5000)->hash(); });
  ops.changes(
      "MemoryList::append", small_list, [](auto& list) { list->append(long_text.data(), 300); },
      list_text);
  ops.changes(
      "MemoryList::append, a list", small_list, [&](auto& list) { list->append(*other); },
      list_text);
  ops.changes(
      "MemoryList::append_copy", small_list, [&](auto& list) { list->append_copy(*other); },
      list_text);
  ops.changes(
      "MemoryList::prepare", small_list, [](auto& list) { return list->prepare(100); }, list_text);
  ops.changes(
      "MemoryList::for_each_mutable_span",
      [&] {
        auto list = small_list();
        list->append(*other);
        return list;
      },
      [](auto& list) {
        list->for_each_mutable_span(0, 9000,
                                    [](std::span<unsigned char> bytes) { bytes[0] = 'z'; });
      },
      list_text);
  ops.makes("MemoryWriter, MemoryReader, copy_items", reading(items, copied));
  ops.makes("StreamReader::StreamReader", [&] {
    ovtest::PieceStream pieces(items, {7});
    StreamReader reader(pieces, {}, 32);
    return copied(reader);
  });
  ops.makes("TextReader::TextReader", [&] {
    ovtest::PieceStream pieces(text, {7});
    TextReader reader(pieces, {}, 16);
    return copied(reader);
  });
  ops.makes("TextWriter, StringTextTarget", [&] { return text_form(items); });
  ops.makes("StreamTextTarget::write", [&] {
    std::string written;
    ovcore::StringWriteStream stream(written);
    StreamTextTarget target(stream);
    TextWriter writer(target);
    MemoryReader reader(items.data(), items.size());
    copy_items(reader, writer);
    target.flush();
    return written;
  });
  ops.makes("StreamWriter::StreamWriter", [&] {
    std::string written;
    ovcore::StringWriteStream stream(written);
    StreamWriter writer(stream, {}, 64);
    MemoryReader reader(items.data(), items.size());
    copy_items(reader, writer);
    writer.flush();
    return written;
  });
  ops.makes("MemoryWriter::memory_list", [] {
    MemoryWriter writer;
    writer << long_text;
    return writer.memory_list()->hash();
  });
  ops.makes("Reader::read_binary_stream", reading(block, [](Reader& reader) {
              char bytes[300];
              const auto stream = reader.read_binary_stream();
              return stream->read(bytes, sizeof bytes);
            }));
  ops.makes("Reader::read_binary_stream, of text", [text_block = text_form(block)] {
    ovcore::MemoryReadStream source(text_block.data(), text_block.size());
    TextReader reader(source);
    return reader.read_binary_stream()->remaining();
  });
  ops.makes("Reader::read_memory_list_as_binary", reading(block, [](Reader& reader) {
              return reader.read_memory_list_as_binary()->hash();
            }));
  ops.makes("Reader::read_string_key",
            reading(bytes_of([](Writer& w) { w << long_text; }),
                    [](Reader& reader) { return reader.read_string_key().empty(); }));
  ops.makes("Reader::read_string_key, longer than the buffer", [] {
    const std::string bytes = bytes_of([](Writer& w) { w << long_text; });
    ovtest::PieceStream pieces(bytes, {7});
    return StreamReader(pieces, {}, 32).read_string_key().value();
  });
  ops.changes("Reader::operator>>, a string", std::string("before"),
              reading(bytes_of([](Writer& w) { w << long_text; }),
                      [](Reader& reader, std::string& target) { reader >> target; }));
  ops.raises("Reader::operator>>, malformed", reading("\xff", [](Reader& reader) {
               bool value;
               reader >> value;
             }));
  ops.raises("Reader::operator>>, truncated", reading("", [](Reader& reader) {
               bool value;
               reader >> value;
             }));
  ops.makes("write_error_info", writing([&](Writer& w) { write_error_info(w, error); }));
  ops.makes("read_error_info", reading(bytes_of([&](Writer& w) { write_error_info(w, error); }),
                                       [](Reader& r) { return read_error_info(r)->hash(); }));
  ops.makes("write_simple_date_time",
            writing([](Writer& w) { write_simple_date_time(w, ovcore::SimpleDateTime()); }));
  ops.raises("read_simple_date_time",
             reading(from_hex("6161"), [](Reader& r) { return read_simple_date_time(r); }));
}

TEST(FailingMemory, OfCryptographyAndJson) {
  Operations ops;
  using namespace ovcrypto;
  const auto key_bytes = [](const Key& key) {
    return std::string(key.bytes().begin(), key.bytes().end());
  };
  const auto old_key = [] { return key_of("before"); };
  static const std::string json =
      R"({"a longer name than is kept in place":[1,2.5,"escaped \u20ac",true,null],"b":"streamed",)"
      R"("c":{"d":[[{}]]},"e":"a string that is too long to be held in place"})";
  const auto json_reader = [](const ovjson::ReaderOptions& options = {}) {
    return ovjson::Reader(ovcore::make_ref_counted<ovcore::MemoryReadStream>(json), "uri", options);
  };
  ops.makes("Key::Key", [] { return Key(16).size(); });
  ops.makes("Key::random", [] { return Key::random(16).size(); });
  ops.makes("Key::Key, Key::clone", [] { return Key("abc", 3).clone().size(); });
  ops.changes(
      "Key::resize", old_key, [](Key& key) { key.resize(40); }, key_bytes);
  ops.changes(
      "Key::read", old_key,
      [](Key& key) {
        ovtest::PieceStream stream(long_text, {100});
        key.read(stream);
      },
      key_bytes);
  ops.raises("Key::Key, too large", [] { return Key(Key::max_size + 1); });
  ops.makes("AesCmacContext::AesCmacContext",
            [] { return AesCmacContext(Key(16)).shared_state() != nullptr; });
  ops.raises("AesEncryptContext::rekey", [] { AesEncryptContext().rekey(Key(5)); });
  ops.raises("default_random_provider", [] {
    unsigned char byte;
    default_random_provider().generate_random(&byte, -1);
  });
  ops.makes("ovjson::Reader", [&] {
    ovjson::Reader reader = json_reader({.buffer_size = 16});
    std::string seen;
    while (const auto value = reader.next_value()) {
      seen += value->member_key().value();
      if (value->member_name() == "b") {
        char buffer[8];
        seen.append(buffer, value->as_stream()->read(buffer, sizeof buffer));
      } else if (value->kind() == ovjson::Reader::Kind::string) {
        seen += value->member_name() == "e" ? value->take_string() : value->as_string();
      }
    }
    return seen;
  });
  ops.raises("ovjson::Reader::raise_error", [&] { json_reader().raise_error(code, "a", {}, {}); });
  ops.raises("ovjson::Reader::next_value, malformed", [] {
    ovcore::MemoryReadStream stream("?", 1);
    return ovjson::Reader(stream).next_value();
  });
  ops.raises("ovjson::Reader::Value::as_bool",
             [&] { return json_reader().next_value()->as_bool(); });
  ops.makes("ovjson::Reader::kind_name, token_name", [] {
    return ovjson::Reader::kind_name(ovjson::Reader::Kind::object) +
           ovjson::token_name(ovjson::Token::document_start);
  });
  ops.makes("ovjson::Tokenizer", [] {
    ovjson::Tokenizer tokenizer(ovcore::make_ref_counted<ovcore::MemoryReadStream>(json),
                                {.buffer_size = 8});
    std::size_t count = 0;
    while (tokenizer.next() != ovjson::Token::document_end)
      ++count;
    return count;
  });
  ops.makes("ovjson::TextWriter", [] {
    std::string text;
    ovcore::StringWriteStream target(text);
    ovjson::TextWriter writer(target, {.indent = 2, .buffer_size = 8});
    for (int i = 0; i < 40; ++i)
      writer.begin_array();
    writer.string_value(ovcore::SourceString(long_text));
    writer.double_value(-1e300);
    for (int i = 0; i < 40; ++i)
      writer.end_array();
    writer.close();
    return text;
  });
  ops.raises("ovjson::TextWriter, misplaced", [] {
    std::string text;
    ovcore::StringWriteStream target(text);
    ovjson::TextWriter(target).end_array();
  });
}

TEST(FailingMemory, OfValuesNamesAndMaps) {
  Operations ops;
  const AttributeMap map = nested_samples(2);
  const AttributeMap other{{"value1", 1}, {"other name", AttributeValue(long_text)}};
  const AttributeValue plain(
      AttributeMap{{"a", AttributeValue{1, 2}}, {"b", 2.5}, {"c", other}, {"d", other}});
  const std::string bytes = bytes_of_value(map);
  const AttributeValue before("before");
  const AttributeName known("known");
  const auto error = sample_error();
  const auto by_text = TraceFormatter::Composer().order_names_by_text(true).compose();
  const std::string json =
      R"({"a":[1,2.5,3],"long enough to be on the heap":{"b":["x","y"],"c":[{},{"d":null}]},)"
      R"("e":{"ovserialize":"simple(4), [_ 2, 1.5, 2.5]"}})";
  const auto write_json = [](const AttributeValue& value, bool by_names) {
    std::string text;
    ovcore::StringWriteStream target(text);
    ovjson::TextWriter writer(target, {.buffer_size = 64});
    write_attribute_value(writer, value, {.order_names_by_text = by_names});
    writer.close();
    return text;
  };
  ops.makes("AttributeName::AttributeName", [] { return AttributeName(long_text).size(); });
  ops.changes("AttributeName::read", known,
              reading("\x78\x1a"
                      "a name that was never seen",
                      [](auto& r, AttributeName& name) { name.read(r); }));
  ops.changes("Attribute::read", Attribute(known, 1),
              reading("\x78\x1a"
                      "a name that was never seen\x63"
                      "abc",
                      [](auto& r, Attribute& a) { a.read(r); }));
  ops.makes("Attribute::write, AttributeName::write",
            writing([](auto& w) { Attribute("name", long_text).write(w); }));
  ops.makes("AttributeValue::AttributeValue", [&] {
    return AttributeValue{AttributeValue(long_text.c_str()) == AttributeValue(long_text),
                          AttributeValue(8.5) == AttributeValue(ovcore::Uuid()),
                          AttributeValue(map) == AttributeValue(error)};
  });
  ops.makes("AttributeValue::list_of",
            [] { return AttributeValue::list_of(std::vector<std::string>(9, long_text)); });
  ops.changes("AttributeValue::set", before, [](auto& value) { value.set(long_text); });
  ops.changes("AttributeValue::set, another type", before, [](auto& value) { value.set(8.5); });
  ops.changes("AttributeValue::append", before, [](auto& value) { value.append("x"); });
  ops.makes("AttributeValue::subrange", [] { return AttributeValue{1, 2, 3}.subrange(1, 2); });
  ops.raises("AttributeValue::get", [&] { return before.get<double>(); });
  ops.raises("AttributeValue::get, of a list", [] {
    return AttributeValue{1, 2}.get<long long>();
  });
  ops.raises("AttributeValue::get, out of range",
             [] { return AttributeValue(-1).get<unsigned>(); });
  ops.changes("BinaryValue::set", BinaryValue(5), [](auto& v) { v.set(BinaryValue(9).data(), 9); });
  ops.changes("BinaryValue::set, a stream", BinaryValue(5), [](BinaryValue& value) {
    ovtest::PieceStream stream(long_text, {100});
    value.set(stream);
  });
  ops.changes("BinaryValue::resize", BinaryValue(5), [](auto& value) { value.resize(2); });
  ops.changes("BinaryValue::operator=", BinaryValue(5), [](auto& v) { v = BinaryValue(9); });
  ops.changes("read_binary_value", BinaryValue(5),
              reading("\x43"
                      "abc",
                      [](auto& r, BinaryValue& v) { read_binary_value(r, v); }));
  ops.makes("write_binary_value", writing([](auto& w) { write_binary_value(w, BinaryValue(9)); }));
  ops.makes("AttributeMap::AttributeMap", [] { return AttributeMap{{"a", 1}, {"b", long_text}}; });
  ops.makes("AttributeMapBase::merged_with", [&] { return map.merged_with(other); });
  ops.changes("MutableAttributeMap::add", MutableAttributeMap(map), [&](auto& m) { m.add(other); });
  ops.changes("MutableAttributeMap::read", MutableAttributeMap(other),
              reading(bytes.substr(2), [](auto& r, MutableAttributeMap& m) { m.read(r); }));
  ops.makes("AttributeMap::AttributeMap, read",
            reading(bytes.substr(2), [](auto& r) { return AttributeMap(r).hash(); }));
  ops.makes("AttributeMapBase::write", writing([&](auto& w) { map.write(w); }));
  ops.makes("AttributeMapBase::write_trace",
            printing([&](auto& out) { map.write_trace(out, "x", ","); }));
  ops.makes("AttributeMapBase::write_trace, by text",
            printing([&](auto& out) { map.write_trace(out, by_text, 1); }));
  ops.changes("WritableAttributeMapRef", map,
              [&](auto& m) { WritableAttributeMapRef(m).add("new name", 1); });
  ops.raises("TypedAttribute::get", [&] { return TypedAttribute<int>("absent").get(other); });
  ops.raises("TypedAttribute::get, another type",
             [&] { return TypedAttribute<double>("value1").get(other); });
  ops.raises("TypedAttribute::get, of a list",
             [&] { return TypedAttribute<bool>("value5").get(map); });
  ops.raises("TypedAttribute::value_or",
             [&] { return TypedAttribute<int>("value1").value_or(other, AttributeValue(2.5)); });
  ops.raises("ValueTypeId::from_id",
             [] { return ValueTypeId::from_id(static_cast<ValueTypeId::EId>(99)).id(); });
  ops.changes("TypedAttribute::set", MutableAttributeMap(other),
              [](auto& m) { TypedAttribute<std::string>("other name").set(m, long_text); });
  ops.changes("read_attribute_value", before,
              reading(bytes, [](auto& r, AttributeValue& v) { read_attribute_value(r, v); }));
  ops.makes("write_attribute_value", writing([&](auto& w) { write_attribute_value(w, map); }));
  ops.changes("read_attribute_value, JSON", before, [&](AttributeValue& value) {
    ovjson::Reader reader(ovcore::make_ref_counted<ovcore::MemoryReadStream>(json));
    read_attribute_value(reader, value);
  });
  ops.makes("write_attribute_value, JSON", [&] { return write_json(plain, false); });
  ops.makes("write_attribute_value, JSON by text", [&] { return write_json(plain, true); });
  ops.makes("parse_json", [&] { return parse_json(ovcore::SourceString(json)); });
  ops.raises("parse_json, repeated",
             [] { return parse_json("{a: 1, a: 2}", {.refuse_repeated_names = true}); });
  ops.raises("parse_json, malformed text",
             [] { return parse_json("{\"ovserialize\": \"what?\"}"); });
  ops.makes("PrintTo", printing([&](auto& out) { PrintTo(map, &out); }));
  ops.makes("to_json", [&] { return to_json(plain); });
  ops.makes("TraceFormatter::Composer", [] {
    return TraceFormatter::Composer()
        .indent(ovcore::SourceString(long_text))
        .list_map({"a", "b", "c", true})
        .compose()
        .indent();
  });
  ops.makes(
      "set_nesting_limit, nesting too deep",
      [deep = AttributeValue(maps_within_maps(3))] {
        set_nesting_limit(2);
        struct Reset {
          ~Reset() { set_nesting_limit(default_nesting_limit); }
        } reset;
        return deep.hash();
      },
      Ends::with_error);
}

TEST(FailingMemory, OfPackagesAndCoders) {
  Operations ops;
  using Package = AttributeNamePackage;
  using Set = AttributeNamePackageSet;
  const auto one = Package::create({"a", "b", "c"});
  const auto two = Package::create({"c", "d"});
  const auto set = Set::create(one)->create_union(two);
  const std::string package_bytes = bytes_of_object(*two);
  const std::string set_bytes = bytes_of_object(*set);
  const AttributeMap map{{"a", 1}, {"c", AttributeMap{{"d", 2}, {"e", 3}}}};
  const auto coded = [&](ovserialize::Writer& writer) {
    AttributeNameEncoder encoder(set);
    encoder.write_encoder_mappings(writer);
    write_attribute_value(writer, encoder, map);
  };
  const auto names_of = [](const auto& composer) { return composer.compose()->size(); };
  ops.makes("AttributeNamePackage::create", [] {
    return Package::create(std::set<AttributeName>{"x", "y"})->id() ==
           Package::create({"y", "x"})->id();
  });
  ops.raises("AttributeNamePackage::create, repeated", [] { return Package::create({"x", "x"}); });
  ops.makes("AttributeNamePackage::create, read",
            reading(package_bytes, [](auto& r) { return Package::create(r)->id(); }));
  ops.raises("AttributeNamePackage::create, bad",
             reading(from_hex("f1d8255000112233445566778899aabbccddeefff0616bf2"),
                     [](auto& r) { return Package::create(r); }));
  ops.changes(
      "AttributeNamePackage::Composer::add", [] { return Package::Composer("x"); },
      [&](auto& composer) { composer.add(AttributeName("y")); }, names_of);
  ops.changes(
      "AttributeNamePackage::Composer::add, a package", [] { return Package::Composer("x"); },
      [&](auto& c) { c.add(two); }, names_of);
  ops.makes("AttributeNamePackage::write, AttributeNamePackageSet::write",
            writing([&](auto& writer) { writer << one << set; }));
  ops.makes("AttributeNamePackageSet::create",
            [&] { return Set::create()->size() + Set::create(one)->size(); });
  ops.makes("AttributeNamePackageSet::create, read",
            reading(set_bytes, [](auto& r) { return Set::create(r)->size(); }));
  ops.makes("AttributeNamePackageSet::create_union", [&] {
    MemoryReader reader(set_bytes.data(), set_bytes.size());
    return set->create_union(two)->size() + set->create_union(set)->size() +
           set->create_union(reader)->size();
  });
  ops.changes(
      "AttributeNamePackageSet::Composer::add", [&] { return Set::Composer(one); },
      [&](auto& composer) { composer.add(set); }, names_of);
  ops.changes("AttributeNamePackageSet::check_duplicate_names", std::set<AttributeName>{"before"},
              [&](auto& names) { return set->check_duplicate_names(&names); });
  ops.makes("AttributeNameEncoder", writing(coded));
  ops.makes("AttributeNameDecoder", reading(bytes_of(coded), [&](auto& reader) {
              AttributeNameDecoder decoder(set, true);
              decoder.read_decoder_mappings(reader);
              return read_attribute_value(reader, decoder);
            }));
  ops.makes(
      "AttributeNameDecoder, unknown packages", reading(bytes_of(coded), [](auto& reader) {
        AttributeNameDecoder decoder(nullptr, false);
        decoder.read_decoder_mappings(reader);
        return AttributeMap(read_attribute_value(reader, decoder).template get<AttributeMap>())
            .size();
      }));
  ops.raises("AttributeNameDecoder, unknown number", reading(from_hex("e2"), [&](auto& reader) {
               return AttributeNameDecoder(set, true).read_attribute_name(reader);
             }));
}

TEST(FailingMemory, OfSealing) {
  Operations ops;
  const auto cipher = SecuredValue::default_cipher();
  const std::string key_bytes = numbered(16);
  FixedRandom random("a nonce of sixteen");
  const SecuredValue::KeyId id("category", ovcore::Uuid::parse(uuid_text));
  const SecuredValue sealed(AttributeValue(long_text), long_text, id, key_of(key_bytes), *cipher);
  const SecuredValue sealed_key(key_of("the key"), "", id, key_of(key_bytes), *cipher);
  const std::string plain = bytes_of_value(AttributeValue(long_text));
  const SerializedValue serialized("type", list_of(long_text));
  const ovcrypto::Key key = key_of(key_bytes);
  ops.makes("SecuredValue::SecuredValue", [&] {
    return SecuredValue(AttributeValue(long_text), long_text, id, key, *cipher, random);
  });
  ops.changes("SecuredValue::set", sealed,
              [&](auto& value) { value.set(AttributeValue(1), "new", id, key, *cipher, random); });
  ops.changes("SecuredValue::set, a key", sealed,
              [&](auto& value) { value.set(key, "new", id, key, *cipher, random); });
  ops.makes("SecuredValue::extract", [&] { return sealed.extract(key); });
  ops.makes("SecuredValue::extract, an error stored", [&] {
    SecuredValue::ErrorInfoPtr error;
    static_cast<void>(sealed.extract(ovcrypto::Key(), &error));
    return error->hash();
  });
  ops.makes("SecuredValue::extract_binary_as_key",
            [&] { return sealed_key.extract_binary_as_key(key).size(); });
  ops.makes("SecuredValue::authenticate", [&] { return sealed.authenticate(key); });
  ops.raises("SecuredValue::extract, a wrong key",
             [&] { return sealed.extract(key_of(numbered(16, 1))); });
  ops.changes("SecuredValue::read", sealed,
              reading(bytes_of_object(sealed_key), [](auto& r, auto& value) { value.read(r); }));
  ops.changes("SecuredValue::KeyId::read", id,
              reading(bytes_of_object(SecuredValue::KeyId(long_text, {})),
                      [](auto& r, auto& value) { value.read(r); }));
  ops.makes("SecuredValue::write", writing([&](auto& writer) { sealed.write(writer); }));
  ops.makes("ICipher::encrypt, decrypt, authenticate", [&] {
    const auto text = cipher->encrypt(list_of(plain), "header", key, random);
    return cipher->authenticate(key, "header", text) &&
           *cipher->decrypt(key, "header", text) == *list_of(plain);
  });
  ops.makes("SerializedValue::SerializedValue", [&] {
    MemoryWriter writer;
    writer << long_text;
    return SerializedValue(long_text, writer);
  });
  ops.changes("SerializedValue::set", serialized,
              [&](auto& value) { value.set(long_text, serialized.memory_reader()); });
  ops.changes("read_serialized_value", serialized,
              reading(bytes_of([&](auto& w) {
                        write_serialized_value(w, {"other", list_of("x")});
                      }),
                      [](auto& r, auto& value) { read_serialized_value(r, value); }));
}

}  // namespace
}  // namespace ovattribute
