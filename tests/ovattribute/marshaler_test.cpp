// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "ovattribute/attribute.h"
#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_name_package.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/error_codes.h"
#include "ovattribute/impl/key_marshaler.h"
#include "ovattribute/nesting.h"
#include "ovattribute/secured_value.h"
#include "ovattribute/serialized_value.h"
#include "ovcore/error_info.h"
#include "ovcore/read_stream.h"
#include "ovcore/simple_date_time.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/stream_reader.h"
#include "ovuri/uri_reference.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"
#include "tests/support/table.h"

namespace ovattribute {
namespace {

using ovserialize::Reader;
using ovserialize::Writer;

std::string bytes_of_value(const AttributeValue& value) {
  return bytes_of([&](Writer& writer) { write_attribute_value(writer, value); });
}
AttributeValue value_from(std::string_view bytes) {
  return read_from(bytes, [](Reader& reader) { return read_attribute_value(reader); });
}
std::string hex_of(const AttributeValue& value) {
  return to_hex(bytes_of_value(value));
}
std::string trace_of(const AttributeValue& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

/// The same value, up to what is equal to nothing: by its bytes.
void expect_same(const AttributeValue& read, const AttributeValue& value) {
  EXPECT_EQ(read.type(), value.type());
  EXPECT_EQ(read.size(), value.size());
  EXPECT_EQ(read.compare(value), 0);
  EXPECT_EQ(bytes_of_value(read), bytes_of_value(value));
}

TEST(Marshaler, ValuesHaveTheseForms) {
  const auto uuid = ovcore::Uuid::parse("00112233-4455-6677-8899-aabbccddeeff");
  const auto time = ovcore::AbsoluteTime::from_microseconds(5000003);
  const auto duration = ovcore::RelativeTime::from_microseconds(-1);
  const ovcore::SimpleDateTime date(2024, 2, 29);
  const BinaryValue block(reinterpret_cast<const unsigned char*>("ab"), 2);
  const auto error = ovcore::ErrorInfo::create(ovcore::ErrorCode("e", true), "t", {}, {});
  const std::string error_bytes = "f161656174 9f00ff6060e0f2";
  const std::string date_bytes = "73323032342d30322d32395430303a30303a3030";
  const std::string nothing_secured = "f16060f160d8255000000000000000000000000000000000f240f2";
  struct Case {
    AttributeValue value;
    std::string bytes;
  };
  for (const Case& c : {
           Case{AttributeValue(), "f6"},
           {true, "f5"},
           {-7, "26"},
           {"a", "6161"},
           {2.0, "fb4000000000000000"},
           {uuid, "d8255000112233445566778899aabbccddeeff"},
           {time, "d903e9a201052503"},
           {duration, "d903eaa20120251a000f423f"},
           {block, "426162"},
           // With a tag: what is not told by the item.
           {ovuri::UriReference("a:b"), "e6 63613a62"},
           {date, "e9" + date_bytes},
           {SerializedValue(), "eb f1f160f240f2"},
           {SecuredValue(), "ed" + nothing_secured},
           {error, "ee" + error_bytes},
           {impl::ErrorInfoPtr(), "ee f6"},
           // A map is always in a sequence.
           {AttributeMap(), "ec f0 9f00ff"},
           {AttributeMap{{"a", 1}}, "ec f0 f0 616101"},
           {AttributeValue{AttributeMap()}, "ec f0 9f00ff"},
           // Lists; one of one element is that element.
           {AttributeValue{true}, "f5"},
           {AttributeValue{true, false}, "e1 9f02f5f4ff"},
           {AttributeValue{1, 2, 3}, "e2 9f03010203ff"},
           {AttributeValue{"a", ""}, "e3 9f02616160ff"},
           {AttributeValue{2.0, 0.0}, "e4 9f02fb4000000000000000fb0000000000000000ff"},
           {AttributeValue{uuid, ovcore::Uuid()},
            "e5 "
            "9f02d8255000112233445566778899aabbccddeeffd8255000000000000000000000000000000000ff"},
           {AttributeValue{ovuri::UriReference("a:b"), ovuri::UriReference()},
            "e6 9f0263613a6260ff"},
           {AttributeValue{ovuri::UriReference("a:b")}, "e6 63613a62"},
           {AttributeValue{time, time}, "e7 9f02d903e9a201052503d903e9a201052503ff"},
           {AttributeValue{duration, duration},
            "e8 9f02d903eaa20120251a000f423fd903eaa20120251a000f423fff"},
           {AttributeValue{date, date}, "e9 9f02" + date_bytes + date_bytes + "ff"},
           {AttributeValue{block, BinaryValue()}, "ea 9f0242616240ff"},
           {AttributeValue{SerializedValue(), SerializedValue()},
            "eb 9f02f1f160f240f2f1f160f240f2ff"},
           {AttributeValue{AttributeMap(), AttributeMap{{"a", 1}}}, "ec 9f029f00fff0616101ff"},
           {AttributeValue{SecuredValue(), SecuredValue()},
            "ed 9f02" + nothing_secured + nothing_secured + "ff"},
           {AttributeValue{impl::ErrorInfoPtr(), error}, "ee 9f02f6" + error_bytes + "ff"},
           // No elements.
           {AttributeValue(ValueTypeId::typeBoolean), "e1 9f00ff"},
           {AttributeValue(ValueTypeId::typeInteger), "e2 9f00ff"},
           {AttributeValue(ValueTypeId::typeString), "e3 9f00ff"},
           {AttributeValue(ValueTypeId::typeDouble), "e4 9f00ff"},
           {AttributeValue(ValueTypeId::typeUuid), "e5 9f00ff"},
           {AttributeValue(ValueTypeId::typeUri), "e6 9f00ff"},
           {AttributeValue(ValueTypeId::typeAbsoluteTime), "e7 9f00ff"},
           {AttributeValue(ValueTypeId::typeRelativeTime), "e8 9f00ff"},
           {AttributeValue(ValueTypeId::typeSimpleDateTime), "e9 9f00ff"},
           {AttributeValue(ValueTypeId::typeBinary), "ea 9f00ff"},
           {AttributeValue(ValueTypeId::typeSerialized), "eb 9f00ff"},
           {AttributeValue(ValueTypeId::typeAttributeMap), "ec 9f00ff"},
           {AttributeValue(ValueTypeId::typeSecured), "ed 9f00ff"},
           {AttributeValue(ValueTypeId::typeErrorInfo), "ee 9f00ff"},
       }) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(hex_of(c.value), without_blanks(c.bytes));
    const AttributeValue read = value_from(from_hex(c.bytes));
    EXPECT_EQ(read, c.value);
    expect_same(read, c.value);
  }
}

// What no writer of ours produces: on the left as read, on the right as written again.
TEST(Marshaler, OtherFormsAreRead) {
  const std::string date = "73323032342d30322d32395430303a30303a3030";
  const std::string error = "f161656174 9f00ff6060e0f2";
  const std::string secured = "f16060f160d8255000000000000000000000000000000000f240f2";
  struct Type {
    const char* tag;
    std::string element;
    std::string scalar;
  };
  for (const Type& t :
       {Type{"e1", "f5", "f5"},
        {"e2", "1864", "1864"},
        {"e3", "6161", "6161"},
        {"e4", "fb4000000000000000", "fb4000000000000000"},
        {"e5", "d8255000112233445566778899aabbccddeeff", "d8255000112233445566778899aabbccddeeff"},
        {"e6", "63613a62", "e663613a62"},
        {"e7", "d903e9a201052503", "d903e9a201052503"},
        {"e8", "d903eaa10105", "d903eaa10105"},
        {"e9", date, "e9" + date},
        {"ea", "4161", "4161"},
        {"eb", "f1f16174f24161f2", "ebf1f16174f24161f2"},
        {"ed", secured, "ed" + secured},
        {"ee", error, "ee" + error}}) {
    const std::string& element = t.element;
    const std::string list = t.tag + ("9f03" + element) + element + element + "ff";
    struct Case {
      std::string bytes;
      std::string written;
    };
    for (const Case& c : {
             // The tag, then the bare element.
             Case{t.tag + element, t.scalar},
             // An unknown number of elements.
             {t.tag + std::string("9f00ff"), t.tag + std::string("9f00ff")},
             {t.tag + ("9f00" + element) + "ff", t.scalar},
             {t.tag + ("9f00" + element) + element + element + "ff", list},
             // Announced as one.
             {t.tag + ("f0" + element), t.scalar},
             // More or fewer than announced.
             {t.tag + ("9f02" + element) + element + element + "ff", list},
             {t.tag + ("9f1b7fffffffffffffff" + element) + element + element + "ff", list},
             {t.tag + ("9f05" + element) + "ff", t.scalar},
             {t.tag + std::string("9f05ff"), t.tag + std::string("9f00ff")},
             {list, list},
         }) {
      SCOPED_TRACE(c.bytes);
      EXPECT_EQ(hex_of(value_from(from_hex(c.bytes))), without_blanks(c.written));
    }
  }
  struct Case {
    const char* bytes;
    const char* written;
  };
  for (const Case& c : {Case{"e0", "f6"},
                        {"ec 9f00ff", "ec 9f00ff"},
                        {"ec 9f00 9f00ff ff", "ec f0 9f00ff"},
                        {"ec 9f00 9f00ff f0616101 ff", "ec 9f02 9f00ff f0616101 ff"},
                        {"ec 9f07 9f00ff f0616101 ff", "ec 9f02 9f00ff f0616101 ff"},
                        {"ec 9f07 9f00ff ff", "ec f0 9f00ff"},
                        // Counts of entries are hints too.
                        {"ec f0 9f00 6161 01 ff", "ec f0 f0616101"},
                        {"ec f0 9f1b7fffffffffffffff 6161 01 ff", "ec f0 f0616101"},
                        // Of equal names the first counts.
                        {"ec f0 9f03 6161 01 6161 02 6161 f6 ff", "ec f0 f0616101"},
                        // As other CBOR encoders may put it.
                        {"fa40000000", "fb4000000000000000"},
                        {"1900ff", "18ff"}}) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(hex_of(value_from(from_hex(c.bytes))), without_blanks(c.written));
  }
}

TEST(Marshaler, UnknownTagsAreRefused) {
  struct Case {
    const char* bytes;
    const char* message;
  };
  for (const Case& c : {Case{"ef", "Unknown marshaled attribute type id.  Value=15"},
                        {"f820", "Unknown marshaled attribute type id.  Value=16"},
                        {"d995491affffffff", "Unknown marshaled attribute type id.  Value=-1"}}) {
    SCOPED_TRACE(c.bytes);
    AttributeValue target("before");
    const std::string bytes = from_hex(c.bytes);
    ovserialize::MemoryReader reader(bytes.data(), bytes.size());
    EXPECT_ERROR(
        read_attribute_value(reader, target), error::ovattribute_value_type_unknown, c.message,
        {"ovattribute/attribute_value_marshaler", "ovattribute::read_attribute_value()", 0});
    EXPECT_EQ(target, "before");
  }
  AttributeMap map{{"before", 1}};
  const std::string bytes = from_hex("f0 6161 ef");
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  EXPECT_ERROR(reader >> map, error::ovattribute_value_type_unknown,
               "Unknown marshaled attribute type id.  Value=15");
  EXPECT_EQ(map, (AttributeMap{{"before", 1}}));
}

TEST(Marshaler, OtherItemsAreErrorsOfTheReader) {
  for (const ovtest::Row& row : ovtest::read_table("items/value_bad.txt", 2)) {
    SCOPED_TRACE(row[0]);
    AttributeValue target("before");
    const std::string bytes = from_hex(row[0]);
    ovserialize::MemoryReader reader(bytes.data(), bytes.size());
    const auto info = ovtest::error_of([&] { reader >> target; });
    ASSERT_TRUE(info);
    EXPECT_EQ(info->code(), ovtest::code_of("error.ovserialize.reader", row[1])) << info->message();
    EXPECT_EQ(target, "before");
  }
}

TEST(Marshaler, EveryValueSurvivesAloneAndAsAnAttribute) {
  for (const AttributeValue& value : sample_values()) {
    SCOPED_TRACE(trace_of(value).substr(0, 100));
    expect_same(value_from(bytes_of_value(value)), value);
    const Attribute attribute("n", value);
    const std::string bytes = bytes_of([&](Writer& writer) { writer << attribute; });
    EXPECT_EQ(bytes, "\x61n" + bytes_of_value(value));
    Attribute read;
    read_from(bytes, [&](Reader& reader) { return reader >> read, 0; });
    EXPECT_EQ(read.name(), "n");
    expect_same(read.value(), value);
  }
}

TEST(Marshaler, MapsAndNamesHaveTheirOwnForm) {
  const AttributeMap map{{"first", 1}, {"second", AttributeMap{{"third", true}}}};
  const std::string bytes = bytes_of([&](Writer& writer) { writer << map; });
  // In the order of the map, which is another one in the next process.
  const bool in_order = map.begin()->first == "first";
  const std::string first = "656669727374 01";
  const std::string second = "667365636f6e64 ec f0 f0 657468697264 f5";
  EXPECT_EQ(to_hex(bytes),
            without_blanks("9f02" + (in_order ? first + second : second + first) + "ff"));
  EXPECT_EQ(read_from(bytes, [](Reader& reader) { return AttributeMap(reader); }), map);
  AttributeMap immutable{{"before", 1}};
  read_from(bytes, [&](Reader& reader) { return reader >> immutable, 0; });
  EXPECT_EQ(immutable, map);
  MutableAttributeMap read{{"before", 1}};
  read_from(bytes, [&](Reader& reader) { return reader >> read, 0; });
  EXPECT_EQ(read, map);
  read.add("more", 1);
  EXPECT_EQ(read.size(), 3u);
  // Moved away: as empty.
  AttributeMap moved(std::move(read));
  EXPECT_EQ(to_hex(bytes_of([&](Writer& writer) { read.write(writer); })), "9f00ff");

  EXPECT_EQ(to_hex(bytes_of([&](Writer& writer) {
              AttributeMapBase::write_element_aux(writer, *map.find("first"));
            })),
            without_blanks(first));
  EXPECT_EQ(to_hex(bytes_of([](Writer& writer) { writer << AttributeName("ab"); })), "626162");
  AttributeName name("before");
  read_from(from_hex("626162"), [&](Reader& reader) { return reader >> name, 0; });
  EXPECT_EQ(name, "ab");
}

TEST(Marshaler, MapsAreReadInAnyOrderOfNames) {
  std::vector<std::string> names;
  for (int i = 0; i < 500; ++i)
    names.push_back("n" + std::to_string(i % 400));
  std::mt19937 random(3);
  for (int round = 0; round < 5; ++round) {
    std::map<std::string, int> first;
    ovserialize::MemoryWriter writer;
    writer.begin_sequence(static_cast<std::uint64_t>(round) * 200);
    for (int i = 0; i < 500; ++i) {
      if (i > 0) writer.next_element();
      writer << names[i] << i;
      first.emplace(names[i], i);
    }
    writer.end_sequence();
    ovserialize::MemoryReader reader(writer.detach());
    const AttributeMap map(reader);
    EXPECT_EQ(map.size(), first.size());
    for (const auto& [name, value] : first)
      EXPECT_EQ(map.query(AttributeName(name)), value);
    std::shuffle(names.begin(), names.end(), random);
  }
}

// Names are expected where they came before: whatever comes instead must not be taken for them.
TEST(Marshaler, MapsOfManyShapesKeepTheirNames) {
  std::mt19937 random(1);
  std::vector<std::string> names = {"", "\xff", "a name of more than sixteen bytes"};
  for (int i = 0; i < 60; ++i)
    names.push_back("name " + std::to_string(i));
  const std::function<AttributeMap(int)> make_map = [&](int depth) {
    MutableAttributeMap map;
    const std::size_t first = random() % names.size();
    for (std::size_t i = 0; i < random() % 9; ++i) {
      const AttributeName name(names[(first + i * (1 + random() % 2)) % names.size()]);
      if (depth > 0 && random() % 3 == 0) {
        map.add(name, make_map(depth - 1));
      } else {
        map.add(name, static_cast<int>(random() % 100));
      }
    }
    return AttributeMap(map);
  };
  AttributeNamePackage::Composer some;
  for (std::size_t i = 0; i < names.size(); i += 2)
    some.add(names[i]);
  const auto packages = AttributeNamePackageSet::create(some.compose());
  for (int round = 0; round < 20; ++round) {
    std::vector<AttributeMap> maps;
    for (int i = 0; i < 20; ++i)
      maps.push_back(make_map(3));
    maps.insert(maps.end(), maps.begin(), maps.begin() + 10);
    AttributeNameEncoder encoder(packages);
    const std::string texts = bytes_of([&](Writer& writer) {
      for (const AttributeMap& map : maps)
        writer << map;
    });
    const std::string coded = bytes_of([&](Writer& writer) {
      for (const AttributeMap& map : maps)
        map.write(writer, encoder);
    });
    AttributeNameDecoder decoder(packages, true);
    ovserialize::MemoryReader reader(texts.data(), texts.size());
    ovserialize::MemoryReader coded_reader(coded.data(), coded.size());
    ovcore::MemoryReadStream stream(texts);
    ovserialize::StreamReader stream_reader(stream, {}, 32);
    for (const AttributeMap& map : maps) {
      ASSERT_EQ(AttributeMap(reader), map);
      ASSERT_EQ(AttributeMap(coded_reader, decoder), map);
      ASSERT_EQ(AttributeMap(stream_reader), map);
      const std::string alone = bytes_of([&](Writer& writer) { writer << map; });
      ASSERT_EQ(read_from(alone, [](Reader& r) { return AttributeMap(r); }), map);
    }
  }
}

TEST(Marshaler, CodersHaveAllNamesOfMapsButOnlyTheOwnOfAttributes) {
  const auto package = AttributeNamePackage::create({"a", "b"});
  const auto set = AttributeNamePackageSet::create(package);
  const std::string reference = to_hex(bytes_of([&](Writer& w) { w << package->id(); })) + "e0e2";
  const AttributeMap in_package{{"b", 1}};
  const AttributeMap not_in_package{{"c", 2}};
  const AttributeMap map{{"a", AttributeValue{in_package, not_in_package}}};

  AttributeNameEncoder encoder(set);
  const std::string bytes = bytes_of([&](Writer& writer) { map.write(writer, encoder); });
  EXPECT_EQ(to_hex(bytes), without_blanks("f0" + reference + "e0 ec 9f02 f0 e1 01 f0 6163 02 ff"));
  AttributeNameDecoder decoder(set, true);
  EXPECT_EQ(read_from(bytes, [&](Reader& reader) { return AttributeMap(reader, decoder); }), map);
  // Later in the stream no reference is needed.
  const std::string entry = bytes_of([&](Writer& writer) {
    AttributeMapBase::write_element_aux(writer, encoder, *in_package.begin());
    write_attribute_value(writer, encoder, in_package);
    encoder.write_attribute_name(writer, "a");
    AttributeName("a").write(writer, encoder);
  });
  EXPECT_EQ(to_hex(entry), without_blanks("e1 01 ec f0 f0 e1 01 e0 e0"));
  ovserialize::MemoryReader reader(entry.data(), entry.size());
  AttributeName name;
  name.read(reader, decoder);
  EXPECT_EQ(name, "b");
  EXPECT_EQ(read_attribute_value(reader), 1);
  AttributeValue value;
  read_attribute_value(reader, decoder, value);
  EXPECT_EQ(value, in_package);
  name.read(reader, decoder);
  EXPECT_EQ(name, "a");

  const Attribute attribute("b", map);
  const std::string plain = bytes_of([&](Writer& writer) { attribute.write(writer, encoder); });
  EXPECT_EQ(plain, "\xe1" + bytes_of_value(map));
  Attribute read;
  read_from(plain, [&](Reader& r) { return read.read(r, decoder), 0; });
  EXPECT_EQ(read, attribute);
  MutableAttributeMap target;
  ovserialize::MemoryReader second(bytes.data(), bytes.size());
  AttributeNameDecoder fresh(set, true);
  target.read(second, fresh);
  EXPECT_EQ(target, map);
}

TEST(Marshaler, DamageGivesAnErrorOrAValueThatCanBeWritten) {
  MutableAttributeMap small;
  std::size_t number = 0;
  for (const AttributeValue& value : sample_values()) {
    if (bytes_of_value(value).size() < 60) small.add("v" + std::to_string(number++), value);
  }
  const std::string bytes = bytes_of_value(small);
  const AttributeValue before("before");
  AttributeValue target = before;
  const auto read = [&target](std::string_view damaged) {
    ovserialize::MemoryReader reader(damaged.data(), damaged.size());
    try {
      read_attribute_value(reader, target);
      return true;
    } catch (const ovcore::Exception&) {
      return false;
    }
  };
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    ASSERT_FALSE(read(std::string_view(bytes).substr(0, size))) << size;
    ASSERT_EQ(target, before) << size;
  }
  std::size_t readable = 0;
  for (std::size_t bit = 0; bit < 8 * bytes.size(); ++bit) {
    std::string damaged = bytes;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
    if (!read(damaged)) {
      ASSERT_EQ(target, before) << bit;
      continue;
    }
    ++readable;
    const std::string again = bytes_of_value(target);
    ASSERT_EQ(bytes_of_value(value_from(again)), again) << bit;
    target = before;
  }
  EXPECT_GT(readable, bytes.size());
}

