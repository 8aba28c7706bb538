// SPDX-License-Identifier: Apache-2.0
// Counting and failing allocations. Linked into every test program, where it replaces the global
// operator new; what C libraries allocate is not seen. Counts are of the calling thread.
#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <string_view>
#include <utility>

#include "ovcore/impl/small_memory.h"

namespace ovtest {

struct AllocationCounts {
  std::uint64_t made = 0;
  std::uint64_t freed = 0;
  std::uint64_t bytes = 0;  // asked for in all
  std::int64_t live = 0;    // bytes in use; below 0 where others made what this thread frees
  std::int64_t peak = 0;    // the most that `live` was since `start_of_peak`
};
/// After what the thread keeps of freed memory went back to the heap.
AllocationCounts allocation_counts() noexcept;
/// As it is.
AllocationCounts heap_counts() noexcept;
/// `allocation_counts`, of which `peak` begins anew.
AllocationCounts start_of_peak() noexcept;

/// Makes the n-th allocation from now on (0: the next) and every later one fail, while it lives.
/// All memory comes from the heap meanwhile.
class FailAllocations {
 public:
  explicit FailAllocations(std::uint64_t after) noexcept;
  ~FailAllocations();
  FailAllocations(const FailAllocations&) = delete;
  FailAllocations& operator=(const FailAllocations&) = delete;

 private:
  const ovcore::impl::SmallMemory::Pause m_all_from_the_heap;
};

/// Shows every block to `look` just before it is freed, while it lives: for what must be wiped.
class WatchFrees {
 public:
  using Look = std::function<void(std::string_view block)>;
  explicit WatchFrees(Look look) noexcept;
  ~WatchFrees();
  WatchFrees(const WatchFrees&) = delete;
  WatchFrees& operator=(const WatchFrees&) = delete;

 private:
  const ovcore::impl::SmallMemory::Pause m_all_from_the_heap;
};

/// Allocations that `f` makes, none of them of what the thread keeps.
template <class F>
std::uint64_t allocations_of(F&& f) {
  const ovcore::impl::SmallMemory::Pause all_from_the_heap;
  const std::uint64_t before = allocation_counts().made;
  f();
  return allocation_counts().made - before;
}

/// Runs `operation` with its n-th allocation failing, for n from 0 until it succeeds; after each
/// failure runs `check`, which asserts that everything is as it was, and looks for leaks.
/// `operation` must give back what it makes. Returns the number of failures.
template <class Operation, class Check>
std::uint64_t for_each_failed_allocation(Operation&& operation, Check&& check) {
  operation();  // what is made once per process is made here
  for (std::uint64_t n = 0;; ++n) {
    const AllocationCounts before = allocation_counts();
    try {
      const FailAllocations fail(n);
      operation();
      return n;
    } catch (const std::bad_alloc&) {
    }
    const AllocationCounts after = allocation_counts();
    EXPECT_EQ(after.made - before.made, after.freed - before.freed)
        << "leak when allocation " << n << " fails";
    check();
  }
}

}  // namespace ovtest
