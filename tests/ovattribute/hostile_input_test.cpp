// SPDX-License-Identifier: Apache-2.0
// What the worst input of a size costs: memory within 128 bytes for each of its own and 1 MiB,
// allocations and (in linearity_test.py, which counts the instructions of `measured`) work in
// proportion to its size.
#include <gtest/gtest.h>

#include <pthread.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_name_package.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/json_marshaler.h"
#include "ovattribute/nesting.h"
#include "ovattribute/trace_formatter.h"
#include "ovcore/exception.h"
#include "ovjson/error_codes.h"
#include "ovjson/reader.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/error_info_stream.h"
#include "ovserialize/stream_reader.h"
#include "ovserialize/text_reader.h"
#include "ovserialize/text_target.h"
#include "ovserialize/text_writer.h"
#include "ovserialize/transcode.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/ovattribute/sealing.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using ovserialize::MemoryReader;
using ovserialize::MemoryWriter;

struct Discard final : std::streambuf {
  int overflow(int c) override { return c; }
  std::streamsize xsputn(const char*, std::streamsize size) override { return size; }
};

std::size_t most_names = 0;

/// Everything that a program does with a value it was sent.
void use(const AttributeValue& value, const AttributeValue& same) {
  most_names = std::max(most_names, ovcore::StringKey::interned_count());
  static_cast<void>(value.hash() + std::hash<AttributeValue>()(value));
  EXPECT_EQ(value.compare(same), 0);
  MemoryWriter writer;
  write_attribute_value(writer, value);
  Discard discard;
  std::ostream(&discard) << value;
}

template <class Read>
void read_and_use(Read read) {
  const AttributeValue value = read();
  use(value, read());
}

void read_binary(std::string_view bytes) {
  read_and_use([bytes] {
    MemoryReader reader(bytes.data(), bytes.size());
    return read_attribute_value(reader);
  });
}
AttributeNamePackageSet::Ptr letters() {
  return AttributeNamePackageSet::Composer()
      .add(AttributeNamePackage::create({"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"}))
      .compose();
}

/// Values behind the references that the decoder needs.
void read_coded(std::string_view bytes) {
  const auto read = [bytes] {
    ovcore::MemoryReadStream stream(bytes.data(), bytes.size());
    ovserialize::StreamReader reader(stream);
    AttributeNameDecoder decoder(letters(), false);
    decoder.read_decoder_mappings(reader);
    std::vector<AttributeValue> values;
    while (!reader.at_end())
      values.push_back(read_attribute_value(reader, decoder));
    return values;
  };
  const std::vector<AttributeValue> values = read();
  const std::vector<AttributeValue> same = read();
  for (std::size_t i = 0; i < values.size(); ++i)
    use(values[i], same[i]);
}
void read_text(std::string_view text) {
  read_and_use([text] {
    ovcore::MemoryReadStream stream(text.data(), text.size());
    ovserialize::TextReader reader(stream);
    return read_attribute_value(reader);
  });
}
void read_json(std::string_view text) {
  read_and_use([text] {
    ovcore::MemoryReadStream stream(text.data(), text.size());
    ovjson::Reader reader(stream, {}, {.allow_comments = true});
    return read_attribute_value(reader);
  });
}
void read_package(std::string_view bytes) {
  MemoryReader reader(bytes.data(), bytes.size());
  static_cast<void>(AttributeNamePackage::create(reader));
}
void read_packages(std::string_view bytes) {
  MemoryReader reader(bytes.data(), bytes.size());
  static_cast<void>(AttributeNamePackageSet::create(reader));
}

