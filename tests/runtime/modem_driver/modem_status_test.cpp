// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_status.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using corvane::ModemStatus;

TEST(ModemStatus, HasEachLineOfAnAnswer) {
  ModemStatus status;
  status.NoteLine(true, "AT+CSQ");
  status.NoteAnswer("\r\n+CSQ: 20,0\r\n\r\nOK\r\n");
  const ModemStatus::Part part = status.From(0);
  ASSERT_EQ(part.lines.size(), 3U);
  EXPECT_TRUE(part.lines[0].sent);
  EXPECT_FALSE(part.lines[1].sent);
  EXPECT_EQ(part.lines[1].text, "+CSQ: 20,0");
  EXPECT_EQ(part.lines[2].text, "OK");
  EXPECT_EQ(part.next, 3U);
  EXPECT_TRUE(status.From(3).lines.empty());
}

TEST(ModemStatus, NamesAPduAndDoesNotQuoteIt) {
  ModemStatus status;
  status.NoteAnswer("+CMGL: 1,0,,23\r\n07911326040000F0040B911346610089F6\r\nOK\r\n");
  EXPECT_EQ(status.From(0).lines.at(1).text, "(PDU of 17 octets)");
}

TEST(ModemStatus, KeepsTheLastLinesAndCutsLongOnes) {
  ModemStatus status;
  for (std::size_t i = 0; i < ModemStatus::kLines + 3; ++i) status.NoteLine(true, "AT");
  status.NoteLine(false, std::string(ModemStatus::kLongestLine + 9, '-'));
  const ModemStatus::Part part = status.From(1);  // it is gone: the oldest that is known comes
  ASSERT_EQ(part.lines.size(), ModemStatus::kLines);
  EXPECT_EQ(part.lines.back().text.size(), ModemStatus::kLongestLine);
  EXPECT_EQ(part.next, ModemStatus::kLines + 4);
}

TEST(ModemStatus, IsWantedForAMinuteAfterSomebodyHasAsked) {
  ModemStatus status;
  EXPECT_FALSE(status.wanted());
  status.Want();
  EXPECT_TRUE(status.wanted());
}

}  // namespace
