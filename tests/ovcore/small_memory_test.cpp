// SPDX-License-Identifier: Apache-2.0
#include "ovcore/impl/small_memory.h"

#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <cstring>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/allocations.h"

namespace {

using ovcore::impl::SmallMemory;
using Blocks = std::vector<void*>;

Blocks take_all(std::size_t count, std::size_t size) {
  Blocks blocks(count);
  for (void*& block : blocks)
    std::memset(block = SmallMemory::take(size), 0xaa, size);
  return blocks;
}

void give_all(const Blocks& blocks, std::size_t size) {
  for (void* const block : blocks)
    SmallMemory::give(block, size);
}

template <class F>
std::uint64_t frees_of(F&& f) {
  const std::uint64_t before = ovtest::heap_counts().freed;
  f();
  return ovtest::heap_counts().freed - before;
}

TEST(SmallMemory, ABlockIsAsLargeAsItsNextUserAsks) {
  // What is kept at each size came from a smaller one of the same class, if there is one.
  for (std::size_t size = 1; size < SmallMemory::largest + 10; ++size) {
    const Blocks blocks = take_all(3, size);
    EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), 3u);
    for (void* const block : blocks)
      EXPECT_GE(::malloc_usable_size(block), size);
    give_all(blocks, size);
  }
}

TEST(SmallMemory, KeepsWhatAnotherThreadTookUpToTheBound) {
  if (!SmallMemory::keeps()) GTEST_SKIP() << "a sanitizer is to see every free";
  for (const std::size_t size : {40u, 120u, 121u, 300u, 1144u}) {
    const std::size_t most = SmallMemory::most_kept(size);
    Blocks blocks;
    std::thread([&] { blocks = take_all(most + 10, size); }).join();
    SmallMemory::empty();
    EXPECT_EQ(frees_of([&] { give_all(blocks, size); }), 10u);
    blocks.resize(most);
    const std::uint64_t made = ovtest::heap_counts().made;
    Blocks again = take_all(most, size);
    EXPECT_EQ(ovtest::heap_counts().made - made, 1u) << "the vector";
    EXPECT_TRUE(std::is_permutation(again.begin(), again.end(), blocks.rbegin()));
    EXPECT_EQ(frees_of([&] { give_all(again, size); }), 0u);
    EXPECT_EQ(frees_of(SmallMemory::empty), most);

    const SmallMemory::Pause pause;
    again = take_all(10, size);
    EXPECT_EQ(frees_of([&] { give_all(again, size); }), 10u);
  }
}

/// Looks at the thread in the destructor of a key that comes after that of `SmallMemory`.
struct LookAtEnd {
  bool frees_at_end;  // else before
  std::int64_t live_before = 0;
  std::int64_t live_at_end = 1;
  std::uint64_t frees_after_end = 0;

  static inline pthread_key_t key;
  static void fill() {
    for (std::size_t size = 1; size <= SmallMemory::largest; ++size)
      give_all(take_all(5, size), size);
  }
  static void destroy(void* look) {
    auto& self = *static_cast<LookAtEnd*>(look);
    if (std::exchange(self.frees_at_end, false)) {
      fill();
      ::pthread_setspecific(key, look);  // comes once more
      return;
    }
    self.live_at_end = ovtest::heap_counts().live - self.live_before;
    self.frees_after_end = frees_of([] { SmallMemory::give(SmallMemory::take(40), 40); });
  }
};

TEST(SmallMemory, NothingIsKeptBeyondTheThreadsEnd) {
  SmallMemory::give(SmallMemory::take(1), 1);  // its key first
  ASSERT_EQ(::pthread_key_create(&LookAtEnd::key, LookAtEnd::destroy), 0);
  for (const bool frees_at_end : {false, true}) {
    LookAtEnd look{.frees_at_end = frees_at_end};
    std::thread([&look] {
      ::pthread_setspecific(LookAtEnd::key, &look);
      look.live_before = ovtest::heap_counts().live;
      if (look.frees_at_end) return;
      LookAtEnd::fill();
      EXPECT_EQ(ovtest::heap_counts().live > look.live_before, SmallMemory::keeps());
    }).join();
    EXPECT_LE(look.live_at_end, 0) << "the thread also frees what it was started with";
    EXPECT_EQ(look.frees_after_end, 1u);
  }
  ::pthread_key_delete(LookAtEnd::key);
}

}  // namespace
