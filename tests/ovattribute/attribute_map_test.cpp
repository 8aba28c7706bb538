// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/error_codes.h"
#include "ovattribute/nesting.h"
#include "tests/ovattribute/map_testing.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/support/error_matcher.h"

namespace ovattribute {
namespace {

using Type = ValueTypeId;
using Pair = AttributeMapBase::value_type;

TEST(AttributeMap, AnswersForPresentAndAbsentNames) {
  for (const std::size_t size : {0, 1, 2, 7, 8, 9, 50}) {
    SCOPED_TRACE(size);
    MutableAttributeMap built;
    for (std::size_t i = size; i-- > 0;)
      built.add(name(2 * i), i);
    const AttributeMap map = built;
    EXPECT_EQ(map.size(), size);
    EXPECT_EQ(map.empty(), size == 0);
    for (std::size_t i = 0; i < 100; ++i) {
      const AttributeName& n = name(i);
      const bool present = i % 2 == 0 && i / 2 < size;
      EXPECT_EQ(map.count(n), present ? 1u : 0u);
      EXPECT_EQ(map.exists(n), present);
      const auto below = std::find_if(map.begin(), map.end(),
                                      [&](const Pair& entry) { return !(entry.first < n); });
      EXPECT_EQ(map.lower_bound(n), below);
      EXPECT_EQ(map.upper_bound(n), present ? std::next(below) : below);
      EXPECT_EQ(map.find(n), present ? below : map.end());
      if (present) {
        EXPECT_EQ(map.query(n).get<long long>(), static_cast<long long>(i / 2));
        EXPECT_EQ(map.query_ptr(n), &below->second);
        EXPECT_EQ(&map.query(n), &below->second);
      } else {
        EXPECT_EQ(&map.query(n), &AttributeValue::null);
        EXPECT_EQ(map.query_ptr(n), nullptr);
      }
    }
  }
}

TEST(AttributeMap, KeepsTheLastOfEqualNamesInAList) {
  const AttributeMap map{{"a", 1}, {"b", "x"}, {"a", 2.5}};
  EXPECT_EQ(entries_of(map), (Entries{{"a", 2.5}, {"b", "x"}}));
  EXPECT_EQ(entries_of(MutableAttributeMap{{"", {}}, {"", 1}}), (Entries{{"", 1}}));
}

// ------------------------------------------------------------------------------------- merging --

TEST(AttributeMap, MergesMapsThatInterleaveInEveryWay) {
  for (unsigned pattern = 0; pattern < 6561; pattern += 7) {  // 3^8: in a, in b, in both
    Entries a, b, merged, added;
    for (unsigned i = 0, digits = pattern; i < 8; ++i, digits /= 3) {
      const std::string& text = name(i * 11 % 8).value();
      // Null is a value like others.
      if (digits % 3 != 1) a[text] = added[text] = merged[text] = i < 2 ? AttributeValue() : "a";
      if (digits % 3 != 0) b[text] = added[text] = "b";
      if (digits % 3 == 1) merged[text] = "b";
    }
    const AttributeMap result = map_of(a).merged_with(map_of(b));
    ASSERT_EQ(entries_of(result), merged) << pattern;
    ASSERT_EQ(result, map_of(merged)) << "in order, " << pattern;
    ASSERT_EQ(map_of(a).add(map_of(b)), map_of(added)) << pattern;
    MutableAttributeMap shared = map_of(a);
    const AttributeMap old = shared;
    ASSERT_EQ(shared.add(map_of(b)), map_of(added)) << pattern;
    ASSERT_EQ(old, map_of(a)) << pattern;
  }
}

// ---------------------------------------------------------------------------------- comparison --

TEST(AttributeMap, IsOrderedEntryByEntry) {
  std::vector<AttributeName> n{"first", "second", "third"};
  std::sort(n.begin(), n.end());
  const AttributeMap ascending[] = {
      {},
      {{n[0], {}}},
      {{n[0], {}}, {n[1], 5}},
      {{n[0], {}}, {n[1], 5}, {n[2], {}}},
      {{n[0], {}}, {n[1], "5"}},
      {{n[0], {}}, {n[2], -1}},
      {{n[0], 1}},
      {{n[0], 1}, {n[1], AttributeMap{{n[0], 1}}}},
      {{n[0], 1}, {n[1], AttributeMap{{n[0], 2}}}},
      {{n[0], 2}},
      {{n[1], -7}},
      {{n[1], -7}, {n[2], {}}},
  };
  for (const AttributeMap& a : ascending) {
    for (const AttributeMap& same : ascending) {
      const MutableAttributeMap b = map_of(entries_of(same));  // in a holder of its own
      SCOPED_TRACE(testing::PrintToString(a) + ", " + testing::PrintToString(b));
      const int order = &a < &same ? -1 : int{&a > &same};
      EXPECT_EQ(a.compare(b), order);
      EXPECT_EQ(AttributeValue(a).compare(AttributeValue(b)), order);
      EXPECT_EQ(a == b, order == 0);
      EXPECT_EQ(a != b, order != 0);
      EXPECT_EQ(a < b, order < 0);
      EXPECT_EQ(a <= b, order <= 0);
      EXPECT_EQ(a > b, order > 0);
      EXPECT_EQ(a >= b, order >= 0);
      if (order == 0) {
        EXPECT_EQ(a.hash(), b.hash());
        EXPECT_EQ(std::hash<AttributeMap>()(a), std::hash<MutableAttributeMap>()(b));
      }
    }
  }
}

TEST(AttributeMap, MapsWithOneHolderAreEqualWithoutALook) {
  const AttributeMap nan{{"x", std::nan("")}};
  const AttributeMap copy = nan;
  EXPECT_EQ(nan, copy);
  const AttributeMap other{{"x", std::nan("")}};
  EXPECT_NE(nan, other) << "a NaN equals nothing";
  EXPECT_EQ(nan.compare(other), 0) << "and is ordered as equal";
  const AttributeMap deep = maps_within_maps(2000);
  EXPECT_EQ(deep, AttributeMap(deep));
  EXPECT_EQ(deep.compare(AttributeMap(deep)), 0);
}

// -------------------------------------------------------------------------------- typed checks --

TEST(AttributeMap, ChecksRaiseWhatAccessorsPromise) {
  const AttributeValue one(1);
  const AttributeValue two{1, 2};
  const auto list_of_one = AttributeValue::list_of(std::vector<long long>{7});
  const AttributeValue none(Type::typeInteger);
  const AttributeName n("the name");
  const auto check = [](auto&& raise, const ovcore::ErrorCode& code, const char* message,
                        const std::vector<ovcore::ErrorInfo::Parameter>& parameters,
                        const char* function, std::uint32_t line) {
    const auto info = ovtest::error_of(raise);
    ovtest::expect_error(info, code, message, {"ovattribute/attribute_map", function, line});
    if (info) {
      EXPECT_EQ(info->parameters(), parameters);
      EXPECT_EQ(info->cause(), nullptr);
    }
  };
  const std::vector<ovcore::ErrorInfo::Parameter> types{
      {"name", "the name"}, {"expectedType", "UUID"}, {"actualType", "Integer"}};

  for (const AttributeValue& value : {one, two, list_of_one, none}) {
    Checks::check_attribute_of_type(n, value, Type::typeInteger);
    Checks::check_default_of_type(n, value, Type::typeInteger);
    check([&] { Checks::check_attribute_of_type(n, value, Type::typeUuid); },
          error::ovattribute_value_type_mismatch,
          "Attribute 'the name': Expecting value of type 'UUID'; actual type 'Integer'", types,
          "ovattribute::AttributeMapBase::check_attribute_of_type()", 235);
    check([&] { Checks::check_default_of_type(n, value, Type::typeUuid); },
          error::ovattribute_value_type_mismatch,
          "Expecting default value of type 'UUID' for attribute 'the name'; "
          "actual default value type: 'Integer'",
          types, "ovattribute::AttributeMapBase::check_default_of_type()", 251);
    // The type comes first, whatever the number of elements.
    check([&] { Checks::check_scalar_of_type(n, value, Type::typeUuid); },
          error::ovattribute_value_type_mismatch,
          "Attribute 'the name': Expecting value of type 'UUID'; actual type 'Integer'", types,
          "ovattribute::AttributeMapBase::check_scalar_of_type()", 212);
  }
  Checks::check_scalar_of_type(n, one, Type::typeInteger);
  Checks::check_scalar_of_type(n, list_of_one, Type::typeInteger);
  const std::pair<AttributeValue, const char*> no_scalars[] = {
      {none, "0"}, {two, "2"}, {AttributeValue::list_of(std::vector<int>(1234)), "1234"}};
  for (const auto& [value, size] : no_scalars) {
    check([v = &value, &n] { Checks::check_scalar_of_type(n, *v, Type::typeInteger); },
          error::ovattribute_value_cardinality_expectSingle,
          (std::string("Attribute 'the name': Expecting scalar, found value with cardinality ") +
           size)
              .c_str(),
          {{"name", "the name"}, {"cardinality", size}},
          "ovattribute::AttributeMapBase::check_scalar_of_type()", 219);
  }
  check([&] { Checks::throw_attribute_not_found(n); }, error::ovattribute_map_attributeNotFound,
        "Attribute 'the name' not found in map", {{"name", "the name"}},
        "ovattribute::AttributeMapBase::throw_attribute_not_found()", 263);
}

// --------------------------------------------------------------------------------- deep nesting --

AttributeMap lists_of_maps(std::size_t depth) {
  AttributeMap map;
  for (std::size_t i = 1; i < depth; ++i) {
    AttributeMap other{{"other", i}};
    map = AttributeMap{{"m", AttributeValue{std::move(map), std::move(other)}}};
  }
  return map;
}

TEST(AttributeMapNesting, HasNoLimitForBuildingCopyingAndDestroying) {
  for (const auto& build : {maps_within_maps, lists_of_maps}) {
    MutableAttributeMap map = build(100'000);
    const AttributeMap copy = map;
    map.begin()->second.append(AttributeMap());  // copies one level
    map.add("deep", build(100'000)).add("deep", 1);
    map.add("deep", build(100'000)).erase("deep");
    AttributeMap lent = build(100'000);
    WritableAttributeMapRef(lent).clear();
    EXPECT_TRUE(lent.empty());
    std::size_t depth = 1;
    const AttributeMapBase* level = &copy;
    for (; !level->empty(); ++depth)
      level = &level->query("m").elements<AttributeMap>()[0];
    EXPECT_EQ(depth, 100'000u);
  }
}

TEST(AttributeMapNesting, IsLimitedForWhateverLooksInside) {
  const auto refused = [](auto&& operation) {
    EXPECT_ERROR(operation(), error::ovattribute_invalidParameter,
                 "Attribute values are nested deeper than 512 maps");
  };
  for (const auto& build : {maps_within_maps, lists_of_maps}) {
    for (const std::size_t depth : {514, 100'000}) {
      const AttributeMap a = build(depth);
      const AttributeMap b = build(depth);
      refused([&] { return a == b; });
      refused([&] { return a < b; });
      refused([&] { return a.compare(b); });
      refused([&] { return Attribute("x", a) == Attribute("x", b); });
      refused([&] { return AttributeValue(a).compare(AttributeValue(b)); });
      refused([&] { return a.hash(); });
      refused([&] { return std::hash<AttributeMap>()(a); });
      refused([&] { return std::hash<AttributeValue>()(AttributeValue(a)); });
      std::ostringstream out;
      refused([&] { out << a; });
      refused([&] { a.write_trace(out, "", ""); });
    }
    // What was refused leaves no trace: the limit itself is still reached.
    const AttributeMap a = build(512);
    const AttributeMap b = build(512);
    EXPECT_EQ(a, b);
    EXPECT_EQ(a.compare(b), 0);
    EXPECT_EQ(a.hash(), b.hash());
    std::ostringstream out;
    out << a;
    EXPECT_GT(out.str().size(), 512u * 512u) << "indented";
  }
}

}  // namespace
}  // namespace ovattribute
