// SPDX-License-Identifier: Apache-2.0
// The interning table behind `StringKey`.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "ovcore/export.h"
#include "ovcore/source_string.h"
#include "ovcore/string_key.h"

namespace ovcore::impl {

/// Storage for tokens, handed out at ascending addresses. Address space is reserved in one piece
/// and filled chunk by chunk; the pages of a chunk whose tokens are all gone go back to the system.
/// Safe from any thread.
class KeyArena {
 public:
  KeyArena() = default;
  KeyArena(const KeyArena&) = delete;
  KeyArena& operator=(const KeyArena&) = delete;
  ~KeyArena();

  /// Room for one `KeyToken`. Raises `std::bad_alloc`.
  [[nodiscard]] void* allocate();
  void release(void* slot) noexcept;

 private:
  static constexpr std::size_t slot_size = sizeof(KeyToken);
  static constexpr std::size_t slots_per_chunk = 1024;
  static constexpr std::size_t chunk_size = slot_size * slots_per_chunk;
  static constexpr std::uint32_t none = ~std::uint32_t{0};

  struct FreeSlot {
    FreeSlot* next;
  };
  struct Chunk {
    std::byte* memory = nullptr;
    FreeSlot* free = nullptr;
    std::uint32_t fresh = 0;  // slots from here on were never used
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
  std::uint32_t chunk_of(const void* slot) const noexcept;
  void link(std::uint32_t index) noexcept;
  void unlink(std::uint32_t index) noexcept;

  std::mutex m_mutex;
  std::vector<Region> m_regions;
  std::vector<Chunk> m_chunks;
  std::uint32_t m_roomy = none;  // first chunk with room
  bool m_spare = false;          // whether an empty chunk still holds its pages
};

/// A hash table split into shards with a lock each. Exported so that tests can make one of their
/// own; the process has one that is never destroyed.
class OV_EXPORT KeyTable {
 public:
  KeyTable();
  ~KeyTable();
  KeyTable(const KeyTable&) = delete;
  KeyTable& operator=(const KeyTable&) = delete;

  /// The token of a text that is not empty, with a reference for the caller.
  [[nodiscard]] KeyToken* intern(SourceString text);
  /// Drops a reference that may be the last one.
  void release_last(KeyToken* token) noexcept;
  [[nodiscard]] std::size_t size() const noexcept;

 private:
  static constexpr unsigned shard_bits = 7;

  /// Held for a few loads and stores, save when a shard grows; waiters yield.
  class SpinLock {
   public:
    void lock() noexcept;
    void unlock() noexcept { m_locked.store(false, std::memory_order_release); }

   private:
    std::atomic<bool> m_locked{false};
  };

  struct alignas(64) Shard {
    SpinLock lock;
    std::size_t mask = 0;
    std::size_t count = 0;
    std::unique_ptr<KeyToken*[]> buckets;
  };

  std::size_t hash(std::string_view text) const noexcept;
  Shard& shard_of(std::size_t h) noexcept {
    return m_shards[h >> (sizeof(std::size_t) * 8 - shard_bits)];
  }
  KeyToken* insert(Shard& shard, std::string_view text, std::size_t h);
  static void grow(Shard& shard) noexcept;
  void destroy(KeyToken* token) noexcept;

  std::uint64_t m_secret[3];
  KeyArena m_arena;
  mutable Shard m_shards[std::size_t{1} << shard_bits];
};

}  // namespace ovcore::impl
