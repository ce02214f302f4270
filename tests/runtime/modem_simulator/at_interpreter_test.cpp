// SPDX-License-Identifier: MIT
// Dialogues with the modem: what the controller writes, and the exact bytes that it gets back.
#include "runtime/modem_simulator/at_interpreter.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/runtime/modem_simulator/fake_host.h"

namespace modem_simulator {
namespace {

ModemOptions With(Quirk quirk) {
  ModemOptions options;
  options.quirks.Add(quirk);
  return options;
}

class AtInterpreterTest : public testing::Test {
 protected:
  /// What the modem answers when echo is off.
  std::string Ask(std::string_view bytes) { return Exchange(modem_, host_, bytes); }
  void EchoOff() { Ask("ATE0\r"); }

  FakeHost host_;
  Modem modem_{ModemOptions{}, host_};
};

TEST_F(AtInterpreterTest, EchoesFromTheStart) {
  EXPECT_EQ(Ask("AT+CMGF=0\r"), "AT+CMGF=0\r\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, SwitchesEchoOffAndOn) {
  EXPECT_EQ(Ask("ATE0\r"), "ATE0\r\r\nOK\r\n");
  EXPECT_EQ(Ask("AT\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("ATE1\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT\r"), "AT\r\r\nOK\r\n");
}

/// A command and the lines that answer it before OK; "!" begins an error, which is the only answer.
struct Answered {
  std::string command;
  std::string answer;
};

class EveryCommand : public testing::TestWithParam<Answered> {};

TEST_P(EveryCommand, HasItsAnswer) {
  FakeHost host;
  Modem modem(ModemOptions{}, host);
  Exchange(modem, host, "ATE0;+CMEE=1\r");
  const std::string& answer = GetParam().answer;
  const bool fails = answer.starts_with('!');
  const std::string lines = fails || answer.empty() ? "" : "\r\n" + answer + "\r\n";
  EXPECT_EQ(Exchange(modem, host, GetParam().command + "\r"),
            lines + "\r\n" + (fails ? answer.substr(1) : "OK") + "\r\n");
}

INSTANTIATE_TEST_SUITE_P(
    Network, EveryCommand,
    testing::Values(
        Answered{"AT+CPIN=?", ""}, Answered{"AT+CPIN", "!ERROR"},
        Answered{"AT+CPIN=1234", "!+CME ERROR: 3"},
        Answered{"AT+CSQ=?", "+CSQ: (0-31,99),(0-7,99)"}, Answered{"AT+CREG=?", "+CREG: (0-2)"},
        Answered{"AT+CREG=3", "!+CME ERROR: 50"},
        Answered{"AT+CREG=2;+CREG?", "+CREG: 2,1,\"1A2B\",\"C0DE\""},
        Answered{"AT+CREG=2;+CREG=;+CREG?", "+CREG: 0,1"}, Answered{"AT+CGREG=?", "+CGREG: (0-2)"},
        Answered{"AT+CGREG=1;+CGREG?", "+CGREG: 1,1"}, Answered{"AT+CGREG=2;+CREG?", "+CREG: 0,1"},
        Answered{"AT+CGREG=2;+CGREG?", "+CGREG: 2,1,\"1A2B\",\"C0DE\""},
        Answered{"AT+CGATT=?", "+CGATT: (0,1)"}, Answered{"AT+CGATT?", "+CGATT: 1"},
        Answered{"AT+CGATT=0;+CGATT?", "+CGATT: 0"}, Answered{"AT+CGATT=2", "!+CME ERROR: 50"},
        Answered{"AT+CGATT", "!ERROR"},
        Answered{"AT+COPS=?", "+COPS: (2,\"Corvane\",\"Corvane\",\"00101\"),,(0-4),(0-2)"},
        Answered{"AT+COPS?", "+COPS: 0,0,\"Corvane\""},
        Answered{"AT+COPS=3,1;+COPS?", "+COPS: 0,1,\"Corvane\""},
        Answered{"AT+COPS=3,2;+COPS?", "+COPS: 0,2,\"00101\""},
        Answered{"AT+COPS=3,0;+COPS?", "+COPS: 0,0,\"Corvane\""},
        Answered{"AT+COPS=1,2,\"00101\";+COPS?", "+COPS: 1,2,\"00101\""},
        Answered{"AT+COPS=1,0,\"Other\"", "!+CME ERROR: 30"},
        Answered{"AT+COPS=4,0,\"Other\";+COPS?", "+COPS: 0,0,\"Corvane\""},
        Answered{"AT+COPS=3", "!+CME ERROR: 50"}, Answered{"AT+COPS=3,3", "!+CME ERROR: 50"},
        Answered{"AT+COPS=1,0", "!+CME ERROR: 50"}, Answered{"AT+COPS=5", "!+CME ERROR: 50"},
        Answered{"AT+COPS", "!ERROR"}, Answered{"AT+CFUN=?", "+CFUN: (1)"},
        Answered{"AT+CFUN?", "+CFUN: 1"}, Answered{"AT+CFUN=0", "!+CME ERROR: 3"},
        Answered{"AT+CIMI=?", ""}, Answered{"AT+CIMI", "310150123456789"},
        Answered{"AT+CPAS", "+CPAS: 0"}, Answered{"AT+CPAS=?", "+CPAS: (0)"},
        Answered{"AT+CCLK", "!ERROR"}, Answered{"AT+CCLK=?", ""},
        Answered{"AT+CCLK?", "+CCLK: \"26/01/31,12:00:00+04\""},
        Answered{"AT+CCLK=\"27/02/28,23:59:59-14\";+CCLK?", "+CCLK: \"27/02/28,23:59:59-14\""},
        Answered{"AT+CCLK=\"27/02/28,23:59:59\";+CCLK?", "+CCLK: \"27/02/28,23:59:59+00\""},
        Answered{"AT+CCLK=\"27/02/29,23:59:59+00\"", "!+CME ERROR: 50"},
        Answered{"AT+CCLK=\"27/02/28,24:00:00+00\"", "!+CME ERROR: 50"},
        Answered{"AT+CCLK=\"27-02-28,23:00:00+00\"", "!+CME ERROR: 50"},
        Answered{"AT+CCLK=\"27/02/28,23:00:00+x0\"", "!+CME ERROR: 50"},
        Answered{"AT+CCLK=\"\"", "!+CME ERROR: 50"}));

INSTANTIATE_TEST_SUITE_P(
    Messages, EveryCommand,
    testing::Values(
        Answered{"AT+CMGF=?", "+CMGF: (0,1)"}, Answered{"AT+CMGF=2", "!ERROR"},
        Answered{"AT+CPMS=?", "+CPMS: (\"SM\"),(\"SM\"),(\"SM\")"},
        Answered{"AT+CPMS?", "+CPMS: \"SM\",0,20,\"SM\",0,20,\"SM\",0,20"},
        Answered{"AT+CPMS=\"SM\"", "+CPMS: 0,20,0,20,0,20"},
        Answered{"AT+CPMS=\"ME\"", "!+CMS ERROR: 302"}, Answered{"AT+CSCA=?", ""},
        Answered{"AT+CSCA", "!ERROR"}, Answered{"AT+CSCA=\"x\"", "!+CMS ERROR: 305"},
        Answered{"AT+CSCA=\"+4915\";+CSCA?", "+CSCA: \"+4915\",145"},
        Answered{"AT+CNMI=?", "+CNMI: (0-3),(0-3),(0-3),(0-2),(0,1)"},
        Answered{"AT+CNMI=3,3,3,2,1;+CNMI?", "+CNMI: 3,3,3,2,1"},
        Answered{"AT+CNMI=,,,1;+CNMI?", "+CNMI: 2,1,0,1,0"},
        Answered{"AT+CNMI=4", "!+CMS ERROR: 302"}, Answered{"AT+CNMI=2,4", "!+CMS ERROR: 302"},
        Answered{"AT+CNMI=2,1,4", "!+CMS ERROR: 302"},
        Answered{"AT+CNMI=2,1,0,3", "!+CMS ERROR: 302"},
        Answered{"AT+CNMI=2,1,0,0,2", "!+CMS ERROR: 302"},
        Answered{"AT+CNMI=x", "!+CMS ERROR: 302"},
        Answered{"AT+CNMI=2,2;+CNMI?", "+CNMI: 2,2,0,0,0"},
        Answered{"AT+CNMI;+CNMI?", "+CNMI: 0,0,0,0,0"},
        Answered{"AT+CNMI=2,1,0,0,0,0", "!+CMS ERROR: 302"}, Answered{"AT+CSMS=?", "+CSMS: (0,1)"},
        Answered{"AT+CSMS?", "+CSMS: 0,1,1,0"}, Answered{"AT+CSMS=0", "+CSMS: 1,1,0"},
        Answered{"AT+CSMS=1", "+CSMS: 1,1,0"}, Answered{"AT+CSMS=2", "!+CMS ERROR: 302"},
        Answered{"AT+CMGR=?", ""}, Answered{"AT+CMGR=1", ""},
        Answered{"AT+CMGR=21", "!+CMS ERROR: 321"}, Answered{"AT+CMGL=?", "+CMGL: (0-4)"},
        Answered{"AT+CMGL=5", "!+CMS ERROR: 304"}, Answered{"AT+CMGD=?", "+CMGD: (1-20),(0-4)"},
        Answered{"AT+CMGD=21", "!+CMS ERROR: 321"}, Answered{"AT+CMGD=1", "!+CMS ERROR: 321"},
        Answered{"AT+CMGD=0,4", ""}, Answered{"AT+CSDH=?", "+CSDH: (0,1)"},
        Answered{"AT+CSDH=1;+CSDH?", "+CSDH: 1"}, Answered{"AT+CSDH=2", "!ERROR"},
        Answered{"AT+CSMP=?", ""}, Answered{"AT+CSMP?", "+CSMP: 17,167,0,0"},
        Answered{"AT+CSMP", "!ERROR"}, Answered{"AT+CSMP=49,255,64,8;+CSMP?", "+CSMP: 49,255,64,8"},
        Answered{"AT+CSMP=,,,4;+CSMP?", "+CSMP: 17,167,0,4"},
        Answered{"AT+CSMP=25,\"26/02/01,12:00:00+04\";+CSMP?",
                 "+CSMP: 25,\"26/02/01,12:00:00+04\",0,0"},
        Answered{"AT+CSMP=25", "!+CMS ERROR: 305"}, Answered{"AT+CSMP=4", "!+CMS ERROR: 305"},
        Answered{"AT+CSMP=9", "!+CMS ERROR: 305"}, Answered{"AT+CSMP=17,256", "!+CMS ERROR: 305"},
        Answered{"AT+CSMP=17,167,0,256", "!+CMS ERROR: 305"},
        Answered{"AT+CSMP=17,167,0,0,0", "!+CMS ERROR: 305"}, Answered{"AT+CNMA=?", "+CNMA: (0-2)"},
        Answered{"AT+CMGF=1;+CNMA=?", ""}, Answered{"AT+CNMA", "!+CMS ERROR: 340"},
        Answered{"AT+CNMA=3", "!+CMS ERROR: 304"}, Answered{"AT+CNMA?", "!ERROR"},
        Answered{"AT+CMGW=?", ""}, Answered{"AT+CMGW=6", "!+CMS ERROR: 304"},
        Answered{"AT+CMGW=18,4", "!+CMS ERROR: 304"}, Answered{"AT+CMGW", "!+CMS ERROR: 304"},
        Answered{"AT+CMGW?", "!ERROR"}, Answered{"AT+CMSS=?", ""}, Answered{"AT+CMSS", "!ERROR"},
        Answered{"AT+CMSS=1", "!+CMS ERROR: 321"}, Answered{"AT+CMSS=x", "!+CMS ERROR: 321"}));

INSTANTIATE_TEST_SUITE_P(
    General, EveryCommand,
    testing::Values(
        Answered{"AT+CMEE=?", "+CMEE: (0-2)"}, Answered{"AT+CMEE?", "+CMEE: 1"},
        Answered{"AT+CMEE=3", "!ERROR"}, Answered{"AT+CSCS=?", "+CSCS: (\"GSM\",\"IRA\",\"UCS2\")"},
        Answered{"AT+CSCS=\"UCS2\";+CSCS?", "+CSCS: \"UCS2\""}, Answered{"AT+CSCS", "!ERROR"},
        Answered{"AT+CSCS=\"IRA\";+CSCS?", "+CSCS: \"IRA\""}, Answered{"AT+CSCS=\"HEX\"", "!ERROR"},
        Answered{"AT+IPR=?",
                 "+IPR: (),(0,1200,2400,4800,9600,19200,38400,"
                 "57600,115200,230400,460800,921600)"},
        Answered{"AT+IPR?", "+IPR: 0"}, Answered{"AT+IPR=115200;+IPR?", "+IPR: 115200"},
        Answered{"AT+IPR=9601", "!ERROR"}, Answered{"AT+IFC=?", "+IFC: (0-3),(0-2)"},
        Answered{"AT+IFC=1,1;+IFC?", "+IFC: 1,1"}, Answered{"AT+ICF?", "+ICF: 3,3"},
        Answered{"ATS5?", "008"}, Answered{"ATS3?", "013"}, Answered{"ATS4=10", ""},
        Answered{"ATS3=12", "!ERROR"}, Answered{"ATS5=128", "!ERROR"},
        Answered{"ATS5=127S5?", "127"}, Answered{"ATS0=2S0?", "002"},
        Answered{"ATD123;", "!NO CARRIER"}));

TEST_F(AtInterpreterTest, SaysThatAPinIsWrongAndFinallyThatTheCardIsBlocked) {
  ModemOptions options;
  options.pin = "1234";
  FakeHost host;
  Modem modem(options, host);
  Exchange(modem, host, "ATE0;+CMEE=1\r");
  EXPECT_EQ(Exchange(modem, host, "AT+CIMI\r"), "\r\n+CME ERROR: 11\r\n");
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(Exchange(modem, host, "AT+CPIN=1\r"), "\r\n+CME ERROR: 16\r\n");
    EXPECT_EQ(host.reports.back(), "wrong PIN");
  }
  EXPECT_EQ(Exchange(modem, host, "AT+CPIN=1\r"), "\r\n+CME ERROR: 12\r\n");
  EXPECT_EQ(host.reports.back(), "wrong PIN: the SIM card is blocked");
  EXPECT_EQ(Exchange(modem, host, "AT+CIMI\r"), "\r\n+CME ERROR: 12\r\n");
}

TEST_F(AtInterpreterTest, EchoesEachByteWhenItArrives) {
  modem_.Feed("A");
  EXPECT_EQ(host_.Take(), "A");
  modem_.Feed("T");
  EXPECT_EQ(host_.Take(), "T");
  modem_.Feed("\r");
  EXPECT_EQ(host_.Take(), "\r\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, SendsAMessage) {
  EchoOff();
  EXPECT_EQ(Ask("AT+CMGS=18\r"), "\r\n> ");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +15550101234: hello");
}

TEST_F(AtInterpreterTest, EchoesThePduAndItsCtrlZ) {
  EXPECT_EQ(Ask("AT+CMGS=18\r"), "AT+CMGS=18\r\r\n> ");
  const std::string pdu = std::string(kHello) + "\x1A";
  EXPECT_EQ(Ask(pdu), pdu + "\r\n+CMGS: 1\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, CountsMessageReferencesFrom1Through255To0) {
  EchoOff();
  for (int i = 1; i <= 257; ++i) {
    Ask("AT+CMGS=18\r");
    EXPECT_EQ(Ask(std::string(kHello) + "\x1A"),
              "\r\n+CMGS: " + std::to_string(i % 256) + "\r\n\r\nOK\r\n");
  }
}

TEST_F(AtInterpreterTest, LeavesThePromptWithEscape) {
  EchoOff();
  Ask("AT+CMGS=18\r");
  EXPECT_EQ(Ask("0001\x1B"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT\r"), "\r\nOK\r\n");
  EXPECT_TRUE(host_.reports.empty());
}

TEST_F(AtInterpreterTest, ShowsThePromptAgainForEachCarriageReturn) {
  EchoOff();
  Ask("AT+CMGS=18\r");
  EXPECT_EQ(Ask("\r"), "\r\n> ");
  EXPECT_EQ(Ask(std::string(kHello) + "\r\x1A"), "\r\n> \r\n+CMGS: 1\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, IgnoresLineFeedsAndAnEscapeAtTheStart) {
  EchoOff();
  EXPECT_EQ(Ask("\x1B\rAT\r\n"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGS=18\r\n"), "\r\n> ");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, RefusesAPduWithAnotherLengthThanAnnounced) {
  EchoOff();
  Ask("AT+CMGS=19\r");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "\r\n+CMS ERROR: 304\r\n");
  EXPECT_EQ(host_.reports.back(), "refused: AT+CMGS announced 19 octets, the PDU has 18");
}

TEST_F(AtInterpreterTest, RefusesWhatIsNotAPdu) {
  EchoOff();
  for (const std::string pdu : {"", "0", "xx", "0001000B915155101032F4000005E8329BFD0G"}) {
    Ask("AT+CMGS=18\r");
    EXPECT_EQ(Ask(pdu + "\x1A"), "\r\n+CMS ERROR: 304\r\n") << pdu;
  }
  Ask("AT+CMGS=18\r");
  EXPECT_EQ(Ask("0000000B915155101032F4000005E8329BFD06\x1A"), "\r\n+CMS ERROR: 304\r\n");
  EXPECT_EQ(host_.reports.back(),
            "refused: the PDU is wrong at octet 1: the message type is not expected here");
}

TEST_F(AtInterpreterTest, RefusesLengthsThatNoMessageHas) {
  EchoOff();
  for (const char* length : {"6", "165", "x", "", "-1"}) {
    EXPECT_EQ(Ask(std::string("AT+CMGS=") + length + "\r"), "\r\n+CMS ERROR: 304\r\n") << length;
  }
  EXPECT_EQ(Ask("AT+CMGS\r"), "\r\nERROR\r\n");
  EXPECT_EQ(Ask("AT+CMGS=?\r"), "\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, SurvivesALineAndAMessageWithoutEnd) {
  EchoOff();
  EXPECT_EQ(Ask("AT+" + std::string(5000, 'X') + "\r"), "\r\nERROR\r\n");
  EXPECT_EQ(Ask("AT\r"), "\r\nOK\r\n");
  Ask("AT+CMGS=18\r");
  EXPECT_EQ(Ask(kHello + std::string(5000, '0') + "\x1A"), "\r\n+CMS ERROR: 304\r\n");
  EXPECT_EQ(Ask("AT\r"), "\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, KeepsWhatArrivesWhileTheNetworkHasNotAnswered) {
  EchoOff();
  modem_.Feed("AT+CMGS=18\r");
  modem_.Feed(std::string(kHello) + "\x1A" + "AT\r");
  EXPECT_EQ(host_.Take(), "\r\n> ") << "no confirmation yet";
  EXPECT_TRUE(host_.awaiting);
  modem_.Wake();
  EXPECT_EQ(host_.Take(), "\r\n+CMGS: 1\r\n\r\nOK\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, TakesItsTimeOverACommandAndKeepsWhatArrivesMeanwhile) {
  EchoOff();
  modem_.delays().deletion = std::chrono::seconds(5);
  ASSERT_TRUE(modem_.Receive("+4915112345678", "hi"));
  host_.Take();
  modem_.Feed("AT+CMGD=1\rAT+CSQ\r");
  ASSERT_TRUE(modem_.Receive("+4915112345678", "more"));
  EXPECT_EQ(host_.Take(), "") << "nothing yet, not even an announcement";
  EXPECT_EQ(host_.delay, std::chrono::seconds(5));
  modem_.Wake();
  EXPECT_EQ(host_.Take(), "\r\nOK\r\n\r\n+CMTI: \"SM\",2\r\n\r\n+CSQ: 20,0\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, PromptsLateAndObeysTheEscapeThatArrivedBefore) {
  EchoOff();
  modem_.delays().prompt = std::chrono::seconds(5);
  modem_.Feed("AT+CMGS=18\r\x1B\r");
  EXPECT_EQ(host_.Take(), "");
  modem_.Wake();
  EXPECT_EQ(host_.Take(), "\r\n> \r\nOK\r\n");
}

TEST_F(AtInterpreterTest, ForgetsASlowCommandWithARestart) {
  EchoOff();
  modem_.delays().list = std::chrono::seconds(5);
  modem_.Feed("AT+CMGL=4\r");
  modem_.PowerOn();
  modem_.Wake();
  EXPECT_EQ(host_.Take(), "");
  EXPECT_EQ(Ask("AT\r"), "AT\r\r\nOK\r\n");
}

TEST(AtInterpreterQuirks, DeafWhileBusy) {
  FakeHost host;
  Modem modem(With(Quirk::kDeafWhileBusy), host);
  Exchange(modem, host, "ATE0\r");
  Exchange(modem, host, "AT+CMGS=18\r");
  modem.Feed(std::string(kHello) + "\x1A" + "AT+CSQ\r");
  modem.Wake();
  EXPECT_EQ(host.Take(), "\r\n+CMGS: 1\r\n\r\nOK\r\n") << "the command is lost";
  EXPECT_EQ(Exchange(modem, host, "AT\r"), "\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, DoesNotAnswerLinesThatAreNotCommands) {
  EchoOff();
  EXPECT_EQ(Ask("\r\rhello\r0001000B\r"), "");
}

TEST_F(AtInterpreterTest, FindsTheCommandAfterRubbish) {
  EchoOff();
  EXPECT_EQ(Ask("0001\x1A\xFF"
                "AT\r"),
            "\r\nOK\r\n");
  EXPECT_EQ(Ask("at\r"), "\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, ObeysBackspace) {
  EchoOff();
  EXPECT_EQ(Ask("\bATX\b\r"), "\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, ObeysTheBackspaceThatS5Sets) {
  EchoOff();
  Ask("ATS5=127\r");
  EXPECT_EQ(Ask("ATX\x7F\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGF\b?\r"), "\r\nERROR\r\n") << "the former one is a character now";
}

TEST_F(AtInterpreterTest, ObeysBackspaceInAText) {
  EchoOff();
  Ask("AT+CMGF=1\r");
  Ask("AT+CMGS=\"+1555\"\r");
  EXPECT_EQ(Ask("\b\bhelp\blo\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1555: hello");
}

TEST_F(AtInterpreterTest, KeepsTheLinesOfAText) {
  EchoOff();
  Ask("AT+CMGF=1\r");
  Ask("AT+CMGS=\"+1555\"\r\n");
  EXPECT_EQ(Ask("one\r\ntwo\x1A"), "\r\n> \r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_EQ(host_.reports.back(), "sent to +1555: one\\r\\ntwo");
}

TEST_F(AtInterpreterTest, RepeatsTheLastLineAtOnce) {
  EXPECT_EQ(Ask("A/"), "A/\r\nOK\r\n") << "there is none yet";
  EchoOff();
  Ask("AT+CSQ\r");
  EXPECT_EQ(Ask("A/"), "\r\n+CSQ: 20,0\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("a/"), "\r\n+CSQ: 20,0\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("\r"), "") << "no carriage return was due";
  EXPECT_EQ(Ask("AT+CGMM\r"), "\r\nSimulator\r\n\r\nOK\r\n");
  EXPECT_EQ(Ask("xA/\r"), "") << "only at the beginning of a line";
  EXPECT_EQ(Ask("A/"), "\r\nSimulator\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, AnswersACompoundLineWithOneResult) {
  EchoOff();
  EXPECT_EQ(Ask("AT+CSQ;+CMGF?\r"), "\r\n+CSQ: 20,0\r\n\r\n+CMGF: 0\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, EndsACompoundLineAtTheFirstError) {
  EchoOff();
  EXPECT_EQ(Ask("AT+CSQ;+NONE;+CMGF?\r"), "\r\n+CSQ: 20,0\r\n\r\nERROR\r\n");
}

TEST_F(AtInterpreterTest, AnswersInNumbersAfterV0) {
  EchoOff();
  EXPECT_EQ(Ask("ATV0\r"), "0\r");
  EXPECT_EQ(Ask("AT+CSQ\r"), "+CSQ: 20,0\r\n0\r");
  EXPECT_EQ(Ask("AT+NONE\r"), "4\r");
  EXPECT_EQ(Ask("ATD123;\r"), "3\r");
  EXPECT_EQ(Ask("AT+CMGD=5\r"), "\r\n+CMS ERROR: 321\r\n") << "words stay";
  EXPECT_EQ(Ask("ATV1\r"), "\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, SendsNoResultsAfterQ1) {
  EchoOff();
  EXPECT_EQ(Ask("ATQ1\r"), "");
  EXPECT_EQ(Ask("AT+CSQ\r"), "\r\n+CSQ: 20,0\r\n");
  EXPECT_EQ(Ask("ATQ0\r"), "\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, ForgetsItsSettingsAfterZ) {
  Ask("ATE0V0+CMGF=1;+CMEE=2\r");
  EXPECT_EQ(Ask("ATZ\r"), "\r\nOK\r\n");
  EXPECT_EQ(Ask("AT+CMGF?\r"), "AT+CMGF?\r\r\n+CMGF: 0\r\n\r\nOK\r\n");
}

TEST_F(AtInterpreterTest, AnnouncesAMessageWhenTheExchangeIsOver) {
  EchoOff();
  Ask("AT+CMGS=18\r");
  ASSERT_TRUE(modem_.Receive("+4915112345678", "hi"));
  EXPECT_EQ(host_.Take(), "");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n\r\n+CMTI: \"SM\",1\r\n");
}

TEST_F(AtInterpreterTest, AnnouncesAMessageAtOnceWhenIdle) {
  ASSERT_TRUE(modem_.Receive("+4915112345678", "hi"));
  EXPECT_EQ(host_.Take(), "\r\n+CMTI: \"SM\",1\r\n");
}

TEST_F(AtInterpreterTest, SendsAnOrderedAnswerInsteadOfItsOwn) {
  EchoOff();
  modem_.faults().Answer("CMGF", "\r\nCOMMAND NOT SUPPORT\r\n");
  EXPECT_EQ(Ask("AT\r"), "\r\nOK\r\n") << "another command";
  EXPECT_EQ(Ask("AT+CMGF=1\r"), "\r\nCOMMAND NOT SUPPORT\r\n");
  EXPECT_EQ(Ask("AT+CMGF?\r"), "\r\n+CMGF: 0\r\n\r\nOK\r\n") << "the command had no effect";
}

TEST_F(AtInterpreterTest, SendsAnOrderedAnswerInsteadOfAConfirmation) {
  EchoOff();
  modem_.faults().Answer("PDU", "");
  Ask("AT+CMGS=18\r");
  EXPECT_EQ(Ask(std::string(kHello) + "\x1A"), "");
  EXPECT_EQ(Ask("AT\r"), "\r\nOK\r\n");
}

TEST(AtInterpreterQuirks, EchoAlwaysAndNever) {
  FakeHost host;
  Modem always(With(Quirk::kEchoAlways), host);
  Exchange(always, host, "ATE0\r");
  EXPECT_EQ(Exchange(always, host, "AT\r"), "AT\r\r\nOK\r\n");
  Modem never(With(Quirk::kNoEcho), host);
  EXPECT_EQ(Exchange(never, host, "ATE1\r"), "\r\nOK\r\n");
}

TEST(AtInterpreterQuirks, DoubleEcho) {
  FakeHost host;
  Modem modem(With(Quirk::kDoubleEcho), host);
  EXPECT_EQ(Exchange(modem, host, "ATE0\r"), "ATE0\rATE0\r\r\nOK\r\n");
}

TEST(AtInterpreterQuirks, Prompts) {
  FakeHost host;
  for (const auto& [quirk, prompt] :
       {std::pair(Quirk::kPromptBare, ">"), std::pair(Quirk::kPromptCrLf, "\r\n>\r\n"),
        std::pair(Quirk::kNoPrompt, "")}) {
    Modem modem(With(quirk), host);
    Exchange(modem, host, "ATE0\r");
    EXPECT_EQ(Exchange(modem, host, "AT+CMGS=18\r"), prompt);
    EXPECT_EQ(Exchange(modem, host, std::string(kHello) + "\x1A"), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  }
}

TEST(AtInterpreterProperty, SurvivesAnyBytesAndAnswersAgain) {
  std::mt19937 random(27005);
  const std::vector<std::string> words{
      "AT",   "+CMGF=1",   "+CMGS=18", "\r", "\x1A", "\x1B", "+CMGL=4", "\"", ";",
      kHello, "+CMGD=1,4", "+CMGR=1",  "=?", "V0",   "Q1",   ",",       "E0", "+CNMI=2,2"};
  for (int round = 0; round < 500; ++round) {
    FakeHost host;
    Modem modem(ModemOptions{}, host);
    for (int i = 0; i < 60; ++i) {
      if (random() % 2 == 0) {
        Exchange(modem, host, words[random() % words.size()]);
      } else {
        const char byte = static_cast<char>(random() & 0xFF);
        Exchange(modem, host, {&byte, 1});
      }
      EXPECT_TRUE(i % 20 != 0 || modem.Receive("+1555", "x"));
    }
    Exchange(modem, host, "\r\x1B\rATZ\r");
    EXPECT_EQ(Exchange(modem, host, "ATE0\r"), "ATE0\r\r\nOK\r\n");
  }
}

}  // namespace
}  // namespace modem_simulator
