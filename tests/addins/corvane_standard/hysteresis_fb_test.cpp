// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/hysteresis_fb.h"

#include "tests/addins/corvane_standard/diagram_test.h"

namespace {

class Hysteresis : public DiagramTest {};

TEST_F(Hysteresis, SwitchesAboveHighAndBelowLow) {
  Expect(
      "HYSTERESIS, High = 7, Low = 4; a column is 1 s\n"
      "IN 5678876543345\n"
      "Q  ▁▁▁██████▁▁▁▁\n");
}

TEST_F(Hysteresis, TakesTheFirstValueAtOnce) {
  Expect("HYSTERESIS, High = 7, Low = 4; a column is 1 s\nIN 84\nQ  ██\n");
}

TEST_F(Hysteresis, FollowsItsLimits) {
  Expect(
      "HYSTERESIS, IN = 5; a column is 1 s\n"
      "High 9449\n"
      "Low  1138\n"
      "Q    ▁██▁\n");
}

TEST_F(Hysteresis, WithLimitsTheWrongWayRoundLowDecides) {
  Expect(
      "HYSTERESIS, High = 4, Low = 7; a column is 1 s\n"
      "IN 3567856\n"
      "Q  ▁▁▁██▁▁\n");
}

TEST_F(Hysteresis, StaysForANan) {
  Run("fb = HYSTERESIS.new{High = 1, IN = 2} fb() fb.IN = 0/0 fb()");
  EXPECT_EQ(Eval("fb.Q"), "true");
  Run("fb.IN = -1 fb() fb.IN = 0/0 fb()");
  EXPECT_EQ(Eval("fb.Q"), "false");
}

}  // namespace
