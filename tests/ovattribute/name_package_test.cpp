// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "ovattribute/attribute_name_package.h"
#include "ovattribute/error_codes.h"
#include "ovserialize/error_codes.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using Package = AttributeNamePackage;
using PackageSet = AttributeNamePackageSet;
using Names = std::vector<AttributeName>;

Names texts_of(const Package::Ptr& package) {
  return Names(package->begin(), package->end());
}
std::string bytes_of_package(const Package::Ptr& package) {
  return bytes_of([&](auto& writer) { writer << package; });
}
Package::Ptr package_from(std::string_view bytes) {
  return read_from(bytes, [](auto& reader) { return Package::create(reader); });
}
std::string bytes_of_set(const PackageSet::Ptr& set) {
  return bytes_of([&](auto& writer) { writer << set; });
}
PackageSet::Ptr set_from(std::string_view bytes) {
  return read_from(bytes, [](auto& reader) { return PackageSet::create(reader); });
}

// Computed by Python: hashlib.md5 over struct.pack(">Q") of the count, then of each length with the
// name's bytes; then the stamps.
TEST(NamePackage, IdFollowsFromTheNames) {
  Names many;
  for (int i = 299; i >= 0; --i)
    many.emplace_back("n" + std::to_string(i));
  struct Case {
    Names names;
    const char* id;
  };
  for (const Case& c : {Case{{}, "7dea362b-3fac-8e40-956a-4952a3d4f474"},
                        {{""}, "285d5fed-06dc-524e-a04a-13cc9426616b"},
                        {{"a"}, "300333bd-8ebd-1a4b-8af8-c73650bd47d4"},
                        {{"a", AttributeName("B")}, "fae55d72-8f79-e94d-ba2f-773012c97fb6"},
                        {{"a", "B", "ab", "", "\u00fc"}, "a36fa621-eb81-2840-bcad-0759ca33f337"},
                        {many, "a4ada81c-335b-9d44-b255-6e728f23f2d2"},
                        {{std::string(300, 'x')}, "e2510c3a-1d32-6940-b0cf-904e4c5ad608"}}) {
    SCOPED_TRACE(c.id);
    const Names backwards(c.names.rbegin(), c.names.rend());
    Package::Composer composer;
    for (const AttributeName& name : c.names)
      composer.add(name)(name);
    for (const Package::Ptr& package :
         {Package::create(c.names), Package::create(backwards), composer.compose(),
          Package::create(std::set<AttributeName>(c.names.begin(), c.names.end())),
          Package::Composer().add(composer.compose()).compose()}) {
      EXPECT_EQ(package->id().as_string(), c.id);
      EXPECT_EQ(package->size(), c.names.size());
    }
  }
}

TEST(NamePackage, IsSortedByTextAndFindsItsNames) {
  const auto package = Package::create({"b", "a", "ab", "B", ""});
  EXPECT_EQ(texts_of(package), (Names{"", "B", "a", "ab", "b"}));
  EXPECT_EQ(package->at(1), "B");
  for (const AttributeName& name : *package) {
    EXPECT_EQ(package->find(name), &name);
    EXPECT_EQ(package->count(name), 1u);
  }
  EXPECT_EQ(package->find("c"), package->end());
  EXPECT_EQ(package->count("c"), 0u);
  EXPECT_OUT_OF_RANGE(package->at(5), "ovattribute::AttributeNamePackage");
  EXPECT_OUT_OF_RANGE(Package::create(Names())->at(0), "ovattribute::AttributeNamePackage");
}

TEST(NamePackage, RepeatedNamesAreRefused) {
  EXPECT_ERROR(
      Package::create({"a", "x", "b", "x"}), error::ovattribute_name_package_duplicateName,
      "Attempt to add duplicate attribute name (x) to package.",
      {"ovattribute/attribute_name_coder", "ovattribute::AttributeNamePackage::create_aux()", 0});
}

TEST(NamePackage, IsAStructureOfIdAndNames) {
  struct Case {
    Names names;
    const char* bytes;
  };
  for (const Case& c : {Case{{}, "f1 d825507dea362b3fac8e40956a4952a3d4f474 9f00ff f2"},
                        {{"a"}, "f1 d82550300333bd8ebd1a4b8af8c73650bd47d4 f06161 f2"},
                        {{"a", AttributeName("B")},
                         "f1 d82550fae55d728f79e94dba2f773012c97fb6 9f0261426161ff f2"}}) {
    SCOPED_TRACE(c.bytes);
    EXPECT_EQ(to_hex(bytes_of_package(Package::create(c.names))), without_blanks(c.bytes));
    const auto package = package_from(from_hex(c.bytes));
    EXPECT_EQ(package->id(), Package::create(c.names)->id());
    EXPECT_EQ(texts_of(package), texts_of(Package::create(c.names)));
    Package::Ptr read;
    const std::string bytes = from_hex(c.bytes);
    ovserialize::MemoryReader reader(bytes.data(), bytes.size());
    reader >> read;
    EXPECT_EQ(read->id(), package->id());
  }
}

