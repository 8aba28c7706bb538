// SPDX-License-Identifier: Apache-2.0
// An independent decoder reads what we write.
#include <gtest/gtest.h>

#include <random>

#include "ovserialize/item_kind.h"
#include "tests/ovserialize/items.h"
#include "tests/ovserialize/judge.h"

namespace ovserialize {
namespace {

TEST(PythonJudge, ReadsEveryItem) {
  Items items = all_items();
  std::mt19937 random(4);
  for (int i = 0; i < 200; ++i) {
    const Items more = random_items(random);
    items.insert(items.end(), more.begin(), more.end());
  }
  Item deep;
  for (int i = 0; i < 1000; ++i)
    deep = {item_sequence, i % 3 == 1 ? 0u : static_cast<unsigned>(i % 3), {}, {deep}};
  items.push_back(deep);
  expect_python_reads(to_binary(items), items);
}

}  // namespace
}  // namespace ovserialize
