// SPDX-License-Identifier: Apache-2.0
#include "ovuri/uri_reference.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include "ovuri/error_codes.h"
#include "tests/support/allocations.h"
#include "tests/support/error_matcher.h"
#include "tests/support/table.h"

namespace ovuri {
namespace {

static_assert(sizeof(UriReference) == sizeof(void*));
static_assert(std::is_nothrow_copy_constructible_v<UriReference>);
static_assert(!std::is_convertible_v<const char*, UriReference>);

TEST(UriReference, AcceptsAndSplits) {
  for (const ovtest::Row& row : ovtest::read_table("uri/good.txt", 8)) {
    SCOPED_TRACE(row[0]);
    const auto part = [&row](std::size_t i) {
      return row[i] == "-" ? std::nullopt : std::optional<std::string_view>(row[i]);
    };
    const UriReference uri{ovcore::SourceString(row[0])};
    EXPECT_EQ(uri.text(), row[0]);
    EXPECT_EQ(uri.scheme(), part(1));
    EXPECT_EQ(uri.is_absolute(), part(1).has_value());
    EXPECT_EQ(uri.is_relative(), !part(1).has_value());
    EXPECT_EQ(uri.userinfo(), part(2));
    EXPECT_EQ(uri.host(), part(3));
    EXPECT_EQ(uri.authority().has_value(), part(3).has_value());
    EXPECT_EQ(uri.port(), part(4));
    EXPECT_EQ(uri.path(), row[5]);
    EXPECT_EQ(uri.query(), part(6));
    EXPECT_EQ(uri.fragment(), part(7));
    EXPECT_EQ(UriReference::try_parse(row[0]), uri);
  }
}

TEST(UriReference, RejectsWithThePosition) {
  for (const ovtest::Row& row : ovtest::read_table("uri/bad.txt", 2)) {
    const std::string& text = row[0];
    SCOPED_TRACE(text);
    EXPECT_EQ(UriReference::try_parse(text), std::nullopt);
    const std::string& position = row[1];
    const std::string message =
        std::stoul(position) < text.size()
            ? "Invalid URI reference '" + text + "' at byte " + position
            : "URI reference '" + text + "' ends too early at byte " + position;
    EXPECT_ERROR(UriReference{ovcore::SourceString(text)}, error::ovuri_syntax, message,
                 {"ovuri/uri_reference", "ovuri::UriReference::UriReference()", 0});
  }
}

TEST(UriReference, Resolves) {
  for (const ovtest::Row& row : ovtest::read_table("uri/resolve.txt", 3)) {
    SCOPED_TRACE(row[2] + " + " + row[0]);
    const UriReference result = UriReference(row[0]).resolve(UriReference(row[2]));
    EXPECT_EQ(result.text(), row[1]);
    EXPECT_EQ(result, UriReference(row[1]));
  }
}

TEST(UriReference, TheBaseHasAScheme) {
  EXPECT_ERROR(UriReference("a").resolve(UriReference("//h/b")), error::ovuri_base,
               "The base '//h/b' of a URI reference has no scheme",
               {"ovuri/uri_reference", "ovuri::UriReference::resolve()", 0});
  EXPECT_ERROR(UriReference("s:a").resolve(UriReference()), error::ovuri_base,
               "The base '' of a URI reference has no scheme");
}

TEST(UriReference, ComparesByteByByte) {
  const std::vector<UriReference> ascending = {UriReference(),
                                               UriReference("HTTP://h"),
                                               UriReference("http://H"),
                                               UriReference("http://h"),
                                               UriReference("http://h/"),
                                               UriReference("http://h/%7e"),
                                               UriReference("http://h/~")};
  for (const UriReference& a : ascending) {
    for (const UriReference& b : ascending) {
      const int expected = (&a > &b) - (&a < &b);
      EXPECT_EQ(a.compare(b), expected);
      EXPECT_EQ(a == b, expected == 0);
      EXPECT_EQ(a < b, expected < 0);
    }
  }
  const std::unordered_set<UriReference> set(ascending.begin(), ascending.end());
  EXPECT_EQ(set.size(), ascending.size());
  EXPECT_TRUE(set.contains(UriReference("http://h/~")));
  std::ostringstream out;
  out << ascending.back() << ascending.front();
  EXPECT_EQ(out.str(), "http://h/~");
}

TEST(UriReference, CopiesShareTheText) {
  const UriReference uri("http://example.com/a/path/that/does/not/fit/anywhere/in/place");
  UriReference copy;
  EXPECT_EQ(ovtest::allocations_of([&] { copy = uri; }), 0u);
  EXPECT_EQ(copy.text().data(), uri.text().data());
  copy = UriReference("x");
  EXPECT_EQ(uri.host(), "example.com");
  EXPECT_EQ(ovtest::allocations_of([] { UriReference(""); }), 0u);
  EXPECT_EQ(ovtest::allocations_of([] { UriReference("http://h/p?q#f"); }), 1u);
}

std::string repeated(std::string_view piece, std::size_t size) {
  std::string text;
  text.reserve(size);
  while (text.size() + piece.size() <= size)
    text += piece;
  return text;
}

// Were the time not linear, or the stack needed, these would not end well.
TEST(UriReference, LongTextsAreRead) {
  struct Case {
    const char* start;
    const char* piece;
    const char* end = "";
  };
  for (const Case& c : std::vector<Case>{{"", ","},
                                         {"", "a"},
                                         {"", "%41"},
                                         {"/", "@:"},
                                         {"s:", "+"},
                                         {"//u", ":1", "@"},
                                         {"//", "1."},
                                         {"//h:", "1"},
                                         {"//[v1.", ":", "]"},
                                         {"?", "?/"},
                                         {"#", "%41"},
                                         {"", "/"},
                                         {"s:", "a/"},
                                         {"", "../"}}) {
    SCOPED_TRACE(std::string(c.start) + c.piece);
    // The parser notes every slash, which takes memory: fewer of those.
    const bool slashes = std::string_view(c.piece).ends_with('/') && c.piece[0] != '?';
    const std::size_t size = std::size_t{slashes ? 1u : 4u} << 20;
    const std::string text = c.start + repeated(c.piece, size - 8) + c.end;
    EXPECT_EQ(UriReference(text).text(), text);
    EXPECT_EQ(UriReference::try_parse(text + '"'), std::nullopt);
  }
}

TEST(UriReference, ErrorsShowTheBeginningOfLongTexts) {
  const std::string text = repeated("a", 1000) + " ";
  EXPECT_ERROR(UriReference(text), error::ovuri_syntax,
               "Invalid URI reference '" + repeated("a", 64) + "...' at byte 1000");
  EXPECT_ERROR(UriReference(repeated("a", 63) + "\xC3\xA9"), error::ovuri_syntax,
               "Invalid URI reference '" + repeated("a", 63) + "...' at byte 63");
}

TEST(UriReference, ResolvesLongPathsInLinearTime) {
  const std::size_t size = std::size_t{1} << 20;
  const UriReference base("s://" + repeated("h", size));
  const UriReference ups(repeated("../", size));
  EXPECT_EQ(ups.resolve(base).text(), base.as_string() + "/");
  const UriReference downs(repeated("a/", size) + "..");
  EXPECT_EQ(downs.resolve(base).path().size(), size - 1);
}

TEST(UriReference, RefusesTextsBeyondTheLimit) {
  const std::string text = repeated("a", UriReference::max_size + 1);
  EXPECT_EQ(UriReference::try_parse(text), std::nullopt);
  EXPECT_ERROR(UriReference(text), error::ovuri_size,
               "URI reference of 16777217 bytes exceeds the limit of 16777216");
  const UriReference longest("s:/" + repeated("a", UriReference::max_size - 3));
  EXPECT_ERROR(UriReference("#f").resolve(longest), error::ovuri_size,
               "URI reference of 16777218 bytes exceeds the limit of 16777216",
               {"ovuri/uri_reference", "ovuri::UriReference::resolve()", 0});
}

}  // namespace
}  // namespace ovuri
