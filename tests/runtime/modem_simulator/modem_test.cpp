// SPDX-License-Identifier: MIT
// What the commands do: store, SIM card, network, announcements, text mode.
#include "runtime/modem_simulator/modem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "libs/gsm/hexadecimal.h"
#include "tests/runtime/modem_simulator/fake_host.h"

namespace modem_simulator {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr char kReceived[] =
    "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
constexpr char kReceivedLength[] = "30";

/// A modem with echo off.
class ModemTest : public testing::Test {
 protected:
  explicit ModemTest(const ModemOptions& options = {}) : modem_(options, host_) { Ask("ATE0\r"); }

  std::string Ask(std::string_view bytes) { return Exchange(modem_, host_, bytes); }
  void Receive(std::string_view digits) {
    modem_.ReceivePdu(gsm::FromHexadecimal(digits).value());
    host_.Take();  // the announcement
  }
  std::string Send() {
    Ask("AT+CMGS=18\r");
    return Ask(std::string(kHello) + "\x1A");
  }

  FakeHost host_;
  Modem modem_;
};

std::string Entry(int index, int status) {
  return "+CMGL: " + std::to_string(index) + "," + std::to_string(status) + ",," + kReceivedLength +
         "\r\n" + kReceived + "\r\n";
}

TEST_F(ModemTest, AnswersJustOkIfThereIsNothingToList) {
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\nOK\r\n");
}

TEST_F(ModemTest, ListsUnreadMessagesOnceAndMarksThemRead) {
  Receive(kReceived);
  Receive(kReceived);
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\n" + Entry(1, 0) + Entry(2, 0) + "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=1\r"), "\r\n" + Entry(1, 1) + Entry(2, 1) + "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=4\r"), "\r\n" + Entry(1, 1) + Entry(2, 1) + "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=3\r"), "\r\nOK\r\n");
}

TEST_F(ModemTest, RefusesAnUnknownKindOfList) {
  EXPECT_EQ(Ask("AT+CMGL=5\r"), "\r\n+CMS ERROR: 304\r\n");
  EXPECT_EQ(Ask("AT+CMGL=\"ALL\"\r"), "\r\n+CMS ERROR: 304\r\n");
}

TEST_F(ModemTest, ReadsAPlace) {
  Receive(kReceived);
  EXPECT_EQ(Ask("AT+CMGR=1\r"), std::string("\r\n+CMGR: 0,,30\r\n") + kReceived + "\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGR=1\r"), std::string("\r\n+CMGR: 1,,30\r\n") + kReceived + "\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGR=2\r"), "\r\nOK\r\n") << "an empty place";
  EXPECT_EQ(Ask("AT+CMGR=21\r"), "\r\n+CMS ERROR: 321\r\n") << "no place";
}

TEST_F(ModemTest, DeletesAPlace) {
  Receive(kReceived);
  EXPECT_EQ(Ask("AT+CMGD=1\r"), "\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "deleted place 1");
  EXPECT_EQ(Ask("AT+CMGD=1\r"), "\r\n+CMS ERROR: 321\r\n");
  EXPECT_EQ(Ask("AT+CMGD=99\r"), "\r\n+CMS ERROR: 321\r\n");
  EXPECT_EQ(Ask("AT+CMGD=\r"), "\r\n+CMS ERROR: 321\r\n");
}

TEST_F(ModemTest, DeletesByFlag) {
  Receive(kReceived);
  Ask("AT+CMGL=0\r");
  Receive(kReceived);
  EXPECT_EQ(Ask("AT+CMGD=1,1\r"), "\r\nOK\r\n") << "what was read";
  EXPECT_EQ(Ask("AT+CMGL=4\r"), "\r\n" + Entry(2, 0) + "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGD=1,4\r"), "\r\nOK\r\n") << "everything";
  EXPECT_EQ(Ask("AT+CMGL=4\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGD=1,5\r"), "\r\n+CMS ERROR: 304\r\n");
}

TEST_F(ModemTest, ListsAnEmptyPduLine) {
  modem_.ReceivePdu({});
  host_.Take();
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\n+CMGL: 1,0,,0\r\n\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, ReportsHowFullItsStoreIs) {
  Receive(kReceived);
  EXPECT_EQ(Ask("AT+CPMS?\r"), "\r\n+CPMS: \"SM\",1,20,\"SM\",1,20,\"SM\",1,20\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CPMS=\"SM\",\"SM\"\r"), "\r\n+CPMS: 1,20,1,20,1,20\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CPMS=\"XX\"\r"), "\r\n+CMS ERROR: 302\r\n");
  EXPECT_EQ(Ask("AT+CPMS=?\r"), "\r\n+CPMS: (\"SM\"),(\"SM\"),(\"SM\")\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, IdentifiesItself) {
  EXPECT_EQ(Ask("AT+CGMI\r"), "\r\nCorvane\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CGMM\r"), "\r\nSimulator\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CGSN\r"), "\r\n490154203237518\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CGMI=?\r"), "\r\nOK\r\n");
}

TEST_F(ModemTest, KeepsItsServiceCentre) {
  EXPECT_EQ(Ask("AT+CSCA?\r"), "\r\n+CSCA: \"+15550000000\",145\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CSCA=\"+491710760000\",145\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CSCA?\r"), "\r\n+CSCA: \"+491710760000\",145\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CSCA=\"x\"\r"), "\r\n+CMS ERROR: 305\r\n");
}

TEST_F(ModemTest, AnnouncesAsCnmiSays) {
  EXPECT_EQ(Ask("AT+CNMI?\r"), "\r\n+CNMI: 2,1,0,0,0\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CNMI=2,0\r"), "\r\nOK\r\n");
  ASSERT_TRUE(modem_.Receive("+1555", "x"));
  EXPECT_EQ(host_.Take(), "");
  EXPECT_EQ(Ask("AT+CNMI=0,1\r"), "\r\nOK\r\n");
  ASSERT_TRUE(modem_.Receive("+1555", "x"));
  EXPECT_EQ(host_.Take(), "");
  EXPECT_EQ(Ask("AT+CNMI=9,1\r"), "\r\n+CMS ERROR: 302\r\n");
  EXPECT_EQ(Ask("AT+CNMI=2,1,0,0,0,0\r"), "\r\n+CMS ERROR: 302\r\n");
}

