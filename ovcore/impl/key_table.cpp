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

// Entries begin on a page of their own, whatever the size of pages.
constexpr std::size_t before_entries = std::size_t{1} << 16;

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
  ++chunk.live;
  if (m_spare == m_roomy) m_spare = none;
  if (chunk.live == tokens_per_chunk) unlink(m_roomy);
  return token;
}

void KeyArena::release(KeyToken* token) noexcept {
  const std::uint32_t index = chunk_of(token);
  Chunk& chunk = m_chunks[index];
  if (chunk.live-- == tokens_per_chunk) link(index);
  if (chunk.live > 0 || m_spare == none) {
    token->next_free = std::exchange(chunk.free, token);
    mark_tokens(token, sizeof *token, false);
    if (chunk.live == 0) m_spare = index;
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
  void* const memory = ::mmap(nullptr, before_entries + size * sizeof(Entry),
                              PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  std::byte* const place = static_cast<std::byte*>(memory) + before_entries - sizeof(Entries);
  return std::unique_ptr<Entries>(::new (place) Entries{size - 1});
}

void KeyTable::Entries::operator delete(Entries* entries, std::destroying_delete_t) noexcept {
  const std::size_t size = before_entries + (entries->mask + 1) * sizeof(Entry);
  ::munmap(reinterpret_cast<std::byte*>(entries + 1) - before_entries, size);
}

void KeyTable::Entries::clear() noexcept {
  if (::madvise(this + 1, (mask + 1) * sizeof(Entry), MADV_DONTNEED) == 0) return;
  for (std::size_t i = 0; i <= mask; ++i)  // the pages are locked
    (*this)[i].store(0, std::memory_order_relaxed);
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

KeyTable::KeyTable() {
  m_sizes[0] = Entries::make(smallest);
  m_entries.store(m_sizes[0].get(), std::memory_order_relaxed);
  fill_random(m_secret, sizeof m_secret);
}

KeyTable::~KeyTable() {
  Entries& entries = *m_sizes[m_size];
  for (std::size_t i = 0; i <= entries.mask; ++i) {
    KeyToken* token = token_of(entries[i].load(std::memory_order_relaxed));
    if (token != nullptr) std::destroy_at(&token->text);
  }
}

KeyToken* KeyTable::find_or_insert(SourceString text, std::size_t h, KeyToken* wrong) {
  if (wrong != nullptr) release(wrong);
  const std::lock_guard guard(m_mutex);
  // What is listed keeps its text until the lock is given up, also when its references are gone.
  KeyToken* token = find_if(*m_sizes[m_size], h, [&](KeyToken* known) {
    return equal(known->text, text) && hold(known);
  });
  if (token != nullptr) return token;

  std::string copy = text.str();
  if (m_count * 4 >= m_sizes[m_size]->mask * 3) grow();
  token = m_arena.allocate();
  ::new (&token->text) std::string(std::move(copy));
  token->hash.store(h, std::memory_order_relaxed);
  m_sizes[m_size]->insert(token);
  token->refs.store(1, std::memory_order_release);
  ++m_count;
  return token;
}

void KeyTable::grow() {
  std::unique_ptr<Entries>& larger = m_sizes[m_size + 1];
  if (larger == nullptr) larger = Entries::make(smallest << (m_size + 1));
  use_size(m_size + 1);
}

void KeyTable::use_size(std::size_t n) noexcept {
  Entries& from = *m_sizes[m_size];
  for (std::size_t i = 0; i <= from.mask; ++i) {
    KeyToken* token = token_of(from[i].load(std::memory_order_relaxed));
    if (token != nullptr) m_sizes[n]->insert(token);
  }
  m_entries.store(m_sizes[n].get(), std::memory_order_release);
  m_size = n;
  from.clear();
}

void KeyTable::reclaim(KeyToken* token) noexcept {
  const std::lock_guard guard(m_mutex);
  m_sizes[m_size]->erase(token);
  --m_count;
  std::destroy_at(&token->text);
  m_arena.release(token);
  // Down to a quarter, which is a quarter full then; there was one of that size before.
  if (smallest << m_size > never_shrunk && m_count < smallest << m_size >> 4) use_size(m_size - 2);
}

std::size_t KeyTable::size() const noexcept {
  const std::lock_guard guard(m_mutex);
  return m_count;
}

}  // namespace ovcore::impl
