// SPDX-License-Identifier: Apache-2.0
#include "ovserialize/memory_list.h"

#include <gtest/gtest.h>
#include <xxhash.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "tests/ovserialize/items.h"
#include "tests/support/allocations.h"

namespace ovserialize {
namespace {

using List = ovcore::RefCountPtr<MemoryList>;
using ConstList = ovcore::RefCountPtr<const MemoryList>;

List list_of(std::string_view text, std::size_t segment_size) {
  List list = MemoryList::create({.segment_size = segment_size});
  list->append(text.data(), text.size());
  return list;
}

std::string numbered(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>(i * 7 + i / 256);
  return text;
}

TEST(MemoryList, BytesDoNotDependOnSegments) {
  const std::string text = numbered(300);
  const std::uint64_t hash = XXH3_64bits(text.data(), text.size());
  for (const std::size_t size : {1, 2, 3, 7, 299, 300, 0}) {
    SCOPED_TRACE(size);
    const List list = list_of(text, size);
    EXPECT_EQ(text_of(*list), text);
    EXPECT_EQ(list->hash(), hash);
    for (const std::size_t other_size : {1, 2, 3, 0}) {
      EXPECT_EQ(list->compare(*list_of(text, other_size)), 0);
      EXPECT_EQ(*list, *list_of(text, other_size));
    }
    std::size_t total = 0;
    list->for_each_span([&](auto bytes) {
      EXPECT_EQ(std::memcmp(bytes.data(), text.data() + total, bytes.size()), 0);
      EXPECT_FALSE(bytes.empty());
      total += bytes.size();
    });
    EXPECT_EQ(total, text.size());
  }
}

TEST(MemoryList, OrdersByUnsignedBytes) {
  const std::vector<std::string> ascending{
      "", std::string("\0", 1), "a", "ab", "abc", "abd", "ab\x80", "b"};
  for (const std::string& a : ascending) {
    for (const std::string& b : ascending) {
      for (const std::size_t size : {1, 2, 3, 0}) {
        EXPECT_EQ(list_of(a, size)->compare(*list_of(b, 2)), &a < &b ? -1 : &a > &b ? 1 : 0);
      }
    }
  }
}

TEST(MemoryList, SmallListsAreOneAllocation) {
  EXPECT_EQ(ovtest::allocations_of([] { list_of("small", 0); }), 1u);
  EXPECT_EQ(ovtest::allocations_of([] { List list = MemoryList::create_copy("small", 5); }), 1u);
  // Two segments and the index of the second.
  const std::string text = numbered(400);
  EXPECT_EQ(ovtest::allocations_of([&] { list_of(text, 0); }), 3u);
}

TEST(MemoryList, SlicesShareAndStayAsTheyAre) {
  const std::string text = numbered(100);
  for (const std::size_t size : {1, 2, 3, 40, 0}) {
    List list = list_of(text, size);
    std::vector<ConstList> slices;
    std::vector<std::string> texts;
    for (std::size_t from = 0; from <= text.size(); from += 9) {
      for (std::size_t count = 0; from + count <= text.size(); count += 11) {
        slices.push_back(list->slice(from, count));
        texts.push_back(text.substr(from, count));
      }
    }
    // None of these may be seen through a slice, nor may the list's end matter to them.
    list->for_each_mutable_span(0, list->size(), [](auto bytes) {
      for (unsigned char& byte : bytes)
        byte = 0;
    });
    list->truncate(50);
    list->append("new end", 7);
    EXPECT_EQ(text_of(*list), std::string(50, '\0') + "new end");
    list.reset();
    for (std::size_t i = 0; i < slices.size(); ++i)
      EXPECT_EQ(text_of(*slices[i]), texts[i]);
  }
}

TEST(MemoryList, AppendsOtherLists) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{5}, std::size_t{5000}}) {
    const std::string text = numbered(size);
    for (const std::size_t segment : {0, 1, 3}) {
      const List list = list_of("start", segment);
      list->append(*list_of(text, 0));
      list->append_copy(*list_of(text, segment));
      list->append("end", 3);
      const std::string once = "start" + text + text + "end";
      EXPECT_EQ(text_of(*list), once);
      list->append(*list);
      EXPECT_EQ(text_of(*list), once + once);
    }
  }
  const List large = list_of(numbered(60000), 0);
  const List sharing = MemoryList::create();
  const auto before = ovtest::allocation_counts().bytes;
  sharing->append(*large);
  EXPECT_LT(ovtest::allocation_counts().bytes - before, 10000u);
  EXPECT_EQ(*sharing, *large);
}