TEST_F(ModemTest, PassesMessagesOnWithoutStoringThem) {
  Ask("AT+CNMI=2,2\r");
  modem_.ReceivePdu(gsm::FromHexadecimal(kReceived).value());
  EXPECT_EQ(host_.Take(), std::string("\r\n+CMT: ,30\r\n") + kReceived + "\r\n");
  EXPECT_EQ(Ask("AT+CMGL=4\r"), "\r\nOK\r\n");
}

/// A message of this class in the default alphabet: "hi".
std::string OfClass(int message_class) {
  return "0004048100F000" + std::to_string(10 + message_class) + "6210132100004002E834";
}

TEST_F(ModemTest, RoutesMessagesByTheirClass) {
  Ask("AT+CNMI=2,2\r");
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(2)).value());
  EXPECT_EQ(host_.Take(), "\r\n+CMTI: \"SM\",1\r\n") << "a class for the SIM card";
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(1)).value());
  EXPECT_EQ(host_.Take(), "\r\n+CMT: ,17\r\n" + OfClass(1) + "\r\n");
  Ask("AT+CNMI=2,3\r");
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(1)).value());
  EXPECT_EQ(host_.Take(), "\r\n+CMTI: \"SM\",2\r\n");
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(3)).value());
  EXPECT_EQ(host_.Take(), "\r\n+CMT: ,17\r\n" + OfClass(3) + "\r\n") << "the controller's";
}

TEST_F(ModemTest, KeepsIndicationsUntilTheyAreAllowed) {
  Ask("AT+CNMI=0,1\r");
  ASSERT_TRUE(modem_.Receive("+1555", "x"));
  ASSERT_TRUE(modem_.Receive("+1555", "y"));
  EXPECT_EQ(host_.Take(), "");
  EXPECT_EQ(Ask("AT+CNMI=1\r"), "\r\nOK\r\n\r\n+CMTI: \"SM\",1\r\n\r\n+CMTI: \"SM\",2\r\n");
}

TEST_F(ModemTest, DropsKeptIndicationsIfSoConfigured) {
  Ask("AT+CNMI=0,1\r");
  ASSERT_TRUE(modem_.Receive("+1555", "x"));
  EXPECT_EQ(Ask("AT+CNMI=3,1,0,0,1\r"), "\r\nOK\r\n");
  ASSERT_TRUE(modem_.Receive("+1555", "y"));
  EXPECT_EQ(host_.Take(), "\r\n+CMTI: \"SM\",2\r\n");
}

TEST_F(ModemTest, KeepsTheLatestOfTooManyIndications) {
  ModemOptions options;
  options.store_size = 300;
  Modem modem(options, host_);
  Exchange(modem, host_, "ATE0+CNMI=0,1\r");
  for (int i = 0; i < 300; ++i) ASSERT_TRUE(modem.Receive("+1555", "x"));
  const std::string announced = Exchange(modem, host_, "AT+CNMI=2\r");
  EXPECT_TRUE(announced.starts_with("\r\nOK\r\n\r\n+CMTI: \"SM\",45\r\n"))
      << announced.substr(0, 40);
  EXPECT_TRUE(announced.ends_with("\r\n+CMTI: \"SM\",300\r\n"));
}

TEST_F(ModemTest, PassesOnTheNextMessageWhenOneIsAcknowledged) {
  Ask("AT+CSMS=1;+CNMI=2,2\r");
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(0)).value());
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(1)).value());
  EXPECT_EQ(host_.Take(), "\r\n+CMT: ,17\r\n" + OfClass(0) + "\r\n");
  EXPECT_THAT(host_.reports.back(), HasSubstr("; the last one has not been acknowledged"));
  EXPECT_EQ(Ask("AT+CNMA\r"), "\r\nOK\r\n\r\n+CMT: ,17\r\n" + OfClass(1) + "\r\n");
  EXPECT_EQ(Ask("AT+CNMA=2\r"), "\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "refused by the controller");
  EXPECT_EQ(Ask("AT+CNMA\r"), "\r\n+CMS ERROR: 340\r\n") << "nothing is left to acknowledge";
}

TEST_F(ModemTest, AcceptsAnAcknowledgementWithAPdu) {
  Ask("AT+CSMS=1;+CNMI=2,2\r");
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(0)).value());
  host_.Take();
  EXPECT_EQ(Ask("AT+CNMA=1,2\r"), "\r\n> ");
  EXPECT_EQ(Ask("00\x1A"), "\r\n+CMS ERROR: 304\r\n");
  EXPECT_EQ(host_.reports.back(), "refused: AT+CNMA announced 2 octets, the PDU has 1");
  EXPECT_EQ(Ask("AT+CNMA=1,2\r"), "\r\n> ");
  EXPECT_EQ(Ask("0000\x1A"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CNMA\r"), "\r\n+CMS ERROR: 340\r\n");
}

TEST_F(ModemTest, NeedsNoAcknowledgementAfterAReset) {
  Ask("AT+CSMS=1;+CNMI=2,2\r");
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(0)).value());
  modem_.ReceivePdu(gsm::FromHexadecimal(OfClass(1)).value());
  host_.Take();
  EXPECT_EQ(Ask("ATZ\r"), "\r\nOK\r\n\r\n+CMTI: \"SM\",1\r\n") << "the second one is stored";
}

/// "hello" with a request for a status report.
constexpr char kHelloWithReport[] = "0021000B915155101032F4000005E8329BFD06";

