// SPDX-License-Identifier: Apache-2.0
#include "ovcore/string_key.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include "ovcore/impl/key_table.h"
#include "ovcore/impl/small_memory.h"
#include "ovcore/static_instance.h"

namespace ovcore {
namespace {

// Built before main and used after it: a failure here ends the test program.
const StringKey g_early("made during static initialisation, with a long text");
struct UsedAtExit {
  ~UsedAtExit() {
    if (StringKey("made at exit").value() != "made at exit") std::abort();
  }
} g_used_at_exit;

TEST(StringKey, EqualTextsShareOneToken) {
  const StringKey a("one");
  const StringKey b("one too", 3);
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.key_value(), b.key_value());
  EXPECT_EQ(a.hash(), b.hash());
  EXPECT_EQ(&a.value(), &b.value());
  EXPECT_NE(a, StringKey("One"));
  EXPECT_EQ(g_early, StringKey("made during static initialisation, with a long text"));
  const std::string with_nul("a\0b", 3);
  EXPECT_NE(StringKey(with_nul), StringKey("a"));
  EXPECT_EQ(StringKey(with_nul).value(), with_nul);
}

TEST(StringKey, TheEmptyTextIsTheDefaultKey) {
  StringKey key("x");
  key.clear();
  EXPECT_EQ(key, StringKey());
  EXPECT_EQ(StringKey(""), StringKey());
  EXPECT_EQ(StringKey().value(), "");
  EXPECT_TRUE(StringKey().empty());
  EXPECT_LT(StringKey(), StringKey("x"));
}

TEST(StringKey, TokensAreReclaimed) {
  const std::size_t before = StringKey::interned_count();
  {
    std::vector<StringKey> keys;
    for (int i = 0; i < 5000; ++i)
      keys.emplace_back("reclaimed " + std::to_string(i));
    const std::vector<StringKey> copies = keys;
    EXPECT_EQ(StringKey::interned_count(), before + 5000);
    keys.clear();
    EXPECT_EQ(StringKey::interned_count(), before + 5000);
    EXPECT_EQ(copies[77].value(), "reclaimed 77");
  }
  EXPECT_EQ(StringKey::interned_count(), before);
}

TEST(StringKey, OrderIsThatOfFirstUse) {
  std::vector<StringKey> keys;
  for (int i = 3000; i > 0; --i)
    keys.emplace_back("first use " + std::to_string(i));
  // Slots given back earlier may be used again; beyond those, addresses ascend.
  std::size_t descents = 0;
  for (std::size_t i = 1; i < keys.size(); ++i)
    descents += keys[i] < keys[i - 1];
  EXPECT_LT(descents, keys.size() / 2);

  impl::KeyTable fresh;
  impl::KeyToken* previous = nullptr;
  for (int i = 3000; i > 0; --i) {
    impl::KeyToken* token = fresh.intern(std::to_string(i));
    EXPECT_LT(previous, token);
    previous = token;
  }
}

TEST(KeyTable, GivesChunksBackAndUsesSlotsAgain) {
  impl::KeyTable table;
  std::set<const void*> first_round;
  for (int round = 0; round < 3; ++round) {  // the table grows and shrinks in each
    std::vector<impl::KeyToken*> tokens;
    for (int i = 0; i < 20000; ++i) {
      tokens.push_back(table.intern("a text too long to be held in place " + std::to_string(i)));
      if (round == 0) {
        first_round.insert(tokens.back());
      } else {
        EXPECT_TRUE(first_round.contains(tokens.back()));
      }
    }
    EXPECT_EQ(table.size(), 20000u);
    for (const std::size_t first : {0, 1}) {  // what is left is found when its neighbours are gone
      for (std::size_t i = first; i < tokens.size(); i += 2) {
        const std::string text = "a text too long to be held in place " + std::to_string(i);
        EXPECT_EQ(tokens[i]->text, text);
        EXPECT_EQ(table.intern(text), tokens[i]);
        table.release(tokens[i]);
        table.release(tokens[i]);
      }
    }
    EXPECT_EQ(table.size(), 0u);
  }
}

std::size_t resident_bytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t size = 0, resident = 0;
  statm >> size >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

// Each round needs fewer names, and drops the newest first, so that other chunks become empty.
TEST(KeyTable, NamesThatAreGoneTakeNoMemory) {
  if (!impl::SmallMemory::keeps()) GTEST_SKIP() << "a sanitizer takes memory of its own";
  constexpr std::size_t most = 1 << 16;
  impl::KeyTable table;
  std::vector<impl::KeyToken*> tokens(most);
  const std::size_t before = resident_bytes();
  for (std::size_t count = most; count > 0; count -= 2048) {
    for (std::size_t i = 0; i < count; ++i)
      tokens[i] = table.intern(std::to_string(i));
    if (count == most) {
      EXPECT_GT(resident_bytes(), before + most * sizeof(impl::KeyToken));
    }
    for (std::size_t i = count; i-- > 0;)
      table.release(tokens[i]);
    EXPECT_LT(resident_bytes(), before + (1u << 20)) << count;
  }
}

TEST(KeyTable, HashUsesEveryByte) {
  impl::KeyTable table;
  std::unordered_set<std::size_t> hashes;
  std::size_t texts = 0;
  for (std::size_t size = 1; size <= 70; ++size) {
    for (std::size_t at = 0; at < size; ++at) {
      for (const char changed : {'a', 'b', '\0', '\xff'}) {
        std::string text(size, 'a');
        text[at] = changed;
        if (changed == 'a' && at > 0) continue;
        hashes.insert(table.intern(text)->hash);
        ++texts;
      }
    }
  }
  EXPECT_EQ(hashes.size(), texts);
  EXPECT_NE(impl::KeyTable().intern("x")->hash, impl::KeyTable().intern("x")->hash);
}

TEST(StringKey, ManyThreadsInternAndDropTheSameTexts) {
  const std::size_t before = StringKey::interned_count();
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 20000; ++i) {
        const std::string text = "contended " + std::to_string(i % 7);
        const StringKey key(text);
        const StringKey copy = key;
        if (copy.value() != text) std::abort();
      }
    });
  }
  for (std::thread& t : threads)
    t.join();
  EXPECT_EQ(StringKey::interned_count(), before);
}

