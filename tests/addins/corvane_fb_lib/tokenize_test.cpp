// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/tokenize.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Tokens = std::vector<std::string>;

Tokens Split(const std::string& text, bool trim_empty, const std::string& delimiters = ",") {
  Tokens tokens;
  tokenize(tokens, text, delimiters, trim_empty);
  return tokens;
}

TEST(Tokenize, KeepsOrTrimsEmptyTokens) {
  EXPECT_EQ(Split("a,,b", false), (Tokens{"a", "", "b"}));
  EXPECT_EQ(Split("a,,b", true), (Tokens{"a", "b"}));
}

TEST(Tokenize, ReturnsOneEmptyTokenForAnEmptyText) {
  EXPECT_EQ(Split("", false), Tokens{""});
  EXPECT_EQ(Split("", true), Tokens{});
}

TEST(Tokenize, ReturnsAnEmptyTokenForADelimiterAtEitherEnd) {
  EXPECT_EQ(Split("a,", false), (Tokens{"a", ""}));
  EXPECT_EQ(Split(",a", false), (Tokens{"", "a"}));
  EXPECT_EQ(Split(",a,", true), Tokens{"a"});
}

TEST(Tokenize, SplitsAtEveryCharacterOfTheDelimiters) {
  EXPECT_EQ(Split("1, 2 3", true, " ,"), (Tokens{"1", "2", "3"}));
  EXPECT_EQ(Split("1, 2", false, " ,"), (Tokens{"1", "", "2"}));
}

TEST(Tokenize, WithoutDelimitersReturnsTheWholeText) {
  EXPECT_EQ(Split("a,b", false, ""), Tokens{"a,b"});
}

TEST(Tokenize, AppendsToWhatIsAlreadyThere) {
  Tokens tokens = {"x"};
  tokenize(tokens, "a b", " ", true);
  EXPECT_EQ(tokens, (Tokens{"x", "a", "b"}));
}

}  // namespace