TEST_F(ModemTest, PassesOnStoresOrDropsStatusReports) {
  const auto send = [this] {
    Ask("AT+CMGS=18\r");
    return Ask(std::string(kHelloWithReport) + "\x1A");
  };
  EXPECT_EQ(send(), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(),
            "received, not passed on: status report 0 on message 1 to +15550101234");
  Ask("AT+CNMI=2,1,0,1\r");
  EXPECT_EQ(send(),
            "\r\n+CMGS: 2\r\n\r\nOK\r\n\r\n+CDS: 25\r\n"
            "07915155000000F006020B915155101032F4621013210000406210132100004000\r\n");
  Ask("AT+CNMI=2,1,0,2\r");
  EXPECT_EQ(send(), "\r\n+CMGS: 3\r\n\r\nOK\r\n\r\n+CDSI: \"SM\",1\r\n");
  Ask("AT+CMGF=1\r");
  EXPECT_EQ(Ask("AT+CMGR=1\r"),
            "\r\n+CMGR: \"REC UNREAD\",6,3,\"+15550101234\",145,\"26/01/31,12:00:00+04\","
            "\"26/01/31,12:00:00+04\",0\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, ReportsComeAsPlanned) {
  const auto send = [this] {
    Ask("AT+CMGS=18\r");
    return Ask(std::string(kHelloWithReport) + "\x1A");
  };
  Ask("AT+CNMI=2,1,0,1\r");
  modem_.SetReports({0x46, std::chrono::seconds(3)});
  EXPECT_EQ(send(), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  ASSERT_EQ(host_.later.size(), 1U);
  EXPECT_EQ(host_.later[0].first, std::chrono::seconds(3));
  host_.now.second = 3;
  host_.later[0].second();
  EXPECT_EQ(host_.Take(),
            "\r\n+CDS: 25\r\n"
            "07915155000000F006010B915155101032F4621013210000406210132100304046\r\n");
  modem_.SetReports({std::nullopt, {}});
  EXPECT_EQ(send(), "\r\n+CMGS: 2\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.later.size(), 1U);
}

TEST_F(ModemTest, AReportWaitsForAModemThatIsOutOfReach) {
  Ask("AT+CNMI=2,1,0,1\r");
  modem_.SetReports({0, std::chrono::seconds(3)});
  Ask("AT+CMGS=18\r");
  Ask(std::string(kHelloWithReport) + "\x1A");
  modem_.BeginCoverageGap();
  host_.later.at(0).second();
  EXPECT_EQ(host_.Take(), "");
  EXPECT_THAT(host_.reports.back(), HasSubstr("waiting in the network: status report 0"));
  modem_.EndCoverageGap();
  EXPECT_THAT(host_.Take(), HasSubstr("\r\n+CDS: 25\r\n"));
}

TEST_F(ModemTest, PartsArriveInTheOrderedOrder) {
  const std::string text = std::string(153, 'a') + std::string(153, 'b') + "c";
  ASSERT_TRUE(modem_.ReceiveInOrder("+4915112345678", text, {3, 1, 1}));
  ASSERT_TRUE(modem_.ReceiveInOrder("+4915112345678", text, {2}));
  EXPECT_FALSE(modem_.ReceiveInOrder("+4915112345678", text, {4}));
  ASSERT_TRUE(modem_.ReceiveInOrder("+4915112345678", text, {3}));
  EXPECT_THAT(modem_.Describe(),
              ElementsAre("store: 5 of 20 places taken", HasSubstr("part 3 of 3: c"),
                          HasSubstr("part 1 of 3: a"), HasSubstr("part 1 of 3: a"),
                          HasSubstr("part 2 of 3: b"), HasSubstr("part 3 of 3: c")));
  // The first three belong to one message, the others to one each: octet 25 is the reference.
  const std::string list = Ask("AT+CMGL=4\r");
  std::vector<std::string> references;
  for (std::size_t at = list.find("050003"); at != list.npos; at = list.find("050003", at + 1)) {
    references.push_back(list.substr(at + 6, 2));
  }
  EXPECT_THAT(references, ElementsAre("00", "00", "00", "01", "02"));
}

TEST_F(ModemTest, TheStoreHoldsMessagesOfAnEarlierLife) {
  EXPECT_TRUE(modem_.Store(MessageStatus::kRead, "+4915112345678", "old"));
  EXPECT_TRUE(modem_.Store(MessageStatus::kUnsent, "+1555", "draft"));
  EXPECT_TRUE(modem_.Store(MessageStatus::kSent, "+1555", "gone"));
  EXPECT_FALSE(modem_.Store(MessageStatus::kRead, "+1555", "\xFF"));
  EXPECT_THAT(modem_.Describe(), ElementsAre("store: 3 of 20 places taken",
                                             HasSubstr("place 1, REC READ: from +4915112345678"),
                                             "place 2, STO UNSENT: to +1555: draft",
                                             "place 3, STO SENT: to +1555: gone"));
  EXPECT_EQ(host_.Take(), "") << "nothing is announced";
}

TEST_F(ModemTest, AFullStoreLeavesMessagesInTheNetworkUntilSomethingIsDeleted) {
  modem_.FillStore();
  EXPECT_EQ(host_.reports.back(), "20 old messages fill the store");
  ASSERT_TRUE(modem_.Receive("+1555", "hello"));
  EXPECT_THAT(host_.reports.back(), HasSubstr("; the store is full"));
  EXPECT_FALSE(modem_.Store(MessageStatus::kRead, "+1555", "one too many"));
  EXPECT_EQ(Ask("AT+CMGD=7\r"), "\r\nOK\r\n\r\n+CMTI: \"SM\",7\r\n");
}

TEST_F(ModemTest, WithoutCoverageNothingIsSentOrReceived) {
  Ask("AT+CREG=1\r");
  modem_.BeginCoverageGap();
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 0\r\n");
  EXPECT_EQ(Ask("AT+CSQ;+CREG?\r"), "\r\n+CSQ: 99,99\r\n\r\n+CREG: 1,0\r\n\r\nOK\r\n");
  Ask("AT+CMGS=18\r");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "\r\n+CMS ERROR: 331\r\n");
  modem_.BeginCoverageGap();
  modem_.EndCoverageGap();
  EXPECT_EQ(host_.Take(), "") << "the first one lasts";
  modem_.EndCoverageGap();
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 1\r\n");
  EXPECT_THAT(Ask("AT+CSQ\r"), HasSubstr("+CSQ: 20,0"));
}

TEST_F(ModemTest, WithoutItsSimTheModemRefusesAndTheNetworkWaits) {
  Ask("AT+CMEE=1;+CREG=1\r");
  modem_.SetSimInserted(false);
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 0\r\n");
  for (const char* command : {"AT+CMGL=4\r", "AT+CMGD=1\r", "AT+CMGS=18\r", "AT+CPMS?\r"}) {
    EXPECT_EQ(Ask(command), "\r\n+CMS ERROR: 310\r\n") << command;
  }
  for (const char* command : {"AT+CPIN?\r", "AT+CPIN=1234\r", "AT+CIMI\r"}) {
    EXPECT_EQ(Ask(command), "\r\n+CME ERROR: 10\r\n") << command;
  }
  ASSERT_TRUE(modem_.Receive("+1555", "hello"));
  EXPECT_THAT(host_.reports.back(), HasSubstr("; there is no SIM card"));
  modem_.SetSimInserted(true);
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 1\r\n\r\n+CMTI: \"SM\",1\r\n");
}

TEST_F(ModemTest, ShowsWhatASentMessageAsksFor) {
  modem_.SetReports({std::nullopt, {}});
  const auto options = [this](const std::string& pdu) -> std::string {
    host_.reports.clear();
    Ask("AT+CMGS=" + std::to_string(pdu.size() / 2 - 1) + "\r");
    EXPECT_THAT(Ask(pdu + "\x1A"), HasSubstr("+CMGS: "));
    EXPECT_EQ(host_.reports.back(), "sent to +15550101234: hello");
    return host_.reports.size() < 2 ? "" : host_.reports.front();
  };
  EXPECT_EQ(options(kHello), "");
  EXPECT_EQ(options("0011000B915155101032F40000A705E8329BFD06"), "to +15550101234: valid for 24 h");
  EXPECT_EQ(options("0031000B915155101032F400100005E8329BFD06"),
            "to +15550101234: valid for 5 min, class 0, a report is asked for");
  EXPECT_EQ(options("0011000B915155101032F40000AD05E8329BFD06"),
            "to +15550101234: valid for 7 days");
  EXPECT_EQ(options("0019000B915155101032F400006210132100004005E8329BFD06"),
            "to +15550101234: valid until 2026-01-31T12:00:00+01:00");
}

TEST_F(ModemTest, StoresALongTextInParts) {
  ASSERT_TRUE(modem_.Receive("+4915112345678", std::string(161, 'x')));
  EXPECT_EQ(host_.Take(), "\r\n+CMTI: \"SM\",1\r\n\r\n+CMTI: \"SM\",2\r\n");
  EXPECT_THAT(modem_.Describe(),
              ElementsAre("store: 2 of 20 places taken",
                          HasSubstr("place 1, REC UNREAD: from +4915112345678 at "
                                    "2026-01-31T12:00:00+01:00, part 1 of 2: xxx"),
                          HasSubstr("part 2 of 2: xxxxxxxx")));
}

TEST_F(ModemTest, RefusesAnInvalidReceiverOrText) {
  EXPECT_FALSE(modem_.Receive("", "x"));
  EXPECT_FALSE(modem_.Receive("+1555", "\xFF"));
  EXPECT_FALSE(modem_.Receive("far too long a name", "x"));
}

TEST_F(ModemTest, JoinsThePartsThatTheControllerSends) {
  // 71 Cyrillic characters in two parts.
  std::string first = "0041000B915155101032F400088C050003070201";
  for (int i = 0; i < 67; ++i) first += "0416";
  std::string second = "0041000B915155101032F400080E050003070202";
  for (int i = 0; i < 4; ++i) second += "0417";
  Ask("AT+CMGS=153\r");
  EXPECT_EQ(Ask(first + "\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "part 1 of 2 to +15550101234");
  EXPECT_THAT(modem_.Describe().back(), HasSubstr("unfinished to +15550101234, 1 of 2 parts: ЖЖЖ"));
  Ask("AT+CMGS=27\r");
  EXPECT_EQ(Ask(second + "\x1A"), "\r\n+CMGS: 2\r\n\r\nOK\r\n");
  EXPECT_THAT(host_.reports.back(), HasSubstr("sent to +15550101234 in 2 parts: ЖЖЖ"));
  EXPECT_THAT(host_.reports.back(), HasSubstr("ЖЗЗЗЗ"));
}

TEST_F(ModemTest, FailsTheNextTransferAsOrdered) {
  Receive(kReceived);
  modem_.faults().Fail(Cms(321), "*", 1);
  EXPECT_EQ(Ask("AT+CMGF=0\r"), "\r\nOK\r\n") << "moves no message";
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\n+CMS ERROR: 321\r\n");
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\n" + Entry(1, 0) + "\r\nOK\r\n") << "still unread";
}

TEST_F(ModemTest, FailsOneCommandAsOftenAsOrdered) {
  modem_.faults().Fail(Cms(38), "CMGS", 2);
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\nOK\r\n");
  EXPECT_EQ(Send(), "\r\n+CMS ERROR: 38\r\n");
  EXPECT_EQ(host_.reports.back(), "refused: message to +15550101234: +CMS ERROR: 38");
  EXPECT_EQ(Send(), "\r\n+CMS ERROR: 38\r\n");
  EXPECT_EQ(Send(), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, AlsoFailsWithOtherErrors) {
  modem_.faults().Fail(kError, "CMGD", 1);
  modem_.faults().Fail(Cme(14), "CMGL", 2);
  EXPECT_EQ(Ask("AT+CMGD=1\r"), "\r\nERROR\r\n");
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\nERROR\r\n") << "the error level is 0";
  Ask("AT+CMEE=1\r");
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\n+CME ERROR: 14\r\n");
}

TEST_F(ModemTest, TearsAPduWithAnUnsolicitedLine) {
  Receive(kReceived);
  modem_.faults().Interrupt("+CREG: 1");
  const std::string pdu = kReceived;
  EXPECT_EQ(Ask("AT+CMGL=0\r"), "\r\n+CMGL: 1,0,,30\r\n" + pdu.substr(0, pdu.size() / 2) +
                                    "\r\n+CREG: 1\r\n" + pdu.substr(pdu.size() / 2) +
                                    "\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, SendsNothingWhileItIsNotRegistered) {
  modem_.SetRegistered(false);
  EXPECT_EQ(Send(), "\r\n+CMS ERROR: 331\r\n");
  EXPECT_EQ(Ask("AT+CREG?\r"), "\r\n+CREG: 0,0\r\n\r\nOK\r\n");
  ASSERT_TRUE(modem_.Receive("+1555", "later"));
  EXPECT_EQ(host_.Take(), "");
  EXPECT_EQ(host_.reports.back(),
            "waiting in the network: from +1555 at 2026-01-31T12:00:00+01:00: later; the modem is "
            "not registered");
  modem_.SetRegistered(true);
  EXPECT_EQ(host_.Take(), "\r\n+CMTI: \"SM\",1\r\n");
}

TEST_F(ModemTest, ReportsChangesOfRegistrationWhenAsked) {
  Ask("AT+CREG=1\r");
  modem_.SetRegistered(false);
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 0\r\n");
  modem_.SetRegistered(false);
  EXPECT_EQ(host_.Take(), "") << "no change";
}

TEST_F(ModemTest, ReportsWhereItIsRegisteredWhenAsked) {
  Ask("AT+CREG=2;+CGREG=2\r");
  modem_.SetRegistered(false);
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 0\r\n\r\n+CGREG: 0\r\n");
  EXPECT_EQ(Ask("AT+CREG?\r"), "\r\n+CREG: 2,0\r\n\r\nOK\r\n");
  modem_.SetRegistered(true);
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 1,\"1A2B\",\"C0DE\"\r\n\r\n+CGREG: 1,\"1A2B\",\"C0DE\"\r\n");
}

TEST_F(ModemTest, LeavesTheNetworkAndReturnsAsCopsSays) {
  Ask("AT+CREG=1;+CMEE=1\r");
  EXPECT_EQ(Ask("AT+COPS=2\r"), "\r\nOK\r\n\r\n+CREG: 0\r\n");
  EXPECT_EQ(Ask("AT+COPS?\r"), "\r\n+COPS: 2\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+COPS=?\r"),
            "\r\n+COPS: (1,\"Corvane\",\"Corvane\",\"00101\"),,(0-4),(0-2)\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CGATT?\r"), "\r\n+CGATT: 0\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CGATT=1\r"), "\r\n+CME ERROR: 30\r\n");
  EXPECT_EQ(Send(), "\r\n+CMS ERROR: 331\r\n");
  EXPECT_EQ(Ask("AT+COPS=0\r"), "\r\nOK\r\n\r\n+CREG: 1\r\n");
  EXPECT_EQ(Send(), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, ShowsNoOperatorIfThereIsNone) {
  modem_.SetRegistered(false);
  EXPECT_EQ(Ask("AT+COPS?\r"), "\r\n+COPS: 0\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+COPS=?\r"), "\r\n+COPS: ,,(0-4),(0-2)\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, ReportsThatItLeavesThePacketNetwork) {
  Ask("AT+CGREG=1\r");
  EXPECT_EQ(Ask("AT+CGATT=0\r"), "\r\nOK\r\n\r\n+CGREG: 0\r\n");
  EXPECT_EQ(Ask("AT+CREG?\r"), "\r\n+CREG: 0,1\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CGATT=1\r"), "\r\nOK\r\n\r\n+CGREG: 1\r\n");
}

TEST_F(ModemTest, ItsClockRunsOnFromTheTimeThatIsSet) {
  Ask("AT+CCLK=\"27/02/28,23:59:50+00\"\r");
  host_.now.second = 20;
  EXPECT_EQ(Ask("AT+CCLK?\r"), "\r\n+CCLK: \"27/03/01,00:00:10+00\"\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, WritesStringsInItsCharacterSet) {
  Ask("AT+CSCS=\"UCS2\"\r");
  EXPECT_EQ(Ask("AT+COPS?\r"), "\r\n+COPS: 0,0,\"0043006F007200760061006E0065\"\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+COPS=1,1,\"0043006F007200760061006E0065\"\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CSCA=\"002B0034\";+CSCA?\r"), "\r\n+CSCA: \"002B0034\",145\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CSCA=\"+4\"\r"), "\r\n+CMS ERROR: 305\r\n");
}

