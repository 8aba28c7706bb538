// SPDX-License-Identifier: Apache-2.0
#include "ovcore/impl/small_memory.h"

#include <pthread.h>

#include <atomic>
#include <utility>

#include "ovcore/impl/at_load.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OV_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define OV_SANITIZED 1
#endif
#endif
#ifndef OV_SANITIZED
#define OV_SANITIZED 0
#endif

namespace ovcore::impl {
namespace {

/// Calls `end` when a thread ends that has set it. Unlike a `thread_local` object it takes no
/// memory that could be missing, and is there for what other keys' destructors give back.
class AtThreadsEnd {
 public:
  explicit AtThreadsEnd(void (*end)(void*)) noexcept
      : m_made(::pthread_key_create(&m_key, end) == 0) {}
  AtThreadsEnd(const AtThreadsEnd&) = delete;
  AtThreadsEnd& operator=(const AtThreadsEnd&) = delete;
  ~AtThreadsEnd() {  // at the process's end, or when a module is unloaded that this is linked into
    if (m_made && !s_gone.exchange(true)) ::pthread_key_delete(m_key);
  }
  [[nodiscard]] bool set(const void* value) const noexcept {
    return m_made && !s_gone && ::pthread_setspecific(m_key, value) == 0;
  }

 private:
  static inline constinit std::atomic<bool> s_gone = false;

  pthread_key_t m_key;
  bool m_made;
};

}  // namespace

constinit thread_local SmallMemory::Kept SmallMemory::t_kept{};

bool SmallMemory::keeps() noexcept {
  return !OV_SANITIZED;
}

// A block that may be kept serves everybody who asks for one of its class.
void* SmallMemory::take_from_heap(std::size_t size) {
  return ::operator new(keeps() ? size_of(class_of(size)) : size);
}

void SmallMemory::give_to_full(void* memory, std::size_t n) noexcept {
  static_assert(class_of(largest) == classes - 1 && size_of(classes - 1) == largest);
  static_assert(class_of(largest_fine) == fine_classes - 1 && most_kept(1) < 1 << 16);
  Kept& kept = t_kept;
  if (!keeps() || kept.state != State::unused || kept.pauses > 0) return ::operator delete(memory);
  static const AtThreadsEnd at_end([](void*) { end(); });
  if (!at_end.set(&kept)) return ::operator delete(memory);
  kept.state = State::in_use;
  make_room(kept);
  give(memory, size_of(n));
}

namespace {

[[maybe_unused]] const bool g_small_memory_ready = at_load([] {
  SmallMemory::give(SmallMemory::take(1), 1);  // makes `at_end`
  SmallMemory::empty();
});

}  // namespace

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
