// SPDX-License-Identifier: Apache-2.0
// The interning table behind `StringKey`.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "ovcore/export.h"
#include "ovcore/source_string.h"
#include "ovcore/string_key.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define OV_ADDRESS_SANITIZER 1
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define OV_ADDRESS_SANITIZER 1
#endif

namespace ovcore::impl {

/// Storage for tokens, handed out at ascending addresses. Address space is reserved in one piece
/// and filled chunk by chunk; the pages of a chunk whose tokens are all gone go back to the system.
/// They read as zeros then, so that a token that was handed out once can be looked at for ever.
class KeyArena {
 public:
  KeyArena() = default;
  KeyArena(const KeyArena&) = delete;
  KeyArena& operator=(const KeyArena&) = delete;
  ~KeyArena();

  /// A token without references and text. Raises `std::bad_alloc`.
  [[nodiscard]] KeyToken* allocate();
  void release(KeyToken* token) noexcept;

 private:
  static constexpr std::size_t tokens_per_chunk = 1024;
  static constexpr std::size_t chunk_size = sizeof(KeyToken) * tokens_per_chunk;
  static constexpr std::uint32_t none = ~std::uint32_t{0};

  struct Chunk {
    KeyToken* tokens = nullptr;
    KeyToken* free = nullptr;
    std::uint32_t fresh = 0;  // tokens from here on are zeros
    std::uint32_t live = 0;
    // Neighbours among the chunks that have room.
    std::uint32_t previous = none;
    std::uint32_t next = none;
  };
  struct Region {
    std::byte* memory = nullptr;
    std::size_t size = 0;
    std::size_t used = 0;
    std::size_t first_chunk = 0;
  };

  void add_chunk();
  void add_region();
  std::uint32_t chunk_of(const KeyToken* token) const noexcept;
  void link(std::uint32_t index) noexcept;
  void unlink(std::uint32_t index) noexcept;

  std::vector<Region> m_regions;
  std::vector<Chunk> m_chunks;
  std::uint32_t m_roomy = none;  // first chunk with room
  std::uint32_t m_spare = none;  // the empty chunk that still holds its pages
};

/// A hash table in which texts that are known are found without a lock. Exported so that tests can
/// make one of their own; the process has one that is never destroyed.
///
/// No two tokens with references have the same text. A token gets its first reference under the
/// lock, when it is listed and no other listed token has both the text and references. It is taken
/// from the list under the lock, when it has no references, and until then gets none, since `hold`
/// adds to those that are there.
///
/// Who finds without the lock meets tokens in any state, and may miss one while entries move or
/// when it looks where entries were before. A reference that is held together with the right text
/// makes a token the right one, whatever way led to it; all else is settled under the lock.
class OV_EXPORT KeyTable {
 public:
  KeyTable();
  ~KeyTable();
  KeyTable(const KeyTable&) = delete;
  KeyTable& operator=(const KeyTable&) = delete;

  /// The token of a text that is not empty, with a reference for the caller.
  [[nodiscard]] KeyToken* intern(SourceString text);
  void release(KeyToken* token) noexcept {
    if (token->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) reclaim(token);
  }
  /// Gives back a token whose last reference is gone.
  void reclaim(KeyToken* token) noexcept;
  [[nodiscard]] std::size_t size() const noexcept;
  /// Keep other threads from changing the table during a fork: the child has no thread that would
  /// release their lock.
  void lock() noexcept { m_mutex.lock(); }
  void unlock() noexcept { m_mutex.unlock(); }

 private:
  /// A token's address and, in the bits that are zero there, a piece of its hash; 0: none.
  using Entry = std::uintptr_t;
  static constexpr Entry tag_mask = alignof(KeyToken) - 1;

  /// `mask + 1` entries, which lie behind it, a quarter of them 0: each where the hash says, or in
  /// the next place that was free.
  struct Entries {
    /// Raises `std::bad_alloc`.
    static std::unique_ptr<Entries> make(std::size_t size);
    static void operator delete(Entries* entries, std::destroying_delete_t) noexcept;
    std::atomic<Entry>& operator[](std::size_t h) noexcept {
      return reinterpret_cast<std::atomic<Entry>*>(this + 1)[h & mask];
    }
    void insert(KeyToken* token) noexcept;
    void erase(KeyToken* token) noexcept;
    /// All are 0 afterwards, and their pages are the system's.
    void clear() noexcept;

    const std::size_t mask;
  };
  static constexpr std::size_t smallest = 256;
  static constexpr std::size_t never_shrunk = 8192;  // 64 KiB

  static KeyToken* token_of(Entry entry) noexcept {
    // Beside a tag there is no other way. NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<KeyToken*>(entry & ~tag_mask);
  }
  static Entry tag_of(std::size_t h) noexcept { return h >> 58; }
  std::size_t hash(std::string_view text) const noexcept;
  static bool hold(KeyToken* token) noexcept;
  /// The first token with this hash that `accept` takes; null: none.
  template <class F>
  static KeyToken* find_if(Entries& entries, std::size_t h, F accept);
  /// Gives up the reference to `wrong` first, unless it is null.
  KeyToken* find_or_insert(SourceString text, std::size_t h, KeyToken* wrong);
  void grow();
  /// There is a table of that size.
  void use_size(std::size_t n) noexcept;