TEST_F(ModemTest, ReportsItsSignal) {
  modem_.SetSignal(99);
  EXPECT_EQ(Ask("AT+CSQ\r"), "\r\n+CSQ: 99,99\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, RestartsWithPowerButKeepsItsMessages) {
  Receive(kReceived);
  modem_.PowerOff();
  ASSERT_TRUE(modem_.Receive("+1555", "meanwhile"));
  EXPECT_THAT(host_.reports.back(), HasSubstr("the modem is unplugged"));
  modem_.PowerOn();
  EXPECT_EQ(host_.Take(), "\r\n+CMTI: \"SM\",2\r\n");
  EXPECT_EQ(Ask("AT\r"), "AT\r\r\nOK\r\n") << "echo is on again";
}

TEST_F(ModemTest, ForgetsAnUnconfirmedMessageWithoutPower) {
  Ask("AT+CMGS=18\r");
  modem_.Feed(std::string(kHello) + "\x1A");
  modem_.PowerOff();
  modem_.PowerOn();
  modem_.Wake();
  EXPECT_EQ(host_.Take(), "");
}

TEST_F(ModemTest, ShowsMessagesInTextMode) {
  Receive(kReceived);
  ASSERT_TRUE(modem_.Receive("+1555", "Grüße"));
  ASSERT_TRUE(modem_.Receive("+1555", "Ж"));
  host_.Take();
  EXPECT_EQ(Ask("AT+CMGF=1\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGR=1\r"),
            "\r\n+CMGR: \"REC UNREAD\",\"+31641600986\",,\"02/08/26,19:37:41+00\"\r\n"
            "How are you?\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=\"REC UNREAD\"\r"),
            "\r\n+CMGL: 2,\"REC UNREAD\",\"+1555\",,\"26/01/31,12:00:00+04\"\r\nGr~\x1E"
            "e\r\n"
            "+CMGL: 3,\"REC UNREAD\",\"+1555\",,\"26/01/31,12:00:00+04\"\r\n0416\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=\"NONE\"\r"), "\r\n+CMS ERROR: 305\r\n");
  EXPECT_EQ(Ask("AT+CSCS=\"UCS2\";+CMGR=2\r"),
            "\r\n+CMGR: \"REC READ\",\"002B0031003500350035\",,\"26/01/31,12:00:00+04\"\r\n"
            "0047007200FC00DF0065\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, ShowsAllFieldsInTextModeWhenAsked) {
  Receive(kReceived);
  Ask("AT+CMGF=1;+CSDH=1\r");
  EXPECT_EQ(Ask("AT+CMGR=1\r"),
            "\r\n+CMGR: \"REC UNREAD\",\"+31641600986\",,\"02/08/26,19:37:41+00\",145,4,0,0,"
            "\"+31624000000\",145,12\r\nHow are you?\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=\"ALL\"\r"),
            "\r\n+CMGL: 1,\"REC READ\",\"+31641600986\",,\"02/08/26,19:37:41+00\",145,12\r\n"
            "How are you?\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, PassesMessagesOnAsTextInTextMode) {
  Ask("AT+CMGF=1;+CNMI=2,2\r");
  ASSERT_TRUE(modem_.Receive("+1555", "hi"));
  EXPECT_EQ(host_.Take(), "\r\n+CMT: \"+1555\",,\"26/01/31,12:00:00+04\"\r\nhi\r\n");
  Ask("AT+CSDH=1\r");
  ASSERT_TRUE(modem_.Receive("+1555", "hi"));
  EXPECT_EQ(host_.Take(),
            "\r\n+CMT: \"+1555\",,\"26/01/31,12:00:00+04\",145,4,0,0,\"+15550000000\",145,2\r\n"
            "hi\r\n");
}

