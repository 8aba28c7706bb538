// SPDX-License-Identifier: Apache-2.0
#include "ovcore/error_composer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "ovcore/error_codes.h"
#include "ovcore/exception.h"

namespace ovcore {
namespace {

TEST(ErrorCode, FamiliesEndAtDots) {
  const ErrorCode code("error.a.bc", true);
  struct Case {
    const char* family;
    bool member;
  };
  for (const Case& c : {Case{"error.a.bc", true},
                        {"error.a", true},
                        {"error", true},
                        {"", true},
                        {"error.a.b", false},
                        {"error.a.bc.d", false},
                        {"rror", false}}) {
    EXPECT_EQ(code.is_a(ErrorCode(c.family, true)), c.member) << c.family;
  }
  EXPECT_EQ(code.parent().text(), "error.a");
  EXPECT_EQ(code.parent().parent().parent(), ErrorCode());
  EXPECT_EQ(ErrorCode().parent(), ErrorCode());
}

TEST(ErrorCode, CopiesTextThatIsNotPermanent) {
  std::string text = "error.temporary";
  const ErrorCode code(text.c_str(), false);
  const ErrorCode parent = ErrorCode(SourceString(text)).parent();
  text.assign(text.size(), 'x');
  EXPECT_EQ(code.text(), "error.temporary");
  EXPECT_EQ(parent.text(), "error");
}

TEST(ErrorComposer, ReplacesMarks) {
  struct Case {
    const char* text;
    const char* message;
  };
  for (const Case& c : {Case{"no marks", "no marks"},
                        {"'{@a}' and '{@b}'", "'1' and '{@a}'"},
                        {"{@a}{@a}", "11"},
                        {"{@unknown} {@a}", "{@unknown} 1"},
                        {"{@{@a}}", "{@1}"},
                        {"{@a", "{@a"},
                        {"{a} {} @a {@}", "{a} {} @a {@}"},
                        {"", ""}}) {
    const auto info = ErrorComposer(c.text)
                          .add("a", 1)
                          .add("b", "{@a}")
                          .add("a", "second")
                          .compose(error::ovcore, {});
    EXPECT_EQ(info->message(), c.message) << c.text;
    EXPECT_EQ(info->message_template(), c.text);
    EXPECT_EQ(info->parameters().size(), 3u);
  }
}

TEST(Exception, CarriesTheFinishedMessageAndTheWholeError) {
  try {
    ErrorComposer("size {@size}").add("size", -5).throw_error(error::ovcore_time, {"f", "g()", 7});
    FAIL();
  } catch (const std::exception& e) {
    EXPECT_STREQ(e.what(), "size -5");
    const auto info = error_info_of(e);
    EXPECT_EQ(info->code(), error::ovcore_time);
    EXPECT_EQ(*info->parameter("size"), "-5");
    EXPECT_EQ(info->parameter("other"), nullptr);
    EXPECT_EQ(info->location(), (SourceLocation{"f", "g()", 7}));
    EXPECT_EQ(info->cause(), nullptr);
  }
  static_assert(std::is_nothrow_copy_constructible_v<Exception>);
}

TEST(Exception, NestsTheFailureBeingHandled) {
  try {
    try {
      throw std::runtime_error("disk on fire");
    } catch (const std::exception& cause) {
      throw_with_nested_exception(error::ovcore_stream, "while reading", {"f", "g()", 1}, cause);
    }
  } catch (const Exception& e) {
    EXPECT_STREQ(e.what(), "while reading");
    ASSERT_TRUE(e.info()->cause());
    EXPECT_EQ(e.info()->cause()->message(), "disk on fire");
    EXPECT_EQ(e.info()->cause()->code(), error::ovcore_exception);
    try {
      throw_error(e.info());
    } catch (const Exception& again) {
      EXPECT_EQ(again.info(), e.info());
    }
  }
}

RefCountPtr<const ErrorInfo> chain(int length, const char* deepest) {
  auto info = ErrorComposer(deepest).compose(error::ovcore, {});
  for (int i = 1; i < length; ++i) {
    info = ErrorComposer("link").cause(std::move(info)).compose(error::ovcore, {});
  }
  return info;
}

TEST(ErrorInfo, OrdersByEveryFieldInTurn) {
  const auto make = [](const char* code, const char* text, const char* value, int line,
                       bool cause) {
    return ErrorComposer(text)
        .add("p", value)
        .cause(cause ? chain(1, "x") : nullptr)
        .compose(ErrorCode(code, true), {"f", "g()", static_cast<std::uint32_t>(line)});
  };
  const RefCountPtr<const ErrorInfo> ascending[] = {
      make("a", "z", "z", 9, true), make("b", "a", "z", 9, true),  make("b", "b", "a", 9, true),
      make("b", "b", "b", 1, true), make("b", "b", "b", 2, false), make("b", "b", "b", 2, true)};
  for (const auto& a : ascending) {
    for (const auto& b : ascending) {
      EXPECT_EQ(a->compare(*b), &a < &b ? -1 : &a > &b ? 1 : 0);
    }
  }
  EXPECT_EQ(ascending[5]->hash(), make("b", "b", "b", 2, true)->hash());
}

TEST(ErrorInfo, LongChainsNeedNoDeepStack) {
  const auto a = chain(200000, "a");
  const auto b = chain(200000, "b");
  EXPECT_EQ(a->compare(*b), -1);
  EXPECT_NE(a->hash(), b->hash());
}

}  // namespace
}  // namespace ovcore
