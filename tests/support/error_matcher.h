// SPDX-License-Identifier: Apache-2.0
// Names the error that a statement must raise. There is no "it failed" check: a test says which
// error it expects.
#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <string_view>

#include "ovcore/exception.h"

namespace ovtest {

template <class Statement>
ovcore::RefCountPtr<const ovcore::ErrorInfo> error_of(Statement&& statement) {
  try {
    statement();
  } catch (const ovcore::Exception& e) {
    return e.info();
  } catch (const std::exception& e) {
    ADD_FAILURE() << "raised a foreign exception: " << e.what();
    return nullptr;
  }
  ADD_FAILURE() << "raised nothing";
  return nullptr;
}

inline void expect_error(const ovcore::RefCountPtr<const ovcore::ErrorInfo>& info,
                         const ovcore::ErrorCode& code, std::string_view message) {
  if (!info) return;
  EXPECT_EQ(info->code(), code);
  EXPECT_EQ(info->message(), message);
}

inline void expect_error(const ovcore::RefCountPtr<const ovcore::ErrorInfo>& info,
                         const ovcore::ErrorCode& code, std::string_view message,
                         const ovcore::SourceLocation& location) {
  if (!info) return;
  expect_error(info, code, message);
  EXPECT_EQ(info->location().file, location.file);
  EXPECT_EQ(info->location().function, location.function);
  EXPECT_EQ(info->location().line, location.line);
}

}  // namespace ovtest

/// EXPECT_ERROR(statement, code, message [, {file, function, line}]).
#define EXPECT_ERROR(statement, ...)                                                  \
  do {                                                                                \
    SCOPED_TRACE(#statement);                                                         \
    ::ovtest::expect_error(::ovtest::error_of([&] { static_cast<void>(statement); }), \
                           __VA_ARGS__);                                              \
  } while (false)

/// For the standard out-of-range exception, with its exact text.
#define EXPECT_OUT_OF_RANGE(statement, text)            \
  do {                                                  \
    try {                                               \
      static_cast<void>(statement);                     \
      ADD_FAILURE() << #statement << " raised nothing"; \
    } catch (const std::out_of_range& e) {              \
      EXPECT_STREQ(e.what(), text);                     \
    }                                                   \
  } while (false)
