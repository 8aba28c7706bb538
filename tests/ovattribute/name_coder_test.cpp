// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/error_codes.h"
#include "ovserialize/error_codes.h"
#include "ovserialize/reader.h"
#include "ovserialize/writer.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using Package = AttributeNamePackage;
using PackageSet = AttributeNamePackageSet;

// Items with the ids of three packages; in a set they stand in this order.
const std::string id_a = "d82550300333bd8ebd1a4b8af8c73650bd47d4";
const std::string id_bc = "d825505b31c56c72fcf144be24042e8aba4255";
const std::string id_ace = "d825506796cf0cb3bceb4bbd14b0634f80adb6";

const Package::Ptr& package_a() {
  static const auto package = Package::create({"a"});
  return package;
}
const Package::Ptr& package_bc() {
  static const auto package = Package::create({"b", AttributeName("c")});
  return package;
}
const Package::Ptr& package_ace() {
  static const auto package = Package::create({"a", "c", "e"});
  return package;
}
PackageSet::Ptr set_of(const std::vector<Package::Ptr>& packages) {
  PackageSet::Composer composer;
  for (const Package::Ptr& package : packages)
    composer.add(package);
  return composer.compose();
}
PackageSet::Ptr all_three() {
  return set_of({package_a(), package_bc(), package_ace()});
}

// A step is a name, or "!" for the mappings.
const std::string mappings = "!";

std::string encode(IAttributeNameEncoder& encoder, const std::vector<std::string>& steps) {
  return bytes_of([&](ovserialize::Writer& writer) {
    for (const std::string& step : steps) {
      if (step == mappings) {
        encoder.write_encoder_mappings(writer);
      } else {
        encoder.write_attribute_name(writer, step);
      }
    }
  });
}

/// Reads as many steps as there are.
std::vector<std::string> decode(IAttributeNameDecoder& decoder, std::string_view hex) {
  const std::string bytes = from_hex(hex);
  ovserialize::MemoryReader reader(bytes.data(), bytes.size());
  std::vector<std::string> steps;
  while (!reader.at_end()) {
    if (reader.item_kind() == ovserialize::item_structure) {
      decoder.read_decoder_mappings(reader);
      steps.push_back(mappings);
    } else {
      steps.push_back(decoder.read_attribute_name(reader).value());
    }
  }
  return steps;
}

TEST(NameCoder, NamesTravelLikeThis) {
  struct Case {
    const char* what;
    PackageSet::Ptr set;
    std::vector<std::string> steps;
    std::string bytes;
  };
  for (const Case& c : {
           Case{"no set", nullptr, {"a", "", "!"}, "6161 60 f19f00fff2"},
           {"an empty set", PackageSet::create(), {"a", "", "!"}, "6161 60 f19f00fff2"},
           {"a package is announced with its first name",
            set_of({package_ace()}),
            {"c", "zz", "a", "e", "zz", "c"},
            id_ace + "e0e3 e1 627a7a e0 e2 627a7a e1"},
           {"bases follow the first use",
            set_of({package_a(), package_bc()}),
            {"c", "a", "b", "a", "c"},
            id_bc + "e0e2 e1" + id_a + "e2e1 e2 e0 e2 e1"},
           {"of several packages the one that is active",
            all_three(),
            {"e", "a", "c", "b", "c", "a"},
            id_ace + "e0e3 e2 e0 e1" + id_bc + "e3e2 e3 e1 e0"},
           {"of several active packages the one that was first",
            all_three(),
            {"b", "e", "c", "a"},
            id_bc + "e0e2 e0" + id_ace + "e2e3 e4 e1 e2"},
           {"of several packages the first of the set when none is active",
            all_three(),
            {"a", "e", "c", "a"},
            id_a + "e0e1 e0" + id_ace + "e1e3 e3 e2 e0"},
           {"mappings follow the set",
            all_three(),
            {"!", "e", "c", "a", "b", "z", "!"},
            "f19f03" + id_a + "e0e1" + id_bc + "e1e2" + id_ace + "e3e3fff2 e5 e2 e0 e1 617a" +
                "f19f03" + id_a + "e0e1" + id_bc + "e1e2" + id_ace + "e3e3fff2"},
           {"mappings keep what is active in its place",
            all_three(),
            {"e", "!", "b", "c", "a"},
            id_ace + "e0e3 e2 f19f03" + id_ace + "e0e3" + id_a + "e3e1" + id_bc +
                "e4e2fff2 e4 e1 e0"},
           {"mappings of one package",
            set_of({package_a()}),
            {"!", "a"},
            "f1f0" + id_a + "e0e1f2 e0"},
       }) {
    SCOPED_TRACE(c.what);
    AttributeNameEncoder encoder(c.set);
    EXPECT_EQ(encoder.package_set(), c.set);
    EXPECT_EQ(to_hex(encode(encoder, c.steps)), without_blanks(c.bytes));
    AttributeNameDecoder decoder(c.set, true);
    EXPECT_EQ(decode(decoder, c.bytes), c.steps);
    // To a reader that knows more.
    AttributeNameDecoder other(all_three()->create_union(Package::create({"q"})), true);
    EXPECT_EQ(decode(other, c.bytes), c.steps);
  }
}

