// SPDX-License-Identifier: MIT
// The timing diagrams of the pages, and that a wrong one is noticed.
#include "tests/addins/corvane_standard/timing_diagram.h"

#include <stdexcept>

#include "addins/corvane_standard/block_types.h"
#include "tests/addins/corvane_standard/diagram_test.h"

namespace {

using test_support::DiagramsOf;
using test_support::TimingDiagram;

class TimingDiagrams : public DiagramTest {
 protected:
  std::string Replayed(const std::string& text) {
    return test_support::Replay(*this, TimingDiagram::Read(text), [](double) {});
  }
};

TEST_F(TimingDiagrams, OfThePagesAreWhatTheBlocksDo) {
  for (const FBTypeEntry& type : corvane_standard::kBlockTypes) {
    std::string name = type.util().typeName;
    for (char& letter : name) letter = static_cast<char>(std::tolower(letter));
    SCOPED_TRACE(name);
    if (name == "process" || name == "schedule") continue;  // their own tests set their times
    const auto diagrams = DiagramsOf(PROJECT_FOLDER "/docs/blocks/" + name + ".md");
    EXPECT_FALSE(diagrams.empty()) << "the page has no timing diagram";
    for (const TimingDiagram& diagram : diagrams) {
      EXPECT_EQ(diagram.type, type.util().typeName);
      Expect(diagram);
    }
  }
}

TEST_F(TimingDiagrams, AWrongOutputIsReplaced) {
  EXPECT_EQ(Replayed("SR; a column is 1 s\n   0\nS1 ▁█\nQ1 █▁\n"),
            "SR; a column is 1 s\n   0\nS1 ▁█\nQ1 ▁█\n");
  EXPECT_EQ(Replayed("CTU; a column is 1 s\nCU ▁█\nCV 07\n"),
            "CTU; a column is 1 s\nCU ▁█\nCV 01\n");
}

TEST_F(TimingDiagrams, WhatIsNotADiagramIsRefused) {
  for (const char* text : {
           "",
           "SR\nS1 ▁█\n",
           "SR; a column is 1 s\n",
           "SR; a column is 1 s\nS1 ▁█\nQ1 ▁\n",
           "SR; a column is 1 s\nS1 ▁█\nQ1  ▁█\n",
           "SR; a column is 1 s\n    0\nS1 ▁█\n",
           "SR; a column is 1 s\nS1 ▁█ ▁\n",
       }) {
    EXPECT_THROW(TimingDiagram::Read(text), std::invalid_argument) << text;
  }
  EXPECT_THROW(Replayed("SR; a column is 1 s\nS1 ▁x\n"), std::invalid_argument);
}

}  // namespace
