// SPDX-License-Identifier: MIT
#include "libs/base/printable.h"

#include <gtest/gtest.h>

#include <utf8.h>

#include <string>

namespace {

using corvane::Printable;
using corvane::PrintableBeginning;

TEST(Printable, LeavesTextInAnyScriptAsItIs) {
  EXPECT_EQ(Printable("Насос 2 läuft, \\n"), "Насос 2 läuft, \\n");
  EXPECT_EQ(Printable(""), "");
}

TEST(Printable, LetsNoSingleOctetReachTheTerminalAsACommand) {
  for (int value = 0; value <= 0xFF; ++value) {
    const std::string text = Printable("a" + std::string(1, static_cast<char>(value)) + "b");
    EXPECT_TRUE(utf8::is_valid(text.begin(), text.end())) << value;
    for (const char c : text) EXPECT_TRUE(c >= ' ' && c != 0x7F) << value;
  }
  EXPECT_EQ(Printable("\x1B[2J\r\n\t"), "\\x1B[2J\\r\\n\\t");
}

TEST(Printable, EscapesTheControlsOfTheUpperHalfAndNoOtherCharacter) {
  EXPECT_EQ(Printable("\xC2\x80\xC2\x9F\xC2\xA0"), "\\x80\\x9F\xC2\xA0");
  EXPECT_EQ(Printable("\xC2"), "\\xC2");
  EXPECT_EQ(Printable("\xC2\x9B\x9B"), "\\x9B\\x9B");
}

TEST(Printable, KeepsTheCharactersThatItIsToldToKeep) {
  EXPECT_EQ(Printable("a\n\tb\r", "\n\t"), "a\n\tb\\r");
}

TEST(PrintableBeginning, CutsALongTextBetweenCharacters) {
  EXPECT_EQ(PrintableBeginning("12345", 5), "12345");
  EXPECT_EQ(PrintableBeginning("123456", 5), "12345...");
  EXPECT_EQ(PrintableBeginning("123ü4", 4), "123...");
  EXPECT_EQ(PrintableBeginning("123≥4", 5), "123...");
  EXPECT_EQ(PrintableBeginning("12🚰4", 5), "12...");
  EXPECT_EQ(PrintableBeginning("\x80\x80\x80\x80\x80\x80", 5), "\\x80\\x80...");
  EXPECT_EQ(PrintableBeginning("a\nb", 2), "a\\n...");
  EXPECT_EQ(PrintableBeginning("a\nb", 2, "\n"), "a\n...");
}

}  // namespace
