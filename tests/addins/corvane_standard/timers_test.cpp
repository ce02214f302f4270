// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/timers.h"

#include "tests/addins/corvane_standard/diagram_test.h"

namespace {

class Timers : public DiagramTest {};

TEST_F(Timers, TonDelaysARisingEdge) {
  Expect(
      "TON, PT = 3; a column is 1 s\n"
      "IN ▁██▁█████▁█▁\n"
      "Q  ▁▁▁▁▁▁▁██▁▁▁\n"
      "ET 001001233000\n");
}

TEST_F(Timers, TonRunsFromTheFirstCallIfTheInputIsTrue) {
  Expect(
      "TON, PT = 2; a column is 1 s\n"
      "IN ████▁█\n"
      "Q  ▁▁██▁▁\n"
      "ET 012200\n");
}

TEST_F(Timers, TonWithoutATimeFollowsAtOnce) {
  Expect(
      "TON; a column is 1 s\n"
      "IN ▁██▁█\n"
      "Q  ▁██▁█\n"
      "ET 00000\n");
}

TEST_F(Timers, TonFollowsPtWhileItRunsAndNotAfterwards) {
  Expect(
      "TON; a column is 1 s\n"
      "IN ████████▁\n"
      "PT 999944999\n"
      "Q  ▁▁▁▁████▁\n"
      "ET 012344440\n");
  Expect(
      "TON; a column is 1 s\n"
      "IN ████████\n"
      "PT 33666662\n"
      "Q  ▁▁▁▁▁▁██\n"
      "ET 01234566\n");
  Expect(
      "TON; a column is 1 s\n"
      "IN █████\n"
      "PT 99911\n"
      "Q  ▁▁▁██\n"
      "ET 01211\n");
}

TEST_F(Timers, TofDelaysAFallingEdge) {
  Expect(
      "TOF, PT = 3; a column is 1 s\n"
      "IN ▁▁██▁▁██▁▁▁▁▁█▁\n"
      "Q  ▁▁█████████▁▁██\n"
      "ET 000001000123300\n");
}

TEST_F(Timers, TofDoesNotRunBeforeTheFirstRisingEdge) {
  Expect(
      "TOF, PT = 2; a column is 1 s\n"
      "IN ▁▁▁▁\n"
      "Q  ▁▁▁▁\n"
      "ET 0000\n");
}

TEST_F(Timers, TofWithoutATimeFollowsAtOnce) {
  Expect(
      "TOF; a column is 1 s\n"
      "IN ██▁█▁\n"
      "Q  ██▁█▁\n"
      "ET 00000\n");
}

TEST_F(Timers, TofRunsAgainAfterEachFallingEdge) {
  Expect(
      "TOF, PT = 2; a column is 1 s\n"
      "IN █▁█▁█▁▁▁█▁▁▁\n"
      "Q  ███████▁███▁\n"
      "ET 000000120012\n");
}

TEST_F(Timers, TpGivesAPulseOfItsTime) {
  Expect(
      "TP, PT = 3; a column is 1 s\n"
      "IN ▁█▁▁▁▁██████▁▁\n"
      "Q  ▁███▁▁███▁▁▁▁▁\n"
      "ET 00120001233300\n");
}

TEST_F(Timers, TpIgnoresItsInputDuringThePulse) {
  Expect(
      "TP, PT = 4; a column is 1 s\n"
      "IN █▁█▁███▁█\n"
      "Q  ████▁▁▁▁█\n"
      "ET 012344400\n");
}

TEST_F(Timers, TpStartsInTheFirstCallIfTheInputIsTrue) {
  Expect(
      "TP, PT = 2; a column is 1 s\n"
      "IN ████▁█\n"
      "Q  ██▁▁▁█\n"
      "ET 012200\n");
}

TEST_F(Timers, TpWithoutATimeGivesNoPulse) {
  Expect(
      "TP; a column is 1 s\n"
      "IN ▁██▁█\n"
      "Q  ▁▁▁▁▁\n"
      "ET 00000\n");
}

TEST_F(Timers, ThreeTenthsAreThreeTimesATenth) {
  Run("ton = TON.new{IN = true, PT = 0.3} ton()");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Eval("ton.Q"), "false") << i;
    Pass(0.1);
    Run("ton()");
  }
  EXPECT_EQ(Eval("ton.Q"), "true");
  EXPECT_EQ(Eval("ton.ET"), "0.3");
}

TEST_F(Timers, ATimeBelow0OrNotANumberCountsAs0) {
  for (const char* pt : {"-1", "0/0", "-math.huge"}) {
    Run(std::string(
            "ton, tof, tp = TON.new(), TOF.new(), TP.new() for _, fb in pairs{ton, tof, tp} "
            "do fb.PT = ") +
        pt + " fb.IN = true fb() end");
    EXPECT_EQ(Eval("ton.Q"), "true") << pt;
    EXPECT_EQ(Eval("tof.Q"), "true") << pt;
    EXPECT_EQ(Eval("tp.Q"), "false") << pt;
    Run("tof.IN = false tof()");
    EXPECT_EQ(Eval("tof.Q"), "false") << pt;
    EXPECT_EQ(Eval("ton.ET + tof.ET + tp.ET"), "0") << pt;
  }
}

TEST_F(Timers, AnEndlessTimeNeverEnds) {
  Run("ton = TON.new{IN = true, PT = math.huge} ton()");
  Pass(1e9);
  Run("ton()");
  EXPECT_EQ(Eval("ton.Q"), "false");
  EXPECT_EQ(Eval("ton.ET"), "1000000000");
}

TEST_F(Timers, TimeStandsStillWithinACycle) {
  Run("ton = TON.new{IN = true, PT = 1e-3} for i = 1, 1000 do ton() end");
  EXPECT_EQ(Eval("ton.ET"), "0");
}

TEST_F(Timers, DoNotFollowTheTimeOfDay) {
  Run("ton = TON.new{IN = true, PT = 10} ton()");
  SetNow(0);
  Run("ton()");
  EXPECT_EQ(Eval("ton.ET"), "0");
  SetNow(4e9);
  Run("ton()");
  EXPECT_EQ(Eval("ton.Q"), "false");
}

}  // namespace
