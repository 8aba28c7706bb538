// SPDX-License-Identifier: Apache-2.0
#include "tests/support/allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace ovtest {
namespace {

constexpr std::uint64_t never = std::numeric_limits<std::uint64_t>::max();

thread_local AllocationCounts t_counts;
thread_local std::uint64_t t_allowed = never;
thread_local WatchFrees::Look* t_look = nullptr;

void* allocate(std::size_t size, std::size_t alignment) noexcept {
  if (t_allowed != never) {
    if (t_allowed == 0) return nullptr;
    --t_allowed;
  }
  void* memory =
      alignment <= alignof(std::max_align_t)
          ? std::malloc(size)
          : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (memory != nullptr) {
    ++t_counts.made;
    t_counts.bytes += size;
    t_counts.live += static_cast<std::int64_t>(::malloc_usable_size(memory));
    t_counts.peak = std::max(t_counts.peak, t_counts.live);
  }
  return memory;
}

void* allocate_or_throw(std::size_t size, std::size_t alignment) {
  void* memory = allocate(size, alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void release(void* memory) noexcept {
  if (memory == nullptr) return;
  ++t_counts.freed;
  t_counts.live -= static_cast<std::int64_t>(::malloc_usable_size(memory));
  if (t_look != nullptr) {
    // What the look itself frees is not shown to it.
    WatchFrees::Look* const look = std::exchange(t_look, nullptr);
    (*look)({static_cast<const char*>(memory), ::malloc_usable_size(memory)});
    t_look = look;
  }
  std::free(memory);
}

}  // namespace

AllocationCounts allocation_counts() noexcept {
  ovcore::impl::SmallMemory::empty();
  return t_counts;
}

AllocationCounts heap_counts() noexcept {
  return t_counts;
}

AllocationCounts start_of_peak() noexcept {
  ovcore::impl::SmallMemory::empty();
  t_counts.peak = t_counts.live;
  return t_counts;
}

FailAllocations::FailAllocations(std::uint64_t after) noexcept {
  t_allowed = after;
}
FailAllocations::~FailAllocations() {
  t_allowed = never;
}

WatchFrees::WatchFrees(Look look) noexcept {
  t_look = new Look(std::move(look));
}
WatchFrees::~WatchFrees() {
  delete std::exchange(t_look, nullptr);
}

}  // namespace ovtest

void* operator new(std::size_t n) {
  return ovtest::allocate_or_throw(n, 1);
}
void* operator new[](std::size_t n) {
  return ovtest::allocate_or_throw(n, 1);
}
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
  return ovtest::allocate(n, 1);
}
void* operator new[](std::size_t n, const std::nothrow_t&) noexcept {
  return ovtest::allocate(n, 1);
}
void* operator new(std::size_t n, std::align_val_t a) {
  return ovtest::allocate_or_throw(n, static_cast<std::size_t>(a));
}
void* operator new[](std::size_t n, std::align_val_t a) {
  return ovtest::allocate_or_throw(n, static_cast<std::size_t>(a));
}
void operator delete(void* p) noexcept {
  ovtest::release(p);
}
void operator delete[](void* p) noexcept {
  ovtest::release(p);
}
void operator delete(void* p, std::size_t) noexcept {
  ovtest::release(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  ovtest::release(p);
}
void operator delete(void* p, std::align_val_t) noexcept {
  ovtest::release(p);
}
void operator delete[](void* p, std::align_val_t) noexcept {
  ovtest::release(p);
}
void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
  ovtest::release(p);
}
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
  ovtest::release(p);
}
