// SPDX-License-Identifier: MIT
#include "runtime/cli/at_input.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::cli::AtInput;
using corvane::cli::Key;
using corvane::cli::Masked;

void Type(AtInput& input, const std::string& text) {
  for (const char c : text) {
    EXPECT_EQ(input.Take({Key::kText, std::string(1, c)}), std::nullopt);
  }
}

/// What is finished by the Enter key after the text.
std::string Entered(AtInput& input, const std::string& text) {
  Type(input, text);
  return input.Take({Key::kEnter, {}}).value_or("nothing");
}

/// What is shown after the key.
std::string After(AtInput& input, Key key) {
  EXPECT_EQ(input.Take({key, {}}), std::nullopt);
  return input.Shown();
}

TEST(AtInput, PinsAndPasswordsAreMasked) {
  EXPECT_EQ(Masked("AT+CPIN=1234"), "AT+CPIN=****");
  EXPECT_EQ(Masked("at+cpin=\"1234\""), "at+cpin=******");
  EXPECT_EQ(Masked("AT + C PIN = 1234").find("1234"), std::string::npos);
  EXPECT_EQ(Masked("ATE0+CPIN=1"), "ATE0+CPIN=*");
  EXPECT_EQ(Masked("AT+CPWD=\"SC\",\"1234\",\"5678\""), "AT+CPWD=******************");
  EXPECT_EQ(Masked("AT+CPIN?"), "AT+CPIN?");
  EXPECT_EQ(Masked("AT+CPIN="), "AT+CPIN=");
  EXPECT_EQ(Masked("AT(secret)"), "AT(secret)");
  EXPECT_EQ(Masked(""), "");
}

TEST(AtInput, CommandsAreRecalled) {
  AtInput input;
  EXPECT_EQ(Entered(input, "AT+CSQ"), "AT+CSQ");
  EXPECT_EQ(Entered(input, "AT+CSQ"), "AT+CSQ") << "kept once";
  EXPECT_EQ(Entered(input, ""), "");
  EXPECT_EQ(Entered(input, "ATI"), "ATI");
  EXPECT_EQ(After(input, Key::kDown), "") << "there is nothing newer";
  EXPECT_EQ(After(input, Key::kUp), "ATI");
  EXPECT_EQ(After(input, Key::kUp), "AT+CSQ");
  EXPECT_EQ(After(input, Key::kUp), "AT+CSQ") << "there is nothing older";
  EXPECT_EQ(After(input, Key::kDown), "ATI");
  EXPECT_EQ(After(input, Key::kDown), "");
  After(input, Key::kUp);
  EXPECT_EQ(Entered(input, "1"), "ATI1") << "a recalled command can be changed";
}

TEST(AtInput, APinIsNeitherShownNorRecalled) {
  AtInput input;
  Type(input, "AT+CPIN=12");
  EXPECT_EQ(input.Shown(), "AT+CPIN=**");
  EXPECT_EQ(Entered(input, "34"), "AT+CPIN=1234") << "the modem gets it";
  EXPECT_EQ(After(input, Key::kUp), "AT+CPIN=");
  EXPECT_EQ(Entered(input, ""), "AT+CPIN=");
}

TEST(AtInput, TheTextOfAMessageIsShownAndNotKept) {
  AtInput input;
  Entered(input, "AT+CMGS=\"1\"");
  input.ExpectText(true);
  EXPECT_EQ(After(input, Key::kUp), "");
  Type(input, "AT+CPIN=1");
  EXPECT_EQ(input.Shown(), "AT+CPIN=1");
  EXPECT_EQ(Entered(input, ""), "AT+CPIN=1");
  input.ExpectText(false);
  EXPECT_EQ(After(input, Key::kUp), "AT+CMGS=\"1\"");
}

TEST(AtInput, KeysRemoveWholeCharactersOrTheLine) {
  AtInput input;
  input.Take({Key::kText, "é"});
  input.Take({Key::kText, "x"});
  EXPECT_EQ(After(input, Key::kBackspace), "é");
  EXPECT_EQ(After(input, Key::kBackspace), "");
  EXPECT_EQ(After(input, Key::kBackspace), "");
  Type(input, "AT");
  EXPECT_EQ(After(input, Key::kEscape), "");
  EXPECT_EQ(After(input, Key::kHome), "");
}

TEST(AtInput, MemoryIsBounded) {
  AtInput input;
  for (int i = 0; i < 300; ++i) Entered(input, "AT" + std::to_string(i));
  for (std::size_t i = 1; i < AtInput::kMostKept; ++i) After(input, Key::kUp);
  EXPECT_EQ(After(input, Key::kUp), "AT100");
  EXPECT_EQ(After(input, Key::kUp), "AT100");
  input.Take({Key::kEscape, {}});
  EXPECT_EQ(Entered(input, std::string(2000, 'x')).size(), AtInput::kLongest);
}

}  // namespace
