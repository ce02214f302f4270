// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_news.h"

#include <gmock/gmock.h>

#include "corvane/modem_port_driver.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr ModemTimes::Time kPatience(1'000);
const std::string kReport = "0006D60B911326880736F4111011719551401110117195714000";

class ModemNewsTest : public testing::Test {
 protected:
  void Say(const std::string& line) { news_.Take(line, KindOfLine(line), now_); }
  /// "LINE" or "LINE|PDU"
  std::vector<std::string> Told() {
    std::vector<std::string> told;
    for (const auto& [line, pdu] : news_.TakeAll(now_)) {
      told.push_back(pdu.empty() ? line : line + "|" + pdu);
    }
    return told;
  }

  ModemNews news_{kPatience};
  SteadyTime now_;
};

TEST_F(ModemNewsTest, KeepsAnnouncementsAndPairsInTheirOrder) {
  Say("+CMTI: \"SM\",3");
  Say("+CDS: 25");
  Say(kReport);
  Say("+CDSI: \"SR\",1");
  EXPECT_TRUE(news_.any(now_));
  EXPECT_THAT(Told(), ElementsAre("+CMTI: \"SM\",3", "+CDS: 25|" + kReport, "+CDSI: \"SR\",1"));
  EXPECT_FALSE(news_.any(now_));
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(ModemNewsTest, LeavesOutWhatTellsClientsNothing) {
  for (const char* const line : {"RING", "+CREG: 1", "^RSSI:18", "noise", "OK", "0102030405"}) {
    Say(line);
  }
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(ModemNewsTest, APairMayBeInterruptedAnywhere) {
  Say("+CDS: 25");
  Say("+CMTI: \"SM\",3");
  Say(kReport.substr(0, 1));
  Say("RING");
  EXPECT_THAT(Told(), ElementsAre("+CMTI: \"SM\",3")) << "half a PDU is not handed on";
  Say(kReport.substr(1));
  EXPECT_THAT(Told(), ElementsAre("+CDS: 25|" + kReport));
}

TEST_F(ModemNewsTest, AShortPduIsHandedOnWhenNothingCompletesIt) {
  Say("+CDS: 78");
  Say(kReport);
  EXPECT_FALSE(news_.any(now_));
  now_ += kPatience;
  EXPECT_TRUE(news_.any(now_));
  EXPECT_THAT(Told(), ElementsAre("+CDS: 78|" + kReport));
  Say("+CDS: 78");
  Say(kReport);
  Say("+CDS: 25");  // the next pair begins
  Say(kReport);
  EXPECT_THAT(Told(), ElementsAre("+CDS: 78|" + kReport, "+CDS: 25|" + kReport));
}

TEST_F(ModemNewsTest, WhatARestartHasCutOffIsDropped) {
  Say("+CMTI: \"SM\",3");
  Say("+CDS: 25");
  Say(kReport.substr(0, 20));
  news_.NoteStart();
  news_.NoteStart();
  Say(kReport.substr(20));
  now_ += kPatience;
  EXPECT_THAT(Told(), ElementsAre("+CMTI: \"SM\",3", kPortDriverRestart));
}

TEST_F(ModemNewsTest, APduLongAfterItsHeaderBelongsToSomethingElse) {
  Say("+CDS: 25");
  now_ += 10 * kPatience;
  Say(kReport);
  EXPECT_THAT(Told(), IsEmpty());
}

TEST_F(ModemNewsTest, AFloodIsBounded) {
  for (std::size_t i = 0; i < 2 * ModemNews::kMost; ++i) Say("+CMTI: \"SM\"," + std::to_string(i));
  news_.NoteStart();
  for (std::size_t i = 0; i < 10; ++i) Say("+CMTI: \"SM\",1");
  EXPECT_EQ(news_.TakeDropped(), ModemNews::kMost + 10);
  EXPECT_EQ(news_.TakeDropped(), 0U);
  const auto told = Told();
  ASSERT_THAT(told, SizeIs(ModemNews::kMost + 1));
  EXPECT_EQ(told.front(), "+CMTI: \"SM\",0");
  EXPECT_EQ(told.back(), kPortDriverRestart) << "a restart is never dropped";
}

TEST_F(ModemNewsTest, LinesWithoutEndAreNotKept) {
  Say("+CMTI: " + std::string(ModemNews::kMaxLine, '1'));
  Say("+CDS: " + std::string(ModemNews::kMaxLine, '1'));
  Say(kReport);
  Say("+CDS: 25");
  Say(std::string(ModemNews::kMaxPdu + 1, '0'));
  now_ += kPatience;
  EXPECT_THAT(Told(), IsEmpty());
}

}  // namespace
}  // namespace corvane
