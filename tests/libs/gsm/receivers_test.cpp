// SPDX-License-Identifier: MIT
#include "libs/gsm/receivers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using gsm::ReadReceivers;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

TEST(Receivers, AreSeparatedBySemicolonsCommasAndLineFeeds) {
  EXPECT_THAT(ReadReceivers("+491;+492,+493\n+494").numbers,
              ElementsAre("+491", "+492", "+493", "+494"));
}

TEST(Receivers, MayBeWrittenWithBlanksAndSigns) {
  const auto receivers = ReadReceivers(" +49 (0) 151/234-56.78 \t; *100# ;\r\n0151 2345\r\n");
  EXPECT_EQ(receivers.problem, "");
  EXPECT_THAT(receivers.numbers, ElementsAre("+49015123456"
                                             "78",
                                             "*100#", "01512345"));
}

TEST(Receivers, AreCountedOnce) {
  EXPECT_THAT(ReadReceivers("+491; +4 9 1; 491").numbers, ElementsAre("+491", "491"));
}

TEST(Receivers, HaveAtMostTwentyDigits) {
  EXPECT_EQ(ReadReceivers("+12345678901234567890").problem, "");
  EXPECT_THAT(ReadReceivers("+123456789012345678901").problem, HasSubstr("more than 20 digits"));
}

TEST(Receivers, AreRefusedTogetherWhenOneIsWrong) {
  for (const std::string wrong :
       {"0049x", "Pump", "+", "++49", "4+9", "+*100#", "\xC3\xA4", "1'2"}) {
    const auto receivers = ReadReceivers("+491;" + wrong);
    EXPECT_THAT(receivers.problem, HasSubstr("nothing was queued for anybody")) << wrong;
  }
  EXPECT_THAT(ReadReceivers("+491; Pump 3").problem, HasSubstr("'Pump 3'"))
      << "it must say which one";
}

TEST(Receivers, MustBeAtLeastOne) {
  for (const std::string none : {"", " ", ";,\n", "-"}) {
    EXPECT_THAT(ReadReceivers(none).problem, HasSubstr("no number")) << none;
  }
}

TEST(Receivers, AreAHundredAtMost) {
  std::string text;
  for (int i = 1000; i < 1100; ++i) text += std::to_string(i) + ";";
  EXPECT_EQ(ReadReceivers(text).numbers.size(), 100u);
  EXPECT_THAT(ReadReceivers(text + "+49").problem, HasSubstr("more than 100"));
}

TEST(Receivers, AMessageShowsAHostileNumberSafelyAndInPart) {
  const std::string problem = ReadReceivers("\x1B[2J" + std::string(100'000, 'x')).problem;
  EXPECT_LT(problem.size(), 200u);
  EXPECT_EQ(problem.find('\x1B'), problem.npos);
}

}  // namespace
