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

namespace ovuri {
namespace {

static_assert(sizeof(UriReference) == sizeof(void*));
static_assert(std::is_nothrow_copy_constructible_v<UriReference>);
static_assert(!std::is_convertible_v<const char*, UriReference>);

using Part = std::optional<std::string_view>;
constexpr std::nullopt_t none = std::nullopt;

struct Accepted {
  std::string_view text;
  Part scheme, userinfo, host, port;
  std::string_view path;
  Part query, fragment;
};

TEST(UriReference, AcceptsAndSplits) {
  const std::vector<Accepted> cases = {
      // RFC 3986 section 1.1.2
      {"ftp://ftp.is.co.za/rfc/rfc1808.txt", "ftp", none, "ftp.is.co.za", none, "/rfc/rfc1808.txt",
       none, none},
      {"ldap://[2001:db8::7]/c=GB?objectClass?one", "ldap", none, "[2001:db8::7]", none, "/c=GB",
       "objectClass?one", none},
      {"mailto:John.Doe@example.com", "mailto", none, none, none, "John.Doe@example.com", none,
       none},
      {"news:comp.infosystems.www.servers.unix", "news", none, none, none,
       "comp.infosystems.www.servers.unix", none, none},
      {"tel:+1-816-555-1212", "tel", none, none, none, "+1-816-555-1212", none, none},
      {"telnet://192.0.2.16:80/", "telnet", none, "192.0.2.16", "80", "/", none, none},
      {"urn:oasis:names:specification:docbook:dtd:xml:4.1.2", "urn", none, none, none,
       "oasis:names:specification:docbook:dtd:xml:4.1.2", none, none},
      // section 3
      {"foo://example.com:8042/over/there?name=ferret#nose", "foo", none, "example.com", "8042",
       "/over/there", "name=ferret", "nose"},
      {"urn:example:animal:ferret:nose", "urn", none, none, none, "example:animal:ferret:nose",
       none, none},
      // absent is not empty
      {"", none, none, none, none, "", none, none},
      {"?", none, none, none, none, "", "", none},
      {"#", none, none, none, none, "", none, ""},
      {"?#", none, none, none, none, "", "", ""},
      {"//", none, none, "", none, "", none, none},
      {"//@:", none, "", "", "", "", none, none},
      {"file:///etc/passwd", "file", none, "", none, "/etc/passwd", none, none},
      {"s:", "s", none, none, none, "", none, none},
      {"s:?", "s", none, none, none, "", "", none},
      // relative references
      {"a", none, none, none, none, "a", none, none},
      {"../g;x=1", none, none, none, none, "../g;x=1", none, none},
      {"/a//b", none, none, none, none, "/a//b", none, none},
      {"//h/p", none, none, "h", none, "/p", none, none},
      {"./a:b", none, none, none, none, "./a:b", none, none},
      {"a/b:c", none, none, none, none, "a/b:c", none, none},
      // odd but in the grammar
      {"A+b-.9:x", "A+b-.9", none, none, none, "x", none, none},
      {"http://a:b:c@h", "http", "a:b:c", "h", none, "", none, none},
      {"http://u%40@[v1F.a:b]:0000099999/", "http", "u%40", "[v1F.a:b]", "0000099999", "/", none,
       none},
      {"http://[::ffff:192.0.2.1]:1?q", "http", none, "[::ffff:192.0.2.1]", "1", "", "q", none},
      {"http://256.1.1.1/", "http", none, "256.1.1.1", none, "/", none, none},
      {"http://%68/%00", "http", none, "%68", none, "/%00", none, none},
      {"x:?a/?b#c/?d", "x", none, none, none, "", "a/?b", "c/?d"},
      {"-._~!$&'()*+,;=@/:", none, none, none, none, "-._~!$&'()*+,;=@/:", none, none},
  };
  for (const Accepted& c : cases) {
    SCOPED_TRACE(c.text);
    const UriReference uri{ovcore::SourceString(c.text)};
    EXPECT_EQ(uri.text(), c.text);
    EXPECT_EQ(uri.scheme(), c.scheme);
    EXPECT_EQ(uri.is_absolute(), c.scheme.has_value());
    EXPECT_EQ(uri.is_relative(), !c.scheme.has_value());
    EXPECT_EQ(uri.userinfo(), c.userinfo);
    EXPECT_EQ(uri.host(), c.host);
    EXPECT_EQ(uri.authority().has_value(), c.host.has_value());
    EXPECT_EQ(uri.port(), c.port);
    EXPECT_EQ(uri.path(), c.path);
    EXPECT_EQ(uri.query(), c.query);
    EXPECT_EQ(uri.fragment(), c.fragment);
    EXPECT_EQ(UriReference::try_parse(c.text), uri);
  }
}

struct Rejected {
  std::string_view text;
  std::size_t position;
};

TEST(UriReference, RejectsWithThePosition) {
  using namespace std::string_view_literals;
  const std::vector<Rejected> cases = {
      {" ", 0},
      {"a b", 1},
      {"http://h/\xC3\xA9", 9},  // only ASCII: this would be an IRI
      {"a\0b"sv, 1},
      {"http://h/\n", 9},
      {"<a>", 0},
      {"a\\b", 1},
      {"http://h/{x}", 9},
      {"a|b", 1},
      {"^", 0},
      {"\x7F", 0},
      {":a", 0},    // a scheme is not empty
      {"1a:b", 2},  // nor begins with a digit, and a first segment has no colon
      {"a@b:c", 3},
      {"a_b:c", 3},
      {"%4g", 2},
      {"%", 1},
      {"ab%4", 4},
      {"http://h%4", 10},
      {"s:%zz", 3},
      {"http://h:8a/", 11},  // up to there it might be user information
      {"http://h:80:81", 14},
      {"http://u@v@h/", 10},
      {"http://[::1", 11},
      {"http://[::1]x", 12},
      {"http://[:::]/", 10},
      {"http://[1:2]", 11},
      {"http://[1::2::3]", 13},
      {"http://[1:2:3:4:5:6:7:8:9]", 23},
      {"http://[12345::]", 12},
      {"http://[::1.2.3.256]", 18},
      {"http://[]/", 8},
      {"http://[v.x]", 9},
      {"http://[v1.]", 11},
      {"http://[fe80::1%25eth0]/", 15},  // zones are RFC 6874, later withdrawn
      {"http://a[b]/", 8},
      {"http://h/[x]", 9},
      {"?[", 1},
      {"a#b#c", 3},
  };
  for (const Rejected& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(UriReference::try_parse(c.text), std::nullopt);
    const std::string text(c.text);
    const std::string position = std::to_string(c.position);
    const std::string message =
        c.position < text.size()
            ? "Invalid URI reference '" + text + "' at byte " + position
            : "URI reference '" + text + "' ends too early at byte " + position;
    EXPECT_ERROR(UriReference{ovcore::SourceString(c.text)}, error::ovuri_syntax, message,
                 {"ovuri/uri_reference", "ovuri::UriReference::UriReference()", 0});
  }
}

// Below RFC 3986 section 5.4, then cases of our own; expected: the algorithm of section 5.2 by
// hand.
TEST(UriReference, Resolves) {
  struct Case {
    const char* reference;
    const char* expected;
    const char* base = "http://a/b/c/d;p?q";
  };
  const std::vector<Case> cases = {
      {"g:h", "g:h"},
      {"g", "http://a/b/c/g"},
      {"./g", "http://a/b/c/g"},
      {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"},
      {"//g", "http://g"},
      {"?y", "http://a/b/c/d;p?y"},
      {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"},
      {"g#s", "http://a/b/c/g#s"},
      {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"},
      {"g;x", "http://a/b/c/g;x"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {"", "http://a/b/c/d;p?q"},
      {".", "http://a/b/c/"},
      {"./", "http://a/b/c/"},
      {"..", "http://a/b/"},
      {"../", "http://a/b/"},
      {"../g", "http://a/b/g"},
      {"../..", "http://a/"},
      {"../../", "http://a/"},
      {"../../g", "http://a/g"},
      {"../../../g", "http://a/g"},
      {"../../../../g", "http://a/g"},
      {"/./g", "http://a/g"},
      {"/../g", "http://a/g"},
      {"g.", "http://a/b/c/g."},
      {".g", "http://a/b/c/.g"},
      {"g..", "http://a/b/c/g.."},
      {"..g", "http://a/b/c/..g"},
      {"./../g", "http://a/b/g"},
      {"./g/.", "http://a/b/c/g/"},
      {"g/./h", "http://a/b/c/g/h"},
      {"g/../h", "http://a/b/c/h"},
      {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
      {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"g?y/../x", "http://a/b/c/g?y/../x"},
      {"g#s/./x", "http://a/b/c/g#s/./x"},
      {"g#s/../x", "http://a/b/c/g#s/../x"},
      {"http:g", "http:g"},  // strict

      {"?", "http://a/b/c/d;p?"},
      {"#", "http://a/b/c/d;p?q#"},
      {"//", "http://"},
      {"//h/../x", "http://h/x"},
      {"t://u@[::1]:1/./a/..", "t://u@[::1]:1/"},
      {"g", "http://h/g", "http://h"},
      {"../g", "http://h/g", "http://h?q"},
      {"?y", "http://h?y", "http://h#f"},
      {"..//g", "http://a/b//g"},
      {"", "s:a/../b", "s:a/../b#f"},  // the base's path is taken as it is
      {"b", "mailto:b", "mailto:a"},
      {"t:a/../b", "t:/b"},
      {"t:../.././a/.", "t:a/"},
      {"t:..", "t:"},
      {"t:a/..", "t:/"},
      {"../g", "file:///g", "file:///x"},
      {".//g", "s:/.//g", "s:/x"},  // "s://g" would be a host
      {"/..//g", "s:/.//g", "s:x"},
      {"/.//g", "http://h//g", "http://h"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.base) + " + " + c.reference);
    const UriReference result = UriReference(c.reference).resolve(UriReference(c.base));
    EXPECT_EQ(result.text(), c.expected);
    EXPECT_EQ(result, UriReference(c.expected));
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

TEST(ErrorCatalog, CodesAreNamedAfterTheirText) {
  for (const ovcore::ErrorCatalogEntry& e : error::catalog()) {
    std::string name = e.code->text().str();
    ASSERT_TRUE(name.starts_with("error."));
    name.erase(0, 6);
    std::replace(name.begin(), name.end(), '.', '_');
    EXPECT_EQ(name, e.name);
  }
}

}  // namespace
}  // namespace ovuri
