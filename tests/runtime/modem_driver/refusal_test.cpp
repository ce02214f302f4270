// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/refusal.h"

#include <gtest/gtest.h>

namespace {

using corvane::DescribeRefusal;

TEST(DescribeRefusal, AddsTheMeaningOfTheStandards) {
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: 331\r\n"), "+CMS ERROR: 331 (no network service)");
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: 1\r\n"), "+CMS ERROR: 1 (unassigned number)");
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: 500\r\n"), "+CMS ERROR: 500 (unknown error)");
  EXPECT_EQ(DescribeRefusal("+CME ERROR: 10\r\n"), "+CME ERROR: 10 (SIM not inserted)");
  EXPECT_EQ(DescribeRefusal("+CME ERROR: 0\r\n"), "+CME ERROR: 0 (phone failure)");
}

TEST(DescribeRefusal, ShowsWhatHasNoMeaningAsItIs) {
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: 529\r\n"), "+CMS ERROR: 529");
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: SIM failure\r\n"), "+CMS ERROR: SIM failure");
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: \x1B[31m\r\n"), "+CMS ERROR: \\x1B[31m");
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: 99999999999999999999\r\n"),
            "+CMS ERROR: 99999999999999999999");
  EXPECT_EQ(DescribeRefusal("+CMS ERROR: "), "+CMS ERROR: ");
}

TEST(DescribeRefusal, FindsItAfterTheLinesOfAnAnswer) {
  EXPECT_EQ(DescribeRefusal("+CMGL: 1,0,,3\r\n000102\r\n+CMS ERROR: 320\r\n"),
            "+CMS ERROR: 320 (memory failure)");
}

TEST(DescribeRefusal, IsEmptyForOtherAnswers) {
  EXPECT_EQ(DescribeRefusal(""), "");
  EXPECT_EQ(DescribeRefusal("OK\r\n"), "");
  EXPECT_EQ(DescribeRefusal("ERROR\r\n"), "");
}

}  // namespace