const char* digits_of(std::size_t i) {
  static char text[8];
  for (int at = 6; at >= 0; --at, i /= 26)
    text[at] = static_cast<char>('a' + i % 26);
  return text;
}
/// As many packages and maps as a tenth of the size. Two packages, the last to become active, have
/// the name of the maps in common.
void encode_under_packages(std::string_view bytes) {
  AttributeNamePackageSet::Composer packages;
  packages.add(AttributeNamePackage::create({"x", "y"})).add(AttributeNamePackage::create({"x"}));
  MutableAttributeMap names;
  for (std::size_t i = 0; i < bytes.size() / 10; ++i) {
    packages.add(AttributeNamePackage::create({digits_of(i)}));
    names.add(digits_of(i), true);
  }
  std::vector<AttributeMap> maps(bytes.size() / 10, AttributeMap{{"x", true}});
  maps.front() = AttributeMap(std::move(names));
  MemoryWriter writer;
  AttributeNameEncoder encoder(packages.compose());
  write_attribute_value(writer, encoder, AttributeValue::list_of(maps));
}
std::string binary_string(const std::string& text) {
  return static_cast<char>(0x60 + text.size()) + text;
}
std::string ascending(std::size_t i) {
  return binary_string(digits_of(i)) + "\xf6";
}
std::string descending(std::size_t i) {
  return binary_string(digits_of(100'000'000 - i)) + "\xf6";
}
/// Differs from its neighbours in one bit of the first byte or of the last, in turns.
std::string alike(std::size_t i) {
  const std::string text = digits_of(i / 2);
  return binary_string(i % 2 == 0 ? text + "AAAAAAAAAAAAAA" : "AAAAAAAAAAAAAA" + text) + "\xf6";
}
/// A document: between head and tail `part(0)`, `part(1)` and so on, up to the size.
struct Shape {
  const char* name;
  void (*read)(std::string_view);
  std::string head;
  std::function<std::string(std::size_t)> part;
  std::string tail;
  bool refused = false;
};

std::function<std::string(std::size_t)> each(std::string text) {
  return [text = std::move(text)](std::size_t) { return text; };
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string result;
  while (times-- > 0)
    result += text;
  return result;
}

/// A count that is a lie, in a sequence of the type of the tag.
std::string list(const char* tag) {
  return from_hex(std::string(tag) + "9f1b7fffffffffffffff");
}

/// A map of `size` entries, whose names take a byte each, announced with another count.
std::string coded_map(const char* count, unsigned size, const char* value) {
  std::string result = from_hex("9f") + from_hex(count);
  for (unsigned i = 0; i < size; ++i)
    result += static_cast<char>(0xe0 + i) + from_hex(value);
  return result + "\xff";
}

/// An error whose message is 32 times as long as its parameter.
std::string error_of_marks() {
  return bytes_of([](ovserialize::Writer& writer) {
    ovserialize::write_error_info(
        writer, ovcore::ErrorInfo::create(ovcore::ErrorCode("error.x"), repeated("{@a} ", 32),
                                          {{"a", std::string(4000, 'v')}}, {}, nullptr));
  });
}

