// SPDX-License-Identifier: MIT
// The client of a modem port; the test plays the driver, the modem and the tasks.
#include "addins/corvane_sms/port_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>

#include "tests/support/fake_modem_port.h"

namespace {

using namespace std::chrono_literals;
using corvane_sms::AtRequest;
using corvane_sms::ModemTask;
using corvane_sms::PortClient;
using messages::Now;
using testing::ElementsAre;

/// Sends what a test gives it, as one sequence.
class ScriptedTask : public ModemTask {
 public:
  int Priority(const Now&) override { return requests.empty() ? 0 : priority; }
  void OnBegin(const Now&) override { ++begun; }
  std::optional<AtRequest> Next(const Now&) override {
    if (requests.empty()) return std::nullopt;
    AtRequest request{requests.front(), 7s};
    requests.pop_front();
    return request;
  }
  bool OnAnswer(std::string_view answer, int status, const Now&) override {
    answers.emplace_back(status < 0 ? "status " + std::to_string(status) : std::string(answer));
    return !requests.empty();
  }
  void OnNotReady(std::string_view answer, int status, const Now&) override {
    not_ready.emplace_back(status < 0 ? "status " + std::to_string(status) : std::string(answer));
    requests.clear();
  }
  void OnLine(std::string_view line, std::string_view pdu, const Now&) override {
    lines.push_back(std::string(line) + "|" + std::string(pdu));
  }

  int priority = 1;
  int begun = 0;
  std::deque<std::string> requests;
  std::vector<std::string> answers, not_ready, lines;
};

class PortClientTest : public testing::Test {
 protected:
  PortClientTest() {
    client_.Add(one_);
    client_.Add(other_);
  }
  void Register() {
    client_.TryToRegister(now_);
    ASSERT_TRUE(client_.registered());
  }
  /// What the first sequence after an opening begins with.
  void SetUpModem() {
    EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+CMGF=0\r");
    EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+CNMI=2,1,0,1,0\r");
  }