TEST(Marshaler, StreamsAreReadAsTheyArrive) {
  const AttributeValue value(AttributeMap{
      {"a", AttributeValue{1, 2}}, {"b", AttributeMap{{"c", BinaryValue(100)}}}, {"d", 2.5}});
  const std::string bytes = bytes_of_value(value);
  ovtest::for_each_split(bytes, [&](const auto& stream) {
    ovserialize::StreamReader reader(*stream, {}, 32);
    EXPECT_EQ(read_attribute_value(reader), value);
    EXPECT_TRUE(reader.at_end());
  });
}

TEST(Marshaler, CountsReserveAsMuchAsTheyMay) {
  // 4096 Integers and what belongs to the list; then the exact size.
  const std::string lying = from_hex("e2 9f1a000f4240 010203 ff");
  const auto bytes_for = [](std::string_view bytes) {
    const auto before = ovtest::allocation_counts();
    const AttributeValue value = value_from(bytes);
    return ovtest::allocation_counts().bytes - before.bytes;
  };
  EXPECT_EQ(value_from(lying), (AttributeValue{1, 2, 3}));
  EXPECT_GE(bytes_for(lying), 4096u * 8);
  EXPECT_LT(bytes_for(lying), 4096u * 8 + 500);
  // Lists of maps inside one another share what they may.
  std::string nested = from_hex("f6");
  for (int i = 0; i < 100; ++i)
    nested = from_hex("ec 9f1a000f4240 f0 6161") + nested + "\xff";
  EXPECT_LT(bytes_for(nested), 8192u * 8 + 100 * 500);
  // Entries of maps are believed a few at a time.
  EXPECT_LT(bytes_for(from_hex("ec f0 9f1a000f4240 6161 01 ff")), 1000u);
}