std::vector<Shape> shapes() {
  const std::string end = "\xff";
  const std::string map_head = from_hex("ecf09f1b7fffffffffffffff");
  const std::string levels = repeated(from_hex("f0616decf0"), 500);
  const std::string coded_head = bytes_of([](ovserialize::Writer& writer) {
                                   AttributeNameEncoder(letters()).write_encoder_mappings(writer);
                                 }) +
                                 list("ec");
  const std::string package_head = from_hex("f1d8255000112233445566778899aabbccddeeff9f1a7fffffff");
  std::vector<Shape> result = {
      {"Booleans", read_binary, list("e1"), each("\xf4"), end},
      {"Integers", read_binary, list("e2"), each("\x01"), end},
      {"empty Strings", read_binary, list("e3"), each("\x60"), end},
      {"Strings of 16 bytes", read_binary, list("e3"), each(from_hex("70") + std::string(16, 'x')),
       end},
      {"half Doubles", read_binary, list("e4"), each(from_hex("f93c00")), end},
      {"UUIDs", read_binary, list("e5"), each(from_hex("d82550") + std::string(16, 'u')), end},
      {"empty URIs", read_binary, list("e6"), each("\x60"), end},
      {"URIs", read_binary, list("e6"), each(from_hex("6161")), end},
      {"times", read_binary, list("e7"), each(from_hex("d903e9a10100")), end},
      {"empty Binaries", read_binary, list("ea"), each("\x40"), end},
      {"Binaries", read_binary, list("ea"), each(from_hex("4161")), end},
      {"empty Serialized", read_binary, list("eb"), each(from_hex("f1f160f240f2")), end},
      {"empty maps", read_binary, list("ec"), each(from_hex("9f00ff")), end},
      {"maps of one", read_binary, list("ec"), each(from_hex("f060f6")), end},
      {"maps of two", read_binary, list("ec"), each(from_hex("9f0060f66161f6ff")), end},
      {"maps of one empty Binary", read_binary, list("ec"), each(from_hex("f06040")), end},
      {"maps of one Integer", read_binary, list("ec"), each(from_hex("f06008")), end},
      {"maps of one Binary", read_binary, list("ec"), each(from_hex("f0604161")), end},
      {"deep maps", read_binary, list("ec"), each(levels + from_hex("9f00ff")), end},
      {"null errors", read_binary, list("ee"), each("\xf6"), end},
      {"errors of many marks", read_binary, list("ee"), each(error_of_marks()), end},
      {"names in order", read_binary, map_head, ascending, end},
      {"names in reverse", read_binary, map_head, descending, end},
      {"names alike", read_binary, map_head, alike, end},
      {"one name", read_binary, map_head, each(from_hex("6161f6")), end},
      {"cut off", read_binary, list("e3"), each("\x60"), "", true},
      {"structures", read_binary, "", each("\xf1"), "", true},
      {"one block", read_binary, from_hex("5a00ffffff"), each("xxxxxxxx"), "", true},

      {"references", read_coded, from_hex("f19f1a7fffffff"),
       [](std::size_t i) {
         return bytes_of([i](ovserialize::Writer& writer) {
           writer << ovcore::Uuid() << i * 2 << std::size_t{1};
         });
       },
       end + "\xf2"},
      {"coded maps of seven", read_coded, coded_head, each(coded_map("1820", 7, "40")), end},
      {"coded maps of nine", read_coded, coded_head, each(coded_map("1820", 9, "40")), end},
      {"coded maps of ten", read_coded, coded_head, each(coded_map("00", 10, "08")), end},
      {"coded maps of one", read_coded, coded_head, each(from_hex("f0e008")), end},

      {"text of Strings", read_text, "simple(3), [_ 0", each(",\"\""), "]"},
      {"text of maps", read_text, "simple(12), [_ 0", each(",[_ 0]"), "]"},
      {"text of Integers", read_text, "simple(2), [_ 0", each(",1"), "]"},
      {"text of digits", read_text, "", each("1"), "", true},
      {"text of hexadecimal digits", read_text, "h'", each("00"), "'"},
      {"text of blanks", read_text, "", each(" "), "1"},
      {"text of comments", read_text, "", each("/a/ "), "1"},
      {"text of escapes", read_text, "\"", each("\\u0041"), "\""},
      {"text of frames", read_text, "", each("[_ 0,"), "", true},

      {"JSON Strings", read_json, "[\"\"", each(",\"\""), "]"},
      {"JSON Integers", read_json, "[1", each(",1"), "]"},
      {"JSON Doubles", read_json, "[1.5", each(",2.5"), "]"},
      {"JSON maps", read_json, "[{}", each(",{}"), "]"},
      {"JSON maps of one", read_json, "[{}", each(",{\"a\":0}"), "]"},
      {"JSON members", read_json, "{\"\\u0061\":0",
       [](std::size_t i) { return ",\"" + std::string(digits_of(i)) + "\":0"; }, "}"},
      {"JSON members in reverse", read_json, "{\"a\":0",
       [](std::size_t i) { return ",\"" + std::string(digits_of(100'000'000 - i)) + "\":0"; }, "}"},
      {"JSON members of one name", read_json, "{\"a\":0", each(",\"a\":0"), "}"},
      {"JSON deep maps", read_json, "[{}",
       each("," + repeated("{\"a\":", 500) + "0" + std::string(500, '}')), "]"},
      {"JSON deep maps, short", read_json, "[{}",
       each("," + repeated("{a:", 500) + "0" + std::string(500, '}')), "]"},
      {"JSON digits", read_json, "", each("1"), "", true},
      {"JSON brackets", read_json, "", each("["), "", true},
      {"JSON blanks", read_json, "", each("\n"), "1"},
      {"JSON comments", read_json, "", each("/**/"), "1"},
      {"JSON escapes", read_json, "\"", each("\\u20ac"), "\""},
      {"JSON of text", read_json, "{\"ovserialize\":\"simple(3), [_ 0", each(",\\\"\\\""), "]\"}"},

      {"package of names", read_package, package_head,
       [](std::size_t i) { return binary_string(digits_of(i)); }, end + "\xf2", true},
      {"package of one name", read_package, package_head, each(from_hex("6161")), end + "\xf2",
       true},
      {"set of nothing", read_packages, from_hex("f19f1a7fffffff"), each("\xf1"), "", true},
      {"names of several packages", encode_under_packages, "", each("x"), ""}};
  return result;
}

std::string document(const Shape& shape, std::size_t parts) {
  std::string result = shape.head;
  for (std::size_t i = 0; i < parts; ++i)
    result += shape.part(i);
  return result + shape.tail;
}

}  // namespace

