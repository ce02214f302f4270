// SPDX-License-Identifier: MIT
#include "runtime/cli/pdu_input.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using corvane::cli::GivenPdu;
using corvane::cli::LinesOf;
using corvane::cli::PduInput;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kPdu = "00112233445566778899";

/// Each PDU of the lines as "digits header length".
std::vector<std::string> Given(const std::vector<std::string>& lines) {
  PduInput input;
  for (const std::string& line : lines) input.Add(line);
  std::vector<std::string> given;
  for (const GivenPdu& pdu : input.Take()) {
    given.push_back(pdu.hex + "|" + pdu.header + "|" +
                    (pdu.announced ? std::to_string(*pdu.announced) : ""));
  }
  if (!input.waiting().empty()) given.push_back("waiting: " + input.waiting());
  return given;
}

TEST(PduInput, AcceptsDigitsOnEachLine) {
  EXPECT_THAT(Given({" 0011\t\r", "", "  ", "22"}), ElementsAre("0011||", "22||"));
}

TEST(PduInput, AcceptsWhatAModemPrints) {
  EXPECT_THAT(
      Given({"AT+CMGL=4\r", "\r", "+CMGL: 1,1,,24\r", kPdu, "+CMGL: 2,0,\"Anna B\",9", "00", "",
             "OK\r"}),
      ElementsAre(std::string(kPdu) + "|+CMGL: 1,1,,24|24", "00|+CMGL: 2,0,\"Anna B\",9|9"));
}

TEST(PduInput, AcceptsHeadersOfEveryForm) {
  EXPECT_THAT(Given({"+CMGL:1,1,,24", "00"}), ElementsAre("00|+CMGL:1,1,,24|24"));
  EXPECT_THAT(Given({"+CDS: 24", "00"}), ElementsAre("00|+CDS: 24|24"));
  EXPECT_THAT(Given({"+CMT: \"x\",", "00"}), ElementsAre("00|+CMT: \"x\",|"));
}

TEST(PduInput, AcceptsAPduOnTheLineOfItsHeader) {
  EXPECT_THAT(Given({std::string("+CMGL: 1,1,,24 ") + kPdu}),
              ElementsAre(std::string(kPdu) + "|+CMGL: 1,1,,24|24"));
  EXPECT_THAT(Given({"+CMGL: 1,1,, 24"}), ElementsAre("waiting: +CMGL: 1,1,, 24"));
}

TEST(PduInput, AHeaderWithoutAPduHasNoDigits) {
  EXPECT_THAT(Given({"+CMGL: 1,1,,24", "+CMGL: 2,1,,25", "OK"}),
              ElementsAre("|+CMGL: 1,1,,24|24", "waiting: +CMGL: 2,1,,25"));
}

TEST(LinesOf, JoinsAHeaderThatTheShellHasSplit) {
  EXPECT_THAT(LinesOf({"+CMGL:", "1,1,,24", "0011"}), ElementsAre("+CMGL: 1,1,,24", "0011"));
  EXPECT_THAT(LinesOf({"+CMGL:"}), ElementsAre("+CMGL: "));
}

TEST(LinesOf, SplitsAWordOfSeveralLinesAndKeepsAnEmptyWord) {
  EXPECT_THAT(LinesOf({"+CMGL: 1,1,,24\n\n0011\n", "", "22"}),
              ElementsAre("+CMGL: 1,1,,24", "0011", "", "22"));
  EXPECT_THAT(LinesOf({}), IsEmpty());
}

}  // namespace