TEST(Marshaler, MapsNestUpToTheLimit) {
  const std::string deepest = bytes_of_value(maps_within_maps(default_nesting_limit));
  expect_same(value_from(deepest), maps_within_maps(default_nesting_limit));
  const std::string map_bytes = deepest.substr(2);
  EXPECT_EQ(read_from(map_bytes, [](Reader& reader) { return AttributeMap(reader); }),
            maps_within_maps(default_nesting_limit));

  const ovserialize::Limits deep{.max_depth = 5000};
  ovserialize::MemoryWriter writer({}, deep);
  const AttributeMap too_deep = maps_within_maps(default_nesting_limit + 1);
  EXPECT_ERROR(
      writer << AttributeValue(too_deep), ovserialize::error::ovserialize_writer_depth,
      "Writing maps nested deeper than 512",
      {"ovattribute/attribute_value_marshaler", "ovattribute::write_attribute_value()", 0});
  ovserialize::MemoryWriter map_writer({}, deep);
  EXPECT_ERROR(too_deep.write(map_writer), ovserialize::error::ovserialize_writer_depth,
               "Writing maps nested deeper than 512");

  const std::string bytes = from_hex("ec f0 f0 616d") + deepest;
  ovserialize::MemoryReader reader(bytes.data(), bytes.size(), deep);
  AttributeValue target("before");
  EXPECT_ERROR(reader >> target, ovserialize::error::ovserialize_reader_depth,
               "Reading maps nested deeper than 512 at offset 2562",
               {"ovattribute/attribute_value_marshaler", "ovattribute::read_attribute_value()", 0});
  EXPECT_EQ(target, "before");

  set_nesting_limit(2);
  EXPECT_EQ(hex_of(maps_within_maps(2)), "ecf0f0616decf09f00ff");
  EXPECT_ERROR(bytes_of_value(maps_within_maps(3)), ovserialize::error::ovserialize_writer_depth,
               "Writing maps nested deeper than 2");
  EXPECT_ERROR(value_from(deepest), ovserialize::error::ovserialize_reader_depth,
               "Reading maps nested deeper than 2 at offset 12");
  // Levels are not left behind by what was read before.
  EXPECT_EQ(value_from(from_hex("ec 9f02 f0616101 f0616102 ff")).size(), 2u);
  EXPECT_EQ(value_from(from_hex("ec f0 9f02 6161 ecf09f00ff 6162 ecf09f00ff ff")).size(), 1u);
  set_nesting_limit(default_nesting_limit);
}

TEST(Marshaler, KeysAreReadFromScalarBinaries) {
  const auto key_from = [](const std::string& hex) {
    return read_from(from_hex(hex), [](Reader& r) { return impl::read_key_as_binary(r); });
  };
  const ovcrypto::Key expected("abc", 3);
  EXPECT_EQ(key_from("43616263"), expected);
  EXPECT_EQ(key_from("ea 43616263"), expected);
  EXPECT_EQ(key_from("40"), ovcrypto::Key());

  for (const ovtest::Row& row : ovtest::read_table("items/key_bad.txt", 3)) {
    SCOPED_TRACE(row[0]);
    EXPECT_ERROR(key_from(row[0]), ovtest::code_of("error", row[1]), row[2]);
  }
}

}  // namespace
}  // namespace ovattribute
