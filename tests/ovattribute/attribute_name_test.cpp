// SPDX-License-Identifier: Apache-2.0
#include "ovattribute/attribute_name.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/attribute.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/support/allocations.h"

namespace ovattribute {
namespace {

using ovcore::StaticInstance;
using ovcore::StringKey;

template <class T>
std::string printed(const T& value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

template <class A, class B>
void expect_comparison(const A& a, const B& b, int order) {
  EXPECT_EQ(a == b, order == 0);
  EXPECT_EQ(a != b, order != 0);
  EXPECT_EQ(a < b, order < 0);
  EXPECT_EQ(a <= b, order <= 0);
  EXPECT_EQ(a > b, order > 0);
  EXPECT_EQ(a >= b, order >= 0);
}

TEST(AttributeName, IsItsTextHoweverItWasMade) {
  const StaticInstance<AttributeName> instance("static");
  const StaticInstance<const AttributeName> const_instance("static");
  AttributeName assigned("other");
  assigned = instance;
  AttributeName assigned_const("other");
  assigned_const = const_instance;
  AttributeName source("moved");
  AttributeName transferred_source("moved");
  const struct {
    AttributeName name;
    std::string text;
  } cases[] = {
      {{}, ""},
      {"", ""},
      {AttributeName("abc", 0), ""},
      {StringKey(), ""},
      {"abc", "abc"},
      {AttributeName("abc", 2), "ab"},
      {AttributeName("a\0b", 3), std::string("a\0b", 3)},
      {std::string("a\0b", 3), std::string("a\0b", 3)},
      {std::string_view("view").substr(1), "iew"},
      {StringKey("key"), "key"},
      {"\xff not UTF-8", "\xff not UTF-8"},
      {instance, "static"},
      {const_instance, "static"},
      {assigned, "static"},
      {assigned_const, "static"},
      {std::move(source), "moved"},
      {transferred_source.transfer(), "moved"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(c.name.value(), c.text);
    EXPECT_EQ(std::string(c.name.data(), c.name.size()), c.text);
    EXPECT_EQ(c.name.empty(), c.text.empty());
    EXPECT_EQ(printed(c.name), c.text);
    const StringKey key(c.text);
    EXPECT_EQ(c.name.key(), key);
    EXPECT_EQ(c.name.key().key_value(), key.key_value());
    EXPECT_EQ(c.name.hash(), key.hash());
    EXPECT_EQ(std::hash<AttributeName>()(c.name), key.hash());
    AttributeName other(c.text);
    EXPECT_EQ(other.data(), c.name.data()) << "one token a text";
    expect_comparison(other, c.name, 0);
    other.clear();
    expect_comparison(other, AttributeName(), 0);
  }
  EXPECT_NE(AttributeName("abc"), AttributeName("Abc")) << "texts are compared byte by byte";
}

TEST(AttributeName, IsOrderedByTokenAsAnUnsignedWord) {
  std::vector<AttributeName> names{"", "delta", "alpha", "charlie", "bravo", "echo", "alpha"};
  for (const AttributeName& a : names) {
    const StaticInstance<AttributeName> static_a(a);
    const StaticInstance<const AttributeName> const_a(a);
    for (const AttributeName& b : names) {
      SCOPED_TRACE(a.value() + ", " + b.value());
      const auto word_a = a.key().key_value();
      const auto word_b = b.key().key_value();
      const int order = word_a < word_b ? -1 : int{word_a > word_b};
      EXPECT_EQ(order == 0, a.value() == b.value());
      expect_comparison(a, b, order);
      expect_comparison(static_a, b, order);
      expect_comparison(b, static_a, -order);
      expect_comparison(const_a, b, order);
      expect_comparison(b, const_a, -order);
    }
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names[0], "") << "the empty name has the token 0";
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end(), [](const auto& a, const auto& b) {
    return a.key().key_value() < b.key().key_value();
  }));
}

TEST(AttributeName, SharesOneTokenWhileAnyNameHoldsIt) {
  const std::size_t before = StringKey::interned_count();
  {
    AttributeName first("held by names of this test only");
    EXPECT_EQ(StringKey::interned_count(), before + 1);
    AttributeName second("held");
    const auto word = first.key().key_value();
    EXPECT_EQ(ovtest::allocations_of([&] {
                AttributeName copy = first;
                AttributeName moved = std::move(first);
                AttributeName transferred = moved.transfer();
                swap(transferred, second);
                copy.clear();
              }),
              0u);
    EXPECT_EQ(second.key().key_value(), word) << "the token lives on in the name it was swapped to";
    EXPECT_EQ(StringKey::interned_count(), before + 1) << "the other one is gone";
    second.clear();
    EXPECT_EQ(StringKey::interned_count(), before);
  }
}

TEST(Attribute, IsANameAndAValue) {
  const Attribute none;
  EXPECT_TRUE(none.name().empty());
  EXPECT_TRUE(none.value().is_null());

  Attribute a("a", 17);
  Attribute b("b", AttributeValue{"x", "y"});
  swap(a, b);
  EXPECT_EQ(a, Attribute("b", AttributeValue{"x", "y"}));
  Attribute copy = a;
  Attribute moved = std::move(a);
  EXPECT_EQ(copy, moved);
  copy = b;
  EXPECT_EQ(copy, Attribute("a", 17));
  copy = std::move(moved);
  EXPECT_EQ(copy.value().at<std::string>(1), "y");
}

TEST(Attribute, IsOrderedByNameThenByValue) {
  const AttributeName low = std::min(AttributeName("one"), AttributeName("another"));
  const AttributeName high = std::max(AttributeName("one"), AttributeName("another"));
  // Types come before elements, a prefix before the longer list.
  const Attribute ascending[] = {{"", 9},
                                 {low, {}},
                                 {low, true},
                                 {low, -5},
                                 {low, 3},
                                 {low, AttributeValue{3, 0}},
                                 {low, AttributeValue("")},
                                 {low, 0.5},
                                 {high, {}},
                                 {high, 2}};
  for (const Attribute& a : ascending) {
    for (const Attribute& b : ascending) {
      SCOPED_TRACE(printed(a) + ", " + printed(b));
      expect_comparison(a, b, &a < &b ? -1 : int{&a > &b});
    }
  }
  // These two would raise an error if they were compared.
  const AttributeValue deep_a(maps_within_maps(1000));
  const AttributeValue deep_b(maps_within_maps(1000));
  expect_comparison(Attribute(low, deep_a), Attribute(high, deep_b), -1);
}

TEST(Attribute, HashIsThatOfTheNameXorThatOfTheValue) {
  for (const AttributeValue& value : sample_values()) {
    EXPECT_EQ(Attribute().hash(), 0u);
    EXPECT_EQ(Attribute("n", value).hash(), StringKey("n").hash() ^ value.hash());
  }
  EXPECT_EQ(Attribute("", AttributeValue{2, 3}).hash(), 2u * 5 + 3);
}

TEST(Attribute, PrintsNameAndValue) {
  EXPECT_EQ(printed(Attribute()), "'' => [Null]");
  EXPECT_EQ(printed(Attribute("it's", AttributeValue{1, 2})), "'it's' => [Integer: {1, 2}]");
  EXPECT_EQ(printed(Attribute("m", AttributeMap{{"n", "x"}})),
            "'m' => [AttributeMap: \n  {\n   'n' => [String: {\"x\"}]\n  }]");
}

}  // namespace
}  // namespace ovattribute
