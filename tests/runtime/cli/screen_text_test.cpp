// SPDX-License-Identifier: MIT
#include "runtime/cli/screen_text.h"

#include <gtest/gtest.h>

namespace {

using corvane::cli::Cells;
using corvane::cli::Fit;
using corvane::cli::ScreenText;

TEST(ScreenText, KeepsUtf8AndSpaces) {
  EXPECT_EQ(ScreenText("Насос 2 läuft"), "Насос 2 läuft");
  EXPECT_EQ(ScreenText("a\tb"), "a b");
}

TEST(ScreenText, LeavesOutEscapeSequences) {
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

TEST(ScreenText, NoCharacterReachesTheTerminalThatItWouldObeyOrThatHasNoWidth) {
  EXPECT_EQ(ScreenText(std::string("a\0b", 3)), "a?b");
  EXPECT_EQ(ScreenText("a\u2028b\u0378c\ufdd0d"), "a?b?c?d");
  EXPECT_EQ(ScreenText("a\u202eb\u2067c\u200fd"), "a?b?c?d") << "direction of writing";
  EXPECT_EQ(ScreenText("\xed\xa0\x80\xf4\x90\x80\x80\xc0\x80 b").back(), 'b')
      << "surrogates, beyond the last, overlong";
}

TEST(ScreenText, KeepsCombiningCharactersButNoFlood) {
  EXPECT_EQ(ScreenText("e\u0301\u0323"), "e\u0301\u0323");
  std::string flood = "e";
  for (int i = 0; i < 10000; ++i) flood += "\u0301";
  EXPECT_LE(ScreenText(flood + "b").size(), 20u);
  EXPECT_EQ(ScreenText(flood + "b").substr(17), "?b");
}

TEST(Cells, AreThoseOfTheTerminal) {
  EXPECT_EQ(Cells(""), 0u);
  EXPECT_EQ(Cells("Насос"), 5u);
  EXPECT_EQ(Cells("水位"), 4u);
  EXPECT_EQ(Cells("ｱ"), 1u) << "half width";
  EXPECT_EQ(Cells("e\u0301"), 1u);
  EXPECT_EQ(Cells("a\u200bb"), 2u);
  EXPECT_EQ(Cells("😀"), 2u);
  EXPECT_EQ(Cells("❤\ufe0f"), 2u) << "as an emoji";
  EXPECT_EQ(Cells("👩\u200d👧"), 4u) << "not fewer than on a terminal that shows both";
}

TEST(Fit, FillsUpAndCutsByCells) {
  EXPECT_EQ(Fit("Насос", 7), "Насос  ");
  EXPECT_EQ(Fit("Насос", 5), "Насос");
  EXPECT_EQ(Fit("Насосы", 5), "На...");
  EXPECT_EQ(Fit("long", 2), "..");
  EXPECT_EQ(Fit("long", 0), "");
  EXPECT_EQ(Fit("水位計", 6), "水位計");
  EXPECT_EQ(Fit("水位計", 7), "水位計 ");
  EXPECT_EQ(Fit("水位計", 5), "水...");
  EXPECT_EQ(Fit("a水位計", 5), "a... ") << "half of a wide character has no place";
}

TEST(Fit, NeverCutsInsideACombiningSequence) {
  EXPECT_EQ(Fit("ae\u0301bcde", 5), "ae\u0301...");
  EXPECT_EQ(Fit("ae\u0301bcde", 4), "a...");
  EXPECT_EQ(Fit("👩\u200d👧xyz", 6), "...   ") << "a family is one";
  EXPECT_EQ(Fit("a🇩🇪xyz", 5), "a... ") << "a flag is two characters";
  EXPECT_EQ(Fit("👍🏽xyz", 6), "...   ") << "with its colour";
}

TEST(Fit, HasExactlyTheRequestedNumberOfCells) {
  const std::string text = "e\u0301水a😀❤\ufe0f👩\u200d👧b🇩🇪Насос";
  for (std::size_t columns = 0; columns < 40; ++columns) {
    EXPECT_EQ(Cells(Fit(text, columns)), columns);
  }
}

}  // namespace