TEST_F(ModemTest, WritesAndReadsTextsInAscii) {
  ASSERT_TRUE(modem_.Receive("+1555", "a@b_c [ü]"));
  host_.Take();
  Ask("AT+CMGF=1;+CSCS=\"IRA\"\r");
  EXPECT_THAT(Ask("AT+CMGR=1\r"), HasSubstr("\r\na@b_c [?]\r\n"));
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_EQ(Ask("x@y_z {1}\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1555: x@y_z {1}");
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_EQ(Ask("`\x1A"), "\r\n+CMS ERROR: 305\r\n") << "the default alphabet lacks it";
}

TEST_F(ModemTest, AcceptsNumbersInItsCharacterSet) {
  Ask("AT+CMGF=1;+CSCS=\"UCS2\"\r");
  EXPECT_EQ(Ask("AT+CMGS=\"+1555\"\r"), "\r\n+CMS ERROR: 305\r\n");
  EXPECT_EQ(Ask("AT+CMGS=\"00310\"\r"), "\r\n+CMS ERROR: 305\r\n");
  EXPECT_EQ(Ask("AT+CMGS=\"002B0031003500350035\"\r"), "\r\n> ");
  EXPECT_EQ(Ask("004700FC\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1555: Gü");
  EXPECT_EQ(Ask("AT+CMGS=\"002B0031003500350035\"\r"), "\r\n> ");
  EXPECT_EQ(Ask("0416\x1A"), "\r\n+CMS ERROR: 305\r\n") << "the data coding is still 0";
}

TEST_F(ModemTest, AcceptsTheTypeOfANumber) {
  Ask("AT+CMGF=1\r");
  for (const auto& [number, to] :
       {std::pair("\"1555\",145", "+1555"), {"\"+1555\",145", "+1555"}, {"\"1555\",129", "1555"}}) {
    Ask(std::string("AT+CMGS=") + number + "\r");
    Ask("x\x1A");
    EXPECT_EQ(host_.reports.back(), std::string("sent to ") + to + ": x");
  }
  EXPECT_EQ(Ask("AT+CMGS=\"1555\",256\r"), "\r\n+CMS ERROR: 305\r\n");
}

TEST_F(ModemTest, SendsTextsWithTheParametersOfCsmp) {
  Ask("AT+CMGF=1;+CSMP=17,167,0,8\r");
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_EQ(Ask("04160417\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1555: ЖЗ");
  Ask("AT+CSMP=,,,4\r");
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_EQ(Ask("00FF\x1A"), "\r\n+CMGS: 2\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1555 as 8-bit data: 00FF");
  Ask("AT+CSMP=81,,,8\r");  // user data with a header
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_EQ(Ask("0500030102010416\x1A"), "\r\n+CMGS: 3\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "part 1 of 2 to +1555");
  Ask("AT+CSMP=49,,,0;+CNMI=2,1,0,1\r");  // with a status report
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_THAT(Ask("x\x1A"), HasSubstr("\r\n+CDS: 6,4,\"+1555\",145,"));
}

TEST_F(ModemTest, WritesAMessageAndSendsItLater) {
  EXPECT_EQ(Ask("AT+CMGW=18\r"), "\r\n> ");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "\r\n+CMGW: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "written, place 1: to +15550101234: hello");
  EXPECT_EQ(Ask("AT+CMGL=2\r"), std::string("\r\n+CMGL: 1,2,,18\r\n") + kHello + "\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMSS=1\r"), "\r\n+CMSS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +15550101234: hello");
  EXPECT_EQ(Ask("AT+CMSS=1,\"1555\",145\r"), "\r\n+CMSS: 2\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1555: hello");
  EXPECT_EQ(Ask("AT+CMSS=1,\"x\"\r"), "\r\n+CMS ERROR: 304\r\n");
  EXPECT_EQ(Ask("AT+CMGL=3\r"), std::string("\r\n+CMGL: 1,3,,18\r\n") + kHello + "\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, WritesTextsWithAndWithoutAReceiver) {
  Ask("AT+CMGF=1\r");
  EXPECT_EQ(Ask("AT+CMGW=\"+1555\",145,\"STO SENT\"\r"), "\r\n> ");
  EXPECT_EQ(Ask("one\x1A"), "\r\n+CMGW: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGW\r"), "\r\n> ");
  EXPECT_EQ(Ask("two\x1A"), "\r\n+CMGW: 2\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "written, place 2: to nobody: two");
  EXPECT_EQ(Ask("AT+CMGL=\"ALL\"\r"),
            "\r\n+CMGL: 1,\"STO SENT\",\"+1555\",,\r\none\r\n"
            "+CMGL: 2,\"STO UNSENT\",\"\",,\r\ntwo\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CSDH=1;+CMGR=1\r"),
            "\r\n+CMGR: \"STO SENT\",\"+1555\",,145,17,0,0,167,\"\",129,3\r\none\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMSS=2\r"), "\r\n+CMS ERROR: 305\r\n") << "it has no receiver";
  EXPECT_EQ(Ask("AT+CMSS=2,\"+1666\"\r"), "\r\n+CMSS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1666: two");
  EXPECT_EQ(Ask("AT+CMGW=\"+1555\",145,\"REC READ\"\r"), "\r\n+CMS ERROR: 305\r\n");
}

TEST_F(ModemTest, KeepsTheParametersOfAWrittenText) {
  Ask("AT+CMGF=1;+CSMP=25,\"26/02/01,12:00:00+04\",64,0;+CSDH=1\r");
  Ask("AT+CMGW=\"+1555\"\r");
  Ask("x\x1A");
  EXPECT_THAT(Ask("AT+CMGR=1\r"), HasSubstr(",145,25,64,0,\"26/02/01,12:00:00+04\",\"\",129,1"));
}

TEST_F(ModemTest, WritesAReceivedMessageAndRefusesToSendIt) {
  Ask("AT+CMGW=30,1\r");
  EXPECT_EQ(Ask(std::string(kReceived) + "\x1A"), "\r\n+CMGW: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL=1\r"), "\r\n" + Entry(1, 1) + "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMSS=1\r"), "\r\n+CMS ERROR: 302\r\n");
  Ask("AT+CMGW=30,2\r");
  EXPECT_EQ(Ask(std::string(kReceived) + "\x1A"), "\r\n+CMS ERROR: 304\r\n");
}

