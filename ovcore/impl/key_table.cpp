// SPDX-License-Identifier: Apache-2.0
#include "ovcore/impl/key_table.h"

#include <sys/mman.h>

#include <cstring>
#include <new>
#include <thread>

#include "ovcore/operating_system.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define OV_ADDRESS_SANITIZER 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define OV_ADDRESS_SANITIZER 1
#endif
#ifdef OV_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace ovcore::impl {
namespace {

// Sanitizers see neither the slots nor the pointers in memory that does not come from the heap.
void mark_region(const void* memory, std::size_t size, bool live) noexcept {
#ifdef OV_ADDRESS_SANITIZER
  (live ? __lsan_register_root_region : __lsan_unregister_root_region)(memory, size);
#else
  (void)memory, (void)size, (void)live;
#endif
}

void mark_slot(const void* slot, std::size_t size, bool live) noexcept {
#ifdef OV_ADDRESS_SANITIZER
  (live ? __asan_unpoison_memory_region : __asan_poison_memory_region)(slot, size);
#else
  (void)slot, (void)size, (void)live;
#endif
}

}  // namespace

KeyArena::~KeyArena() {
  for (const Region& region : m_regions) {
    mark_slot(region.memory, region.size, true);
    mark_region(region.memory, region.size, false);
    ::munmap(region.memory, region.size);
  }
}

void* KeyArena::allocate() {
  const std::lock_guard guard(m_mutex);
  if (m_roomy == none) add_chunk();
  Chunk& chunk = m_chunks[m_roomy];
  void* slot;
  if (chunk.free != nullptr) {
    slot = chunk.free;
    mark_slot(slot, slot_size, true);
    chunk.free = chunk.free->next;
  } else {
    slot = chunk.memory + slot_size * chunk.fresh++;
    mark_slot(slot, slot_size, true);
  }
  if (chunk.live++ == 0) m_spare = false;
  if (chunk.live == slots_per_chunk) unlink(m_roomy);
  return slot;
}

void KeyArena::release(void* slot) noexcept {
  const std::lock_guard guard(m_mutex);
  const std::uint32_t index = chunk_of(slot);
  Chunk& chunk = m_chunks[index];
  if (chunk.live-- == slots_per_chunk) link(index);
  if (chunk.live > 0 || !m_spare) {
    auto* free = ::new (slot) FreeSlot{chunk.free};
    chunk.free = free;
    mark_slot(slot, slot_size, false);
    if (chunk.live == 0) m_spare = true;
    return;
  }
  mark_slot(chunk.memory, chunk_size, false);
  ::madvise(chunk.memory, chunk_size, MADV_DONTNEED);
  chunk.free = nullptr;
  chunk.fresh = 0;
}

void KeyArena::add_chunk() {
  if (m_regions.empty() || m_regions.back().used == m_regions.back().size) add_region();
  Region& region = m_regions.back();
  std::byte* memory = region.memory + region.used;
  m_chunks.push_back(Chunk{.memory = memory});
  if (::mprotect(memory, chunk_size, PROT_READ | PROT_WRITE) != 0) {
    m_chunks.pop_back();
    throw std::bad_alloc();
  }
  region.used += chunk_size;
  mark_slot(memory, chunk_size, false);
  m_spare = true;
  link(static_cast<std::uint32_t>(m_chunks.size() - 1));
}

void KeyArena::add_region() {
  m_regions.reserve(m_regions.size() + 1);
  // 16 GiB of addresses hold every name one process can have; where addresses are rationed,
  // a chunk at a time does, and only the ascending order is lost.
  for (const std::size_t size : {std::size_t{1} << 34, chunk_size * 16}) {
    void* memory =
        ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory != MAP_FAILED) {
      mark_region(memory, size, true);
      m_regions.push_back({static_cast<std::byte*>(memory), size, 0, m_chunks.size()});
      return;
    }
  }
  throw std::bad_alloc();
}

std::uint32_t KeyArena::chunk_of(const void* slot) const noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(slot);
  for (const Region& region : m_regions) {
    const std::uintptr_t offset = address - reinterpret_cast<std::uintptr_t>(region.memory);
    if (offset < region.size) {
      return static_cast<std::uint32_t>(region.first_chunk + offset / chunk_size);
    }
  }
  std::terminate();
}

void KeyArena::link(std::uint32_t index) noexcept {
  Chunk& chunk = m_chunks[index];
  chunk.previous = none;
  chunk.next = m_roomy;
  if (m_roomy != none) m_chunks[m_roomy].previous = index;
  m_roomy = index;
}

void KeyArena::unlink(std::uint32_t index) noexcept {
  const Chunk& chunk = m_chunks[index];
  if (chunk.previous != none) {
    m_chunks[chunk.previous].next = chunk.next;
  } else {
    m_roomy = chunk.next;
  }
  if (chunk.next != none) m_chunks[chunk.next].previous = chunk.previous;
}

