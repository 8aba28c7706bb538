// SPDX-License-Identifier: Apache-2.0
#include "ovcore/error_catalog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ovattribute/error_codes.h"
#include "ovcore/error_codes.h"
#include "ovcrypto/error_codes.h"
#include "ovjson/error_codes.h"
#include "ovserialize/error_codes.h"
#include "ovuri/error_codes.h"

namespace {

using ovcore::ErrorCatalogEntry;
using ovcore::ErrorCode;

struct Promised {
  std::string_view library;
  std::string_view name;
  std::string_view text;
  const ErrorCode* constant;
};

constexpr Promised promised[] = {
#define CODE(library, name, text) {#library, #name, text, &library::error::name},
#include "tests/data/errors/catalog.inc"
#undef CODE
};

struct Library {
  const char* name;
  std::span<const ErrorCatalogEntry> catalog;
};

std::vector<Library> libraries() {
  return {{"ovattribute", ovattribute::error::catalog()}, {"ovjson", ovjson::error::catalog()},
          {"ovcrypto", ovcrypto::error::catalog()},       {"ovcore", ovcore::error::catalog()},
          {"ovserialize", ovserialize::error::catalog()}, {"ovuri", ovuri::error::catalog()}};
}

std::vector<std::string> components(std::string_view text) {
  std::vector<std::string> result(1);
  for (const char c : text) {
    if (c == '.') {
      result.emplace_back();
    } else {
      result.back().push_back(c);
    }
  }
  return result;
}

bool starts_with(const std::vector<std::string>& whole, const std::vector<std::string>& start) {
  return start.size() <= whole.size() && std::equal(start.begin(), start.end(), whole.begin());
}

TEST(ErrorCatalog, HasEveryPromisedCode) {
  for (const Promised& p : promised) {
    SCOPED_TRACE(p.text);
    EXPECT_EQ(p.constant->text().view(), p.text);
    EXPECT_EQ(*p.constant, ErrorCode(ovcore::SourceString(p.text)));
    std::string parent(p.text.substr(0, p.text.rfind('.')));
    EXPECT_EQ(p.constant->parent().text().view(), parent);
  }
  EXPECT_EQ(std::size(promised), 31u + 28u + 36u);
}

TEST(ErrorCatalog, HasNoOtherCodes) {
  for (const Library& library : libraries()) {
    std::set<std::string_view> expected;
    for (const Promised& p : promised) {
      if (p.library == library.name) expected.insert(p.name);
    }
    if (expected.empty()) continue;  // a library's own branch
    std::set<std::string_view> found;
    for (const ErrorCatalogEntry& entry : library.catalog)
      found.insert(entry.name);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(library.catalog.size(), expected.size());
  }
}

TEST(ErrorCatalog, EveryLibraryHasABranchOfItsOwn) {
  for (const Library& library : libraries()) {
    std::set<std::string> texts;
    for (const ErrorCatalogEntry& entry : library.catalog) {
      SCOPED_TRACE(entry.name);
      const std::string text = entry.code->text().str();
      EXPECT_TRUE(texts.insert(text).second);
      EXPECT_NE(*entry.meaning, '\0');
      std::string name(text);
      std::replace(name.begin(), name.end(), '.', '_');
      EXPECT_EQ(name, "error_" + std::string(entry.name));
      EXPECT_EQ(components(text).at(1), library.name);
      for (const std::string& part : components(text)) {
        EXPECT_TRUE(part.at(0) >= 'a' && part.at(0) <= 'z');
        EXPECT_EQ(part.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"),
                  part.npos);
      }
    }
    // Every family is a code as well, save this one, whose only member stands alone.
    texts.insert("error");
    texts.insert("error.ovjson.value");
    for (const ErrorCatalogEntry& entry : library.catalog)
      EXPECT_TRUE(texts.contains(entry.code->parent().text().str())) << entry.name;
  }
}

TEST(ErrorCatalog, FamiliesHoldWhatBeginsWithTheirComponents) {
  std::vector<const ErrorCode*> codes;
  for (const Library& library : libraries()) {
    for (const ErrorCatalogEntry& entry : library.catalog)
      codes.push_back(entry.code);
  }
  for (const ErrorCode* a : codes) {
    const std::vector<std::string> parts = components(a->text());
    for (const ErrorCode* b : codes)
      EXPECT_EQ(a->is_a(*b), starts_with(parts, components(b->text()))) << *a << ' ' << *b;
    EXPECT_TRUE(a->is_a(ErrorCode("error", true)));
    EXPECT_FALSE(ErrorCode("error", true).is_a(*a));
  }
}

}  // namespace