TEST_F(ModemTest, FailsToSendAStoredMessageWithoutANetwork) {
  Ask("AT+CMGW=18\r");
  Ask(std::string(kHello) + "\x1A");
  modem_.SetRegistered(false);
  EXPECT_EQ(Ask("AT+CMSS=1\r"), "\r\n+CMS ERROR: 331\r\n");
  EXPECT_EQ(Ask("AT+CMGR=1\r"), std::string("\r\n+CMGR: 2,,18\r\n") + kHello + "\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, SendsInTextMode) {
  Ask("AT+CMGF=1\r");
  EXPECT_EQ(Ask("AT+CMGS=\"+15550101234\"\r"), "\r\n> ");
  EXPECT_EQ(Ask("hello\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +15550101234: hello");
  EXPECT_EQ(Ask("AT+CMGS=\"nobody\"\r"), "\r\n+CMS ERROR: 305\r\n");
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_EQ(Ask(std::string(161, 'x') + "\x1A"), "\r\n+CMS ERROR: 305\r\n");
}

class LockedModemTest : public ModemTest {
 protected:
  LockedModemTest()
      : ModemTest([] {
          ModemOptions options;
          options.pin = "1234";
          return options;
        }()) {}
};

TEST_F(LockedModemTest, NeedsItsPinBeforeItMovesMessages) {
  EXPECT_EQ(Ask("AT+CPIN?\r"), "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n");
  for (const char* command : {"AT+CMGL=0", "AT+CMGR=1", "AT+CMGD=1", "AT+CMGS=18", "AT+CMGW=18",
                              "AT+CMSS=1", "AT+CPMS?"}) {
    EXPECT_EQ(Ask(std::string(command) + "\r"), "\r\n+CMS ERROR: 311\r\n") << command;
  }
  EXPECT_EQ(Ask("AT+CMGF=0\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CREG?\r"), "\r\n+CREG: 0,0\r\n\r\nOK\r\n");
}

TEST_F(LockedModemTest, AcceptsItsPinAndThenWhatTheNetworkKept) {
  ASSERT_TRUE(modem_.Receive("+1555", "early"));
  EXPECT_EQ(Ask("AT+CPIN=\"1234\"\r"), "\r\nOK\r\n\r\n+CMTI: \"SM\",1\r\n");
  EXPECT_EQ(Ask("AT+CPIN?\r"), "\r\n+CPIN: READY\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CPIN=\"1234\"\r"), "\r\nERROR\r\n") << "there is nothing to enter";
}

TEST_F(LockedModemTest, BlocksTheCardAfterThreeWrongPins) {
  Ask("AT+CMEE=1\r");
  EXPECT_EQ(Ask("AT+CPIN=0000\r"), "\r\n+CME ERROR: 16\r\n");
  EXPECT_EQ(Ask("AT+CPIN=0000\r"), "\r\n+CME ERROR: 16\r\n");
  EXPECT_EQ(Ask("AT+CPIN=0000\r"), "\r\n+CME ERROR: 12\r\n");
  EXPECT_EQ(Ask("AT+CPIN?\r"), "\r\n+CPIN: SIM PUK\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGL\r"), "\r\n+CMS ERROR: 316\r\n");
  Ask("AT+CMEE=2\r");
  EXPECT_EQ(Ask("AT+CIMI\r"), "\r\n+CME ERROR: SIM PUK required\r\n");
}

