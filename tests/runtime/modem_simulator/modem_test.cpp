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

TEST_F(ModemTest, ListsNothingAsJustOk) {
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

TEST_F(ModemTest, RefusesAListOfNothingKnown) {
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

TEST_F(ModemTest, TellsHowFullItsStoreIs) {
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

TEST_F(ModemTest, HandsMessagesThroughWithoutStoringThem) {
  Ask("AT+CNMI=2,2\r");
  modem_.ReceivePdu(gsm::FromHexadecimal(kReceived).value());
  EXPECT_EQ(host_.Take(), std::string("\r\n+CMT: ,30\r\n") + kReceived + "\r\n");
  EXPECT_EQ(Ask("AT+CMGL=4\r"), "\r\nOK\r\n");
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

TEST_F(ModemTest, RefusesAReceiverOrTextThatIsNone) {
  EXPECT_FALSE(modem_.Receive("", "x"));
  EXPECT_FALSE(modem_.Receive("+1555", "\xFF"));
  EXPECT_FALSE(modem_.Receive("far too long a name", "x"));
}

TEST_F(ModemTest, JoinsThePartsThatTheControllerSends) {
  // 71 Cyrillic characters in two parts.
  std::string first = "00410009915155101032F4000880050003070201";
  first = "0041000B915155101032F400088C050003070201";
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

TEST_F(ModemTest, FailsWithOtherErrorsToo) {
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

TEST_F(ModemTest, TellsChangesOfRegistrationWhenAsked) {
  Ask("AT+CREG=1\r");
  modem_.SetRegistered(false);
  EXPECT_EQ(host_.Take(), "\r\n+CREG: 0\r\n");
  modem_.SetRegistered(false);
  EXPECT_EQ(host_.Take(), "") << "no change";
}

TEST_F(ModemTest, TellsItsSignal) {
  modem_.SetSignal(99);
  EXPECT_EQ(Ask("AT+CSQ\r"), "\r\n+CSQ: 99,99\r\n\r\nOK\r\n");
}

TEST_F(ModemTest, StartsAnewWithPowerButKeepsItsMessages) {
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

TEST_F(LockedModemTest, WantsItsPinBeforeItMovesMessages) {
  EXPECT_EQ(Ask("AT+CPIN?\r"), "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n");
  for (const char* command : {"AT+CMGL=0", "AT+CMGR=1", "AT+CMGD=1", "AT+CMGS=18", "AT+CPMS?"}) {
    EXPECT_EQ(Ask(std::string(command) + "\r"), "\r\n+CMS ERROR: 311\r\n") << command;
  }
  EXPECT_EQ(Ask("AT+CMGF=0\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CREG?\r"), "\r\n+CREG: 0,0\r\n\r\nOK\r\n");
}

TEST_F(LockedModemTest, TakesItsPinAndThenWhatTheNetworkKept) {
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

TEST_F(SmallModemTest, TakesTheNextMessageWhenOneIsDeleted) {
  ASSERT_TRUE(modem_.Receive("+1555", "one"));
  EXPECT_EQ(host_.Take(), "\r\n+CMTI:\"SM\",0\r\n");
  ASSERT_TRUE(modem_.Receive("+1555", "two"));
  EXPECT_EQ(host_.Take(), "");
  EXPECT_THAT(host_.reports.back(), HasSubstr(": two; the store is full"));
  EXPECT_EQ(Ask("AT+CMGD=0\r"), "\r\nOK\r\n\r\n+CMTI:\"SM\",0\r\n");
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

TEST(ModemQuirks, LeavesTheBlankOutOfHeadersAndErrors) {
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
