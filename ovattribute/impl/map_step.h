// SPDX-License-Identifier: Apache-2.0
// Walking through maps in maps, which may share what they hold.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ovattribute::impl {

class ValueBase;

/// One step of an operation into a map, or into two that it compares. Counts a level of nesting, as
/// `NestingGuard` does, and raises the same.
///
/// 2^n paths may lead through n maps. So an operation that has made `steps_before_memory` steps
/// remembers from then on, until its first step ends, what it found for storage with several
/// owners; an operation that compares, which pairs it found equal. Where there is no memory it goes
/// on without. For operations that call nothing else meanwhile: what they walk through stays as it
/// is.
class MapStep {
 public:
  static constexpr std::size_t steps_before_memory = 1000;

  MapStep() : m_walk(enter()) {}
  MapStep(const MapStep&) = delete;
  MapStep& operator=(const MapStep&) = delete;
  ~MapStep() {
    --m_walk.level;
    if (--m_walk.open_steps == 0) m_walk.end();
  }

  /// Whether the operation remembers what it finds now.
  [[nodiscard]] bool remembers() const noexcept { return m_walk.remembers(); }
  /// The same for a value of maps: a list with several owners, whose maps may have one.
  [[nodiscard]] static bool remembers(const ValueBase& maps) noexcept;

  /// Says that the map the operation is in shows what other maps show, too. From then on anything
  /// may be met again, whoever owns it.
  static void note_lent() noexcept;
  [[nodiscard]] static bool has_met_lent() noexcept;

  /// What was remembered for the storage or the pair, or null.
  [[nodiscard]] static const std::size_t* find(const void* a, const void* b = nullptr) noexcept;
  static void remember(std::size_t result, const void* a, const void* b = nullptr) noexcept;

  class Memory;

  /// What a thread is at.
  struct Walk {
    std::size_t level = 0;
    std::size_t open_steps = 0;
    std::size_t steps = 0;  // of the operation
    bool has_met_lent = false;
    Memory* memory = nullptr;
    std::uint64_t random = 1;

    [[nodiscard]] bool remembers() const noexcept { return steps > steps_before_memory; }
    void end() noexcept {
      steps = 0;
      has_met_lent = false;
      if (memory != nullptr) forget();
    }
    void forget() noexcept;
    [[nodiscard]] bool draw() noexcept;
  };

 private:
  static Walk& enter();

  Walk& m_walk;
};

}  // namespace ovattribute::impl
