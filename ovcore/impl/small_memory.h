// SPDX-License-Identifier: Apache-2.0
// Memory for small objects that come and go in great numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>

#include "ovcore/export.h"

namespace ovcore::impl {

/// Blocks that a thread gave back and has at hand for the next who asks, in front of the global
/// `operator new`. There is no pool behind: each block is one of the heap, and goes back to it when
/// the thread keeps enough of its class already, or ends; the main thread's end is the process's.
/// So a block may be given back on another thread than it was taken on, and no lock is taken.
///
/// A library compiled with a sanitizer keeps nothing and allocates exactly what was asked for, so
/// that the sanitizer sees every misuse. Only the library decides: what is inlined here is the same
/// in every program, however that was compiled.
class OV_EXPORT SmallMemory {
 public:
  /// False when the library was compiled with a sanitizer.
  [[nodiscard]] static bool keeps() noexcept;
  static constexpr std::size_t largest = 1144;  // bytes; what is larger is the heap's alone
  /// Blocks that a thread keeps of the class of a size: 64 KiB of those up to 120 bytes, 32 KiB of
  /// others, 1.4 MiB at most in all.
  [[nodiscard]] static constexpr std::size_t most_kept(std::size_t size) noexcept {
    const std::size_t bytes = std::size_t{size > 120 ? 32u : 64u} << 10;
    return bytes / size_of(class_of(size));
  }

  /// Memory as from the global `operator new`, which it calls when it has none: raises
  /// `std::bad_alloc`.
  [[nodiscard]] static void* take(std::size_t size) {
    if (size > largest) return ::operator new(size);
    const std::size_t n = class_of(size);
    Kept& kept = t_kept;
    Block* const block = kept.first[n];
    if (block == nullptr) return take_from_heap(size);
    kept.first[n] = block->next;
    ++kept.room[n];
    return block;
  }
  /// `size`: the one that was asked for.
  static void give(void* memory, std::size_t size) noexcept {
    if (size > largest) return ::operator delete(memory);
    const std::size_t n = class_of(size);
    Kept& kept = t_kept;
    if (kept.room[n] == 0) return give_to_full(memory, n);
    --kept.room[n];
    kept.first[n] = ::new (memory) Block{kept.first[n]};
  }

  /// Gives all that the calling thread keeps back to the heap.
  static void empty() noexcept;

  /// Empties the calling thread's, and keeps nothing while it lives: for tests, where every block
  /// is to be the heap's.
  class OV_EXPORT Pause {
   public:
    Pause() noexcept;
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
  };

 private:
  struct Block {
    Block* next;
  };
  // Classes fit those of glibc's heap, whose blocks are multiples of 16 less a word: each 16 bytes
  // one, and above `largest_fine` each 64.
  static constexpr std::size_t largest_fine = 376;
  static constexpr std::size_t fine_classes = 24;
  static constexpr std::size_t class_of(std::size_t size) noexcept {
    return size > largest_fine ? (size - largest_fine + 63) / 64 + fine_classes - 1
                               : (size + 7) / 16;
  }
  static constexpr std::size_t size_of(std::size_t n) noexcept {
    return n < fine_classes ? 16 * n + 8 : largest_fine + 64 * (n - fine_classes + 1);
  }
  static constexpr std::size_t classes = 36;

  enum class State : std::uint8_t { unused, in_use, ended };
  struct Kept {
    Block* first[classes];
    std::uint16_t room[classes];  // for so many more blocks; 0 while nothing is kept
    std::uint16_t pauses;
    State state;
  };

  [[nodiscard]] static void* take_from_heap(std::size_t size);
  static void give_to_full(void* memory, std::size_t n) noexcept;
  static void make_room(Kept& kept) noexcept;
  static void end() noexcept;

  [[gnu::tls_model("initial-exec")]] static constinit thread_local Kept t_kept;
};

}  // namespace ovcore::impl
