// SPDX-License-Identifier: MIT
#include "runtime/corvane/duration.h"

#include <gtest/gtest.h>

namespace {

using corvane::FormatDuration;
using corvane::Nanoseconds;
using corvane::ParseDuration;

TEST(Duration, IsANumberAndAUnit) {
  EXPECT_EQ(ParseDuration("100ms"), std::chrono::milliseconds(100));
  EXPECT_EQ(ParseDuration("1.5s"), std::chrono::milliseconds(1500));
  EXPECT_EQ(ParseDuration("250us"), std::chrono::microseconds(250));
  EXPECT_EQ(ParseDuration("7ns"), Nanoseconds(7));
  EXPECT_EQ(ParseDuration("2min"), std::chrono::minutes(2));
  EXPECT_EQ(ParseDuration("1h"), std::chrono::hours(1));
  EXPECT_EQ(ParseDuration("0ms"), Nanoseconds(0));
  EXPECT_EQ(ParseDuration("0"), Nanoseconds(0));
}

TEST(Duration, RefusesEverythingElse) {
  for (const char* text : {"", "abc", "-5ms", "100", "ms", "1 s", "1s ", " 1s", "1e3ms", "infs",
                           "nanms", "1ss", "1m", "999999h", "+1s", "0x10ms"}) {
    EXPECT_FALSE(ParseDuration(text)) << "'" << text << "'";
  }
}

TEST(Duration, IsShownWithThreeDigitsAndTheUnitThatSuits) {
  EXPECT_EQ(FormatDuration(Nanoseconds(0)), "0s");
  EXPECT_EQ(FormatDuration(Nanoseconds(7)), "7ns");
  EXPECT_EQ(FormatDuration(Nanoseconds(1'234)), "1.23us");
  EXPECT_EQ(FormatDuration(Nanoseconds(12'345'678)), "12.3ms");
  EXPECT_EQ(FormatDuration(std::chrono::seconds(5)), "5s");
  EXPECT_EQ(FormatDuration(std::chrono::minutes(90)), "5400s");
  EXPECT_EQ(FormatDuration(Nanoseconds(999'999)), "1ms");
}

}  // namespace