class SmallModemTest : public ModemTest {
 protected:
  SmallModemTest()
      : ModemTest([] {
          ModemOptions options;
          options.store_size = 1;
          options.quirks.Add(Quirk::kIndexFromZero);
          options.quirks.Add(Quirk::kNoBlank);
          options.quirks.Add(Quirk::kAlphaField);
          options.quirks.Add(Quirk::kDeleteEmptyOk);
          options.quirks.Add(Quirk::kFilledPdu);
          options.quirks.Add(Quirk::kOkOnFailure);
          options.quirks.Add(Quirk::kWideReference);
          return options;
        }()) {}
};

TEST_F(SmallModemTest, AcceptsTheNextMessageWhenOneIsDeleted) {
  ASSERT_TRUE(modem_.Receive("+1555", "one"));
  EXPECT_EQ(host_.Take(), "\r\n+CMTI:\"SM\",0\r\n");
  ASSERT_TRUE(modem_.Receive("+1555", "two"));
  EXPECT_EQ(host_.Take(), "");
  EXPECT_THAT(host_.reports.back(), HasSubstr(": two; the store is full"));
  EXPECT_EQ(Ask("AT+CMGD=0\r"), "\r\nOK\r\n\r\n+CMTI:\"SM\",0\r\n");
}

TEST_F(SmallModemTest, WritesNothingIntoAFullStore) {
  ASSERT_TRUE(modem_.Receive("+1555", "one"));
  host_.Take();
  Ask("AT+CMGW=18\r");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "\r\n+CMS ERROR:322\r\n");
}