void KeyTable::SpinLock::lock() noexcept {
  for (;;) {
    if (!m_locked.exchange(true, std::memory_order_acquire)) return;
    for (int tries = 0; m_locked.load(std::memory_order_relaxed); ++tries) {
      if (tries >= 64) std::this_thread::yield();
    }
  }
}

KeyTable::KeyTable() {
  fill_random(m_secret, sizeof m_secret);
  for (Shard& shard : m_shards) {
    shard.buckets = std::make_unique<KeyToken*[]>(8);
    shard.mask = 7;
  }
}

KeyTable::~KeyTable() {
  for (Shard& shard : m_shards) {
    for (std::size_t i = 0; i <= shard.mask; ++i) {
      while (KeyToken* token = shard.buckets[i]) {
        shard.buckets[i] = token->next;
        destroy(token);
      }
    }
  }
}

// Folded 64-bit multiplications over pieces of 16 bytes, in the manner of wyhash and its kin, keyed
// with secrets of this process alone.
std::size_t KeyTable::hash(std::string_view text) const noexcept {
  __extension__ using Wide = unsigned __int128;
  const auto fold = [](std::uint64_t a, std::uint64_t b) {
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  };
  const auto load64 = [](const char* p) {
    std::uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
  };
  const auto load32 = [](const char* p) {
    std::uint32_t v;
    std::memcpy(&v, p, sizeof v);
    return std::uint64_t{v};
  };

  const char* p = text.data();
  std::size_t n = text.size();
  std::uint64_t state = m_secret[0];
  while (n > 16) {
    state = fold(load64(p) ^ m_secret[1], load64(p + 8) ^ state);
    p += 16;
    n -= 16;
  }
  std::uint64_t a = 0;
  std::uint64_t b = 0;
  if (n >= 8) {
    a = load64(p);
    b = load64(p + n - 8);
  } else if (n >= 4) {
    a = load32(p);
    b = load32(p + n - 4);
  } else if (n > 0) {
    const auto byte = [p](std::size_t i) {
      return std::uint64_t{static_cast<unsigned char>(p[i])};
    };
    a = byte(0) << 16 | byte(n / 2) << 8 | byte(n - 1);
  }
  return fold(m_secret[2] ^ text.size(), fold(a ^ m_secret[1], b ^ state));
}

KeyToken* KeyTable::intern(SourceString text) {
  const std::size_t h = hash(text);
  Shard& shard = shard_of(h);
  const std::lock_guard guard(shard.lock);
  for (KeyToken* token = shard.buckets[h & shard.mask]; token != nullptr; token = token->next) {
    if (token->hash == h && token->text.size() == text.size() &&
        std::memcmp(token->text.data(), text.data(), text.size()) == 0) {
      add_ref(token);
      return token;
    }
  }
  return insert(shard, text, h);
}

KeyToken* KeyTable::insert(Shard& shard, std::string_view text, std::size_t h) {
  void* slot = m_arena.allocate();
  KeyToken* token;
  try {
    token = ::new (slot) KeyToken(text, h);
  } catch (...) {
    m_arena.release(slot);
    throw;
  }
  if (shard.count > shard.mask) grow(shard);
  KeyToken*& head = shard.buckets[h & shard.mask];
  token->next = head;
  head = token;
  ++shard.count;
  return token;
}

// Keeps the smaller table when there is no memory: slower, not wrong.
void KeyTable::grow(Shard& shard) noexcept {
  const std::size_t size = (shard.mask + 1) * 2;
  std::unique_ptr<KeyToken*[]> larger(new (std::nothrow) KeyToken*[size]());
  if (larger == nullptr) return;
  for (std::size_t i = 0; i <= shard.mask; ++i) {
    while (KeyToken* token = shard.buckets[i]) {
      shard.buckets[i] = token->next;
      KeyToken*& head = larger[token->hash & (size - 1)];
      token->next = head;
      head = token;
    }
  }
  shard.buckets.swap(larger);
  shard.mask = size - 1;
}

void KeyTable::release_last(KeyToken* token) noexcept {
  Shard& shard = shard_of(token->hash);
  {
    const std::lock_guard guard(shard.lock);
    if (token->refs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    KeyToken** link = &shard.buckets[token->hash & shard.mask];
    while (*link != token)
      link = &(*link)->next;
    *link = token->next;
    --shard.count;
  }
  destroy(token);
}

void KeyTable::destroy(KeyToken* token) noexcept {
  token->~KeyToken();
  m_arena.release(token);
}

std::size_t KeyTable::size() const noexcept {
  std::size_t result = 0;
  for (Shard& shard : m_shards) {
    const std::lock_guard guard(shard.lock);
    result += shard.count;
  }
  return result;
}

}  // namespace ovcore::impl
