// SPDX-License-Identifier: MIT
#include "libs/mail/header_text.h"

#include <gtest/gtest.h>

namespace mail {
namespace {

using namespace std::string_view_literals;

TEST(OneLine, MakesABlankOfEachLineBreakAndNul) {
  EXPECT_EQ(OneLine("a\r\nb\nc\rd\0e"sv), "a b c d e");
  EXPECT_EQ(OneLine("a\n\r\n\r"), "a   ");
  EXPECT_EQ(OneLine("a\tb\x1B"), "a\tb\x1B");
}

TEST(OneLine, ReplacesWhatIsNotUtf8) {
  EXPECT_EQ(OneLine("a\xFF"
                    "b\xE2\x89"),
            "a\xEF\xBF\xBD"
            "b\xEF\xBF\xBD");
}

TEST(LengthOfCharacter, IsThatOfUtf8) {
  EXPECT_EQ(LengthOfCharacter("ab"), 1U);
  EXPECT_EQ(LengthOfCharacter("\xC3\xBC"
                              "b"),
            2U);
  EXPECT_EQ(LengthOfCharacter("\xE2\x89\xA5"
                              "b"),
            3U);
  EXPECT_EQ(LengthOfCharacter("\xF0\x9F\x94\xA5"
                              "b"),
            4U);
}

TEST(Quoted, EscapesQuotationMarksAndBackslashes) {
  EXPECT_EQ(Quoted("a \"b\" \\c"), "\"a \\\"b\\\" \\\\c\"");
}

}  // namespace
}  // namespace mail
