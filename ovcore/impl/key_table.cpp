// SPDX-License-Identifier: Apache-2.0
#include "ovcore/impl/key_table.h"

#include <sys/mman.h>

#include <cstring>
#include <new>
#include <utility>

#include "ovcore/operating_system.h"

#ifdef OV_ADDRESS_SANITIZER
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#endif

namespace ovcore::impl {
namespace {

// Sanitizers see neither the tokens nor the pointers in memory that does not come from the heap.
void mark_region(const void* memory, std::size_t size, bool live) noexcept {
#ifdef OV_ADDRESS_SANITIZER
  (live ? __lsan_register_root_region : __lsan_unregister_root_region)(memory, size);
#else
  (void)memory, (void)size, (void)live;
#endif
}

void mark_tokens(const void* tokens, std::size_t size, bool live) noexcept {
#ifdef OV_ADDRESS_SANITIZER
  (live ? __asan_unpoison_memory_region : __asan_poison_memory_region)(tokens, size);
#else
  (void)tokens, (void)size, (void)live;
#endif
}

}  // namespace

KeyArena::~KeyArena() {
  for (const Region& region : m_regions) {
    mark_tokens(region.memory, region.used, true);
    mark_region(region.memory, region.size, false);
    ::munmap(region.memory, region.size);
  }
}

KeyToken* KeyArena::allocate() {
  if (m_roomy == none) add_chunk();
  Chunk& chunk = m_chunks[m_roomy];
  KeyToken* token = chunk.free != nullptr ? chunk.free : chunk.tokens + chunk.fresh;
  mark_tokens(token, sizeof *token, true);
  if (chunk.free != nullptr) {
    chunk.free = token->next_free;
  } else {
    ++chunk.fresh;
  }
  if (chunk.live++ == 0) m_spare = false;
  if (chunk.live == tokens_per_chunk) unlink(m_roomy);
  return token;
}

void KeyArena::release(KeyToken* token) noexcept {
  const std::uint32_t index = chunk_of(token);
  Chunk& chunk = m_chunks[index];
  if (chunk.live-- == tokens_per_chunk) link(index);
  if (chunk.live > 0 || !m_spare) {
    token->next_free = std::exchange(chunk.free, token);
    mark_tokens(token, sizeof *token, false);
    if (chunk.live == 0) m_spare = true;
    return;
  }
  mark_tokens(chunk.tokens, chunk_size, false);
  ::madvise(chunk.tokens, chunk_size, MADV_DONTNEED);
  chunk.free = nullptr;
  chunk.fresh = 0;
}

void KeyArena::add_chunk() {
  if (m_regions.empty() || m_regions.back().used == m_regions.back().size) add_region();
  Region& region = m_regions.back();
  std::byte* memory = region.memory + region.used;
  m_chunks.push_back(Chunk{.tokens = reinterpret_cast<KeyToken*>(memory)});
  if (::mprotect(memory, chunk_size, PROT_READ | PROT_WRITE) != 0) {
    m_chunks.pop_back();
    throw std::bad_alloc();
  }
  region.used += chunk_size;
  mark_tokens(memory, chunk_size, false);
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

std::uint32_t KeyArena::chunk_of(const KeyToken* token) const noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(token);
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

std::unique_ptr<KeyTable::Entries> KeyTable::Entries::make(std::size_t size) {
  void* memory = ::operator new(sizeof(Entries) + size * sizeof(std::atomic<Entry>));
  std::unique_ptr<Entries> entries(::new (memory) Entries{size - 1, nullptr});
  std::uninitialized_value_construct_n(&(*entries)[0], size);
  return entries;
}

void KeyTable::Entries::insert(KeyToken* token) noexcept {
  const std::size_t h = token->hash.load(std::memory_order_relaxed);
  std::size_t at = h;
  while ((*this)[at].load(std::memory_order_relaxed) != 0)
    ++at;
  (*this)[at].store(reinterpret_cast<Entry>(token) | tag_of(h), std::memory_order_release);
}

// What comes behind moves up, so that no search ends too early.
void KeyTable::Entries::erase(KeyToken* token) noexcept {
  std::size_t gap = token->hash.load(std::memory_order_relaxed);
  while (token_of((*this)[gap].load(std::memory_order_relaxed)) != token)
    ++gap;
  for (std::size_t at = gap + 1;; ++at) {
    const Entry entry = (*this)[at].load(std::memory_order_relaxed);
    if (entry == 0) break;
    const std::size_t wanted = token_of(entry)->hash.load(std::memory_order_relaxed);
    if (((at - wanted) & mask) < ((at - gap) & mask)) continue;
    (*this)[gap].store(entry, std::memory_order_release);
    gap = at;
  }
  (*this)[gap].store(0, std::memory_order_relaxed);
}

KeyTable::KeyTable() : m_owned(Entries::make(256)) {
  m_entries.store(m_owned.get(), std::memory_order_relaxed);
  fill_random(m_secret, sizeof m_secret);
}

KeyTable::~KeyTable() {
  for (std::size_t i = 0; i <= m_owned->mask; ++i) {
    KeyToken* token = token_of((*m_owned)[i].load(std::memory_order_relaxed));
    if (token != nullptr) std::destroy_at(&token->text);
  }
}

KeyToken* KeyTable::find_or_insert(SourceString text, std::size_t h, KeyToken* wrong) {
  if (wrong != nullptr) release(wrong);
  const std::lock_guard guard(m_mutex);
  // What is listed keeps its text until the lock is given up, also when its references are gone.
  KeyToken* token = find_if(
      *m_owned, h, [&](KeyToken* known) { return equal(known->text, text) && hold(known); });
  if (token != nullptr) return token;

  std::string copy = text.str();
  if (m_count * 4 >= m_owned->mask * 3) grow();
  token = m_arena.allocate();
  ::new (&token->text) std::string(std::move(copy));
  token->hash.store(h, std::memory_order_relaxed);
  m_owned->insert(token);
  token->refs.store(1, std::memory_order_release);
  ++m_count;
  return token;
}

void KeyTable::grow() {
  std::unique_ptr<Entries> larger = Entries::make((m_owned->mask + 1) * 2);
  for (std::size_t i = 0; i <= m_owned->mask; ++i) {
    KeyToken* token = token_of((*m_owned)[i].load(std::memory_order_relaxed));
    if (token != nullptr) larger->insert(token);
  }
  larger->replaced = std::move(m_owned);
  m_owned = std::move(larger);
  m_entries.store(m_owned.get(), std::memory_order_release);
}

void KeyTable::reclaim(KeyToken* token) noexcept {
  const std::lock_guard guard(m_mutex);
  m_owned->erase(token);
  --m_count;
  std::destroy_at(&token->text);
  m_arena.release(token);
}

std::size_t KeyTable::size() const noexcept {
  const std::lock_guard guard(m_mutex);
  return m_count;
}

}  // namespace ovcore::impl