  test_support::FakeModemPort port_{1};
  ScriptedTask one_, other_;
  int ticks_ = 0;
  Now now_ = Now::Get();
  PortClient client_{1, [this](const Now&) { ++ticks_; }};
};

TEST_F(PortClientTest, TriesToRegisterFiveTimesASecondAtMost) {
  port_.Refuse(true);
  for (int i = 0; i < 10; ++i) client_.TryToRegister(now_);
  EXPECT_EQ(port_.attempts(), 1);
  now_.steady += 200ms;
  port_.Refuse(false);
  client_.TryToRegister(now_);
  client_.TryToRegister(now_);
  EXPECT_EQ(port_.attempts(), 2);
  EXPECT_TRUE(client_.registered());
}

TEST_F(PortClientTest, WantsNothingWithoutWork) {
  Register();
  EXPECT_EQ(port_.Poll(), "");
  EXPECT_GE(ticks_, 1) << "the add-in works on whenever the driver calls";
}

TEST_F(PortClientTest, BeginsASequenceInPduModeAndAnnouncesOnce) {
  Register();
  one_.requests = {"AT+ONE\r", "AT+TWO\r"};
  SetUpModem();
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+ONE\r");
  EXPECT_EQ(port_.Exchange("ERROR\r\n"), "AT+TWO\r");
  EXPECT_THAT(one_.answers, ElementsAre("OK\r\n", "ERROR\r\n"));
  other_.requests = {"AT+THREE\r"};
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+CMGF=0\r") << "another client may have changed it";
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+THREE\r");
  EXPECT_EQ(one_.begun, 1);
  EXPECT_EQ(other_.begun, 1);
}

TEST_F(PortClientTest, HandsOverTimeOutAndAnswer) {
  Register();
  one_.requests = {"AT+ONE\r"};
  SetUpModem();
  EXPECT_EQ(port_.AskRequest().timeout, 7000);
}

TEST_F(PortClientTest, ServesTheHigherPriorityFirst) {
  Register();
  one_.requests = {"AT+ONE\r"};
  other_.requests = {"AT+OTHER\r"};
  other_.priority = 2;
  SetUpModem();
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+OTHER\r");
  port_.Exchange("OK\r\n");
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+ONE\r");
}

TEST_F(PortClientTest, ASequenceIsNotInterrupted) {
  Register();
  one_.requests = {"AT+ONE\r", "AT+TWO\r"};
  SetUpModem();
  port_.Exchange("OK\r\n");
  other_.requests = {"AT+OTHER\r"};
  other_.priority = 99;
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+TWO\r");
}

TEST_F(PortClientTest, ATaskThatWaitsLetsAnotherOneIn) {
  Register();
  one_.requests = {"AT+ONE\r"};
  SetUpModem();
  one_.priority = 0;
  other_.requests = {"AT+OTHER\r"};
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+CMGF=0\r");
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+OTHER\r");
  one_.priority = 1;
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+CMGF=0\r") << "its sequence begins again";
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+ONE\r");
}

TEST_F(PortClientTest, TellsATaskThatTheModemIsNotReady) {
  Register();
  one_.requests = {"AT+ONE\r"};
  port_.Exchange("+CME ERROR: 10\r\n");
  EXPECT_THAT(one_.not_ready, ElementsAre("+CME ERROR: 10\r\n"));
  one_.requests = {"AT+ONE\r"};
  port_.Poll();
  port_.TimeOut();
  EXPECT_EQ(one_.not_ready.back(), "status -1");
}

TEST_F(PortClientTest, TriesAnotherAnnouncementAndGoesOnWithoutAny) {
  Register();
  one_.requests = {"AT+ONE\r"};
  port_.Exchange("OK\r\n");
  EXPECT_EQ(port_.Exchange("+CMS ERROR: 303\r\n"), "AT+CNMI=2,1,0,1,0\r");
  EXPECT_EQ(port_.Exchange("ERROR\r\n"), "AT+CNMI=2,1,0,2,0\r");
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+ONE\r");
  one_.requests = {"AT+TWO\r"};
  port_.Exchange("OK\r\n");
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+TWO\r") << "a refusal is remembered";
}

TEST_F(PortClientTest, AnnouncesAgainAfterARestartOfTheModem) {
  Register();
  one_.requests = {"AT+ONE\r"};
  SetUpModem();
  port_.Exchange("OK\r\n");
  port_.Say("RESTART");
  one_.requests = {"AT+TWO\r"};
  SetUpModem();
}

TEST_F(PortClientTest, SetsTheModemUpAgainIfItRestartsBeforeTheTasksFirstRequest) {
  Register();
  one_.requests = {"AT+ONE\r"};
  SetUpModem();
  port_.Exchange("OK\r\n");
  one_.requests = {"AT+TWO\r"};
  // The driver carries this request when the device is back, and tells of it afterwards.
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+CMGF=0\r");
  port_.Say(kPortDriverRestart);
  SetUpModem();
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+TWO\r");
}

TEST_F(PortClientTest, AnAnnouncementWithoutAnAnswerIsTriedAgainWithTheNextSequence) {
  Register();
  one_.requests = {"AT+ONE\r"};
  port_.Exchange("OK\r\n");
  EXPECT_EQ(port_.Poll(), "AT+CNMI=2,1,0,1,0\r");
  port_.TimeOut();
  EXPECT_EQ(port_.Exchange("OK\r\n"), "AT+ONE\r");
  one_.requests = {"AT+TWO\r"};
  SetUpModem();
}

TEST_F(PortClientTest, EveryTaskHearsWhatTheModemSays) {
  Register();
  port_.Say("+CDS: 25", "0011");
  EXPECT_THAT(one_.lines, ElementsAre("+CDS: 25|0011"));
  EXPECT_THAT(other_.lines, ElementsAre("+CDS: 25|0011"));
}

TEST_F(PortClientTest, ARequestThatDoesNotFitIsNotWritten) {
  Register();
  one_.requests = {std::string(kPortDriverRequestSize + 1, 'x')};
  SetUpModem();
  EXPECT_EQ(port_.AskRequest().text, "");
}

TEST_F(PortClientTest, WithdrawsFromTheDriver) {
  {
    PortClient client(1, nullptr);
    client.TryToRegister(now_);
    EXPECT_EQ(port_.clients(), 1u);
  }
  EXPECT_EQ(port_.clients(), 0u);
}

TEST(IsOk, NeedsALineOfItsOwn) {
  EXPECT_TRUE(corvane_sms::IsOk("OK\r\n"));
  EXPECT_TRUE(corvane_sms::IsOk("+CMGS: 1\r\nOK\r\n"));
  EXPECT_TRUE(corvane_sms::IsOk("OK"));
  EXPECT_FALSE(corvane_sms::IsOk("NOK\r\n"));
  EXPECT_FALSE(corvane_sms::IsOk("ERROR\r\n"));
  EXPECT_FALSE(corvane_sms::IsOk(""));
}

}  // namespace