TEST(NameCoder, LargeTokensAreNumbersToo) {
  std::vector<AttributeName> names;
  std::vector<std::string> steps;
  for (int i = 0; i < 300; ++i) {
    steps.push_back("n" + std::to_string(1000 + i));
    names.emplace_back(steps.back());
  }
  const auto set = PackageSet::create(Package::create(names));
  AttributeNameEncoder encoder(set);
  const std::string bytes = encode(encoder, steps);
  AttributeNameDecoder decoder(set, true);
  EXPECT_EQ(decode(decoder, to_hex(bytes)), steps);
  EXPECT_EQ(to_hex(encode(encoder, {steps[15], steps[16], steps[239], steps[240]})),
            "ef"
            "f820"
            "f8ff"
            "d9954918f0");
}

TEST(NameCoder, NamesOfUnknownPackagesArePlaceholders) {
  const std::string bytes = id_ace + "e5e3 e7 e5" + id_a + "f844e1 f844";
  const std::vector<std::string> expected{"6796cf0c-b3bc-eb4b-bd14-b0634f80adb6:2",
                                          "6796cf0c-b3bc-eb4b-bd14-b0634f80adb6:0",
                                          "300333bd-8ebd-1a4b-8af8-c73650bd47d4:0"};
  AttributeNameDecoder without_set(nullptr, true);
  EXPECT_EQ(decode(without_set, bytes), expected);
  AttributeNameDecoder lenient(set_of({package_bc()}), false);
  EXPECT_EQ(decode(lenient, bytes), expected);
  AttributeNameDecoder knows_one(set_of({package_a()}), false);
  EXPECT_EQ(decode(knows_one, bytes), (std::vector{expected[0], expected[1], std::string("a")}));
}

TEST(NameCoder, BadReferencesAndTokensAreRefused) {
  const ovcore::ErrorCode& invalid = error::ovattribute_name_decoder_packageRef_invalid;
  const std::string place = "ovattribute::AttributeNameDecoder::read_package_ref()";
  const std::string names = "ovattribute::AttributeNameDecoder::read_attribute_name()";
  const std::string bad_range =
      "Invalid index range in package reference.  PackageId: 300333bd-8ebd-1a4b-8af8-c73650bd47d4";
  struct Case {
    PackageSet::Ptr set;
    std::string bytes;
    const ovcore::ErrorCode& code;
    std::string message;
    std::string function;
    std::uint32_t line;
  };
  const auto& unknown_index = error::ovattribute_name_decoder_unknownIndex;
  const std::string no_reference = "No attribute name package reference for attribute name token ";
  for (const Case& c : {
           Case{all_three(), "e0", unknown_index, no_reference + "0", names, 557},
           {all_three(), id_a + "e0e1 e1", unknown_index, no_reference + "1", names, 557},
           {all_three(), id_a + "f820e1 ef", unknown_index, no_reference + "15", names, 557},
           {nullptr, id_a + "e0e3 e0" + id_bc + "e5e0 e4", unknown_index, no_reference + "4", names,
            557},
           {all_three(), id_a + "05", invalid, "Error reading package reference", place, 583},
           {all_three(), id_a + "e0", invalid, "Error reading package reference", place, 583},
           {all_three(), id_a.substr(0, 20), invalid, "Error reading package reference", place,
            583},
           {all_three(), id_ace + "e0e3 e0" + id_a + "e2e1 e0", invalid, bad_range, place, 591},
           {all_three(), id_ace + "e0e3 e0" + id_a + "e0e1 e0", invalid, bad_range, place, 591},
           // Order is checked before the package.
           {nullptr, id_ace + "e5e3 e5" + id_a + "e0e1 e0", invalid, bad_range, place, 591},
           // Ends at 2^64.
           {nullptr, id_a + "d995491bffffffffffffffff e1 e0", invalid, bad_range, place, 591},
           {nullptr, id_a + "e1 d995491bffffffffffffffff e1", invalid, bad_range, place, 591},
           {all_three(), id_a + "e0e2 e0", invalid,
            "Package size mismatch in package reference.  PackageId: "
            "300333bd-8ebd-1a4b-8af8-c73650bd47d4",
            place, 604},
           {set_of({package_bc()}), id_a + "e0e1 e0",
            error::ovattribute_name_decoder_packageRef_unknown,
            "Reference to unknown attribute name package.  PackageId: "
            "300333bd-8ebd-1a4b-8af8-c73650bd47d4",
            place, 612},
       }) {
    SCOPED_TRACE(c.bytes);
    AttributeNameDecoder decoder(c.set, true);
    const auto info = ovtest::error_of([&] { decode(decoder, without_blanks(c.bytes)); });
    ASSERT_TRUE(info);
    ovtest::expect_error(info, c.code, c.message,
                         {"ovattribute/attribute_name_coder", c.function, c.line});
    EXPECT_EQ(info->cause() != nullptr, c.line == 583);
  }
}