static void read_unmeasured(void (*read)(std::string_view), const std::string& text,
                            bool* refused) {
  try {
    read(text);
  } catch (const ovcore::Exception&) {
    *refused = true;
  }
}

/// What linearity_test.py counts the instructions of.
extern "C" __attribute__((noinline, visibility("default"))) void ov_measured(
    void (*read)(std::string_view), const std::string& text, bool* refused) {
  read_unmeasured(read, text, refused);
}

namespace {

TEST(HostileInput, CostsInProportionToItsSize) {
  const char* const wanted = std::getenv("OVATTRIBUTE_HOSTILE_BYTES");
  const std::size_t size = wanted != nullptr ? std::strtoull(wanted, nullptr, 10) : 100'000;
  const std::size_t names = most_names = ovcore::StringKey::interned_count();
  for (const Shape& shape : shapes()) {
    SCOPED_TRACE(shape.name);
    const auto make_and_read = [&](std::size_t parts, bool in_step) {
      const std::string text = document(shape, parts);
      bool refused = false;
      const ovcore::impl::SmallMemory::Pause all_from_the_heap;
      const auto before = ovtest::start_of_peak();
      (in_step ? ov_measured : read_unmeasured)(shape.read, text, &refused);
      const auto after = ovtest::allocation_counts();
      EXPECT_EQ(refused, shape.refused);
      // Names lie in memory of their own, 64 bytes each, and up to 32 of their table while it
      // grows.
      const std::size_t memory = static_cast<std::size_t>(after.peak - before.live) +
                                 96 * (std::exchange(most_names, names) - names);
      EXPECT_LE(memory, 128 * text.size() + (1u << 20));
      const std::uint64_t made = after.made - before.made;
      if (in_step) {
        std::cout << "measured " << text.size() << " " << memory << " " << made << " " << shape.name
                  << std::endl;
      }
      return made;
    };
    const std::size_t parts = size / shape.part(0).size() + 1;
    const std::uint64_t once = make_and_read(parts, true);
    const std::uint64_t twice = make_and_read(2 * parts, true);
    // Tables grow by leaps, and pages of an index may be half full.
    EXPECT_LE(twice, 2 * once + once / 4 + 300);
    // One part above a power of two, where what doubles has the most room to spare.
    make_and_read(std::bit_floor(parts) + 1, false);
    EXPECT_EQ(ovcore::StringKey::interned_count(), names) << "names that nothing uses any more";
  }
}

// ------------------------------------------------------------------------------------ nesting --

/// Runs `work` on a small stack. The sanitizers, clang and a lack of optimisation make frames
/// large.
void in_small_stack(const std::function<void()>& work) {
#if defined(__OPTIMIZE__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__)
  constexpr std::size_t size = std::size_t{256} << 10;
#else
  constexpr std::size_t size = std::size_t{4} << 20;
#endif
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
  pthread_t thread;
  const auto run = [](void* f) -> void* {
    (*static_cast<const std::function<void()>*>(f))();
    return nullptr;
  };
  ASSERT_EQ(
      pthread_create(&thread, &attributes, run, const_cast<void*>(static_cast<const void*>(&work))),
      0);
  ASSERT_EQ(pthread_join(thread, nullptr), 0);
  ASSERT_EQ(pthread_attr_destroy(&attributes), 0);
}

constexpr ovserialize::Limits no_limits{.max_depth = 1'000'000};

std::string binary_form(const AttributeValue& value) {
  MemoryWriter writer({}, no_limits);
  write_attribute_value(writer, value);
  return text_of(*writer.detach());
}

std::size_t depth_of(const AttributeMap& map) {
  std::size_t depth = 1;
  for (const AttributeMapBase* level = &map; !level->empty(); ++depth)
    level = &level->begin()->second.get<AttributeMap>();
  return depth;
}

/// Ways for a value to arrive; `bytes` is its binary form.
struct Form {
  const char* name;
  AttributeValue (*read)(const std::string& bytes, const AttributeMap& map);
  const ovcore::ErrorCode& too_deep;
};

const Form forms[] = {
    {"binary",
     [](const std::string& bytes, const AttributeMap&) {
       MemoryReader reader(bytes.data(), bytes.size(), no_limits);
       return read_attribute_value(reader);
     },
     ovserialize::error::ovserialize_reader_depth},
    {"coded, from a stream",
     [](const std::string& bytes, const AttributeMap&) {
       ovcore::MemoryReadStream stream(bytes.data(), bytes.size());
       ovserialize::StreamReader reader(stream, no_limits);
       AttributeNameDecoder decoder(nullptr, false);
       return read_attribute_value(reader, decoder);
     },
     ovserialize::error::ovserialize_reader_depth},
    {"text",
     [](const std::string& bytes, const AttributeMap&) {
       std::string text;
       ovserialize::StringTextTarget target(text);
       MemoryReader items(bytes.data(), bytes.size(), no_limits);
       ovserialize::TextWriter writer(target, {}, no_limits);
       ovserialize::copy_items(items, writer);
       writer.close();
       ovcore::MemoryReadStream stream(text.data(), text.size());
       ovserialize::TextReader reader(stream, no_limits);
       return read_attribute_value(reader);
     },
     ovserialize::error::ovserialize_reader_depth},
    {"JSON",
     [](const std::string&, const AttributeMap& map) {
       const std::size_t around = depth_of(map) - 1;
       return parse_json(repeated("{\"m\":", around) + "{}" + std::string(around, '}'));
     },
     ovjson::error::ovjson_reader},
    {"text inside JSON",
     [](const std::string&, const AttributeMap& map) {
       const std::string inner =
           repeated("simple(12), simple(16), simple(16), \\\"m\\\", ", depth_of(map) - 301);
       return parse_json(repeated("{\"m\":", 300) + "{\"ovserialize\":\"" + inner +
                         "simple(12), simple(16), [_ 0]\"}" + std::string(300, '}'));
     },
     ovjson::error::ovjson_reader},
    {"sealed",
     [](const std::string& bytes, const AttributeMap&) {
       // What a sender without a limit seals.
       const ovcrypto::Key key = key_of(numbered(16));
       const auto cipher = cipher_of("EAX_AES128");
       MemoryWriter writer;
       writer.begin_structure();
       writer << ""
              << "EAX_AES128";
       SecuredValue::KeyId().write(writer);
       writer.write_memory_list_as_binary(
           cipher->encrypt(list_of(bytes), "", key, ovcrypto::default_random_provider()));
       writer.end_structure();
       MemoryReader reader(writer.detach());
       return SecuredValue(reader).extract(key);
     },
     ovserialize::error::ovserialize_reader_depth},
};

TEST(HostileInput, NestsToTheLimitInEveryFormOnASmallStack) {
  const std::size_t outer_limit = nesting_limit();
  for (const Form& form : forms) {
    for (const std::size_t depth : {512, 513, 600}) {
      SCOPED_TRACE(std::string(form.name) + " " + std::to_string(depth));
      const AttributeMap map = maps_within_maps(depth);
      set_nesting_limit(1'000'000);
      const std::string bytes = binary_form(AttributeValue(map));
      set_nesting_limit(outer_limit);
      in_small_stack([&] {
        if (depth == 512) {
          const AttributeValue value = form.read(bytes, map);
          use(value, AttributeValue(map));
        } else {
          const auto info = ovtest::error_of([&] { static_cast<void>(form.read(bytes, map)); });
          ASSERT_TRUE(info);
          EXPECT_EQ(info->code(), form.too_deep);
        }
      });
    }
  }
}

TEST(HostileInput, MapsNestedByHandNeedNoDeepStack) {
  in_small_stack([] {
    const AttributeMap map = maps_within_maps(100'000);
    MutableAttributeMap copy = map;
    copy.begin()->second.append(AttributeMap());
    for (const auto& operation : std::initializer_list<std::function<void()>>{
             [&] { static_cast<void>(map.hash()); },
             [&] { static_cast<void>(map.compare(maps_within_maps(100'000))); },
             [&] { static_cast<void>(map == maps_within_maps(100'000)); },
             [&] { std::ostream(nullptr) << map; }}) {
      EXPECT_ERROR(operation(), error::ovattribute_invalidParameter,
                   "Attribute values are nested deeper than 512 maps");
    }
    MemoryWriter writer({}, no_limits);
    EXPECT_ERROR(write_attribute_value(writer, map), ovserialize::error::ovserialize_writer_depth,
                 "Writing maps nested deeper than 512");
    const AttributeMap around_lossless{{"m", AttributeMap{{"", maps_within_maps(511)}}}};
    EXPECT_ERROR(to_json(around_lossless), ovserialize::error::ovserialize_writer_depth,
                 "Writing maps nested deeper than 512");
  });
}

}  // namespace
}  // namespace ovattribute
