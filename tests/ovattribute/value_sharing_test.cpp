// SPDX-License-Identifier: Apache-2.0
// What handles share, what they copy, and that no change of one is seen through another.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_value.h"
#include "ovcore/uuid.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/ovattribute/typed_samples.h"
#include "tests/support/allocations.h"

namespace ovattribute {
namespace {

using ovtest::allocations_of;

template <class T>
const T* address(const AttributeValue& value) {
  return value.elements<T>().data();
}

TEST(ValueSharing, ListsAndTextAreSharedAndSmallScalarsCopied) {
  for (const ElementType& type : element_types()) {
    SCOPED_TRACE(*type.type);
    const Elements elements = type.samples();
    const AttributeValue& scalar = elements.back();
    const ValueTypeId::EId id = type.type->id();
    const bool shares = id == ValueTypeId::idString || id == ValueTypeId::idBinary ||
                        id == ValueTypeId::idSerialized || id == ValueTypeId::idSecured ||
                        id == ValueTypeId::idBoolean;  // whose scalars are constants
    const std::uint64_t for_copy = allocations_of([&] {
      const AttributeValue copy = scalar;
      EXPECT_EQ(type.address(copy) == type.address(scalar), shares);
    });
    EXPECT_EQ(for_copy, shares ? 0u : 1u);

    for (const AttributeValue& list : {type.list(elements), type.list({scalar})}) {
      const std::uint64_t for_list = allocations_of([&] {
        AttributeValue copy = list;
        EXPECT_EQ(type.address(copy), type.address(list));
        AttributeValue moved = std::move(copy);
        EXPECT_EQ(type.address(moved), type.address(list));
        EXPECT_TRUE(copy.is_null());
        copy = moved;
        EXPECT_EQ(type.address(copy), type.address(list));
        const AttributeValue from_source(copy.transfer());
        EXPECT_TRUE(copy.is_null());
        EXPECT_EQ(type.address(from_source.subrange(0)), type.address(list));
        EXPECT_EQ(type.address(from_source.subrange(0, list.size())), type.address(list));
      });
      EXPECT_EQ(for_list, 0u);
    }
    const AttributeValue first(*type.type);
    EXPECT_EQ(allocations_of([&] { EXPECT_EQ(AttributeValue(*type.type), first); }), 0u);
  }
}

struct Shape {
  const char* name;
  AttributeValue (*make)(const ElementType&);
  Elements (*elements)(const AttributeValue& a, const AttributeValue& b);
};

// Every kind of storage.
constexpr Shape shapes[] = {
    {"a scalar", [](const ElementType& type) { return type.samples().front(); },
     [](const AttributeValue& a, const AttributeValue&) { return Elements{a}; }},
    {"a list",
     [](const ElementType& type) {
       return type.list({type.samples().front(), type.samples().back()});
     },
     [](const AttributeValue& a, const AttributeValue& b) {
       return Elements{a, b};
     }},
    {"a list of one", [](const ElementType& type) { return type.list({type.samples().front()}); },
     [](const AttributeValue& a, const AttributeValue&) { return Elements{a}; }},
    {"nothing", [](const ElementType& type) { return AttributeValue(*type.type); },
     [](const AttributeValue&, const AttributeValue&) { return Elements(); }},
    {"a cleared scalar",
     [](const ElementType& type) {
       AttributeValue value = type.samples().front();
       value.clear();
       return value;
     },
     [](const AttributeValue&, const AttributeValue&) { return Elements(); }},
    {"a grown scalar",
     [](const ElementType& type) {
       AttributeValue value = type.samples().front();
       type.append(value, type.samples().back());
       return value;
     },
     [](const AttributeValue& a, const AttributeValue& b) {
       return Elements{a, b};
     }}};

struct Change {
  const char* name;
  void (*apply)(const ElementType&, AttributeValue&, const AttributeValue& b);
  void (*apply_to_elements)(Elements&, const AttributeValue& b);
};

constexpr Change changes[] = {
    {"set",
     [](const ElementType& type, AttributeValue& value, const AttributeValue& b) {
       type.set(value, b);
     },
     [](Elements& elements, const AttributeValue& b) { elements.assign(1, b); }},
    {"append",
     [](const ElementType& type, AttributeValue& value, const AttributeValue& b) {
       type.append(value, b);
     },
     [](Elements& elements, const AttributeValue& b) { elements.push_back(b); }},
    {"append often",
     [](const ElementType& type, AttributeValue& value, const AttributeValue& b) {
       AttributeValue grown = value;
       for (int i = 0; i < 20; ++i)
         type.append(grown, b);
       value = std::move(grown);
     },
     [](Elements& elements, const AttributeValue& b) { elements.insert(elements.end(), 20, b); }},
    {"clear",
     [](const ElementType&, AttributeValue& value, const AttributeValue&) { value.clear(); },
     [](Elements& elements, const AttributeValue&) { elements.clear(); }}};

// An old handle is read again after every change, whether memory lasts or not.
TEST(ValueSharing, ChangesAreSeenThroughNoOtherHandle) {
  for (const ElementType& type : element_types()) {
    const AttributeValue a = type.samples().front();
    const AttributeValue b = type.samples().back();
    for (const Shape& shape : shapes) {
      const Elements before = shape.elements(a, b);
      const AttributeValue kept = shape.make(type);
      const void* const kept_at = type.address(kept);
      const AttributeValue same = type.list(before);
      ASSERT_EQ(kept, same);
      for (const Change& change : changes) {
        SCOPED_TRACE(testing::Message()
                     << change.name << " on " << shape.name << " " << *type.type);
        Elements after = before;
        change.apply_to_elements(after, b);
        const AttributeValue expected = type.list(after);
        const auto change_copy_of = [&](AttributeValue target) {
          try {
            change.apply(type, target, b);
          } catch (const std::bad_alloc&) {
            EXPECT_EQ(target, same);
            throw;
          }
          EXPECT_EQ(target, expected);
        };
        const auto expect_kept = [&] {
          EXPECT_EQ(kept, same);
          EXPECT_EQ(type.address(kept), kept_at);
        };
        ovtest::for_each_failed_allocation([&] { change_copy_of(kept); }, expect_kept);
        ovtest::for_each_failed_allocation([&] { change_copy_of(shape.make(type)); }, expect_kept);
        expect_kept();
      }
    }
  }
}

TEST(ValueSharing, ElementsOfTheValueItselfMayBeGivenToIt) {
  const std::string x(100, 'x');
  const std::string y(100, 'y');
  for (const bool shared : {false, true}) {
    AttributeValue value{x, y};
    const AttributeValue kept = shared ? value : AttributeValue();
    for (int i = 0; i < 10; ++i)
      value.append(value.at<std::string>(1));
    EXPECT_EQ(value.subrange(2), AttributeValue::list_of(std::vector<std::string>(10, y)));
    value.set(value.at<std::string>(1));
    value.set(value.get<std::string>());
    value = *&value;
    EXPECT_EQ(value, AttributeValue(y));
    EXPECT_EQ(kept, shared ? (AttributeValue{x, y}) : AttributeValue());
  }
  // The new element may live in what goes.
  AttributeValue map(AttributeMap{{"a", x}});
  map.set(map.get<AttributeMap>().begin()->second.get<std::string>());
  EXPECT_EQ(map, AttributeValue(x));
}

// The operations of storage, which handles are built on.
template <class T>
void expect_private_and_growable(const T& element) {
  using Factory = impl::ValueFactory<T>;
  auto* const list = new impl::RefCountedValueImpl<T>(element);
  list->push_back(element);
  for (impl::ValueBase* storage : {Factory::create_value(element), Factory::create_value(),
                                   static_cast<impl::ValueBase*>(list)}) {
    AttributeValue owner = impl::ValueAccess::adopt(storage);
    const AttributeValue other = impl::ValueAccess::adopt(storage->clone());
    storage->make_unique(owner);
    EXPECT_EQ(owner, other);
    if (!owner.empty()) {
      EXPECT_NE(address<T>(owner), address<T>(other));
    }
  }
  for (impl::ValueBase* storage : {Factory::create_value(element), Factory::create_value()}) {
    AttributeValue owner = impl::ValueAccess::adopt(storage);
    const AttributeValue before = owner;
    storage->make_growable(owner);
    EXPECT_EQ(owner, before);
    EXPECT_EQ(address<T>(AttributeValue(owner)), address<T>(owner));  // counted now
  }
}

TEST(ValueSharing, StorageBecomesPrivateAndGrowable) {
  expect_private_and_growable(true);
  expect_private_and_growable(7LL);
  expect_private_and_growable(8LL);
  expect_private_and_growable(2.5);
  expect_private_and_growable(std::string("text"));
}

TEST(ValueSharing, NullIsOneObjectInProgramAndLibrary) {
  static_assert(sizeof(AttributeValue) == sizeof(impl::ValueBase*));
  const AttributeValue made_by_library(ValueTypeId::typeNull);
  const impl::ValueBase* storage;
  std::memcpy(&storage, &made_by_library, sizeof storage);
  EXPECT_EQ(storage, impl::null_storage());
}

TEST(ValueSharing, ConstantsCostNothing) {
  EXPECT_EQ(allocations_of([] {
              for (int i = -1; i <= 7; ++i) {
                AttributeValue value(i);
                const AttributeValue again(static_cast<long long>(i));
                EXPECT_EQ(address<long long>(value), address<long long>(again));
                EXPECT_EQ(address<long long>(AttributeValue(value)), address<long long>(again));
                EXPECT_EQ(value.get<long long>(), i);
                value.set(i == 7 ? -1 : i + 1);
                value.clear();
                EXPECT_EQ(again.get<long long>(), i);
                EXPECT_EQ(value, AttributeValue(ValueTypeId::typeInteger));
                value.set(i);
                value.set(i % 2 == 0);
                EXPECT_EQ(address<bool>(value), address<bool>(AttributeValue(i % 2 == 0)));
                value.set(i % 2 != 0);
                value.clear();
                EXPECT_EQ(value, AttributeValue(ValueTypeId::typeBoolean));
                value.set_null();
              }
            }),
            0u);
  for (const int i : {-2, 8}) {
    EXPECT_EQ(allocations_of([i] { EXPECT_EQ(AttributeValue(i).get<long long>(), i); }), 1u);
    const AttributeValue value(i);
    const AttributeValue again(i);
    EXPECT_NE(address<long long>(value), address<long long>(again));
  }
  // A constant gives way to a number of its own, which does not become a constant again.
  AttributeValue value(3);
  value.set(300);
  const long long* const own = address<long long>(value);
  EXPECT_EQ(allocations_of([&value] { value.set(4); }), 0u);
  EXPECT_EQ(address<long long>(value), own);
  EXPECT_EQ(AttributeValue(3).get<long long>(), 3);
  const AttributeValue copy = value;
  EXPECT_EQ(address<long long>(copy), address<long long>(AttributeValue(4)));
}

TEST(ValueSharing, TheOnlyHandleChangesInPlace) {
  AttributeValue text(std::string(100, 'x'));
  const std::string* const at = address<std::string>(text);
  text.set_string("short");
  EXPECT_EQ(address<std::string>(text), at);
  EXPECT_EQ(allocations_of([&text] { text.clear(); }), 0u);
  EXPECT_EQ(allocations_of([&text] { text.set_string("y"); }), 0u);
  EXPECT_EQ(address<std::string>(text), at);
  text.set_string("text and more", 4);
  EXPECT_EQ(text, AttributeValue("text"));

  AttributeValue number(2.5);
  EXPECT_EQ(allocations_of([&number] {
              number.set(3.5);
              number.clear();
              number.set(4.5);
            }),
            0u);
  EXPECT_EQ(number, AttributeValue(4.5));
}

TEST(ValueSharing, SetChangesTheType) {
  const std::vector<AttributeValue> all = one_of_each_type();
  for (const AttributeValue& before : all) {
    for (const bool shared : {false, true}) {
      const auto target = [&] { return shared ? before : before.subrange(0); };
      AttributeValue value = target();
      value.set_string("text");
      EXPECT_EQ(value, AttributeValue("text"));
      value = target();
      value.set(5);
      EXPECT_EQ(value, AttributeValue(5));
      value = target();
      value.set(ovcore::Uuid());
      EXPECT_EQ(value, AttributeValue(ovcore::Uuid()));
      value = target();
      value.set_null();
      EXPECT_TRUE(value.is_null());
    }
    ovtest::for_each_failed_allocation(
        [&before] {
          AttributeValue value = before;
          try {
            value.set(8.5);
          } catch (const std::bad_alloc&) {
            EXPECT_EQ(value, before);
            throw;
          }
        },
        [] {});
  }
}

TEST(ValueSharing, ThreadsUseTheSameStorage) {
  const std::vector<AttributeValue> values = sample_values();
  std::vector<std::size_t> hashes;
  const auto fresh = sample_values();
  for (const AttributeValue& value : fresh)
    hashes.push_back(value.hash());
  const auto work = [&hashes](std::vector<AttributeValue> own) {
    for (int round = 0; round < 20; ++round) {
      std::vector<AttributeValue> changed = own;
      for (std::size_t i = 0; i < own.size(); ++i) {
        EXPECT_EQ(own[i].hash(), hashes[i]);
        EXPECT_EQ(own[i].compare(changed[i]), 0);
        EXPECT_EQ(changed[i].compare_nocase_ascii(own[i]), 0);
        const AttributeValue rest = own[i].subrange(own[i].size() / 2);
        changed[i] = rest;
        changed[i].clear();
        changed[i] = own[i];
        EXPECT_EQ(impl::equality_hash(changed[i]), impl::equality_hash(own[i]));
        if (changed[i].type() == ValueTypeId::typeString) {
          changed[i].append("more");
          changed[i].set_string("new");
        } else if (changed[i].type() == ValueTypeId::typeInteger) {
          changed[i].append(7);
          changed[i].set(8);
        }
        EXPECT_EQ(own[i].hash(), hashes[i]);
      }
    }
  };
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i)
    threads.emplace_back(work, values);
  for (std::thread& thread : threads)
    thread.join();
}

}  // namespace
}  // namespace ovattribute