TEST(NameCoder, GapsBetweenRangesAreAllowed) {
  AttributeNameDecoder decoder(all_three(), true);
  EXPECT_EQ(decode(decoder, id_a + "e0e1 e0" + id_bc + "e1e2 e2" + id_ace + "f824e3 f826"),
            (std::vector<std::string>{"a", "c", "e"}));
  // The last range there can be.
  AttributeNameDecoder without_set(nullptr, true);
  EXPECT_EQ(decode(without_set, id_a + "d995491bfffffffffffffffe e1" + "d995491bfffffffffffffffe"),
            (std::vector<std::string>{"300333bd-8ebd-1a4b-8af8-c73650bd47d4:0"}));
}

TEST(NameCoder, ManyRangesAreSearchedRight) {
  // Ranges of 0 to 3 names with gaps of 0 to 2 numbers.
  ovserialize::MemoryWriter writer;
  std::vector<std::string> names;  // by token
  writer.begin_structure();
  writer.begin_sequence(0);
  for (std::uint8_t i = 0; i < 200; ++i) {
    if (i > 0) writer.next_element();
    const ovcore::Uuid id(ovcore::Uuid::BinaryData{i});
    names.resize(names.size() + i % 3);
    const unsigned count = i % 4;
    writer << id << names.size() << count;
    for (unsigned n = 0; n < count; ++n)
      names.push_back(id.as_string() + ":" + std::to_string(n));
  }
  writer.end_sequence();
  writer.end_structure();
  AttributeNameDecoder decoder(nullptr, false);
  ovserialize::MemoryReader reader(writer.detach());
  decoder.read_decoder_mappings(reader);
  for (std::size_t token = 0; token < names.size(); ++token) {
    ovserialize::MemoryWriter one;
    one << token;
    ovserialize::MemoryReader token_reader(one.detach());
    if (names[token].empty()) {
      EXPECT_ERROR(
          decoder.read_attribute_name(token_reader), error::ovattribute_name_decoder_unknownIndex,
          "No attribute name package reference for attribute name token " + std::to_string(token));
    } else {
      EXPECT_EQ(decoder.read_attribute_name(token_reader), names[token]);
    }
  }
}

TEST(NameCoder, MappingsReplaceWhatWasReadBeforeOnSuccessOnly) {
  AttributeNameDecoder decoder(all_three(), true);
  EXPECT_EQ(decode(decoder, "f1f0" + id_ace + "e0e3f2 e1"), (std::vector<std::string>{"!", "c"}));
  // The second reference is bad.
  EXPECT_ERROR(decode(decoder, "f19f02" + id_bc + "e0e2" + id_a + "e1e1fff2"),
               error::ovattribute_name_decoder_packageRef_invalid,
               "Invalid index range in package reference.  PackageId: "
               "300333bd-8ebd-1a4b-8af8-c73650bd47d4");
  EXPECT_EQ(decode(decoder, "e1"), (std::vector<std::string>{"c"}));
  EXPECT_EQ(decode(decoder, "f19f00" + id_bc + "e0e2fff2 e1"),
            (std::vector<std::string>{"!", "c"}));
  EXPECT_ERROR(decode(decoder, "e2"), error::ovattribute_name_decoder_unknownIndex,
               "No attribute name package reference for attribute name token 2");
  // A reference inside the stream stays, whatever fails behind it.
  EXPECT_ERROR(decode(decoder, id_a + "e9e1 ea"), error::ovattribute_name_decoder_unknownIndex,
               "No attribute name package reference for attribute name token 10");
  EXPECT_EQ(decode(decoder, "e9"), (std::vector<std::string>{"a"}));
}

TEST(NameCoder, CopiesGoTheirOwnWay) {
  AttributeNameEncoder encoder(all_three());
  encode(encoder, {"e"});
  AttributeNameEncoder copy(encoder);
  EXPECT_EQ(to_hex(encode(encoder, {"b"})), id_bc + "e3e2e3");
  EXPECT_EQ(to_hex(encode(copy, {"a", "b"})), "e0" + id_bc + "e3e2e3");
}

TEST(NameCoder, AReferenceThatWasNotWrittenIsNotActive) {
  for (std::uint64_t n = 0; n < 3; ++n) {
    AttributeNameEncoder encoder(all_three());
    ovserialize::MemoryWriter writer;
    try {
      const ovtest::FailAllocations fail(n);
      encoder.write_attribute_name(writer, "e");
      EXPECT_GT(n, 1u);
    } catch (const std::bad_alloc&) {
      EXPECT_EQ(writer.size(), 0u);
      EXPECT_EQ(to_hex(encode(encoder, {"e"})), id_ace + "e0e3e2");
    }
  }
}

TEST(NameCoder, FunctorsForward) {
  AttributeNameEncoder encoder(all_three());
  const AttributeNameEncoderFunctor write_name(encoder);
  const std::string bytes = bytes_of([&](auto& writer) { write_name(writer, "b"); });
  EXPECT_EQ(to_hex(bytes), id_bc + "e0e2e0");
  AttributeNameDecoder decoder(all_three(), true);
  EXPECT_EQ(read_from(bytes, AttributeNameDecoderFunctor(decoder)), "b");
}

}  // namespace
}  // namespace ovattribute
