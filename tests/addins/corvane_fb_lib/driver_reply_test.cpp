// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/driver_reply.h"

#include <gtest/gtest.h>

#include <limits>

namespace {

TEST(CmsErrorNumber, IsTheDecimalNumberAfterThePrefix) {
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR: 321"), 321);
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR: 38\r\n"), 38);
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR:  7x"), 7);
}

TEST(CmsErrorNumber, IsZeroWithoutANumber) {
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR: "), 0);
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR: SIM busy"), 0);
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR: 0"), 0);
}

TEST(CmsErrorNumber, IsNulloptForAnyOtherAnswer) {
  EXPECT_EQ(CmsErrorNumber(""), std::nullopt);
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR:321"), std::nullopt);
  EXPECT_EQ(CmsErrorNumber("+CME ERROR: 14"), std::nullopt);
  EXPECT_EQ(CmsErrorNumber("\r\n+CMS ERROR: 321"), std::nullopt);
}

TEST(CmsErrorNumber, SaturatesBeyondTheRangeOfAnInt) {
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR: 99999999999999999999"), std::numeric_limits<int>::max());
  EXPECT_EQ(CmsErrorNumber("+CMS ERROR: -99999999999999999999"), std::numeric_limits<int>::min());
}

TEST(AnswerText, IsEmptyWithoutOctets) {
  const char octets[] = {'O', 'K'};
  EXPECT_EQ(AnswerText(octets, 2), "OK");
  EXPECT_EQ(AnswerText(octets, 0), "");
  EXPECT_EQ(AnswerText(octets, -1), "");
  EXPECT_EQ(AnswerText(nullptr, 2), "");
}

}  // namespace
