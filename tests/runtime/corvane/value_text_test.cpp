// SPDX-License-Identifier: MIT
#include "runtime/corvane/value_text.h"

#include <gtest/gtest.h>

#include <limits>

namespace corvane {
namespace {

TEST(ValueTextTest, ALongTextIsCutToTheLimit) {
  EXPECT_EQ(QuotedText("abc"), "'abc'");
  const std::string longest(kLongestValueText - 2, 'x');
  EXPECT_EQ(QuotedText(longest), "'" + longest + "'");
  const std::string cut = QuotedText(longest + "x");
  EXPECT_EQ(cut.size(), kLongestValueText);
  EXPECT_EQ(cut.substr(cut.size() - 4), "x...");
}

TEST(ValueTextTest, ADateIsUtcAndWhatIsNotADateIsANumber) {
  EXPECT_EQ(DateText(1763694000), "2025-11-21 03:00:00 UTC");
  EXPECT_EQ(DateText(0), "-");
  EXPECT_EQ(DateText(-11644473599.0), "1601-01-01 00:00:01 UTC");
  for (const double number : {1e18, -1e18, std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(DateText(number), std::nullopt) << number;
  }
}

}  // namespace
}  // namespace corvane