TEST(MemoryList, PreparedRoomIsFilledInPlace) {
  for (const std::size_t size : {1, 2, 3, 0}) {
    const List list = MemoryList::create({.segment_size = size});
    const std::string text = numbered(1000);
    while (list->size() < text.size()) {
      const auto room = list->prepare(text.size() - list->size());
      ASSERT_FALSE(room.empty());
      ASSERT_LE(room.size(), text.size() - list->size());
      std::memcpy(room.data(), text.data() + list->size(), room.size());
      list->commit(room.size());
    }
    EXPECT_EQ(text_of(*list), text);
    list->truncate(10);
    list->append("x", 1);
    EXPECT_EQ(text_of(*list), text.substr(0, 10) + "x");
    list->truncate(0);
    EXPECT_TRUE(list->empty());
    EXPECT_EQ(list->hash(), XXH3_64bits(nullptr, 0));
  }
}

TEST(MemoryList, ThreadsShareOneList) {
  const std::string text = numbered(5000);
  ConstList list = list_of(text, 0);
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 3; ++t) {
    threads.emplace_back([&text, t, list] {
      for (std::size_t i = 0; i < 200; ++i) {
        const ConstList slice = list->slice(t + i, 1000);
        if (text_of(*slice) != text.substr(t + i, 1000)) std::abort();
        const List appended = MemoryList::create();
        appended->append(*list);
        if (appended->hash() != list->hash()) std::abort();
        appended->for_each_mutable_span(0, 10, [](auto bytes) { bytes[0] = 0; });
      }
    });
  }
  list.reset();
  for (std::thread& t : threads)
    t.join();
}

TEST(MemoryList, WipingListsCleanseWhatTheyDrop) {
  const List list = MemoryList::create({.segment_size = 8, .wiping = true});
  list->append("0123456789abcdef", 16);
  const ConstList first = list->slice(0, 8);
  list->truncate(12);
  EXPECT_EQ(text_of(*list), "0123456789ab");
  const auto room = list->room();
  ASSERT_EQ(room.size(), 4u);
  EXPECT_EQ(std::string(room.begin(), room.end()), std::string(4, '\0'));
  EXPECT_EQ(text_of(*first), "01234567");
  EXPECT_TRUE(list->copy(0, 4)->wiping());
  // What must be wiped does not share what is not.
  const List plain = list_of(numbered(5000), 0);
  const auto before = ovtest::allocation_counts().bytes;
  list->append(*plain);
  EXPECT_GE(ovtest::allocation_counts().bytes - before, 5000u);
}

TEST(MemoryList, WipingListsFreeNoSecret) {
  const std::string secret = "the secret of this test";
  for (const bool wiping : {true, false}) {
    for (const std::size_t size : {25, 100, 0}) {
      std::size_t leaked = 0;
      const ovtest::WatchFrees watch([&](std::string_view block) {
        if (block.find(secret) != block.npos) ++leaked;
      });
      List list = MemoryList::create({.segment_size = size, .wiping = wiping});
      for (int i = 0; i < 50; ++i)
        list->append(secret.data(), secret.size());
      ConstList slice = list->slice(30, 900);
      ConstList copy = list->copy(0, 500);
      try {
        const ovtest::FailAllocations fail(0);
        list->append(std::string_view(secret).data(), secret.size());
        list->append(*copy);
      } catch (const std::bad_alloc&) {
      }
      list.reset();
      slice.reset();
      copy.reset();
      EXPECT_EQ(leaked == 0, wiping) << size;
    }
  }
}

}  // namespace
}  // namespace ovserialize
