// SPDX-License-Identifier: Apache-2.0
#include "ovcrypto/key.h"

#include <gtest/gtest.h>
#include <openssl/rand.h>

#include <algorithm>
#include <string>
#include <type_traits>
#include <utility>

#include "ovcrypto/error_codes.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/splits.h"

namespace {
int private_draws = 0;
}

// In the place of libcrypto's, which is another generator than that of `RAND_bytes`.
extern "C" __attribute__((visibility("default"))) int RAND_priv_bytes(unsigned char* buffer,
                                                                      int size) {
  ++private_draws;
  return RAND_bytes(buffer, size);
}

namespace ovcrypto {
namespace {

static_assert(!std::is_copy_constructible_v<Key> && !std::is_copy_assignable_v<Key>);
static_assert(std::is_nothrow_move_constructible_v<Key> && std::is_nothrow_move_assignable_v<Key>);

template <class T>
concept Printable = requires(std::ostream& out, const T& value) {
  out << value;
};
static_assert(!Printable<Key> && Printable<std::string>);

std::string letters(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i)
    text[i] = static_cast<char>('a' + i % 26);
  return text;
}

Key key_of(const std::string& text) {
  return Key(text.data(), text.size());
}

std::string text_of(const Key& key) {
  return std::string(key.bytes().begin(), key.bytes().end());
}

Key read_key(ovcore::IReadStream& stream) {
  Key key = key_of("before");
  key.read(stream);
  return key;
}

TEST(Key, IsRandomOnRequest) {
  const Key key = Key::random(32);
  EXPECT_EQ(key.size(), 32u);
  EXPECT_NE(key, Key::random(32));
  EXPECT_NE(key, Key(32));
  EXPECT_EQ(private_draws, 2);
  EXPECT_TRUE(Key::random(0).empty());
  EXPECT_ERROR(Key::random(Key::max_size + 1), error::ovcrypto_key_size,
               "Key cannot be larger than 16777216 bytes");
}

TEST(Key, KeepsTheFirstBytesWhenItsSizeChanges) {
  Key key = key_of("abc");
  key.resize(5);
  EXPECT_EQ(text_of(key), std::string("abc\0\0", 5));
  key.resize(2);
  EXPECT_EQ(text_of(key), "ab");
  key.resize(0);
  EXPECT_TRUE(key.empty());
  EXPECT_EQ(key.data(), nullptr);
  EXPECT_EQ(text_of(Key(3)), std::string(3, '\0'));
}

TEST(Key, EqualsByBytes) {
  EXPECT_EQ(Key(), Key());
  EXPECT_EQ(key_of("abc"), key_of("abc").clone());
  EXPECT_NE(key_of("abc"), key_of("abd"));
  EXPECT_NE(key_of("abc"), key_of("ab"));
  EXPECT_NE(key_of("abc"), Key());
}

TEST(Key, MovingHandsTheBufferOver) {
  Key from = key_of("abc");
  const unsigned char* const data = from.data();
  Key to = key_of("other");
  to = std::move(from);
  EXPECT_EQ(to.data(), data);
  EXPECT_TRUE(from.empty());  // NOLINT(bugprone-use-after-move): moved-from keys are empty
}

TEST(Key, ReadsStreamsOfAnyLength) {
  for (const std::size_t size : {0, 1, 16, 63, 64, 65, 127, 128, 129, 5000}) {
    SCOPED_TRACE(size);
    const std::string text = letters(size);
    ovcore::MemoryReadStream known(text);
    EXPECT_EQ(text_of(read_key(known)), text);
    ovtest::PieceStream unknown(text, {7});
    EXPECT_EQ(text_of(read_key(unknown)), text);
  }
}

TEST(Key, RefusesMoreThanTheLimit) {
  const char* const message = "Key cannot be larger than 16777216 bytes";
  const ovcore::ErrorCode& code = error::ovcrypto_key_size;
  const std::string text = letters(Key::max_size + 1);
  Key key = key_of("before");
  EXPECT_ERROR(Key(text.size()), code, message, {"ovcrypto/key", "ovcrypto::Key::Key()", 0});
  EXPECT_ERROR(key.resize(text.size()), code, message,
               {"ovcrypto/key", "ovcrypto::Key::resize()", 0});
  ovcore::MemoryReadStream known(text);
  EXPECT_ERROR(key.read(known), code, message, {"ovcrypto/key", "ovcrypto::Key::read()", 0});
  ovtest::PieceStream unknown(text, {text.size()});
  EXPECT_ERROR(key.read(unknown), code, message);
  EXPECT_EQ(text_of(key), "before");

  ovtest::PieceStream at_limit(std::string_view(text).substr(1), {text.size()});
  key.read(at_limit);
  EXPECT_EQ(key.size(), Key::max_size);
}

TEST(Key, WipesWhatItGivesBack) {
  // Bytes that no other test has left in memory.
  std::string text = letters(300);
  for (char& c : text)
    c = static_cast<char>(c ^ 0x80);
  int seen = 0;
  const auto look = [&](std::string_view block) {
    for (std::size_t i = 0; i < 26; ++i) {
      if (block.find(std::string_view(text).substr(i, 8)) != block.npos) ++seen;
    }
  };
  const auto use = [&text](std::size_t size) {
    Key key(text.data(), size);
    Key moved = std::move(key);
    moved.resize(size + 1);
    moved.resize(size - 1);
    key = moved.clone();
    moved = Key(text.data(), size);
    ovtest::PieceStream stream(text, {11});
    moved.read(stream);
    moved.clear();
  };
  {
    const ovtest::WatchFrees watch(look);
    use(16);
    use(200);
    ovtest::for_each_failed_allocation([&] { use(16); }, [] {});
  }
  EXPECT_EQ(seen, 0);
  {
    const ovtest::WatchFrees watch(look);
    const std::string not_wiped(text);
  }
  EXPECT_GT(seen, 0) << "the watch does not see what is given back";
}

}  // namespace
}  // namespace ovcrypto
