// SPDX-License-Identifier: MIT
// Faults that take time, over a real line.
#include "runtime/modem_simulator/simulator.h"

#include <gtest/gtest.h>

#include "tests/runtime/modem_simulator/bench.h"
#include "tests/support/temporary_folder.h"

namespace modem_simulator {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr char kHello[] = "0001000B915155101032F4000005E8329BFD06\x1A";

class SimulatorTest : public testing::Test {
 protected:
  SimulatorTest()
      : bench_([this] {
          SimulatorOptions options;
          options.link = link_;
          options.modem.delays.network = milliseconds(50);
          options.time = gsm::TimeStamp{2026, 1, 31, 12, 0, 0, 60};
          return options;
        }()),
        controller_(link_) {
    EXPECT_EQ(controller_.Ask("ATE0\r"), "ATE0\r\r\nOK\r\n");
  }

  test_support::TemporaryFolder folder_;
  std::filesystem::path link_ = folder_.path() / "modem";
  Bench bench_;
  Controller controller_;
};

TEST_F(SimulatorTest, ConfirmsAMessageAfterTheNetworkDelay) {
  EXPECT_EQ(controller_.Ask("AT+CMGS=18\r", "> "), "\r\n> ");
  const auto start = steady_clock::now();
  EXPECT_EQ(controller_.Ask(kHello), "\r\n+CMGS: 1\r\n\r\nOK\r\n");
  EXPECT_GE(steady_clock::now() - start, milliseconds(50));
  bench_.AwaitOutput("sent to +15550101234: hello\n");
}

TEST_F(SimulatorTest, HearsNothingWhileMuted) {
  bench_.Do("mute 200ms");
  bench_.AwaitOutput("muted for 200ms");
  controller_.Write("AT+CSQ\r");
  // Ask until it answers: what was asked before is lost, not delayed.
  std::string answer;
  for (int i = 0; i < 1000 && answer.empty(); ++i) {
    controller_.Write("AT\r");
    pollfd state{controller_.fd(), POLLIN, 0};
    if (poll(&state, 1, 20) == 1) answer = controller_.Read("OK\r\n");
  }
  EXPECT_EQ(answer.find("+CSQ"), std::string::npos) << answer;
  EXPECT_EQ(answer.find("\r\nOK\r\n"), 0u) << answer;
}

TEST_F(SimulatorTest, AnswersLateWhenItsOutputIsHeldBack) {
  const auto start = steady_clock::now();
  bench_.Do("hold 150ms");
  bench_.AwaitOutput("held back");
  EXPECT_EQ(controller_.Ask("AT+CSQ\r"), "\r\n+CSQ: 20,0\r\n\r\nOK\r\n");
  EXPECT_GE(steady_clock::now() - start, milliseconds(150));
}

TEST_F(SimulatorTest, DoesThingsLater) {
  const auto start = steady_clock::now();
  bench_.Do("after 100ms receive +1555 late");
  EXPECT_EQ(controller_.Read("1\r\n"), "\r\n+CMTI: \"SM\",1\r\n");
  EXPECT_GE(steady_clock::now() - start, milliseconds(100));
  bench_.AwaitOutput("received, place 1: from +1555 at 2026-01-31T12:00:00+01:00: late\n");
}

TEST_F(SimulatorTest, KnowsTheServiceCentresTime) {
  bench_.Do("time 2024-02-29T01:02:03-05:00");
  bench_.Do("receive +1555 x");
  bench_.AwaitOutput("at 2024-02-29T01:02:03-05:00: x");
  bench_.Do("time now");
  bench_.Do("receive +1555 y");
  EXPECT_EQ(bench_.AwaitOutput(": y").find("2024-02-29"), std::string::npos);
}

TEST_F(SimulatorTest, LosesItsSettingsWithARestart) {
  bench_.Do("restart");
  EXPECT_EQ(controller_.Read("SMS Ready\r\n"), "\r\nRDY\r\n\r\nCall Ready\r\n\r\nSMS Ready\r\n");
  EXPECT_EQ(controller_.Ask("AT\r"), "AT\r\r\nOK\r\n");
}

TEST_F(SimulatorTest, ForgetsAConfirmationThatARestartOvertakes) {
  bench_.Do("delay 10s");
  EXPECT_EQ(controller_.Ask("AT+CMGS=18\r", "> "), "\r\n> ");
  controller_.Write(kHello);
  bench_.Do("restart");
  EXPECT_EQ(controller_.Read("SMS Ready\r\n").find("+CMGS"), std::string::npos);
  bench_.Do("delay 0");
  EXPECT_EQ(controller_.Ask("\rATE0;+CMGS=18\r", "> ").find("+CMGS: "), std::string::npos);
  EXPECT_EQ(controller_.Ask(kHello), "\r\n+CMGS: 1\r\n\r\nOK\r\n") << "the first one went";
}

TEST_F(SimulatorTest, SendsAsMuchGarbageAsOrdered) {
  bench_.Do("garbage 500");
  bench_.Do("unsolicited END");
  EXPECT_EQ(controller_.Read("\r\nEND\r\n").size(), 500u + 7u);
}

TEST_F(SimulatorTest, KeepsAReadersBacklogWhole) {
  bench_.Do("garbage 1000000");  // far more than the terminal accepts at once
  bench_.Do("unsolicited END");
  EXPECT_EQ(controller_.Read("\r\nEND\r\n").size(), 1000000u + 7u);
}

}  // namespace
}  // namespace modem_simulator
