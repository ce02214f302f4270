// SPDX-License-Identifier: MIT
// Turns among the clients of a port, when exchanges fail.
#include "runtime/modem_driver/modem_port.h"

#include <gmock/gmock.h>

#include <chrono>
#include <mutex>

#include "tests/support/driver_test.h"

namespace test_support {
namespace {

using corvane::TheScanLock;
using testing::ElementsAre;

using PauseTime = std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

constexpr PauseTime kForEver(600'000);
const std::string kRefused = "AT+CMGS=165\r";

void RefuseLongOnes(ModemPeer& peer, const std::string& request) {
  request == kRefused ? peer.Send("\r\n+CMS ERROR: 304\r\n") : Obey(peer, request);
}

class ModemPortTest : public DriverTest {};

TEST_F(ModemPortTest, AfterAFailedExchangeEveryOtherClientGoesFirst) {
  times_.first_pause = times_.longest_pause = PauseTime(0);
  const auto running = Start(RefuseLongOnes);
  DriverClient urgent(34);
  DriverClient reader(2);
  {
    const std::lock_guard guard(TheScanLock());  // all want something when the driver asks
    for (int i = 0; i < 3; ++i) {
      urgent.Queue(kRefused);
      client_.Queue("AT+A\r");
      reader.Queue("AT+B\r");
    }
  }
  client_.SetPriority(0);
  ASSERT_EQ(reader.Register(1), 0);
  ASSERT_EQ(urgent.Register(1), 0);
  client_.SetPriority(16);
  ASSERT_TRUE(peer_->WaitForRequests(9));
  const auto requests = peer_->Requests();
  std::vector<std::string> after_failure;  // up to the next one
  for (const std::string& request : requests) {
    if (request == kRefused) {
      after_failure.clear();
    } else {
      after_failure.push_back(request);
    }
  }
  EXPECT_THAT(after_failure, testing::IsSupersetOf({"AT+A\r", "AT+B\r"}));
  for (std::size_t i = 1; i < requests.size(); ++i) {
    EXPECT_FALSE(requests[i] == kRefused && requests[i - 1] == kRefused) << "at " << i;
  }
}

TEST_F(ModemPortTest, AClientWhoseExchangesFailPausesLongerEachTime) {
  times_.first_pause = PauseTime(20);
  std::vector<SteadyClock::time_point> asked;
  const auto running = Start([&asked](ModemPeer& peer, const std::string& request) {
    asked.push_back(SteadyClock::now());
    RefuseLongOnes(peer, request);
  });
  for (int i = 0; i < 4; ++i) client_.Queue(kRefused);
  for (int i = 0; i < 4; ++i) ExpectReply(client_.WaitForReply(), "+CMS ERROR: 304\r\n");
  ASSERT_EQ(peer_->Requests().size(), 4u);
  EXPECT_GE(asked[1] - asked[0], PauseTime(20));
  EXPECT_GE(asked[2] - asked[1], PauseTime(40));
  EXPECT_GE(asked[3] - asked[2], PauseTime(80));
}

// If the pause doubled forty times, the test would never end.
TEST_F(ModemPortTest, ASuccessEndsThePauses) {
  times_.first_pause = PauseTime(1);
  times_.longest_pause = kForEver;
  const auto running = Start(RefuseLongOnes);
  for (int i = 0; i < 40; ++i) {
    ExpectReply(client_.Exchange(kRefused), "+CMS ERROR: 304\r\n");
    ExpectReply(client_.Exchange("AT+CMGF=0\r"), "OK\r\n");
  }
}

TEST_F(ModemPortTest, APauseHasItsLimit) {
  times_.first_pause = PauseTime(1);
  times_.longest_pause = PauseTime(4);
  const auto running = Start(RefuseLongOnes);
  for (int i = 0; i < 40; ++i) ExpectReply(client_.Exchange(kRefused), "+CMS ERROR: 304\r\n");
}

TEST_F(ModemPortTest, WhatOneClientDoesWrongDoesNotDelayAnother) {
  times_.first_pause = times_.longest_pause = kForEver;
  const auto running = Start(RefuseLongOnes);
  DriverClient other;
  ASSERT_EQ(other.Register(1), 0);
  ExpectReply(client_.Exchange(kRefused), "+CMS ERROR: 304\r\n");
  for (int i = 0; i < 3; ++i) ExpectReply(other.Exchange("AT+A\r"), "OK\r\n");
}

TEST_F(ModemPortTest, AnAnnouncementWithoutAPromptCountsAsFailed) {
  times_.first_pause = PauseTime(20);
  std::vector<SteadyClock::time_point> asked;
  const auto running = Start([&asked](ModemPeer& peer, const std::string&) {
    asked.push_back(SteadyClock::now());
    peer.Send(kOk);
  });
  for (int i = 0; i < 2; ++i) ExpectReply(client_.Exchange(kAnnounce), "OK\r\n");
  ASSERT_EQ(peer_->Requests().size(), 2u);
  EXPECT_GE(asked[1] - asked[0], PauseTime(20));
}

TEST_F(ModemPortTest, ARefusalIsLoggedOnceWithItsMeaning) {
  times_.warning = kForEver;
  const auto running = Start(RefuseLongOnes);
  for (int i = 0; i < 3; ++i) ExpectReply(client_.Exchange(kRefused), "+CMS ERROR: 304\r\n");
  EXPECT_THAT(Logged("warning"),
              ElementsAre("warning modem port 1: AT+CMGS=165 was refused: +CMS ERROR: 304 (invalid "
                          "PDU mode parameter)"));
}

TEST_F(ModemPortTest, AnOkWithoutTheNumberOfTheMessageIsLogged) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    request == kText ? peer.Send(kOk) : Obey(peer, request);
  });
  client_.QueueMessage(kAnnounce, kText);
  ExpectReply(client_.WaitForReply(), ">");
  ExpectReply(client_.WaitForReply(), "OK\r\n");
  EXPECT_THAT(
      Logged("warning"),
      ElementsAre("warning modem port 1: the modem answered OK to a message, but without +CMGS: "
                  "and its number; modems of some makers do that when sending has failed "
                  "(init=\"AT^SM20=0,0\" helps there)"));
}

