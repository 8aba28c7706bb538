// SPDX-License-Identifier: Apache-2.0
// Maps and names between threads, for the thread sanitizer.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <functional>
#include <iostream>
#include <latch>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ovattribute/attribute_map.h"
#include "ovattribute/attribute_name_coder.h"
#include "ovattribute/attribute_value_marshaler.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcrypto/key.h"
#include "ovserialize/memory_reader.h"
#include "ovserialize/memory_writer.h"
#include "tests/ovattribute/map_testing.h"
#include "tests/ovattribute/sample_values.h"
#include "tests/support/allocations.h"

namespace ovattribute {
namespace {

constexpr int thread_count = 4;

/// Runs `work(thread, round)` in some threads that start at one time.
void in_threads(int rounds, const std::function<void(int, int)>& work) {
  std::latch start(thread_count);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < thread_count; ++thread) {
    threads.emplace_back([&, thread] {
      start.arrive_and_wait();
      for (int round = 0; round < rounds; ++round)
        work(thread, round);
    });
  }
  for (std::thread& thread : threads)
    thread.join();
}

TEST(MapThreads, ShareMapsAndChangeCopiesOfTheirOwn) {
  const AttributeMap shared = nested_samples(2);
  const AttributeMap same = nested_samples(2);
  const AttributeMap addition{{"value1", "replaced"}, {"added", AttributeValue{shared, same}}};
  const std::size_t hash = shared.hash();
  std::atomic<int> wrong = 0;
  in_threads(20, [&](int thread, int round) {
    MutableAttributeMap mine = shared;  // from a handle that all threads copy
    const AttributeMap frozen = mine;
    mine["value2"].set(thread);
    mine.add(addition).erase("value3");
    MutableAttributeMap other = frozen;
    other.add("scalar", AttributeMap(mine));
    other.clear();
    other.add(frozen);
    const AttributeMap merged = frozen.merged_with(addition);
    const bool right = mine.query("value2") == AttributeValue(thread) && !mine.exists("value3") &&
                       mine.query("value1") == AttributeValue("replaced") &&
                       shared.exists("value3") && other.shares_holder_with(shared) &&
                       merged.size() == shared.size() + 1 && shared.hash() == hash &&
                       (round % 10 != 0 || shared.compare(same) == same.compare(shared) * -1);
    if (!right) ++wrong;
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(shared.compare(same), 0);
}

TEST(MapThreads, LookForNamesInOneLargeMap) {
  std::vector<AttributeName> names;
  for (int i = 0; i < 400; ++i)
    names.emplace_back("sought " + std::to_string(i));
  for (int round = 0; round < 10; ++round) {
    MutableAttributeMap map;
    for (std::size_t i = 0; i < names.size(); i += 2)
      map[names[i]].set(static_cast<long long>(i));
    const AttributeMap shared = map;
    std::atomic<int> wrong = 0;
    in_threads(400, [&](int thread, int i) {
      const auto at = static_cast<std::size_t>((i + thread * 100) % 400);
      wrong += shared.exists(names[at]) != (at % 2 == 0);
    });
    EXPECT_EQ(wrong, 0);
  }
}

// Which takes so long here that all threads begin to search meanwhile.
TEST(MapThreads, MakeOneTableForAMapThatAllSearch) {
  constexpr std::size_t size = 100'000;
  std::vector<AttributeName> names;
  MutableAttributeMap map;
  for (std::size_t i = 0; i < size; ++i)
    map.add(names.emplace_back("searched " + std::to_string(i)), i);
  const AttributeMap shared = map;
  std::atomic<std::size_t> searches = 0;
  while (searches < size / 4)
    static_cast<void>(shared.exists(names[searches++]));
  std::atomic<int> wrong = 0;
  std::atomic<std::uint64_t> tables = 0;
  in_threads(1, [&](int thread, int) {
    const std::uint64_t bytes = ovtest::allocation_counts().bytes;
    for (std::size_t i = 0; i < 1000; ++i)
      wrong += !shared.exists(names[i * 4 + static_cast<std::size_t>(thread)]);
    tables += ovtest::allocation_counts().bytes - bytes > size;
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(tables, 1u);
}

TEST(MapThreads, HandOverTheLastHandle) {
  for (int round = 0; round < 200; ++round) {
    std::vector<MutableAttributeMap> handles(thread_count,
                                             map_of({{"text", std::string(100, 'x')}, {"n", 1}}));
    std::vector<long long> sums(thread_count);
    // Whoever finds itself alone changes the storage that the others have just read.
    in_threads(1, [&](int thread, int) {
      const auto t = static_cast<std::size_t>(thread);
      MutableAttributeMap mine = std::move(handles[t]);
      sums[t] = mine.query("n").get<long long>();
      mine["n"] = mine.query("n").get<long long>() + 1;
      mine["text"].set("changed");
      sums[t] += mine.query("n").get<long long>();
    });
    EXPECT_EQ(sums, std::vector<long long>(thread_count, 3));
  }
}

TEST(MapThreads, InternAndReleaseTheSameNames) {
  const std::size_t before = ovcore::StringKey::interned_count();
  std::atomic<int> wrong = 0;
  in_threads(300, [&](int, int round) {
    std::vector<AttributeName> names;
    for (int i = 0; i < 20; ++i)
      names.emplace_back("passing name " + std::to_string((round + i) % 25));
    for (int i = 0; i < 20; ++i) {
      const std::string text = "passing name " + std::to_string((round + i) % 25);
      if (names[static_cast<std::size_t>(i)].value() != text) ++wrong;
      if (AttributeName(text) != names[static_cast<std::size_t>(i)]) ++wrong;
    }
  });
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(ovcore::StringKey::interned_count(), before);
}

// What a server does, all at once: a round is 25 operations, and some seal, open and print too.
TEST(MapThreads, DoEverythingAtOnce) {
  constexpr std::uint64_t total = 1'000'000;
  const std::size_t names_before = ovcore::StringKey::interned_count();
  std::atomic<std::uint64_t> operations = 0;
  std::atomic<int> wrong = 0;
  {
    const ovcrypto::Key key("sixteen bytes...", 16);
    const auto cipher = SecuredValue::default_cipher();
    const SecuredValue::KeyId key_id("threads", ovcore::Uuid());
    const AttributeMap common = map_of({{"list", AttributeValue{"a", "b"}}, {"n", 0}});
    const AttributeNamePackageSet::Ptr packages =
        AttributeNamePackageSet::create(AttributeNamePackage::create({"list", "n"}));
    std::mutex mutex;
    std::array<AttributeMap, 8> mailbox;  // what one thread put there, another one takes
    in_threads(1, [&](int thread, int) {
      const auto check = [&](bool right) {
        if (!right) ++wrong;
      };
      for (int round = 0; operations.load(std::memory_order_relaxed) < total; ++round) {
        const AttributeName passing("passing " + std::to_string(round % 50));
        const AttributeName own("of thread " + std::to_string(thread * 100 + round % 3));
        check(AttributeName(passing.value()) == passing);
        MutableAttributeMap map = common;
        map.add(passing, round).add(own, AttributeValue{thread, round});
        map["n"] = round;
        map["list"].append("c");
        const AttributeMap frozen = map;
        check(common.query("n") == AttributeValue(0) && common.query("list").size() == 2);
        check(frozen.query(passing).get<int>() == round && frozen.size() == 4);
        map.erase(own);
        check(frozen.exists(own) && !map.exists(own) && !(map == frozen));
        check(frozen.merged_with(map).hash() == frozen.hash());

        AttributeMap taken = frozen;
        {
          const std::lock_guard lock(mutex);
          taken.swap(mailbox[static_cast<std::size_t>(round) % mailbox.size()]);
        }
        check(taken.empty() || taken.query("list").size() == 3);
        MutableAttributeMap answer = std::move(taken);
        answer.add("answer", frozen).add("n", thread);
        check(answer.query("answer").get<AttributeMap>().shares_holder_with(frozen));

        ovserialize::MemoryWriter writer;
        AttributeNameEncoder encoder(packages);
        write_attribute_value(writer, encoder, answer);
        ovserialize::MemoryReader reader(writer.detach());
        AttributeNameDecoder decoder(packages, true);
        check(read_attribute_value(reader, decoder) == AttributeValue(answer));
        if (round % 8 == 0) {
          const SecuredValue sealed(frozen, "", key_id, key, *cipher);
          check(sealed.authenticate(key) && sealed.extract(key) == AttributeValue(frozen));
          std::ostringstream out;
          out << frozen;
          check(out.str().size() > 20);
        }
        operations += 25;
      }
    });
  }
  EXPECT_EQ(wrong, 0);
  EXPECT_GE(operations, total);
  EXPECT_EQ(ovcore::StringKey::interned_count(), names_before);
  std::cout << operations << " operations\n";
}

}  // namespace
}  // namespace ovattribute
