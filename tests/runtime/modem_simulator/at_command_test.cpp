// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/at_command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace modem_simulator {
namespace {

using testing::ElementsAre;

AtCommand One(std::string_view line) {
  const auto commands = ParseCommands(line);
  EXPECT_TRUE(commands && commands->size() == 1) << line;
  return commands && !commands->empty() ? commands->front() : AtCommand{};
}

std::vector<std::string> Names(std::string_view line) {
  std::vector<std::string> names;
  const auto commands = ParseCommands(line).value();
  for (const AtCommand& command : commands) names.push_back(command.name);
  return names;
}

TEST(AtCommand, HasFourForms) {
  EXPECT_EQ(One("+CMGL").form, CommandForm::kExecute);
  EXPECT_EQ(One("+CMGL?").form, CommandForm::kRead);
  EXPECT_EQ(One("+CMGL=?").form, CommandForm::kTest);
  EXPECT_EQ(One("+CMGL=4").form, CommandForm::kSet);
}

TEST(AtCommand, IsReadInEitherCase) {
  EXPECT_EQ(One("+cmgf=0").name, "+CMGF");
}

TEST(AtCommand, HasParametersInQuotesOrNot) {
  EXPECT_THAT(One("+CPMS=\"SM\",\"a;b,c d\", 7 ,,\"\"").parameters,
              ElementsAre("SM", "a;b,c d", "7", "", ""));
  EXPECT_EQ(ParseCommands("+CPIN=\"1234"), std::nullopt);
}

TEST(AtCommand, LinesAreSplitIntoCommands) {
  EXPECT_THAT(Names("E0V1+CMEE=1;+CREG=2"), ElementsAre("E", "V", "+CMEE", "+CREG"));
  EXPECT_THAT(Names("&F&C1&D2S0=0X4"), ElementsAre("&F", "&C", "&D", "S0", "X"));
  EXPECT_THAT(Names("^CURC=0;$TSSPCSW=?"), ElementsAre("^CURC", "$TSSPCSW"));
  EXPECT_THAT(Names(""), ElementsAre());
}

TEST(AtCommand, DiallingUsesTheRestOfTheLine) {
  EXPECT_THAT(Names("DT*99#;"), ElementsAre("D"));
}

TEST(AtCommand, NonsenseIsRefused) {
  for (const char* line : {"+", "=", "?", "1", "+CMGF=0+CREG?x", "+CMGF?x", ";", "\x80"}) {
    const auto commands = ParseCommands(line);
    EXPECT_TRUE(!commands || commands->size() == 1) << line;
  }
  EXPECT_EQ(ParseCommands("+"), std::nullopt);
  EXPECT_EQ(ParseCommands("+CMGF?x"), std::nullopt);
}

TEST(AtCommand, NumbersAreWholeAndBounded) {
  EXPECT_EQ(One("+CMGD=12,4").Number(1, 0), 4);
  EXPECT_EQ(One("+CMGD=12").Number(1, 7), 7);
  EXPECT_EQ(One("+CMGD=,4").Number(0, std::nullopt), std::nullopt);
  for (const char* line : {"+CMGD=-1", "+CMGD=1x", "+CMGD=1000000", "+CMGD=99999999999999999999"}) {
    EXPECT_EQ(One(line).Number(0, 5), std::nullopt) << line;
  }
}

}  // namespace
}  // namespace modem_simulator
