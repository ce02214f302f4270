// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/counters.h"

#include "tests/addins/corvane_standard/diagram_test.h"

namespace {

class Counters : public DiagramTest {};

TEST_F(Counters, CtuCountsRisingEdgesBeyondPv) {
  Expect(
      "CTU, PV = 2; a column is 1 s\n"
      "CU ▁█▁██▁█▁▁\n"
      "R  ▁▁▁▁▁▁▁▁█\n"
      "Q  ▁▁▁█████▁\n"
      "CV 011222330\n");
}

TEST_F(Counters, CtuCountsTrueInTheFirstCall) {
  Expect("CTU, PV = 1; a column is 1 s\nCU ██\nQ  ██\nCV 11\n");
}

TEST_F(Counters, CtuForgetsAnEdgeDuringReset) {
  Expect(
      "CTU, PV = 2; a column is 1 s\n"
      "CU ▁█▁██▁█\n"
      "R  ▁▁▁█▁▁▁\n"
      "CV 0110001\n");
}

TEST_F(Counters, CtuFollowsPvAtOnce) {
  Expect(
      "CTU; a column is 1 s\n"
      "CU ▁█▁▁▁\n"
      "PV 01221\n"
      "Q  ██▁▁█\n"
      "CV 01111\n");
}

TEST_F(Counters, CtuStopsAtTheHighestNumber) {
  Run("fb = CTU.new{PV = 2147483647} ctd = CTD.new{PV = 2147483647, LD = true} ctd()");
  Run("ctud = CTUD.new{PV = 2147483647, LD = true} ctud() ctud.LD = false");
  Run("for i = 1, 4 do ctud.CU = i % 2 == 1 ctud() end");
  EXPECT_EQ(Eval("ctud.CV"), "2147483647");
  EXPECT_EQ(Eval("ctud.QU"), "true");
}

TEST_F(Counters, CtdCountsDownFromPv) {
  Expect(
      "CTD, PV = 3; a column is 1 s\n"
      "CD ▁▁█▁█▁███▁\n"
      "LD ▁█▁▁▁▁▁▁▁█\n"
      "Q  █▁▁▁▁▁███▁\n"
      "CV 0322110003\n");
}

TEST_F(Counters, CtdForgetsAnEdgeWhileItLoads) {
  Expect(
      "CTD, PV = 3; a column is 1 s\n"
      "CD ▁██▁█\n"
      "LD ██▁▁▁\n"
      "CV 33332\n");
}

TEST_F(Counters, CtdCountsBelow0AndStopsAtTheLowestNumber) {
  Run("fb = CTD.new{CD = true} fb()");
  EXPECT_EQ(Eval("fb.CV"), "-1");
  Run("fb.PV = -2147483647 fb.LD = true fb.CD = false fb() fb.LD = false");
  Run("for i = 1, 4 do fb.CD = i % 2 == 1 fb() end");
  EXPECT_EQ(Eval("fb.CV"), "-2147483648");
  EXPECT_EQ(Eval("fb.Q"), "true");
}

TEST_F(Counters, CtudCountsBothWays) {
  Expect(
      "CTUD, PV = 2; a column is 1 s\n"
      "CU ▁█▁█▁▁▁▁█\n"
      "CD ▁▁▁▁▁█▁█▁\n"
      "QU ▁▁▁██▁▁▁▁\n"
      "QD █▁▁▁▁▁▁█▁\n"
      "CV 011221101\n");
}

TEST_F(Counters, CtudIgnoresEdgesOfBothInOneCall) {
  Expect(
      "CTUD, PV = 2; a column is 1 s\n"
      "CU ▁█▁██\n"
      "CD ▁█▁▁█\n"
      "CV 00010\n");
}

TEST_F(Counters, CtudResetsBeforeItLoads) {
  Expect(
      "CTUD, PV = 5; a column is 1 s\n"
      "R  ▁▁██▁\n"
      "LD ▁█▁█▁\n"
      "QU ▁█▁▁▁\n"
      "QD █▁███\n"
      "CV 05000\n");
}

}  // namespace
