// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/bistables.h"

#include "tests/addins/corvane_standard/diagram_test.h"

namespace {

class Bistables : public DiagramTest {};

TEST_F(Bistables, SrIsSetByBoth) {
  Expect(
      "SR; a column is 1 s\n"
      "S1 ▁▁█▁▁▁█▁█▁█▁\n"
      "R  ▁█▁▁█▁█▁██▁█\n"
      "Q1 ▁▁██▁▁███▁█▁\n");
}

TEST_F(Bistables, RsIsResetByBoth) {
  Expect(
      "RS; a column is 1 s\n"
      "S  ▁▁█▁▁▁█▁█▁██\n"
      "R1 ▁█▁▁█▁█▁▁▁▁█\n"
      "Q1 ▁▁██▁▁▁▁███▁\n");
}

TEST_F(Bistables, TakeTheirInputsInTheFirstCall) {
  Expect("SR; a column is 1 s\nS1 █▁\nQ1 ██\n");
  Expect("RS; a column is 1 s\nS  █▁\nQ1 ██\n");
}

}  // namespace
