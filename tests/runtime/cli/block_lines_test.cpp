// SPDX-License-Identifier: MIT
#include "runtime/cli/block_lines.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/cli/screen_text.h"

namespace {

using corvane::BlockState;
using corvane::VariableState;
using corvane::cli::BlockLines;
using corvane::cli::Cells;
using corvane::cli::Matching;
using corvane::cli::ScreenLine;
using testing::ElementsAre;

VariableState Changed(const std::string& name, const std::string& value) {
  return {name, value, true};
}

std::vector<std::string> Texts(const std::vector<BlockState>& blocks, std::size_t width) {
  std::vector<std::string> texts;
  for (const ScreenLine& line : BlockLines(blocks, width)) texts.push_back(line.text);
  return texts;
}

TEST(BlockLines, PutsTwoVariablesSideBySide) {
  const BlockState block{1, "alarm", "SEND_SMS", {{"Port", "1"}, {"Send", "TRUE"}, {"Error", "0"}}};
  EXPECT_THAT(Texts({block}, 40),
              ElementsAre("alarm: SEND_SMS" + std::string(25, ' '),
                          "  Port         1      Send         TRUE", "  Error        0"));
}

TEST(BlockLines, UsesTheWidthOfAWideScreenAndOfANarrowOne) {
  const BlockState block{1, "b", "T", {{"A", "1"}, {"B", "2"}, {"C", "3"}, {"D", "4"}, {"E", "5"}}};
  EXPECT_EQ(Texts({block}, 200).size(), 3u);
  EXPECT_EQ(Texts({block}, 80).size(), 4u);
  EXPECT_EQ(Texts({block}, 30).size(), 6u);
}

TEST(BlockLines, PutsALongValueOnItsOwnLineAndCutsItThere) {
  const BlockState block{
      1, "b", "T", {{"A", "1"}, {"Message", std::string(50, 'x')}, {"C", "2"}, {"D", "3"}}};
  EXPECT_THAT(Texts({block}, 40), ElementsAre("b: T" + std::string(36, ' '), "  A            1",
                                              "  Message      " + std::string(22, 'x') + "...",
                                              "  C            2      D            3"));
}

TEST(BlockLines, WideCharactersKeepTheSecondColumnInPlace) {
  const BlockState block{1, "b", "T", {{"A", "'水位'"}, {"B", "2"}}};
  EXPECT_THAT(Texts({block}, 60), ElementsAre("b: T" + std::string(56, ' '),
                                              "  A            '水位'           B            2"));
}

TEST(BlockLines, MarksWhatHasChanged) {
  const BlockState block{1, "b", "T", {Changed("A", "1"), {"B", "2"}}};
  EXPECT_THAT(Texts({block}, 40), ElementsAre(testing::_, "* A            1      B            2"));
}

TEST(BlockLines, SurvivesAnyWidthAndAnyName) {
  const BlockState block{
      1, "a\x1b[2Jlarm\n", "SEND_SMS", {{"Po\art", "水位水位水位"}, {"Send", "TRUE"}}};
  for (std::size_t width = 0; width < 200; ++width) {
    for (const ScreenLine& line : BlockLines({block}, width)) {
      EXPECT_LE(Cells(line.text), width);
      for (const char c : line.text) EXPECT_GE(static_cast<unsigned char>(c), 0x20);
    }
  }
  EXPECT_TRUE(BlockLines({}, 80).empty());
}

TEST(Matching, FindsBlocksByNameAndTypeAndVariablesByName) {
  const std::vector<BlockState> blocks{{1, "alarm", "SEND_SMS", {{"Port", "1"}, {"Error", "0"}}},
                                       {2, "inbox", "READ_SMS", {{"Port", "1"}, {"State", "1"}}},
                                       {3, "df", "SysProcessCreate", {{"Command", ""}}}};
  const auto names = [&blocks](std::string_view text) {
    std::string all;
    for (const BlockState& block : Matching(blocks, text)) {
      all += block.name + ":";
      for (const VariableState& variable : block.variables) all += " " + variable.name;
      all += "; ";
    }
    return all;
  };
  EXPECT_EQ(names(""), "alarm: Port Error; inbox: Port State; df: Command; ");
  EXPECT_EQ(names("ALA"), "alarm: Port Error; ");
  EXPECT_EQ(names("_sms"), "alarm: Port Error; inbox: Port State; ");
  EXPECT_EQ(names("state"), "inbox: State; ");
  EXPECT_EQ(names("nothing"), "");
}

}  // namespace
