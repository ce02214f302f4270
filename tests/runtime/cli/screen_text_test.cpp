// SPDX-License-Identifier: MIT
#include "runtime/cli/screen_text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::BlockState;
using corvane::cli::BlockLines;
using corvane::cli::Fit;
using corvane::cli::ScreenText;
using testing::ElementsAre;

TEST(ScreenText, KeepsUtf8AndBlanks) {
  EXPECT_EQ(ScreenText("Насос 2 läuft"), "Насос 2 läuft");
  EXPECT_EQ(ScreenText("a\tb"), "a b");
}

TEST(ScreenText, LeavesEscapeSequencesOut) {
  EXPECT_EQ(ScreenText("\x1b[31;1mred\x1b[0m"), "red");
  EXPECT_EQ(ScreenText("\x1b"
                       "c"),
            "c");
  EXPECT_EQ(ScreenText("end\x1b"), "end");
  EXPECT_EQ(ScreenText("end\x1b[1;"), "end");
}

TEST(ScreenText, NoOctetReachesTheTerminalThatItWouldObey) {
  for (int value = 0; value <= 0xff; ++value) {
    const std::string text = ScreenText("a" + std::string(1, static_cast<char>(value)) + "b");
    for (const char c : text) {
      EXPECT_GE(static_cast<unsigned char>(c), 0x20) << "octet " << value;
      EXPECT_LT(static_cast<unsigned char>(c), 0x7f) << "octet " << value;
    }
  }
  EXPECT_EQ(ScreenText("a\xc2\x9b"
                       "31mb"),
            "a?31mb")
      << "CSI as a C1 control";
}

TEST(Fit, FillsUpAndCutsByCharacters) {
  EXPECT_EQ(Fit("Насос", 7), "Насос  ");
  EXPECT_EQ(Fit("Насос", 5), "Насос");
  EXPECT_EQ(Fit("Насосы", 5), "На...");
  EXPECT_EQ(Fit("long", 2), "..");
  EXPECT_EQ(Fit("long", 0), "");
}

TEST(BlockLines, PutsTwoVariablesBesideEachOther) {
  const BlockState block{"alarm", "SEND_SMS", {{"Port", "1"}, {"Send", "TRUE"}, {"Error", "0"}}};
  EXPECT_THAT(BlockLines({block}, 40),
              ElementsAre("alarm: SEND_SMS" + std::string(25, ' '),
                          "  Port         1      Send         TRUE", "  Error        0    "));
}

TEST(BlockLines, GivesALongValueALineAndCutsItThere) {
  const BlockState block{
      "b", "T", {{"A", "1"}, {"Message", std::string(50, 'x')}, {"C", "2"}, {"D", "3"}}};
  EXPECT_THAT(BlockLines({block}, 40),
              ElementsAre("b: T" + std::string(36, ' '), "  A            1    ",
                          "  Message      " + std::string(22, 'x') + "...",
                          "  C            2      D            3"));
}

TEST(BlockLines, BearsAnyWidth) {
  const BlockState block{"alarm", "SEND_SMS", {{"Port", "1"}, {"Send", "TRUE"}}};
  for (std::size_t width = 0; width < 60; ++width) {
    for (const std::string& line : BlockLines({block}, width)) EXPECT_LE(line.size(), width);
  }
  EXPECT_TRUE(BlockLines({}, 80).empty());
}

}  // namespace
