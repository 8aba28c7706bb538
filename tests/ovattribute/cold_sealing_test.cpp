// SPDX-License-Identifier: Apache-2.0
// The first sealing of a process, and of a thread, when memory fails in the middle of it. This
// program puts itself before the C library's `malloc`, so that libcrypto's allocations fail, too,
// and forks a child for each that fails.
#include <gtest/gtest.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <limits>
#include <new>
#include <thread>

#include "ovattribute/attribute_value.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcore/exception.h"
#include "ovcrypto/error_codes.h"
#include "ovcrypto/key.h"

extern "C" void* __libc_malloc(std::size_t size) noexcept;
extern "C" void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
extern "C" void __libc_free(void* memory) noexcept;
extern "C" void* __libc_realloc(void* memory, std::size_t size) noexcept;

namespace {

/// What this thread can have: memory of so many bytes at a time, and all allocations but one.
struct Shortage {
  long bytes = 0;
  long failing = -1;  // the number of the allocation that fails
  bool reached = false;
};
thread_local constinit Shortage* t_shortage = nullptr;

bool fails(std::size_t size) noexcept {
  if (t_shortage == nullptr) return false;
  Shortage& s = *t_shortage;
  const bool fails = s.failing-- == 0 || static_cast<long>(size) > s.bytes;
  if (fails) s.reached = true;
  return fails;
}

void* counted(void* memory) noexcept {
  if (t_shortage != nullptr) t_shortage->bytes -= static_cast<long>(::malloc_usable_size(memory));
  return memory;
}

}  // namespace

#define OV_INTERPOSED extern "C" __attribute__((visibility("default")))

OV_INTERPOSED void* malloc(std::size_t size) noexcept {
  return fails(size) ? nullptr : counted(__libc_malloc(size));
}
OV_INTERPOSED void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails(count * size) ? nullptr : counted(__libc_calloc(count, size));
}
OV_INTERPOSED void free(void* memory) noexcept {
  if (t_shortage != nullptr) t_shortage->bytes += static_cast<long>(::malloc_usable_size(memory));
  __libc_free(memory);
}
OV_INTERPOSED void* realloc(void* memory, std::size_t size) noexcept {
  if (fails(size)) return nullptr;
  if (t_shortage != nullptr) t_shortage->bytes += static_cast<long>(::malloc_usable_size(memory));
  return counted(__libc_realloc(memory, size));
}

namespace ovattribute {
namespace {

/// What a child tells by its exit status.
enum Outcome { works, refuses, wrong, not_reached };

/// Seals and opens. `refuses`: with an error that a caller can catch.
Outcome seal() {
  try {
    const ovcrypto::Key key = ovcrypto::Key::random(16);
    const SecuredValue sealed("a text of some length", "", {}, key,
                              *SecuredValue::default_cipher());
    return sealed.extract(key) == AttributeValue("a text of some length") ? works : wrong;
  } catch (const std::bad_alloc&) {
    return refuses;
  } catch (const ovcore::Exception& e) {
    const ovcore::ErrorCode code = e.info()->code();
    return code == ovcrypto::error::ovcrypto_openssl ||
                   code == ovcrypto::error::ovcrypto_randomProvider_failed
               ? refuses
               : wrong;
  }
}

/// Seals short of memory, then with all of it, where a refusal must stay one.
Outcome seal_short_of_memory(Shortage shortage) {
  t_shortage = &shortage;
  const Outcome at_first = seal();
  t_shortage = nullptr;
  const Outcome then = seal();
  if (at_first == wrong || then == wrong || seal() != then) return wrong;
  if (at_first == works && then != works) return wrong;
  return shortage.reached ? then : not_reached;
}

constexpr long plenty = std::numeric_limits<long>::max();

Shortage one_failing(long n) {
  return {.bytes = plenty, .failing = n};
}

template <class F>
int status_of_child(F&& run) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(20);
    ::_exit(run());
  }
  int status = -1;
  EXPECT_EQ(::waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -status;
}

// After the loss of a single block inside it libcrypto may stay broken, and must not be used.
TEST(ColdSealing, FailsCleanlyInAProcessThatHasNotSealed) {
  // The first ones set up what libcrypto stands on; most of the others read its configuration.
  for (long n = 0;; n += n < 80 ? 1 : 61) {
    const int status = status_of_child([&] { return seal_short_of_memory(one_failing(n)); });
    if (status == not_reached) break;
    ASSERT_TRUE(status == works || status == refuses) << n << ": " << status;
  }
}

TEST(ColdSealing, WorksOnceThereIsMemory) {
  for (long bytes = 0;; bytes += bytes < 2000 ? 100 : 10'000) {
    const int status = status_of_child([&] { return seal_short_of_memory({.bytes = bytes}); });
    if (status == not_reached) break;
    ASSERT_EQ(status, works) << bytes;
  }
}

TEST(ColdSealing, FailsCleanlyInAThreadThatHasNotSealed) {
  for (long n = 0;; ++n) {
    const int status = status_of_child([&] {
      if (seal() != works) return wrong;
      Outcome outcome = wrong;
      std::thread([&] { outcome = seal_short_of_memory(one_failing(n)); }).join();
      return outcome;
    });
    if (status == not_reached) break;
    ASSERT_EQ(status, works) << n;
  }
}

}  // namespace
}  // namespace ovattribute