TEST_F(ModemPortTest, AMessageThatItsClientGivesUpIsLogged) {
  times_.warning = kForEver;
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    request == kText ? peer.Send("\r\n+CMS ERROR: 331\r\n") : Obey(peer, request);
  });
  for (int attempt = 0; attempt < 2; ++attempt) {  // a client with more to send does not give up
    client_.QueueMessage(kAnnounce, kText);
    if (attempt == 0) client_.Queue("AT+CMGF=0\r");
    ExpectReply(client_.WaitForReply(), ">");
    ExpectReply(client_.WaitForReply(), "+CMS ERROR: 331\r\n");
    if (attempt == 0) ExpectReply(client_.WaitForReply(), "OK\r\n");
  }
  ExpectReply(client_.Exchange("AT+CMGF=0\r"), "OK\r\n");  // it is logged after the reply
  EXPECT_THAT(
      Logged("warning"),
      ElementsAre(
          "warning modem port 1: a message was refused: +CMS ERROR: 331 (no network service)",
          "warning modem port 1: a message is given up; the last attempt ended with +CMS "
          "ERROR: 331 (no network service)"));
}

TEST_F(ModemPortTest, AnOpenPromptBelongsToItsOwnerEvenWhileThatPauses) {
  times_.first_pause = times_.longest_pause = kForEver;
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request != kAnnounce) Obey(peer, request);
  });
  ExpectNoAnswer(client_.Exchange(kAnnounce, 20, 0));
  client_.QueueMessage(kAnnounce, kText);
  peer_->Send("\r\n> ");
  ExpectPromptAndConfirmation(client_);
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText));
}

}  // namespace
}  // namespace test_support
