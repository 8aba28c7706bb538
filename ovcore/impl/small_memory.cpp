// SPDX-License-Identifier: Apache-2.0
#include "ovcore/impl/small_memory.h"

#include <utility>

namespace ovcore::impl {

constinit thread_local SmallMemory::Kept SmallMemory::t_kept{};

void SmallMemory::give_to_full(void* memory, std::size_t n) noexcept {
  static_assert(class_of(largest) == classes - 1 && size_of(classes - 1) == largest);
  static_assert(class_of(largest_fine) == fine_classes - 1 && most_kept(1) < 1 << 16);
  Kept& kept = t_kept;
  if (kept.state != State::unused || kept.pauses > 0) return ::operator delete(memory);
  struct End {
    ~End() { end(); }
  };
  static thread_local const End at_end;
  static_cast<void>(&at_end);
  kept.state = State::in_use;
  make_room(kept);
  give(memory, size_of(n));
}

void SmallMemory::make_room(Kept& kept) noexcept {
  for (std::size_t i = 0; i < classes; ++i)
    kept.room[i] = static_cast<std::uint16_t>(most_kept(size_of(i)));
}

void SmallMemory::end() noexcept {
  t_kept.state = State::ended;
  empty();
}

void SmallMemory::empty() noexcept {
  Kept& kept = t_kept;
  for (std::size_t i = 0; i < classes; ++i) {
    while (kept.first[i] != nullptr)
      ::operator delete(std::exchange(kept.first[i], kept.first[i]->next));
    kept.room[i] = 0;
  }
  if (kept.state == State::in_use && kept.pauses == 0) make_room(kept);
}

SmallMemory::Pause::Pause() noexcept {
  ++t_kept.pauses;
  empty();
}

SmallMemory::Pause::~Pause() {
  --t_kept.pauses;
  empty();
}

}  // namespace ovcore::impl
