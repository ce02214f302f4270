// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/receiver_advice.h"

#include <gmock/gmock.h>

#include "addins/corvane_fb_lib/tokenize.h"

namespace {

using testing::EndsWith;
using testing::HasSubstr;

std::string AdviceOn(const std::string& receiver) {
  std::vector<std::string> numbers;
  tokenize(numbers, receiver, " ,", false);
  return AdviceOnReceiver(receiver, numbers);
}

TEST(AdviceOnReceiver, IsEmptyForNumbersOfFourDigitsOrMore) {
  for (const char* receiver :
       {"", " , ,", "1234", "15550101234", "15550101234, 4915112345678 1234"}) {
    EXPECT_EQ(AdviceOn(receiver), "") << receiver;
  }
}

TEST(AdviceOnReceiver, SaysWhatANumberWithSpacesBecomesAndHowToWriteIt) {
  EXPECT_EQ(AdviceOn("+49 151 12345678"),
            "SEND_SMS: Receiver \"+49 151 12345678\" is read as 3 receivers, since spaces and "
            "commas separate them, and \"+49\" has fewer than four digits: if it is one number, "
            "write \"4915112345678\"; the short code of a service is correct as it is");
  EXPECT_THAT(AdviceOn("4915112345678, 112"), HasSubstr("as 2 receivers, "));
  EXPECT_THAT(AdviceOn("4915112345678, 112"), HasSubstr("and \"112\" has fewer"));
}

TEST(AdviceOnReceiver, SaysThatASingleShortCodeMayBeCorrect) {
  EXPECT_EQ(AdviceOn("112 "),
            "SEND_SMS: Receiver \"112 \" has fewer than four digits: correct for the short code of "
            "a service; otherwise write the whole number with its country code, digits only");
  EXPECT_THAT(AdviceOn("Anna"), HasSubstr("\"Anna\" has fewer than four digits"));
}

TEST(AdviceOnReceiver, IsOneBoundedLine) {
  EXPECT_THAT(AdviceOn("1\n2"), HasSubstr("\"1\\n2\""));
  std::string many;
  for (int i = 0; i < 5000; ++i) many += "12 ";
  EXPECT_LT(AdviceOn(many).size(), 1000U);
  EXPECT_THAT(AdviceOn(many), HasSubstr("is read as 5000 receivers"));
  EXPECT_THAT(AdviceOn(many), EndsWith("...\"; the short code of a service is correct as it is"));
}

}  // namespace
