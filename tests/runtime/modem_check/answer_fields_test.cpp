// SPDX-License-Identifier: MIT
#include "runtime/modem_check/answer_fields.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::modem_check::FromUcs2Digits;
using corvane::modem_check::NumberAt;
using corvane::modem_check::SplitFields;
using testing::ElementsAre;

TEST(AnswerFields, CommasInQuotesAndParenthesesSeparateNothing) {
  EXPECT_THAT(SplitFields("0,1"), ElementsAre("0", "1"));
  EXPECT_THAT(SplitFields("0, 0 ,\"Some, network\",7"),
              ElementsAre("0", "0", "Some, network", "7"));
  EXPECT_THAT(SplitFields("(1,2),3"), ElementsAre("(1,2)", "3"));
  EXPECT_THAT(SplitFields("READY,,10"), ElementsAre("READY", "", "10"));
  EXPECT_THAT(SplitFields(""), ElementsAre(""));
  EXPECT_THAT(SplitFields("\"unfinished,1"), ElementsAre("unfinished,1"));
  EXPECT_THAT(SplitFields("),1"), ElementsAre(")", "1"));
}

TEST(AnswerFields, ANumberIsAWholeField) {
  const auto fields = SplitFields("12,x,,99999999999,-1,3a");
  EXPECT_EQ(NumberAt(fields, 0), 12);
  EXPECT_EQ(NumberAt(fields, 1), std::nullopt);
  EXPECT_EQ(NumberAt(fields, 2), std::nullopt);
  EXPECT_EQ(NumberAt(fields, 3), std::nullopt) << "too great";
  EXPECT_EQ(NumberAt(fields, 4), -1);
  EXPECT_EQ(NumberAt(fields, 5), std::nullopt);
  EXPECT_EQ(NumberAt(fields, 6), std::nullopt) << "there is none";
}

TEST(AnswerFields, Ucs2IsRead) {
  EXPECT_EQ(FromUcs2Digits("041C04220421"), "МТС");
  EXPECT_EQ(FromUcs2Digits("26201"), "26201") << "an odd number of digits";
  EXPECT_EQ(FromUcs2Digits("Network"), "Network");
  EXPECT_EQ(FromUcs2Digits("004"), "004");
  EXPECT_EQ(FromUcs2Digits(""), "");
}

}  // namespace