TEST(NamePackage, ReadingChecksOrderThenIdThenRepeats) {
  const char* const function = "ovattribute::AttributeNamePackage::create()";
  // Names "a", "B".
  EXPECT_ERROR(
      package_from(from_hex("f1 d82550fae55d728f79e94dba2f773012c97fb6 9f0261616142ff f2")),
      error::ovattribute_name_package_serialization,
      "Names in deserialized package (id: fae55d72-8f79-e94d-ba2f-773012c97fb6) are not "
      "sorted",
      {"ovattribute/attribute_name_coder", function, 123});
  // Name "b" under the id of "a".
  EXPECT_ERROR(package_from(from_hex("f1 d82550300333bd8ebd1a4b8af8c73650bd47d4 f06162 f2")),
               error::ovattribute_name_package_serialization,
               "Mismatch of deserialized package identifier (300333bd-8ebd-1a4b-8af8-c73650bd47d4) "
               "and computed ID (" +
                   Package::create({"b"})->id().as_string() + ")",
               {"ovattribute/attribute_name_coder", function, 131});
  // Names "a", "a" with the id that belongs to them (computed by Python).
  EXPECT_ERROR(
      package_from(from_hex("f1 d82550bac65dd4a4daf5469b7b3693319d2fc4 9f0261616161ff f2")),
      error::ovattribute_name_package_duplicateName,
      "Attempt to add duplicate attribute name (a) to package.",
      {"ovattribute/attribute_name_coder", function, 143});
}

class NamePackageSet : public ::testing::Test {
 protected:
  // In the order of their ids: one, three, two.
  const Package::Ptr m_one = Package::create({"a"});
  const Package::Ptr m_two = Package::create({"a", "c", "e"});
  const Package::Ptr m_three = Package::create({"b", "c"});
  const PackageSet::Ptr m_set =
      PackageSet::Composer(m_three).add(m_one).add(m_two).add(m_one).compose();

  static std::vector<std::string> ids_of(const PackageSet::Ptr& set) {
    std::vector<std::string> ids;
    for (const Package::Ptr& package : *set)
      ids.push_back(package->id().as_string());
    return ids;
  }
};

TEST_F(NamePackageSet, IsOrderedByIdWithoutRepeats) {
  const auto ids = ids_of(m_set);
  EXPECT_EQ(ids.size(), 3u);
  EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
  EXPECT_EQ(ids_of(m_set->create_union(m_set)), ids);
  EXPECT_EQ(ids_of(m_set->create_union(m_one)), ids);
  EXPECT_EQ(ids_of(PackageSet::create()->create_union(m_set)), ids);
  EXPECT_EQ(ids_of(PackageSet::create(m_two)->create_union(m_one)->create_union(m_three)), ids);
  EXPECT_EQ(ids_of(PackageSet::Composer(m_set).add(m_set).compose()), ids);
  EXPECT_TRUE(PackageSet::create()->empty());
}

TEST_F(NamePackageSet, FindsPackagesByIdAndName) {
  for (const Package::Ptr& package : *m_set)
    EXPECT_EQ(m_set->find(package->id()), &package);
  EXPECT_EQ(m_set->find(ovcore::Uuid()), m_set->end());
  EXPECT_EQ(m_set->find(Package::create({"z"})->id()), m_set->end());
  for (const char* name : {"a", "b", "c", "e", "z"}) {
    SCOPED_TRACE(name);
    const auto* first = std::find_if(m_set->begin(), m_set->end(),
                                     [&](const auto& package) { return package->count(name); });
    EXPECT_EQ(m_set->find(AttributeName(name)), first);
  }
}

TEST_F(NamePackageSet, TellsWhichNamesAreInSeveralPackages) {
  std::set<AttributeName> names{"was here before"};
  EXPECT_TRUE(m_set->check_duplicate_names(&names));
  EXPECT_EQ(names, (std::set<AttributeName>{"a", "c"}));
  EXPECT_TRUE(m_set->check_duplicate_names(nullptr));
  EXPECT_FALSE(PackageSet::create(m_two)->check_duplicate_names(&names));
  EXPECT_TRUE(names.empty());
}

TEST_F(NamePackageSet, IsAStructureOfPackages) {
  EXPECT_EQ(to_hex(bytes_of_set(PackageSet::create())), "f19f00fff2");
  EXPECT_EQ(bytes_of_set(PackageSet::create(m_one)), "\xf1\xf0" + bytes_of_package(m_one) + "\xf2");
  const std::string bytes = bytes_of_set(m_set);
  EXPECT_EQ(bytes, "\xf1\x9f\x03" + bytes_of_package(m_set->begin()[0]) +
                       bytes_of_package(m_set->begin()[1]) + bytes_of_package(m_set->begin()[2]) +
                       "\xff\xf2");
  EXPECT_EQ(ids_of(set_from(bytes)), ids_of(m_set));
  // In any order, and whatever the count says.
  const std::string other = "\xf1\x9f\x1b\xff\xff\xff\xff\xff\xff\xff\xff" +
                            bytes_of_package(m_set->begin()[2]) +
                            bytes_of_package(m_set->begin()[1]) + "\xff\xf2";
  EXPECT_EQ(set_from(other)->size(), 2u);
  EXPECT_EQ(
      read_from(other, [&](auto& r) { return PackageSet::create(m_one)->create_union(r); })->size(),
      3u);
}

TEST_F(NamePackageSet, FailuresLeaveNothingBehind) {
  const std::string bytes = bytes_of_set(m_set);
  for (std::size_t size = 0; size < bytes.size(); ++size) {
    PackageSet::Ptr target = PackageSet::create(m_one);
    const auto* const before = target.get();
    ovserialize::MemoryReader reader(bytes.data(), size);
    const auto info = ovtest::error_of([&] { reader >> target; });
    ASSERT_TRUE(info);
    EXPECT_EQ(info->code(), ovserialize::error::ovserialize_reader_truncated);
    EXPECT_EQ(target.get(), before);
  }
}

}  // namespace
}  // namespace ovattribute
