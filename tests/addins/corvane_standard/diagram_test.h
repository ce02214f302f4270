// SPDX-License-Identifier: MIT
// Fixture for tests that are written as timing diagrams: tables of inputs and outputs, a column for
// each call.
#pragma once

#include "tests/addins/corvane_standard/standard_block_test.h"
#include "tests/addins/corvane_standard/timing_diagram.h"

class DiagramTest : public StandardBlockTest {
 protected:
  /// Whether the block's outputs are those of the diagram.
  void Expect(const std::string& text) { Expect(test_support::TimingDiagram::Read(text)); }
  void Expect(const test_support::TimingDiagram& diagram) {
    double passed = 0;
    const auto set_time = [&](double since_begin) {
      Pass(since_begin - passed);
      passed = since_begin;
    };
    EXPECT_EQ(test_support::Replay(*this, diagram, set_time), diagram.text);
  }
};
