// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/send_result.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "corvane/modem_port_driver.h"

namespace {

using namespace corvane_sms;
using testing::HasSubstr;

TEST(SendResult, APromptAsksForTheText) {
  EXPECT_EQ(ReadPromptAnswer(">", 0).outcome, SendOutcome::kPrompt);
  EXPECT_EQ(ReadPromptAnswer("ERROR\r\n", 0).outcome, SendOutcome::kNotNow);
}

TEST(SendResult, AConfirmationHasItsReference) {
  const SendResult result = ReadTextAnswer("+CMGS: 214\r\nOK\r\n", 0);
  EXPECT_EQ(result.outcome, SendOutcome::kTaken);
  EXPECT_EQ(result.reference, 214);
  EXPECT_EQ(ReadTextAnswer("+CMGS: 0\r\nOK\r\n", 0).reference, 0);
}

TEST(SendResult, AConfirmationThatWasCutBeforeItsReferenceCounts) {
  for (const char* const answer : {"+CMGS: \r\nOK\r\n", "+CMGS:\r\nOK\r\n"}) {
    EXPECT_EQ(ReadTextAnswer(answer, 0).outcome, SendOutcome::kTaken)
        << "otherwise it goes out twice";
  }
}

TEST(SendResult, AnOkWithoutAReferenceIsNotAConfirmation) {
  const SendResult result = ReadTextAnswer("OK\r\n", 0);  // some modems say so after a failure
  EXPECT_EQ(result.outcome, SendOutcome::kNotNow);
  EXPECT_THAT(result.reason, HasSubstr("OK"));
}

TEST(SendResult, TheNumberOfARefusalDecides) {
  const auto outcome = [](const std::string& answer) { return ReadTextAnswer(answer, 0).outcome; };
  EXPECT_EQ(outcome("+CMS ERROR: 1\r\n"), SendOutcome::kNever);
  EXPECT_EQ(outcome("+CMS ERROR: 50\r\n"), SendOutcome::kNever);
  EXPECT_EQ(outcome("+CMS ERROR: 331\r\n"), SendOutcome::kNotNow);
  EXPECT_EQ(outcome("+CMS ERROR: 515\r\n"), SendOutcome::kNotNow);
  EXPECT_EQ(outcome("+CMS ERROR: 310\r\n"), SendOutcome::kPort);
  EXPECT_EQ(outcome("+CME ERROR: 11\r\n"), SendOutcome::kPort);
  EXPECT_EQ(outcome("+CMS ERROR: nonsense\r\n"), SendOutcome::kNotNow);
}

TEST(SendResult, TheReasonHasNumberAndMeaning) {
  EXPECT_EQ(ReadTextAnswer("+CMS ERROR: 1\r\n", 0).reason,
            "refused with +CMS ERROR: 1 (unassigned number)");
  EXPECT_EQ(ReadTextAnswer("+CMS ERROR: 999\r\n", 0).reason, "refused with +CMS ERROR: 999");
}

TEST(SendResult, OnlyATextThatTheModemHasHasAnUnknownEnd) {
  EXPECT_EQ(ReadTextAnswer("", kPortDriverNoAnswer).outcome, SendOutcome::kUnknown);
  EXPECT_EQ(ReadTextAnswer("", -77).outcome, SendOutcome::kUnknown) << "another runtime's driver";
  EXPECT_EQ(ReadTextAnswer("", kPortDriverNotWritten).outcome, SendOutcome::kPort);
  const SendResult no_prompt = ReadPromptAnswer("", kPortDriverNoAnswer);
  EXPECT_EQ(no_prompt.outcome, SendOutcome::kPort);
  EXPECT_NE(no_prompt.reason.find("no prompt"), std::string::npos);
  EXPECT_EQ(ReadRefusal("", kPortDriverNoAnswer).outcome, SendOutcome::kPort);
}

}  // namespace
