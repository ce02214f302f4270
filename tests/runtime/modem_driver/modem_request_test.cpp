// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_request.h"

#include <gmock/gmock.h>

namespace {

using corvane::ModemRequest;
using corvane::RequestKind;

const std::string kText = "0001000B915155101032F4000005E8329BFD06\x1A";

TEST(ModemRequest, TellsCommandsListsAnnouncementsAndTextsApart) {
  EXPECT_EQ(ModemRequest("AT+CMGF=0\r").kind, RequestKind::kCommand);
  EXPECT_EQ(ModemRequest("AT+CMGL=0\r").kind, RequestKind::kList);
  EXPECT_EQ(ModemRequest("at+cmgr=3\r").kind, RequestKind::kList);
  EXPECT_EQ(ModemRequest("AT+CMGS=18\r").kind, RequestKind::kAnnouncement);
  EXPECT_EQ(ModemRequest("at+cmgw=18\r").kind, RequestKind::kAnnouncement);
  EXPECT_EQ(ModemRequest("AT+CMGW=18\r").kind, RequestKind::kAnnouncement);
  EXPECT_EQ(ModemRequest("AT+CMGS=?\r").kind, RequestKind::kCommand);
  EXPECT_EQ(ModemRequest(kText).kind, RequestKind::kText);
  EXPECT_EQ(ModemRequest("").kind, RequestKind::kCommand);
}

TEST(ModemRequest, HasTheNameThatTheLinesOfItsAnswerBeginWith) {
  EXPECT_EQ(ModemRequest("AT+CMGL=0\r").name, "+CMGL");
  EXPECT_EQ(ModemRequest("at+cmgl=0\r").name, "+CMGL");
  EXPECT_EQ(ModemRequest("AT^SM20?\r").name, "^SM20");
  EXPECT_EQ(ModemRequest("ATE0\r").name, "");
  EXPECT_EQ(ModemRequest("AT\r").name, "");
  EXPECT_EQ(ModemRequest(kText).name, "");
}

TEST(ModemRequest, ShowsALogNeitherTextsNorSecrets) {
  EXPECT_EQ(ModemRequest("AT+CMGF=0\r").shown, "AT+CMGF=0");
  EXPECT_EQ(ModemRequest(kText).shown, "text of 38 characters");
  EXPECT_EQ(ModemRequest("AT+CPIN=1234\r").shown, "AT+CPIN=(secret)");
  EXPECT_TRUE(ModemRequest("AT+CPIN=1234\r").secret);
  EXPECT_FALSE(ModemRequest("AT+CPIN?\r").secret);
}

}  // namespace