  std::uint64_t m_secret[3];
  std::atomic<Entries*> m_entries;  // `m_sizes[m_size]`
  // What follows is for the holder of the lock.
  alignas(64) mutable std::mutex m_mutex;
  // Of `smallest` entries, twice as many, and so on; null where it was not needed. Those that are
  // not in use are cleared and kept, because somebody may still read there.
  std::unique_ptr<Entries> m_sizes[40];
  std::size_t m_size = 0;
  std::size_t m_count = 0;
  KeyArena m_arena;
};

template <class T>
std::uint64_t load(const char* p) noexcept {
  T value;
  std::memcpy(&value, p, sizeof value);
  return value;
}

/// Without a call for texts as short as names are.
inline bool equal(std::string_view left, std::string_view right) noexcept {
  using std::uint32_t, std::uint64_t;
  if (left.size() != right.size()) return false;
  const std::size_t size = left.size();
  const char* const a = left.data();
  const char* const b = right.data();
  if (size > 16) return std::memcmp(a, b, size) == 0;
  if (size >= 8) {
    const char* const last_a = a + size - 8;
    const char* const last_b = b + size - 8;
    return ((load<uint64_t>(a) ^ load<uint64_t>(b)) |
            (load<uint64_t>(last_a) ^ load<uint64_t>(last_b))) == 0;
  }
  if (size >= 4) {
    const char* const last_a = a + size - 4;
    const char* const last_b = b + size - 4;
    return ((load<uint32_t>(a) ^ load<uint32_t>(b)) |
            (load<uint32_t>(last_a) ^ load<uint32_t>(last_b))) == 0;
  }
  for (std::size_t i = 0; i < size; ++i)
    if (a[i] != b[i]) return false;
  return true;
}

// Folded 64-bit multiplications over pieces of 16 bytes, in the manner of wyhash and its kin, keyed
// with secrets of this process alone.
inline std::size_t KeyTable::hash(std::string_view text) const noexcept {
  __extension__ using Wide = unsigned __int128;
  const auto fold = [](std::uint64_t a, std::uint64_t b) {
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
  };
  const char* p = text.data();
  std::size_t n = text.size();
  std::uint64_t state = m_secret[0];
  for (; n > 16; p += 16, n -= 16)
    state = fold(load<std::uint64_t>(p) ^ m_secret[1], load<std::uint64_t>(p + 8) ^ state);
  std::uint64_t a = 0;
  std::uint64_t b = 0;
  if (n >= 8) {
    a = load<std::uint64_t>(p);
    b = load<std::uint64_t>(p + n - 8);
  } else if (n >= 4) {
    a = load<std::uint32_t>(p);
    b = load<std::uint32_t>(p + n - 4);
  } else if (n > 0) {
    a = load<std::uint8_t>(p) << 16 | load<std::uint8_t>(p + n / 2) << 8 |
        load<std::uint8_t>(p + n - 1);
  }
  return fold(m_secret[2] ^ text.size(), fold(a ^ m_secret[1], b ^ state));
}

/// Adds a reference unless there is none. Acquires the text, which the thread that added the first
/// reference released.
inline bool KeyTable::hold(KeyToken* token) noexcept {
  std::size_t refs = token->refs.load(std::memory_order_relaxed);
  while (refs != 0) {
    if (token->refs.compare_exchange_weak(refs, refs + 1, std::memory_order_acquire,
                                          std::memory_order_relaxed)) {
      return true;
    }
  }
  return false;
}

template <class F>
[[gnu::always_inline]] inline KeyToken* KeyTable::find_if(Entries& entries, std::size_t h,
                                                          F accept) {
  for (std::size_t i = 0; i <= entries.mask; ++i) {
    const Entry entry = entries[h + i].load(std::memory_order_acquire);
    if (entry == 0) return nullptr;
    if ((entry & tag_mask) != tag_of(h)) continue;
    KeyToken* token = token_of(entry);
    if (token->hash.load(std::memory_order_relaxed) == h && accept(token)) return token;
  }
  return nullptr;
}

[[gnu::always_inline]] inline KeyToken* KeyTable::intern(SourceString text) {
  const std::size_t h = hash(text);
#ifndef OV_ADDRESS_SANITIZER  // which takes a look at a token that has gone for the usual mistake
  KeyToken* held = find_if(*m_entries.load(std::memory_order_acquire), h, hold);
  if (held != nullptr && equal(held->text, text)) return held;
  return find_or_insert(text, h, held);
#else
  return find_or_insert(text, h, nullptr);
#endif
}

}  // namespace ovcore::impl
