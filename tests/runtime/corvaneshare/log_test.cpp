// SPDX-License-Identifier: MIT
#include "share/log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/captured_log.h"

namespace {

using test_support::TakeLog;
using testing::ElementsAre;

class Log : public testing::Test {
 protected:
  Log() { TakeLog(); }
};

TEST_F(Log, FormatsAndDropsTrailingLineEnds) {
  logMsg("type %d of %s\n\r", 6, "block");
  EXPECT_THAT(TakeLog(), ElementsAre("warning type 6 of block"));
}

TEST_F(Log, AWholeLineIsNotFormatted) {
  logMsgLn("100 %s {}");
  EXPECT_THAT(TakeLog(), ElementsAre("warning 100 %s {}"));
}

TEST_F(Log, EachLineOfATextIsASeparateLine) {
  logMsgLn("first\nsecond\n\n");
  EXPECT_THAT(TakeLog(), ElementsAre("warning first", "warning second"));
}

TEST_F(Log, ControlCharactersAreShownInsteadOfObeyed) {
  logMsgLn("bell\a escape\x1b[2J tab\tdel\x7f");
  EXPECT_THAT(TakeLog(), ElementsAre("warning bell\\x07 escape\\x1B[2J tab\tdel\\x7F"));
}

TEST_F(Log, ControlsBeyondAsciiAreAlsoShown) {
  logMsgLn(
      "\xC2\x9B"
      "2J \x9B");
  EXPECT_THAT(TakeLog(), ElementsAre("warning \\x9B2J \\x9B"));
}

TEST_F(Log, TextBeyondAsciiStaysAsItIs) {
  logMsgLn("Насос №1");
  EXPECT_THAT(TakeLog(), ElementsAre("warning Насос №1"));
}

TEST_F(Log, ALongTextIsLoggedWhole) {
  const std::string text(100'000, 'x');
  logMsg("%s", text.c_str());
  EXPECT_THAT(TakeLog(), ElementsAre("warning " + text));
}

TEST_F(Log, AnEmptyTextIsAnEmptyLine) {
  logMsgLn("");
  EXPECT_THAT(TakeLog(), ElementsAre("warning "));
}

}  // namespace
