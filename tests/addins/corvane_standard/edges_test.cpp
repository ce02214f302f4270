// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/edges.h"

#include "tests/addins/corvane_standard/diagram_test.h"

namespace {

class Edges : public DiagramTest {};

TEST_F(Edges, RTrigIsTrueForOneCallAfterARisingEdge) {
  Expect(
      "R_TRIG; a column is 1 s\n"
      "CLK ▁▁███▁█▁▁█\n"
      "Q   ▁▁█▁▁▁█▁▁█\n");
}

TEST_F(Edges, RTrigCountsTrueInTheFirstCall) {
  Expect("R_TRIG; a column is 1 s\nCLK ██▁█\nQ   █▁▁█\n");
}

// IEC 61131-3, note to table 44: an F_TRIG whose input is FALSE or not connected is TRUE once.
TEST_F(Edges, FTrigCountsFalseInTheFirstCall) {
  Expect(
      "F_TRIG; a column is 1 s\n"
      "CLK ▁▁██▁▁▁█▁\n"
      "Q   █▁▁▁█▁▁▁█\n");
}

TEST_F(Edges, FTrigIsNotTrueInTheFirstCallIfTheSignalIs) {
  Expect("F_TRIG; a column is 1 s\nCLK ██▁▁\nQ   ▁▁█▁\n");
}

}  // namespace
