// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_request.h"

#include <gmock/gmock.h>

namespace {

using corvane::ModemRequest;
using corvane::RequestKind;

const std::string kTextOctets = "0001000B915155101032F4000005E8329BFD06\x1A";

TEST(ModemRequest, DistinguishesCommandsListsAnnouncementsAndTexts) {
  EXPECT_EQ(ModemRequest("AT+CMGF=0\r").kind, RequestKind::kCommand);
  EXPECT_EQ(ModemRequest("AT+CMGL=0\r").kind, RequestKind::kList);
  EXPECT_EQ(ModemRequest("at+cmgr=3\r").kind, RequestKind::kList);
  EXPECT_EQ(ModemRequest("AT+CMGS=18\r").kind, RequestKind::kAnnouncement);
  EXPECT_EQ(ModemRequest("at+cmgw=18\r").kind, RequestKind::kAnnouncement);
  EXPECT_EQ(ModemRequest("AT+CMGW=18\r").kind, RequestKind::kAnnouncement);
  EXPECT_EQ(ModemRequest("AT+CMGS=?\r").kind, RequestKind::kCommand);
  EXPECT_EQ(ModemRequest(kTextOctets).kind, RequestKind::kText);
  EXPECT_EQ(ModemRequest("").kind, RequestKind::kCommand);
}

TEST(ModemRequest, HasTheNameThatTheLinesOfItsAnswerBeginWith) {
  EXPECT_EQ(ModemRequest("AT+CMGL=0\r").name, "+CMGL");
  EXPECT_EQ(ModemRequest("at+cmgl=0\r").name, "+CMGL");
  EXPECT_EQ(ModemRequest("AT^SM20?\r").name, "^SM20");
  EXPECT_EQ(ModemRequest("ATE0\r").name, "");
  EXPECT_EQ(ModemRequest("AT\r").name, "");
  EXPECT_EQ(ModemRequest(kTextOctets).name, "");
}

TEST(ModemRequest, ShowsALogNeitherTextsNorSecrets) {
  EXPECT_EQ(ModemRequest("AT+CMGF=0\r").shown, "AT+CMGF=0");
  EXPECT_EQ(ModemRequest(kTextOctets).shown, "text of 38 characters");
  EXPECT_EQ(ModemRequest("AT+CPIN=1234\r").shown, "AT+CPIN=(secret)");
  EXPECT_EQ(ModemRequest("at+cpin=1234\r").shown, "at+cpin=(secret)");
  EXPECT_EQ(ModemRequest("ATE0+CPIN=1234\r").shown, "ATE0+CPIN=(secret)");
  EXPECT_EQ(ModemRequest("AT +CPIN=1234\r").shown, "AT +CPIN=(secret)");
  EXPECT_EQ(ModemRequest("AT + C P I N = 1234\r").shown, "AT + C P I N =(secret)");
  EXPECT_EQ(ModemRequest("AT+CMEE=1;+CPIN=\"1234\";+CSQ\r").shown, "AT+CMEE=1;+CPIN=(secret)");
  EXPECT_EQ(ModemRequest("AT+CLCK=\"SC\",1,\"1234\"\r").shown, "AT+CLCK=(secret)");
  EXPECT_EQ(ModemRequest("AT+CPWD=\"SC\",1,2;+CPIN=3\r").shown, "AT+CPWD=(secret)");
  EXPECT_EQ(ModemRequest("AT+CPIN?\r").shown, "AT+CPIN?");
}

TEST(ModemRequest, FindsThePinWhereverItIsInTheLine) {
  for (const std::string command :
       {"AT+CPIN=1234", "at+cpin=1234", "ATE0+CPIN=1234", "AT +CPIN=1234", "AT+CPIN= 1234",
        "AT + C P I N = 1234", "AT+CMEE=1;+CPIN=1234", "AT+CPIN=\"1234\"", "AT+CPIN=1234;+CSQ",
        "AT+CPIN=1234,5678"}) {
    EXPECT_EQ(ModemRequest(command + "\r").pin, "1234") << command;
  }
  for (const std::string command :
       {"AT+CPIN?", "AT+CPIN", "AT+CPIN=", "AT", "", "AT+CPWD=\"SC\",\"1234\",\"5678\"", "+CPIN"}) {
    EXPECT_EQ(ModemRequest(command + "\r").pin, "") << command;
  }
}

}  // namespace
