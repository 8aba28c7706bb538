// SPDX-License-Identifier: Apache-2.0
// Order, equality and hash of values.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value.h"
#include "ovattribute/binary_value.h"
#include "ovattribute/secured_value.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/ovattribute/typed_samples.h"

namespace ovattribute {
namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

int sign(int order) {
  return (order > 0) - (order < 0);
}

/// Every relation of two values of which the first sorts before, like or behind the second.
void expect_order(const AttributeValue& a, const AttributeValue& b, int order) {
  EXPECT_EQ(sign(a.compare(b)), order);
  EXPECT_EQ(a < b, order < 0);
  EXPECT_EQ(a <= b, order <= 0);
  EXPECT_EQ(a > b, order > 0);
  EXPECT_EQ(a >= b, order >= 0);
}

void expect_ascending(const std::vector<AttributeValue>& values) {
  for (const AttributeValue& a : values) {
    for (const AttributeValue& b : values) {
      const AttributeValue copy = b.subrange(0);
      SCOPED_TRACE(testing::Message() << a << b);
      expect_order(a, copy, (&a > &b) - (&a < &b));
      EXPECT_EQ(a == copy, &a == &b);
      EXPECT_EQ(a != copy, &a != &b);
    }
  }
}

TEST(ValueOrder, IsThatOfTheElementsOneByOne) {
  for (const ElementType& type : element_types()) {
    const Elements elements = type.samples();
    std::vector<AttributeValue> values{AttributeValue(*type.type)};
    for (const AttributeValue& a : elements) {
      values.push_back(a);
      for (const AttributeValue& b : elements)
        values.push_back(type.list({a, b}));
    }
    expect_ascending(values);
    // A list of one is no different from a scalar, nor an element that was made anew.
    for (std::size_t i = 0; i < elements.size(); ++i) {
      const AttributeValue one = type.list({type.samples()[i]});
      expect_order(elements[i], one, 0);
      EXPECT_EQ(elements[i], one);
      EXPECT_EQ(elements[i].hash(), one.hash());
    }
  }
}

TEST(ValueOrder, HashesAreOfTheElements) {
  for (const ElementType& type : element_types()) {
    std::size_t expected = 0;
    for (const AttributeValue& element : type.samples()) {
      EXPECT_EQ(element.hash(), type.element_hash(element));
      expected = expected * 5 + type.element_hash(element);
    }
    EXPECT_EQ(type.list(type.samples()).hash(), expected) << *type.type;
    EXPECT_EQ(AttributeValue(*type.type).hash(), 0u);
  }
}

TEST(ValueOrder, PutsTypesFirst) {
  std::vector<AttributeValue> values = one_of_each_type();
  std::vector<AttributeValue> empty;
  for (const AttributeValue& value : values)
    empty.emplace_back(value.type());
  for (int i = 0; i < 15; ++i) {
    for (int j = 0; j < 15; ++j) {
      if (i == j) continue;
      EXPECT_EQ(values[i].compare(values[j]), i - j);
      EXPECT_EQ(values[i].compare(empty[j]), i - j);
      EXPECT_EQ(empty[i].compare(values[j]), i - j);
      EXPECT_NE(values[i], values[j]);
      EXPECT_NE(empty[i], empty[j]);
    }
  }
}

TEST(ValueOrder, SaysByHowMuch) {
  struct Case {
    AttributeValue a;
    AttributeValue b;
    int order;
  };
  const AttributeValue none(ValueTypeId::typeInteger);
  for (const Case& c :
       {Case{5, "a", -1}, Case{false, true, -1}, Case{true, false, 1}, Case{-100, 100, -1},
        Case{100, -100, 1}, Case{none, 7, -1}, Case{7, none, 1}, Case{{1, 2}, {1, 2, 3}, -1},
        Case{{1, 2}, {1, 1, 9}, 1}, Case{-1.5, 100.0, -1}, Case{{1.0, 2.0}, {1.0}, 1},
        Case{"a", {"a", "b"}, -1}}) {
    EXPECT_EQ(c.a.compare(c.b), c.order) << c.a << c.b;
  }
}

TEST(ValueOrder, OfNotANumberAndZero) {
  struct Case {
    AttributeValue a;
    AttributeValue b;
    int order;
    bool equal;
  };
  for (const Case& c :
       {Case{nan, nan, 0, false}, Case{nan, 1.0, 0, false}, Case{1.0, nan, 0, false},
        Case{{nan, 1.0}, {nan, 2.0}, -1, false}, Case{{1.0, nan}, {1.0}, 1, false},
        Case{0.0, -0.0, 0, true}, Case{{-0.0, 1.0}, {0.0, 1.0}, 0, true}}) {
    EXPECT_EQ(c.a.compare(c.b), c.order) << c.a << c.b;
    EXPECT_EQ(c.a == c.b, c.equal) << c.a << c.b;
  }
  const AttributeValue lists{nan, 1.0};
  const AttributeValue shared = lists;
  EXPECT_EQ(lists.compare(shared), 0);
  EXPECT_FALSE(lists == shared);
  EXPECT_FALSE(lists == lists);
  EXPECT_NE(AttributeValue(0.0).hash(), AttributeValue(-0.0).hash());
  // The hash of containers must agree with ==.
  EXPECT_EQ(std::hash<AttributeValue>()(0.0), std::hash<AttributeValue>()(-0.0));
}

TEST(ValueOrder, HashesAreNumbersThatDoNotChange) {
  struct Case {
    AttributeValue value;
    std::uint64_t hash;
  };
  using namespace std::literals;
  constexpr unsigned char bytes[] = {1, 2, 0xff};
  const BinaryValue small(bytes, 2);
  // Computed with Python's integers and its struct module.
  const Case cases[] = {
      {AttributeValue(), 0},
      {false, 0},
      {true, 1},
      {{true, false, true}, 26},
      {0, 0},
      {1, 1},
      {-1, 0},
      {-2, 1},
      {8, 8},
      {1LL << 32, 4294967297},
      {-(1LL << 32), 4294967295},
      {std::numeric_limits<long long>::max(), 9223372034707292160},
      {std::numeric_limits<long long>::min(), 9223372034707292160},
      {0x0123456789abcdef, 81985529197398152},
      {{1, 2, 3}, 38},
      {AttributeValue::list_of(std::vector<long long>(3, std::numeric_limits<long long>::max())),
       9223371970282782720},
      {"", 0},
      {"a", 97},
      {"ab", 583},
      {"\xff", 4294967295},
      {"\x80\x61", 4294966753},
      {"\0"sv, 0},
      {"attribute", 49203356},
      {std::string(40, 'x'), 533381440},
      {{"a", "b"}, 583},
      {{"\xff", "\xff"}, 25769803770},
      {0.0, 0},
      {-0.0, 9223372036854775808u},
      {1.0, 4607182418800017408},
      {-1.5, 13832806255468478464u},
      {std::numeric_limits<double>::infinity(), 9218868437227405312},
      {{1.0, 2.0}, 9200854038717923328},
      {small, 7},
      {{small, BinaryValue(bytes + 2, 1)}, 290}};
  for (const Case& c : cases)
    EXPECT_EQ(c.value.hash(), c.hash) << c.value;
}

TEST(ValueOrder, HashesForContainersAgreeWithEquality) {
  const std::vector<AttributeValue> values = sample_values();
  for (const AttributeValue& a : values) {
    for (const AttributeValue& b : values) {
      if (a == b) {
        EXPECT_EQ(std::hash<AttributeValue>()(a), std::hash<AttributeValue>()(b)) << a;
      }
    }
  }
}

std::size_t container_hash(const AttributeValue& value) {
  return std::hash<AttributeValue>()(value);
}

TEST(ValueOrder, HashesForContainersTellValuesApart) {
  std::size_t values = 1;
  std::set<std::size_t> hashes{container_hash(AttributeValue())};
  for (const ElementType& type : element_types()) {
    const Elements samples = type.samples();
    const std::size_t base = std::min<std::size_t>(samples.size(), 8) + 1;
    for (std::size_t n = 0; n < base * base * base; ++n) {
      Elements list;  // of up to three
      for (std::size_t digits = n; digits > 0; digits /= base)
        if (digits % base > 0) list.push_back(samples[digits % base - 1]);
      if (n > 0 && n % base == 0) continue;  // the same list without a gap comes, too
      if (n >= base * base && n / base % base == 0) continue;
      ++values;
      hashes.insert(container_hash(type.list(list)));
    }
    EXPECT_EQ(hashes.size(), values) << *type.type;
  }
}

// What differs where the prescribed hash does not look, or by what its sums give away.
TEST(ValueOrder, HashesForContainersTellNeighboursApart) {
  const auto bytes = [](int x, int y) {
    const unsigned char both[] = {static_cast<unsigned char>(x), static_cast<unsigned char>(y)};
    return ovserialize::MemoryList::create_copy(both, 2);
  };
  const auto binary = [](unsigned char x, unsigned char y) {
    const unsigned char both[] = {x, y};
    return AttributeValue(BinaryValue(both, 2));
  };
  const auto secured = [&](int x, int y) {
    ovserialize::MemoryWriter writer;
    writer.begin_structure();
    writer << "annotation"
           << "EAX_AES128";
    SecuredValue::KeyId().write(writer);
    writer.write_memory_list_as_binary(bytes(x, y));
    writer.end_structure();
    ovserialize::MemoryReader reader(writer.memory_list());
    return AttributeValue(SecuredValue(reader));
  };
  const auto map = [](const AttributeValue& x, const AttributeValue& y) {
    return AttributeValue(AttributeMap{{"x", x}, {"y", y}});
  };
  const std::pair<AttributeValue, AttributeValue> pairs[] = {
      {17, -18},
      {{1, 0}, {0, 5}},
      {{0, 0}, {0, 0, 0}},
      {std::string("\1\1"), std::string("\0\6", 2)},
      {binary(1, 0), binary(0, 5)},
      {secured(1, 2), secured(1, 3)},
      {map(map(1, 0), 0), map(map(0, 5), 0)},
      {map(17, 17), map(-18, -18)},
      {AttributeValue(), false},
      {0, 0.0}};
  for (const auto& [a, b] : pairs)
    EXPECT_NE(container_hash(a), container_hash(b)) << a << b;
}

TEST(ValueOrder, OfTextMayLookPastLetterCase) {
  struct Case {
    AttributeValue a;
    AttributeValue b;
    int order;
  };
  for (const Case& c :
       {Case{"ABC", "abc", 0}, Case{"abC", "ABd", -1}, Case{"B", "a", 1}, Case{"a", "AB", -1},
        Case{"AB", "a", 1}, Case{"[", "A", -1},  // lies between the upper and the lower letters
        Case{"@", "`", -1}, Case{"{", "[", 1},
        Case{"\xc4", "\xe4", -1},  // letters beyond ASCII have no case
        Case{"\x7f", "\x80", -1}, Case{{"A", "b"}, {"a", "B"}, 0}, Case{{"A", "b"}, {"a", "C"}, -1},
        Case{{"A"}, {"a", ""}, -1}, Case{{"a", ""}, {"A"}, 1}, Case{1, "a", -1}, Case{"a", 1, 1},
        Case{3, 2, 1}, Case{nan, nan, 0}, Case{AttributeValue(), AttributeValue(), 0}}) {
    EXPECT_EQ(sign(c.a.compare_nocase_ascii(c.b)), c.order) << c.a << c.b;
  }
  const std::vector<AttributeValue> values = one_of_each_type();
  for (const AttributeValue& a : values) {
    for (const AttributeValue& b : values)
      EXPECT_EQ(a.compare_nocase_ascii(b), a.compare(b));
  }
}

}  // namespace
}  // namespace ovattribute
