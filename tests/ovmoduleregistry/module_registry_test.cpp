// SPDX-License-Identifier: Apache-2.0
#include "ovmoduleregistry/module_registry.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ovmoduleregistry/impl/module_table.h"

namespace ovmoduleregistry {
namespace {

TEST(ModuleRegistry, ANameIsTakenUntilItIsGivenBack) {
  ModuleInfo info{"untouched"};
  EXPECT_FALSE(query_module_info("test.once", &info));
  EXPECT_FALSE(remove_module_info("test.once"));
  EXPECT_EQ(info.data, "untouched");

  EXPECT_TRUE(add_module_info("test.once", "<first/>"));
  EXPECT_FALSE(add_module_info("test.once", "<second/>"));
  EXPECT_TRUE(add_module_info("test.once2", "<other/>"));
  ASSERT_TRUE(query_module_info("test.once", &info));
  EXPECT_EQ(info.data, "<first/>");

  EXPECT_TRUE(remove_module_info("test.once"));
  EXPECT_FALSE(query_module_info("test.once", &info));
  EXPECT_TRUE(add_module_info("test.once", "<second/>"));
  ASSERT_TRUE(query_module_info("test.once", &info));
  EXPECT_EQ(info.data, "<second/>");
  EXPECT_TRUE(remove_module_info("test.once"));
  EXPECT_TRUE(remove_module_info("test.once2"));
}

TEST(ModuleTable, OneOfManyThreadsGetsTheName) {
  impl::ModuleTable table;
  std::atomic<int> added = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      ModuleInfo info;
      for (int n = 0; n < 1000; ++n) {
        if (table.add("name", "data")) ++added;
        if (table.query("name", &info)) {
          EXPECT_EQ(info.data, "data");
        }
        if (table.remove("name")) --added;
      }
    });
  }
  for (std::thread& t : threads)
    t.join();
  EXPECT_EQ(added, 0);
}

}  // namespace
}  // namespace ovmoduleregistry
