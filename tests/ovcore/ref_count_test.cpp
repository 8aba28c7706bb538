// SPDX-License-Identifier: Apache-2.0
#include "ovcore/ref_count.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "ovcore/static_instance.h"
#include "ovcore/transfer_source.h"

namespace ovcore {
namespace {

int g_alive = 0;

struct Counted : RefCounted {
  Counted() { ++g_alive; }
  ~Counted() override { --g_alive; }
};
struct Derived : Counted {};

TEST(RefCountPtr, TheLastHandleDestroysTheObject) {
  RefCountPtr<Counted> a = make_ref_counted<Derived>();
  EXPECT_TRUE(a->has_unique_ref());
  {
    const RefCountPtr<const Counted> b = a;
    EXPECT_FALSE(a->has_unique_ref());
    EXPECT_TRUE(b == a);
  }
  EXPECT_TRUE(a->has_unique_ref());
  RefCountPtr<Counted> c = std::move(a);
  EXPECT_FALSE(a);
  EXPECT_EQ(g_alive, 1);
  Counted* raw = c.detach();
  EXPECT_EQ(g_alive, 1);
  c = RefCountPtr<Counted>::adopt(raw);
  const RefCountPtr<Counted>& itself = c;
  c = itself;
  EXPECT_EQ(g_alive, 1);
  c.reset();
  EXPECT_EQ(g_alive, 0);
}

TEST(RefCountPtr, ManyThreadsShareOneObject) {
  const RefCountPtr<Counted> shared = make_ref_counted<Counted>();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([shared] {
      for (int n = 0; n < 10000; ++n)
        RefCountPtr<Counted> copy(shared);
    });
  }
  for (std::thread& t : threads)
    t.join();
  EXPECT_TRUE(shared->has_unique_ref());
}

struct IThing {
  virtual int answer() const = 0;

 protected:
  ~IThing() = default;
};
struct Singleton final : IThing {
  int answer() const override { return 1; }
};
struct SharedThing final : Counted, IThing {
  int answer() const override { return 2; }
};

TEST(InterfacePtr, OwnsCountedImplementationsAndPointsToSingletons) {
  static const Singleton singleton;
  InterfacePtr<const IThing> p(&singleton);
  EXPECT_EQ(p->answer(), 1);
  p = make_ref_counted<SharedThing>();
  const InterfacePtr<const IThing> copy = p;
  p = nullptr;
  EXPECT_EQ(g_alive, 1);
  EXPECT_EQ(copy->answer(), 2);
}

struct Loud {
  explicit Loud(int* destroyed) : m_destroyed(destroyed) {}
  ~Loud() { ++*m_destroyed; }
  int* m_destroyed;
};

TEST(StaticInstance, IsNeverDestroyed) {
  int destroyed = 0;
  {
    const StaticInstance<Loud> instance(&destroyed);
    EXPECT_EQ(instance->m_destroyed, &destroyed);
  }
  EXPECT_EQ(destroyed, 0);
}

TEST(TransferSource, LeavesTheSourceEmpty) {
  std::string from(100, 'x');
  const std::string to = TransferSource<std::string>(from).take();
  EXPECT_TRUE(from.empty());
  EXPECT_EQ(to, std::string(100, 'x'));
}

}  // namespace
}  // namespace ovcore
