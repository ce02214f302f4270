// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/line_kind.h"

#include <gtest/gtest.h>

namespace {

using corvane::IsFinal;
using corvane::KindOfLine;
using corvane::LineKind;

TEST(KindOfLine, AResultIsTheWholeLine) {
  EXPECT_EQ(KindOfLine("OK"), LineKind::kOk);
  EXPECT_EQ(KindOfLine("OKAY"), LineKind::kUnknown);
  EXPECT_EQ(KindOfLine("ERROR"), LineKind::kError);
  EXPECT_EQ(KindOfLine("ERRORS"), LineKind::kUnknown);
  EXPECT_EQ(KindOfLine("RINGING"), LineKind::kUnknown);
  EXPECT_EQ(KindOfLine(""), LineKind::kUnknown);
}

TEST(KindOfLine, ABusySimIsAFinalResultToWaitFor) {
  EXPECT_EQ(KindOfLine("+CMS ERROR: 314"), LineKind::kSimBusy);
  EXPECT_EQ(KindOfLine("+CME ERROR: 14"), LineKind::kSimBusy);
  EXPECT_EQ(KindOfLine("+CME ERROR: 148"), LineKind::kError);
  EXPECT_TRUE(IsFinal(LineKind::kSimBusy));
}

TEST(KindOfLine, DoesNotDependOnTheBlank) {
  EXPECT_EQ(KindOfLine("+CMS ERROR:314"), LineKind::kSimBusy);
  EXPECT_EQ(KindOfLine("+CME ERROR:14"), LineKind::kSimBusy);
  EXPECT_EQ(KindOfLine("+CMS ERROR:500"), LineKind::kError);
  EXPECT_EQ(KindOfLine("ERROR: no such command"), LineKind::kError);
}

TEST(StandardResult, LeavesOtherLinesAsTheyAre) {
  for (const std::string line : {"OK", "+CMGL:1,0,,30", "^RSSI:18", "+CMS", "ERROR: why", ""}) {
    EXPECT_EQ(corvane::StandardResult(line), line);
  }
}

TEST(KindOfLine, OnlySomeUnsolicitedLinesHaveASecondOne) {
  EXPECT_EQ(KindOfLine("+CMT: ,30"), LineKind::kUnsolicitedPair);
  EXPECT_EQ(KindOfLine("+CMTI: \"SM\",1,\"MMS PUSH\",2,1"), LineKind::kAnnouncement);
  EXPECT_EQ(KindOfLine("+CDS: 25"), LineKind::kUnsolicitedPair);
  EXPECT_EQ(KindOfLine("+CDSI: \"SR\",0"), LineKind::kAnnouncement);
}

TEST(MayBecomeUnsolicited, FollowsEveryBeginningOfAKnownLine) {
  for (const std::string line : {"+CMTI: \"SM\",3", "+CDS: 25", "RDY", "^RSSI:18"}) {
    for (std::size_t length = 0; length <= line.size(); ++length) {
      EXPECT_TRUE(corvane::MayBecomeUnsolicited(line.substr(0, length))) << line << length;
    }
  }
  for (const char* const line : {"> ", "OK", "ERROR", "+CMGL", "RDYX", "AT"}) {
    EXPECT_FALSE(corvane::MayBecomeUnsolicited(line)) << line;
  }
}

}  // namespace