TEST_F(SmallModemTest, ShowsItsOddities) {
  modem_.ReceivePdu(gsm::FromHexadecimal("0011").value());
  host_.Take();
  EXPECT_EQ(Ask("AT+CMGL=0\r"),
            "\r\n+CMGL:0,0,\"\",1\r\n0011" + std::string(2 * 174, 'F') + "\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGD=0;+CMGD=0\r"), "\r\nOK\r\n");
  modem_.faults().Fail(Cms(500), "CMGS", 1);
  EXPECT_EQ(Send(), "\r\nOK\r\n");
  ASSERT_TRUE(modem_.Receive("+1555", std::string(161, 'x')));
  EXPECT_THAT(Ask("AT+CMGL=0\r"), HasSubstr("0608040000"
                                            "0201"))
      << "a 16-bit reference";
}

TEST(ModemQuirks, LeavesTheSpaceOutOfHeadersAndErrors) {
  FakeHost host;
  ModemOptions options;
  options.quirks.Add(Quirk::kNoBlank);
  Modem modem(options, host);
  Exchange(modem, host, "ATE0+CMEE=1\r");
  ASSERT_TRUE(modem.Receive("+1555", "x"));
  EXPECT_EQ(host.Take(), "\r\n+CMTI:\"SM\",1\r\n");
  EXPECT_THAT(Exchange(modem, host, "AT+CMGR=1\r"), HasSubstr("+CMGR:0,,"));
  EXPECT_THAT(Exchange(modem, host, "AT+CMGL=4\r"), HasSubstr("+CMGL:1,1,,"));
  EXPECT_EQ(Exchange(modem, host, "AT+CMGD=9\r"), "\r\n+CMS ERROR:321\r\n");
  EXPECT_EQ(Exchange(modem, host, "AT+CPIN=1234\r"), "\r\n+CME ERROR:3\r\n");
  Exchange(modem, host, "AT+CMGS=18\r");
  EXPECT_EQ(Exchange(modem, host, std::string(kHello) + "\x1A"), "\r\n+CMGS:1\r\n\r\nOK\r\n");
}

TEST(ModemQuirks, ListsTheNewestFirstAndWithoutAlphaField) {
  FakeHost host;
  ModemOptions options;
  options.quirks.Add(Quirk::kNewestFirst);
  options.quirks.Add(Quirk::kNoAlphaField);
  Modem modem(options, host);
  Exchange(modem, host, "ATE0\r");
  modem.ReceivePdu({0x00, 0x11});
  modem.ReceivePdu({0x00, 0x22});
  host.Take();
  EXPECT_EQ(Exchange(modem, host, "AT+CMGL=0\r"),
            "\r\n+CMGL: 2,0,1\r\n0022\r\n+CMGL: 1,0,1\r\n0011\r\n\r\nOK\r\n");
}

TEST(Modem, ListsTenThousandMessages) {
  FakeHost host;
  ModemOptions options;
  options.store_size = 10000;
  Modem modem(options, host);
  Exchange(modem, host, "ATE0+CNMI=0,0\r");
  for (int i = 0; i < 10000; ++i) modem.ReceivePdu(gsm::FromHexadecimal(kReceived).value());
  const std::string list = Exchange(modem, host, "AT+CMGL=0\r");
  EXPECT_THAT(list, HasSubstr("+CMGL: 10000,0,,30"));
}

}  // namespace
}  // namespace modem_simulator
