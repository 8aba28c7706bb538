// SPDX-License-Identifier: Apache-2.0
// Children of a process with threads, which other threads left the process in the middle of
// whatever they did.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "ovattribute/attribute_value.h"
#include "ovattribute/secured_value_cipher.h"
#include "ovcore/string_key.h"
#include "ovmoduleregistry/module_registry.h"
#include "tests/ovattribute/marshaling.h"
#include "tests/support/sanitized.h"

namespace ovattribute {
namespace {

/// What takes a lock of the process. `mark`: another for each caller. Whether all went well.
struct Use {
  const char* name;
  bool (*run)(const std::string& mark);
};

const Use uses[] = {
    {"names",
     [](const std::string& mark) {
       bool right = true;
       for (int i = 0; i < 50; ++i) {
         const std::string text = mark + std::to_string(i);
         right = right && ovcore::StringKey(text).value() == text;
       }
       return right;
     }},
    {"modules",
     [](const std::string& mark) {
       ovmoduleregistry::ModuleInfo info;
       return ovmoduleregistry::add_module_info(mark, "data") &&
              ovmoduleregistry::query_module_info(mark, &info) &&
              ovmoduleregistry::remove_module_info(mark);
     }},
    {"sealing",
     [](const std::string& mark) {
       const ovcrypto::Key key = ovcrypto::Key::random(16);
       const SecuredValue sealed(mark, "", {}, key, *SecuredValue::default_cipher());
       return sealed.extract(key) == AttributeValue(mark);
     }},
};

/// Forks a child that runs `use`, and waits for it. Whether it ended, and all went well in it.
bool goes_well_in_a_child(const Use& use, const std::string& mark) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(5);  // ends a child that waits for a lock whose holder is not there
    ::_exit(use.run(mark) ? 0 : 1);
  }
  int status = 0;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

TEST(Fork, ChildrenUseWhatThreadsWereUsing) {
  if (ovtest::sanitized) GTEST_SKIP() << "the sanitizer's own locks stay locked in the child";
  for (const Use& use : uses) {
    SCOPED_TRACE(use.name);
    ASSERT_TRUE(use.run("first"));
    std::atomic<bool> done = false;
    std::atomic<int> wrong = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
      threads.emplace_back([&, mark = "of thread " + std::to_string(i)] {
        while (!done)
          wrong += !use.run(mark);
      });
    }
    const auto fork_some = [&](const std::string& mark) {
      for (int i = 0; i < 100 && wrong == 0; ++i)
        wrong += !goes_well_in_a_child(use, mark);
    };
    std::thread another(fork_some, "of one child");
    fork_some("of another child");
    another.join();
    done = true;
    for (std::thread& thread : threads)
      thread.join();
    EXPECT_EQ(wrong, 0);
  }
}

}  // namespace
}  // namespace ovattribute
