// SPDX-License-Identifier: MIT
#include "runtime/modem_check/modem_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "tests/support/modem_peer.h"

namespace {

using corvane::modem_check::CheckModem;
using corvane::modem_check::CheckOptions;
using corvane::modem_check::Finding;
using corvane::modem_check::Grade;
using test_support::ModemPeer;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A modem that is ready to send; a test changes some of its answers.
class ModemCheck : public testing::Test {
 protected:
  /// The line between a command and OK, or a refusal.
  std::map<std::string, std::string> answers_{
      {"AT+CGMI", "Maker"},
      {"AT+CGMM", "+CGMM: \"Model 5\""},
      {"AT+CPIN?", "+CPIN: READY"},
      {"AT+CREG?", "+CREG: 0,1"},
      {"AT+CSQ", "+CSQ: 20,0"},
      {"AT+COPS?", "+COPS: 0,0,\"Network\",7"},
      {"AT+CSCA?", "+CSCA: \"+15550000000\",145"},
      {"AT+CSCS?", "+CSCS: \"GSM\""},
      {"AT+CPMS?", "+CPMS: \"SM\",1,20,\"SM\",1,20,\"SM\",1,20"},
      {"AT+CSMS?", "+CSMS: 0,1,1,1"}};
  std::vector<std::string> ok_{"ATV1", "ATE0", "AT", "AT+CMEE=1", "AT+CMEE=0", "AT+CMGF=0"};

  void Answer(ModemPeer& peer, const std::string& request) {
    const std::string command = request.substr(0, request.find_first_of("\r\x1A"));
    if (const auto row = answers_.find(command); row != answers_.end()) {
      const bool refusal =
          row->second.starts_with("+CM") && row->second.find("ERROR") != row->second.npos;
      peer.Send("\r\n" + row->second + (refusal ? "\r\n" : "\r\n\r\nOK\r\n"));
    } else {
      const bool known = std::find(ok_.begin(), ok_.end(), command) != ok_.end();
      peer.Send(known ? "\r\nOK\r\n" : "\r\nERROR\r\n");
    }
  }

  /// Checks a modem with these answers.
  void Check(const std::string& settings = "", const CheckOptions& options = {}) {
    ModemPeer peer([this](ModemPeer& p, const std::string& request) { Answer(p, request); });
    findings_.clear();
    can_send_ = CheckModem(corvane::ParseModemTarget("1=" + peer.Target() + settings), options,
                           [this](const Finding& f) { findings_[f.topic] = f; });
    requests_ = peer.Requests();
  }
  /// "ok: text; advice" of a topic.
  std::string Of(const std::string& topic) {
    if (!findings_.contains(topic)) return "no such line";
    const Finding& finding = findings_[topic];
    const char* const grade = finding.grade == Grade::kOk        ? "ok: "
                              : finding.grade == Grade::kWarning ? "warning: "
                                                                 : "error: ";
    return grade + finding.text + (finding.advice.empty() ? "" : "; " + finding.advice);
  }
  std::string AfterAnswer(const std::string& command, const std::string& answer,
                          const std::string& topic) {
    answers_[command] = answer;
    Check();
    return Of(topic);
  }

