// SPDX-License-Identifier: Apache-2.0
#include "ovcore/to_string.h"

#include <gtest/gtest.h>

#include <clocale>
#include <limits>

namespace ovcore {
namespace {

TEST(ToString, WritesEveryKindOfNumber) {
  EXPECT_EQ(to_string(std::numeric_limits<long long>::min()), "-9223372036854775808");
  EXPECT_EQ(to_string(std::numeric_limits<unsigned long long>::max()), "18446744073709551615");
  EXPECT_EQ(to_string(static_cast<signed char>(-5)), "-5");
  EXPECT_EQ(to_string(true), "true");
  struct Case {
    double value;
    const char* text;
  };
  for (const Case& c : {Case{0.0, "0.0"},
                        {-0.0, "-0.0"},
                        {2.0, "2.0"},
                        {0.1, "0.1"},
                        {1e300, "1e+300"},
                        {123456.0, "123456.0"},
                        {5e-324, "5e-324"},
                        {1.7976931348623157e308, "1.7976931348623157e+308"},
                        {-2.2250738585072014e-308, "-2.2250738585072014e-308"},
                        {std::numeric_limits<double>::infinity(), "Infinity"},
                        {-std::numeric_limits<double>::infinity(), "-Infinity"},
                        {std::numeric_limits<double>::quiet_NaN(), "NaN"}}) {
    EXPECT_EQ(to_string(c.value), c.text);
  }
}

}  // namespace
}  // namespace ovcore