// Tokens of a few texts come and go all the time, while the table grows, shrinks and gives chunks
// back.
TEST(KeyTable, NoTwoTokensOfOneTextAreHeldAtOnce) {
  struct Held {
    std::mutex mutex;
    int holders = 0;
    impl::KeyToken* token = nullptr;
  };
  impl::KeyTable table;
  Held held[5];
  std::atomic<int> wrong = 0;
  const auto meet = [&](std::size_t step) {
    for (std::size_t i = 0; i < 20000; ++i) {
      const std::size_t n = i * step % std::size(held);
      const std::string text(n * 9 + 1, static_cast<char>('a' + n));
      impl::KeyToken* token = table.intern(text);
      {
        const std::lock_guard guard(held[n].mutex);
        if (held[n].holders++ == 0) held[n].token = token;
        wrong += token != held[n].token || token->text != text;
      }
      impl::KeyToken* again = table.intern(text);
      wrong += again != token;
      table.release(again);
      {
        const std::lock_guard guard(held[n].mutex);
        --held[n].holders;
      }
      table.release(token);
    }
  };
  const auto come_and_go = [&](std::size_t id) {
    for (int round = 0; round < 6; ++round) {
      std::vector<impl::KeyToken*> tokens;
      for (std::size_t i = 0; i < 8000; ++i)
        tokens.push_back(table.intern(std::to_string(i * 2 + id)));
      for (std::size_t i = 0; i < tokens.size(); ++i) {
        wrong += tokens[i]->text != std::to_string(i * 2 + id);
        table.release(tokens[i]);
      }
    }
  };
  std::vector<std::thread> threads;
  for (const std::size_t i : {0, 1}) {
    threads.emplace_back(meet, 1 + i * 2);
    threads.emplace_back(come_and_go, i);
  }
  for (std::thread& t : threads)
    t.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(table.size(), 0u);
}

TEST(StringKey, TraceIsTheText) {
  std::ostringstream out;
  StringKey("a name").write_trace(out);
  StringKey().write_trace(out);
  EXPECT_EQ(out.str(), "a name");
}

}  // namespace
}  // namespace ovcore