  std::map<std::string, Finding> findings_;
  std::vector<std::string> requests_;
  bool can_send_ = false;
};

TEST_F(ModemCheck, AModemThatIsReadyCanSend) {
  Check();
  EXPECT_TRUE(can_send_);
  EXPECT_EQ(Of("modem"), "ok: Maker, Model 5");
  EXPECT_EQ(Of("operator"), "ok: Network, LTE");
  EXPECT_EQ(Of("signal"), "ok: -73 dBm");
  EXPECT_EQ(Of("service centre"), "ok: +15550000000");
  EXPECT_EQ(Of("store"), "ok: SM: 1 of 20 places taken");
  EXPECT_EQ(Of("init"), "no such line");
}

TEST_F(ModemCheck, TheDetailOfErrorsIsSetBack) {
  answers_["AT+CMEE?"] = "+CMEE: 0";
  Check();
  EXPECT_THAT(requests_, Contains("AT+CMEE=1\r"));
  EXPECT_THAT(requests_, Contains("AT+CMEE=0\r"));
}

TEST_F(ModemCheck, WithoutItsCardOnlyTheSignalIsAskedFor) {
  EXPECT_THAT(AfterAnswer("AT+CPIN?", "+CPIN: SIM PUK", "SIM card"),
              HasSubstr("error: it is locked, since wrong PINs were entered; unlock it"));
  EXPECT_FALSE(can_send_);
  EXPECT_EQ(Of("network"), "no such line");
  EXPECT_EQ(Of("signal"), "ok: -73 dBm") << "needs no card";
}

TEST_F(ModemCheck, WhatNeedsTheCardIsNotBlamed) {
  answers_["AT+CMGF=0"] = "+CMS ERROR: 311";
  AfterAnswer("AT+CPIN?", "+CPIN: SIM PIN", "SIM card");
  EXPECT_EQ(Of("messages"), "no such line");
}

TEST_F(ModemCheck, ARadioThatIsOffIsSwitchedOn) {
  answers_["AT+CFUN?"] = "+CFUN: 4";
  EXPECT_EQ(AfterAnswer("AT+CREG?", "+CREG: 0,0", "network"),
            "error: the radio is off (AT+CFUN=4); write init=AT+CFUN=1");
  EXPECT_THAT(AfterAnswer("AT+CFUN?", "+CFUN: 1", "network"), HasSubstr("not searching"));
}

TEST_F(ModemCheck, ACardThatIsNotReadyIsReported) {
  EXPECT_THAT(AfterAnswer("AT+CPIN?", "+CPIN: PH-NET PIN", "SIM card"),
              HasSubstr("error: the modem takes only another operator's cards"));
  EXPECT_THAT(AfterAnswer("AT+CPIN?", "+CME ERROR: 10", "SIM card"), HasSubstr("there is none"));
  EXPECT_THAT(AfterAnswer("AT+CPIN?", "+CME ERROR: 13", "SIM card"), HasSubstr("cannot read it"));
  EXPECT_EQ(AfterAnswer("AT+CPIN?", "+CPIN: SIM PIN2", "SIM card"),
            "ok: ready; its PIN2 is not needed for messages");
  EXPECT_TRUE(can_send_);
}

TEST_F(ModemCheck, TheTriesLeftAreFoundWithEveryMakersCommand) {
  answers_["AT^CPIN?"] = "^CPIN: READY,,10,3,10,3";
  EXPECT_THAT(AfterAnswer("AT+CPIN?", "+CPIN: READY", "PIN tries"), HasSubstr("does not report"));
  EXPECT_EQ(AfterAnswer("AT^CPIN?", "^CPIN: SIM PIN,2,10,3,10,3", "PIN tries"), "ok: 2 left");
  EXPECT_EQ(AfterAnswer("AT#PCT", "#PCT: 3", "PIN tries"), "ok: 3 left");
  EXPECT_THAT(AfterAnswer("AT+SPIC", "+SPIC: 1,10,0,10", "PIN tries"),
              StartsWith("warning: 1 left; another"));
  EXPECT_EQ(AfterAnswer("AT+QPINC=\"SC\"", "+QPINC: \"SC\",3,10", "PIN tries"), "ok: 3 left");
  EXPECT_EQ(AfterAnswer("AT+CPINR=\"SIM PIN\"", "+CPINR: SIM PIN,2,3", "PIN tries"), "ok: 2 left");
}

TEST_F(ModemCheck, EveryRegistrationIsUnderstood) {
  EXPECT_EQ(AfterAnswer("AT+CREG?", "+CREG: 2,5,\"25FF\",\"825E\",7", "network"),
            "ok: registered abroad (roaming)");
  EXPECT_EQ(AfterAnswer("AT+CREG?", "+CREG: 1", "network"), "ok: registered at home");
  EXPECT_EQ(AfterAnswer("AT+CREG?", "+CREG: 0,6", "network"),
            "ok: registered at home, for messages only");
  EXPECT_THAT(AfterAnswer("AT+CREG?", "+CREG: 0,3", "network"),
              StartsWith("error: the network refuses"));
  EXPECT_FALSE(can_send_);
  EXPECT_EQ(Of("operator"), "no such line");
  EXPECT_THAT(AfterAnswer("AT+CREG?", "+CREG: 0,8", "network"), HasSubstr("emergency calls only"));
  EXPECT_THAT(AfterAnswer("AT+CREG?", "+CREG: nonsense", "network"), HasSubstr("does not know"));
  EXPECT_THAT(AfterAnswer("AT+CEREG?", "+CEREG: 0,1", "network"),
              StartsWith("warning: registered for data only"));
  EXPECT_TRUE(can_send_);
}

TEST_F(ModemCheck, ASearchingModemGetsTimeToFindANetwork) {
  answers_["AT+CREG?"] = "+CREG: 0,2";
  CheckOptions options;
  options.registration = std::chrono::seconds(1);
  Check("", options);
  EXPECT_THAT(Of("network"), StartsWith("error: still searching; wait a minute"));
  EXPECT_THAT(std::count(requests_.begin(), requests_.end(), "AT+CREG?\r"), testing::Ge(2));
}

TEST_F(ModemCheck, TheSignalIsInDecibels) {
  EXPECT_EQ(AfterAnswer("AT+CSQ", "+CSQ: 0,99", "signal").substr(0, 23), "warning: -113 dBm, weak");
  EXPECT_EQ(AfterAnswer("AT+CSQ", "+CSQ: 10,99", "signal"), "ok: -93 dBm");
  EXPECT_EQ(AfterAnswer("AT+CSQ", "+CSQ: 31,0", "signal"), "ok: -51 dBm");
  EXPECT_EQ(AfterAnswer("AT+CSQ", "+CSQ: 146,99", "signal"), "ok: -70 dBm");
  EXPECT_EQ(AfterAnswer("AT+CSQ", "+CSQ: 99,99", "signal"),
            "warning: the modem does not report it");
  EXPECT_TRUE(can_send_);
}

TEST_F(ModemCheck, NamesInUcs2AreRead) {
  answers_["AT+CSCS?"] = "+CSCS: \"UCS2\"";
  answers_["AT+CSCA?"] = "+CSCA: \"002B0031003500350035\",145";
  EXPECT_EQ(AfterAnswer("AT+COPS?", "+COPS: 1,0,\"041C04220421\",0", "operator"),
            "warning: МТС, GSM, chosen by hand; AT+COPS=0 lets the modem choose, also when this "
            "network is gone");
  EXPECT_EQ(Of("service centre"), "ok: +1555");
}

TEST_F(ModemCheck, WithoutAServiceCentreNothingCanBeSent) {
  EXPECT_THAT(AfterAnswer("AT+CSCA?", "+CSCA: \"\",129", "service centre"),
              StartsWith("error: none; write init=AT+CSCA="));
  EXPECT_FALSE(can_send_);
}

TEST_F(ModemCheck, AModemThatStoresElsewhereIsToldToUseOneStore) {
  EXPECT_THAT(AfterAnswer("AT+CPMS?", "+CPMS: \"SM\",1,20,\"SM\",1,20,\"ME\",1,255", "store"),
              HasSubstr("messages are listed from SM; write init=AT+CPMS=\"ME\",\"ME\",\"ME\""));
  EXPECT_THAT(AfterAnswer("AT+CPMS?", "+CPMS: \"SM\",20,20", "store"),
              HasSubstr("no message arrives"));
  EXPECT_THAT(AfterAnswer("AT+CPMS?", "+CPMS: ", "store"), HasSubstr("does not report"));
}

TEST_F(ModemCheck, AModemWithoutMessagesIsRefused) {
  EXPECT_THAT(AfterAnswer("AT+CSMS?", "+CSMS: 0,1,0,1", "messages"), HasSubstr("cannot send"));
  answers_.erase("AT+CSMS?");
  EXPECT_THAT(
      AfterAnswer("AT+CMGF=0", "+CMS ERROR: 303", "messages"),
      StartsWith("error: PDU mode is refused: AT+CMGF=0 was answered with +CMS ERROR: 303"));
}

TEST_F(ModemCheck, AModemThatHidesFailuresGetsItsSetting) {
  EXPECT_THAT(AfterAnswer("AT^SM20?", "^SM20: 1,1", "failures"), HasSubstr("AT^SM20=0,0"));
  EXPECT_EQ(AfterAnswer("AT^SM20?", "^SM20: 0,0", "failures"), "no such line");
}

TEST_F(ModemCheck, FlowControlOfBothSidesIsCompared) {
  EXPECT_THAT(AfterAnswer("AT+IFC?", "+IFC: 1,1", "flow control"), HasSubstr("AT+IFC=0,0"));
  EXPECT_EQ(AfterAnswer("AT+IFC?", "+IFC: 0,0", "flow control"),
            "ok: none on our side; the modem's setting is none");
}

TEST_F(ModemCheck, CommandsOfInitAreSentAsTheProgramSendsThem) {
  ok_.emplace_back("AT+CNMI=2,0");
  Check(",init=\"AT+CNMI=2,0;AT+WHAT\"");
  EXPECT_EQ(Of("init"), "warning: AT+WHAT was answered with 'ERROR\\r\\n'; correct init=");
  EXPECT_THAT(requests_, Contains("AT+CNMI=2,0\r"));
  EXPECT_TRUE(can_send_);
}

TEST_F(ModemCheck, ALastTryIsNotUsed) {
  answers_["AT+CPIN?"] = "+CPIN: SIM PIN";
  answers_["AT+CPINR=\"SIM PIN\""] = "+CPINR: SIM PIN,1,3";
  Check(",init=AT+CPIN=1234");
  EXPECT_THAT(Of("SIM card"), HasSubstr("the PIN was not sent, since only one try is left"));
  EXPECT_THAT(requests_, Not(Contains(StartsWith("AT+CPIN="))));
}

}  // namespace
