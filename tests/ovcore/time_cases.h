// SPDX-License-Identifier: Apache-2.0
// Runs the files of tests/data/time, which state their format.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <string>

#include "ovcore/error_codes.h"
#include "ovcore/source_location.h"
#include "tests/support/error_matcher.h"

namespace ovtest {

/// `value_of(Time)` and `time_of(value)` convert; `syntax_message` is that for bad syntax up to
/// the text.
template <class Time, class ValueOf, class TimeOf>
void check_time_cases(const std::string& file, const std::string& syntax_message,
                      const ovcore::SourceLocation& location, ValueOf value_of, TimeOf time_of) {
  std::ifstream in(OV_TEST_DATA "/time/" + file);
  int cases = 0;
  for (std::string line; std::getline(in, line);) {
    if (line.starts_with('#')) continue;
    SCOPED_TRACE(line);
    ++cases;
    const std::size_t first = line.find('|');
    const std::size_t second = line.find('|', first + 1);
    ASSERT_NE(second, std::string::npos);
    const std::string outcome = line.substr(0, first);
    const std::string text = line.substr(first + 1, second - first - 1);
    const std::string value_text = line.substr(second + 1);
    const std::int64_t value = std::strtoll(value_text.c_str(), nullptr, 10);
    if (outcome == "syntax") {
      EXPECT_ERROR(Time::parse(text), ovcore::error::ovcore_time_syntax,
                   syntax_message + " '" + text + "' at position " + value_text, location);
    } else if (outcome == "invalid") {
      EXPECT_ERROR(Time::parse(text), ovcore::error::ovcore_time_invalid,
                   "There is no time '" + text + "'", location);
    } else if (outcome == "overflow") {
      EXPECT_ERROR(Time::parse(text), ovcore::error::ovcore_time_overflow,
                   "'" + text + "' is out of range", location);
    } else {
      EXPECT_EQ(value_of(Time::parse(text)), value);
      EXPECT_EQ(time_of(value).as_string() == text, outcome == "same") << time_of(value);
    }
  }
  EXPECT_GT(cases, 20);
}

}  // namespace ovtest
