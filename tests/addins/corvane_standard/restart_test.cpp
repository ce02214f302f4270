// SPDX-License-Identifier: MIT
// What the blocks remember when a runtime has kept them across a restart of the program.
#include "tests/addins/corvane_standard/standard_block_test.h"

namespace {

class Restart : public StandardBlockTest {
 protected:
  /// Another block gets what `fb` had, a day later, and has not been called yet.
  void RestartLater() {
    Pass(86400);
    Run("local kept = debug.getmetatable(fb).__retained(fb) "
        "fb = _G[type_name].new() debug.getmetatable(fb).__restore(fb, kept)");
  }
  /// A block of the type that is called with these inputs.
  void Begin(const std::string& type, const std::string& inputs) {
    Run("type_name = '" + type + "' fb = " + type + ".new{" + inputs + "} fb()");
  }
};

TEST_F(Restart, TonGoesOnFromItsElapsedTime) {
  Begin("TON", "IN = true, PT = 5");
  Pass(3);
  Run("fb()");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.ET"), "3");
  Pass(1);
  Run("fb()");
  EXPECT_EQ(Eval("fb.ET"), "4");
  EXPECT_EQ(Eval("fb.Q"), "false");
  Pass(1);
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
  Run("fb.IN = false fb()");
  EXPECT_EQ(Eval("fb.Q"), "false");
}

TEST_F(Restart, TofGoesOnFromItsElapsedTime) {
  Begin("TOF", "IN = true, PT = 5");
  Run("fb.IN = false fb()");
  Pass(3);
  Run("fb()");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
  EXPECT_EQ(Eval("fb.ET"), "3");
  Pass(2);
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "false");
  EXPECT_EQ(Eval("fb.ET"), "5");
}

TEST_F(Restart, TofDelaysAnInputThatFellWhileTheProgramWasNotRunning) {
  Begin("TOF", "IN = true, PT = 5");
  RestartLater();
  Run("fb.IN = false fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
  EXPECT_EQ(Eval("fb.ET"), "0");
}

TEST_F(Restart, TpGoesOnWithItsPulseAndStartsNoOther) {
  Begin("TP", "IN = true, PT = 5");
  Pass(3);
  Run("fb()");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.ET"), "3");
  Pass(2);
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "false");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "false");
  Run("fb.IN = false fb() fb.IN = true fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
}

TEST_F(Restart, EdgesThatWereThereBeforeAreNotSeenAgain) {
  Begin("R_TRIG", "CLK = true");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "false");
  Begin("F_TRIG", "CLK = false");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.Q"), "false");
}

TEST_F(Restart, AnEdgeWhileTheProgramWasNotRunningIsSeen) {
  Begin("R_TRIG", "CLK = false");
  RestartLater();
  Run("fb.CLK = true fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
  Begin("F_TRIG", "CLK = true");
  RestartLater();
  Run("fb.CLK = false fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
}

TEST_F(Restart, CountersKeepTheirCountAndCountNoEdgeTwice) {
  Begin("CTU", "CU = true");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.CV"), "1");
  Begin("CTD", "CD = true");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.CV"), "-1");
  Begin("CTUD", "CU = true");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.CV"), "1");
  Run("fb.CD = true fb()");
  RestartLater();
  Run("fb()");
  EXPECT_EQ(Eval("fb.CV"), "0");
}

TEST_F(Restart, FlipFlopsAndSwitchesKeepTheirState) {
  Begin("SR", "S1 = true");
  RestartLater();
  Run("fb.S1 = false fb()");
  EXPECT_EQ(Eval("fb.Q1"), "true");
  Begin("RS", "S = true");
  RestartLater();
  Run("fb.S = false fb()");
  EXPECT_EQ(Eval("fb.Q1"), "true");
  Begin("HYSTERESIS", "IN = 9, High = 8, Low = 2");
  RestartLater();
  Run("fb.IN = 5 fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
}

}  // namespace
