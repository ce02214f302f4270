// SPDX-License-Identifier: MIT
// The driver as its clients and the modem see it: scripted peers, exact bytes.
#include "runtime/modem_driver/modem_port_driver.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <mutex>
#include <optional>
#include <thread>

#include "libs/base/descriptor.h"
#include "tests/support/captured_log.h"
#include "tests/support/driver_test.h"
#include "tests/support/memory_limit.h"

namespace test_support {
namespace {

using corvane::ModemPortDriver;
using corvane::ParseModemTargets;
using corvane::TheScanLock;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

INSTANTIATE_TEST_SUITE_P(On, DriverTest, testing::Values(PeerKind::kPseudoTerminal, PeerKind::kTcp),
                         [](const auto& parameter) {
                           return parameter.param == PeerKind::kTcp ? "Tcp" : "PseudoTerminal";
                         });

TEST_P(DriverTest, CarriesTheDialoguesOfBothBlocks) {
  const auto running = Start(
      [](ModemPeer& peer, const std::string& request) {
        if (request != kList) return Obey(peer, request);
        peer.Send("\r\n+CMGL: 3,0,,30\r\n" + kPdu + "\r\n\r\nOK\r\n");
      },
      "", GetParam());
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  ExpectReply(client_.Exchange(kList, 500, 0), "+CMGL: 3,0,,30\r\n" + kPdu + "\r\nOK\r\n");
  ExpectReply(client_.Exchange("AT+CMGD=3\r"), "OK\r\n");
  ExpectMessageSent(client_);
  EXPECT_THAT(peer_->Requests(), ElementsAre(kSetPduMode, kList, "AT+CMGD=3\r", kAnnounce, kText));
  EXPECT_THAT(Logged("warning"), IsEmpty());
}

TEST_P(DriverTest, ADeviceThatVanishesInAnExchangeAndReturnsIsUsedAgain) {
  std::atomic<bool> vanish{true};
  const auto running = Start(
      [&vanish](ModemPeer& peer, const std::string& request) {
        if (!vanish) return Obey(peer, request);
        peer.Send("\r\n+CMGL: 3,0,");
        peer.Unplug();
      },
      "", GetParam());
  ExpectNoAnswer(client_.Exchange(kList, 5000));
  vanish = false;
  peer_->PlugIn();
  ExpectReply(client_.Exchange(kList, 5000), "OK\r\n");
  EXPECT_THAT(Logged("warning"), Contains(HasSubstr("is lost: ")));
}

TEST_F(DriverTest, SetsTheModemUpOnOpeningAndSendsItsInit) {
  ModemPeer peer([](ModemPeer& self, const std::string&) { self.Send(kOk); });
  peer.ShowSetUp();
  const ModemPortDriver driver(
      ParseModemTargets({"1=" + peer.Target() + ",init=AT+CNMI=2,0;AT+CSMS=1"}), TheScanLock());
  ASSERT_TRUE(peer.WaitForRequests(3));
  EXPECT_THAT(peer.Requests(), ElementsAre("ATE0V1\r", "AT+CNMI=2,0\r", "AT+CSMS=1\r"));
  EXPECT_EQ(peer.Escapes(), 1) << "out of a prompt that an earlier run left open";
}

TEST_F(DriverTest, AModemThatRefusesTheSetUpInOneLineGetsItInParts) {
  ModemPeer peer([](ModemPeer& self, const std::string& request) {
    self.Send(request == "ATE0V1\r" ? "\r\nERROR\r\n" : kOk);
  });
  peer.ShowSetUp();
  const ModemPortDriver driver(ParseModemTargets({"1=" + peer.Target()}), TheScanLock());
  ASSERT_EQ(client_.Register(1), 0);
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_THAT(peer.Requests(), ElementsAre("ATE0V1\r", "ATE0\r", kSetPduMode));
  client_.Unregister();
}

TEST_F(DriverTest, AModemThatEchoesAnywayIsUnderstood) {
  for (const int copies : {1, 2}) {
    const auto running = Start([copies](ModemPeer& peer, const std::string& request) {
      for (int i = 0; i < copies; ++i) peer.Send(request);
      if (request == kList) {
        peer.Send("\r\n+CMGL: 3,0,,30\r\n" + kPdu + "\r\n\r\nOK\r\n");
      } else {
        Obey(peer, request);
      }
    });
    for (int round = 0; round < 2; ++round) {
      ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
      ExpectMessageSent(client_);
      ExpectReply(client_.Exchange(kList), "+CMGL: 3,0,,30\r\n" + kPdu + "\r\nOK\r\n");
    }
  }
}

TEST_F(DriverTest, AnAnswerCutAtAnyPlaceIsHandedOverAsFarAsItIsCertain) {
  const std::string whole = "\r\n+CMGL: 3,0,,30\r\n" + kPdu + "\r\n\r\nOK\r\n";
  std::atomic<std::size_t> cut{0};
  const auto running = Start([&](ModemPeer& peer, const std::string& request) {
    if (request == kList) {
      peer.Send(whole.substr(0, cut));
    } else {
      Obey(peer, request);
    }
  });
  for (const int from_end : {102, 100, 97, 84, 83, 82, 50, 9, 8, 7, 6, 4, 3, 2, 1, 0}) {
    cut = whole.size() - static_cast<std::size_t>(from_end);
    const DriverReply reply = client_.Exchange(kList, 30);
    if (reply.status < 0) {
      EXPECT_LT(cut, whole.size() - 8) << cut;  // where the PDU ends
    } else {
      EXPECT_THAT(reply.text, StartsWith("+CMGL: 3,0,,30\r\n" + kPdu + "\r\n")) << cut;
    }
    ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  }
}

TEST_F(DriverTest, AnAnswerThatComesAfterItsTimeOutIsNotTakenForTheNext) {
  std::atomic<bool> late{true};
  const auto running = Start([&late](ModemPeer& peer, const std::string& request) {
    if (request != kList) return Obey(peer, request);
    if (late.exchange(false)) return;
    peer.Send("\r\n+CMGL: 3,0,,30\r\n" + kPdu + "\r\n\r\nOK\r\n");
  });
  ExpectNoAnswer(client_.Exchange("AT+CMGL=0\r", 50));
  peer_->Send("\r\n+CMS ERROR: 500\r\n");
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  ExpectReply(client_.Exchange(kList), "+CMGL: 3,0,,30\r\n" + kPdu + "\r\nOK\r\n");
  EXPECT_EQ(peer_->Escapes(), 1) << "at the start";
}

TEST_F(DriverTest, WhatComesBetweenTwoExchangesIsDropped) {
  const auto running = Start(Obey);
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  peer_->Send("\r\n+CMTI: \"SM\",3\r\n\r\nERROR\r\n\r\n> ");
  ASSERT_TRUE(WaitFor([] {
    const auto log = TakeLog();
    return std::any_of(log.begin(), log.end(), [](const std::string& line) {
      return line.find(": x ") != std::string::npos;
    });
  }));
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
}

TEST_P(DriverTest, AnnouncementsReachTheirListenersAtOnce) {
  const auto running = Start(Obey, ",poll=60s", GetParam());  // no listener waits for a poll
  ASSERT_EQ(client_.Listen(), 0);
  ExpectListening();
  peer_->Send("\r\n+CMTI: \"SM\",3\r\n");
  EXPECT_THAT(client_.WaitForHeard(1), ElementsAre("+CMTI: \"SM\",3"));
  peer_->Send("\r\n+CDS: 25\r\n" + kReport + "\r\n\r\n+CDSI: \"SR\",1\r\n");
  EXPECT_THAT(client_.WaitForHeard(2), ElementsAre("+CDS: 25|" + kReport, "+CDSI: \"SR\",1"));
}

TEST_F(DriverTest, WhatComesDuringAnExchangeIsHandedOverAfterIt) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request != kList) return Obey(peer, request);
    peer.Send("\r\n+CMTI: \"SM\",3\r\n\r\n+CMGL: 3,0,,30\r\n" + kPdu.substr(0, 40) +
              "\r\n+CDS: 25\r\n" + kReport.substr(0, 20) + "\r\n+CMTI: \"SM\",4\r\n" +
              kReport.substr(20) + "\r\n" + kPdu.substr(40) + "\r\n\r\nOK\r\n");
  });
  ASSERT_EQ(client_.Listen(), 0);
  ExpectListening();
  ExpectReply(client_.Exchange(kList), "+CMGL: 3,0,,30\r\n" + kPdu + "\r\nOK\r\n");
  EXPECT_THAT(client_.WaitForHeard(3),
              ElementsAre("+CMTI: \"SM\",3", "+CMTI: \"SM\",4", "+CDS: 25|" + kReport));
}

TEST_F(DriverTest, AnnouncementsAreHandedOverWhileAnAnswerIsLate) {
  times_.probe = times_.late_text = std::chrono::minutes(10);
  const auto running = Start(
      [](ModemPeer& peer, const std::string& request) {
        if (request.back() != '\x1A') Obey(peer, request);
      },
      ",poll=60s");
  ASSERT_EQ(client_.Listen(), 0);
  ExpectListening();
  client_.QueueMessage(kAnnounce, kText, 20);
  peer_->Send("\r\n+CMTI: \"SM\",3\r\n");  // so that the driver asks its client at once
  EXPECT_THAT(client_.WaitForHeard(1), testing::SizeIs(1));
  ExpectReply(client_.WaitForReply(), ">");
  ExpectNoAnswer(client_.WaitForReply());
  peer_->Send("\r\n+CDS: 25\r\n" + kReport + "\r\n");
  EXPECT_THAT(client_.WaitForHeard(1), ElementsAre("+CDS: 25|" + kReport));
}

TEST_F(DriverTest, ARestartAndANewDeviceAreAnnounced) {
  const auto running = Start(Obey);
  ASSERT_EQ(client_.Listen(), 0);
  ExpectListening();
  peer_->Send("\r\n+CDS: 25\r\n" + kReport.substr(0, 20) + "\r\nRDY\r\n");
  EXPECT_THAT(client_.WaitForHeard(1), ElementsAre(kPortDriverRestart)) << "not half a report";
  peer_->Send("\r\n+CDS: 25\r\n" + kReport.substr(0, 20));
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  peer_->Unplug();
  peer_->PlugIn();
  EXPECT_THAT(client_.WaitForHeard(1), ElementsAre(kPortDriverRestart));
}

TEST_F(DriverTest, AFloodOfAnnouncementsIsCutAndReported) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    for (int i = 0; i < 1'000 && request == kList; ++i) {
      peer.Send("\r\n+CMTI: \"SM\"," + std::to_string(i) + "\r\n");
    }
    Obey(peer, request);
  });
  ASSERT_EQ(client_.Listen(), 0);
  ExpectListening();
  ExpectReply(client_.Exchange(kList, 5000), "OK\r\n");
  EXPECT_EQ(client_.WaitForHeard(100).size(), 100U);
  EXPECT_THAT(Logged("warning"), Contains(HasSubstr("; 900 of these lines were dropped")));
}

TEST_F(DriverTest, OnlyClientsThatListenHear) {
  const auto running = Start(Obey);
  DriverClient other;
  EXPECT_NE(other.Listen(), 0) << "it is not registered";
  ASSERT_EQ(other.Register(1), 0);
  ASSERT_EQ(client_.Listen(), 0);
  ASSERT_EQ(other.Listen(), 0);
  ExpectListening();
  other.StopListening();
  peer_->Send("\r\n+CMTI: \"SM\",3\r\n");
  EXPECT_THAT(client_.WaitForHeard(1), ElementsAre("+CMTI: \"SM\",3"));
  EXPECT_THAT(other.TakeHeard(), Not(Contains("+CMTI: \"SM\",3")));
}

TEST_F(DriverTest, AConfiguredPortIsKnownWithoutItsDevice) {
  const auto has_port = [](int port) {
    const std::lock_guard guard(TheScanLock());
    return ModemPortDriverHasPort(port);
  };
  EXPECT_EQ(has_port(1), 0) << "there is no driver";
  const auto running = Start(Obey);
  peer_->Unplug();
  EXPECT_EQ(has_port(1), 1);
  EXPECT_EQ(has_port(2), 0);
  EXPECT_EQ(has_port(-1), 0);
}

TEST_F(DriverTest, TheStatusSaysWhetherTheModemCanHaveTheRequest) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request.back() == '\x1A') return;
    Obey(peer, request);
  });
  EXPECT_EQ(client_.Exchange(kText).status, kPortDriverNotWritten) << "a text without its prompt";
  client_.QueueMessage(kAnnounce, kText, 20);
  ExpectReply(client_.WaitForReply(), ">");
  EXPECT_EQ(client_.WaitForReply().status, kPortDriverNoAnswer) << "the modem has the text";
  peer_->Unplug();
  EXPECT_EQ(client_.Exchange(kSetPduMode, 50).status, kPortDriverNotWritten) << "no device";
}

TEST_F(DriverTest, AStuckPromptIsLeftWithEscape) {
  std::atomic<bool> stuck{true};
  const auto running = Start([&stuck](ModemPeer& peer, const std::string& request) {
    if (stuck.exchange(false)) return peer.Send("\r\n> ");
    Obey(peer, request);
  });
  ExpectReply(client_.Exchange(kSetPduMode), ">");
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_EQ(peer_->Escapes(), 2 + 1) << "the prompt is left before the modem is set up again";
}

TEST_F(DriverTest, ATextWithoutItsPromptNeverReachesTheModem) {
  const auto running = Start(Obey);
  ExpectNoAnswer(client_.Exchange(kText));
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kSetPduMode));
}

TEST_F(DriverTest, ATextIsNotSentToADeviceThatCameBackSinceItsPrompt) {
  const auto running = Start(
      [](ModemPeer& peer, const std::string& request) {
        Obey(peer, request);
        if (request == kAnnounce) peer.Unplug();
      },
      "", PeerKind::kTcp);
  client_.QueueMessage(kAnnounce, kText);
  ExpectReply(client_.WaitForReply(), ">");
  ExpectNoAnswer(client_.WaitForReply());
  ExpectReply(client_.Exchange(kSetPduMode, 5000), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kSetPduMode));
}

TEST_F(DriverTest, AConfirmationWhoseOkIsLostStillCounts) {
  const auto running = Start(
      [](ModemPeer& peer, const std::string& request) {
        if (request != kText) return Obey(peer, request);
        peer.Send("\r\n+CMGS: 12\r\n");
        peer.Unplug();
      },
      "", PeerKind::kTcp);  // a terminal that goes away takes unread octets with it
  ExpectMessageSent(client_);
}

TEST_F(DriverTest, TheTimeOutRunsFromTheLastOctet) {
  std::atomic<int> pieces{0};
  const auto running = Start([&pieces](ModemPeer& peer, const std::string& request) {
    if (request != kList) return Obey(peer, request);
    for (int i = 0; i < 10; ++i) {  // ten pauses, together three times the time-out
      std::this_thread::sleep_for(std::chrono::milliseconds(120));
      peer.Send("\r\n+CMGL: " + std::to_string(i) + ",0,,30\r\n" + kPdu + "\r\n");
      ++pieces;
    }
    peer.Send(kOk);
  });
  const DriverReply reply = client_.Exchange(kList, 400, 0);
  EXPECT_EQ(pieces, 10);
  EXPECT_THAT(reply.text, HasSubstr("+CMGL: 9,0,,30\r\n"));
  EXPECT_THAT(reply.text, HasSubstr("OK\r\n"));
}

TEST_F(DriverTest, TheDriverDoesNotWaitForEverForAModemThatOnlyBabbles) {
  std::atomic<bool> stop{false};
  const auto running = Start([&stop](ModemPeer& peer, const std::string& request) {
    if (request != kList) return Obey(peer, request);
    while (!stop) {
      peer.Send("\r\n^DSFLOWRPT:0000\r\n");
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  ExpectNoAnswer(client_.Exchange(kList, 50, 0));
  stop = true;
  ExpectReply(client_.Exchange(kSetPduMode, 3000), "OK\r\n");
}

TEST_F(DriverTest, PatienceIsForTextsAndLists) {
  const auto running = Start(
      [](ModemPeer& peer, const std::string& request) {
        if (request == kSetPduMode) return;
        const bool is_slow = request == kList || request.back() == '\x1A';
        if (is_slow) std::this_thread::sleep_for(std::chrono::milliseconds(300));
        Obey(peer, request);
      },
      ",patience=20s");
  ExpectNoAnswer(client_.Exchange(kSetPduMode, 50));
  ExpectMessageSent(client_, 50);
  EXPECT_THAT(client_.Exchange(kList, 50, 0).text, HasSubstr("OK\r\n"));
  EXPECT_THAT(Logged("warning"), Not(Contains(HasSubstr("patience"))));
}

// One character of a PDU is worth as much as a whole entry: on a line of 300 baud a message takes
// ten seconds, five time-outs of a list.
TEST_F(DriverTest, TheDriverWaitsForAMessageThatTricklesIn) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request != kList) return Obey(peer, request);
    peer.Send("\r\n+CMGL: 1,0,,30\r\n");
    for (const char digit : kPdu) {  // together more than five time-outs
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      peer.Send(std::string(1, digit));
    }
    peer.Send(std::string("\r\n") + kOk);
  });
  ExpectReply(client_.Exchange(kList, 200, 0), "+CMGL: 1,0,,30\r\n" + kPdu + "\r\nOK\r\n");
}

TEST_F(DriverTest, ASlowLineGetsItsTimeForTheRequest) {
  const auto running = Start(
      [](ModemPeer& peer, const std::string& request) {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        Obey(peer, request);
      },
      ",baud=300");  // 10 octets take 333 ms
  ExpectReply(client_.Exchange(kSetPduMode, 50), "OK\r\n");
}

TEST_F(DriverTest, NoiseIsNeitherAListNorAConfirmation) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    const bool is_slow = request == kList || request.back() == '\x1A';
    is_slow ? peer.Send("\r\n$GPGGA: LOOK OUT,1\r\n") : Obey(peer, request);
  });
  ExpectNoAnswer(client_.Exchange(kList, 50, 0));
  client_.QueueMessage(kAnnounce, kText, 50);
  ExpectReply(client_.WaitForReply(), ">");
  ExpectNoAnswer(client_.WaitForReply());
}

TEST_F(DriverTest, AnAnswerThatMakesNoSenseIsHandedOver) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    peer.Send(request == kSetPduMode ? "\r\nwhat?\r\n" : kOk);
  });
  ExpectReply(client_.Exchange(kSetPduMode, 50), "what?\r\n");
}

TEST_F(DriverTest, MegabytesWithoutALineEndFailTheExchange) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request == kList) {
      peer.Send(std::string(std::size_t{2} << 20, 'A'));
    } else {
      Obey(peer, request);
    }
  });
  ExpectNoAnswer(client_.Exchange(kList, 500, 0));
  ExpectReply(client_.Exchange(kSetPduMode, 10'000), "OK\r\n");
}

TEST_F(DriverTest, WhatIsWholeBeforeNoiseIsHandedOver) {
  const std::string entry = "+CMGL: 1,0,,30\r\n" + kPdu + "\r\n";
  const std::string noise(4096, '\xFF');
  const auto running = Start([&](ModemPeer& peer, const std::string& request) {
    if (request == kList) {
      peer.Send("\r\n" + entry + noise);
    } else if (request.back() == '\x1A') {
      peer.Send("\r\n+CMGS: 12\r\n" + noise);
    } else {
      Obey(peer, request);
    }
  });
  ExpectReply(client_.Exchange(kList, 500, 0), entry);
  client_.QueueMessage(kAnnounce, kText, 500, 10'000);
  ExpectPromptAndConfirmation(client_);
}

TEST_F(DriverTest, AListOf10000EntriesArrivesWhole) {
  std::string list;
  for (int i = 0; i < 10'000; ++i) {
    list += "+CMGL: " + std::to_string(i) + ",0,,30\r\n" + kPdu + "\r\n";
  }
  const auto running = Start([&list](ModemPeer& peer, const std::string& request) {
    request == kList ? peer.Send("\r\n" + list + kOk) : Obey(peer, request);
  });
  const DriverReply reply = client_.Exchange(kList, 2000, 0);
  EXPECT_TRUE(reply.text == list + "OK\r\n") << reply.text.size() << " of " << list.size();
}

TEST_F(DriverTest, RandomOctetsAsAnswersDoNotDisturbTheNextExchange) {
  std::atomic<unsigned> seed{0};
  const auto running = Start([&seed](ModemPeer& peer, const std::string& request) {
    if (request != kList) return Obey(peer, request);
    std::string octets;
    unsigned state = seed;
    for (int i = 0; i < 300; ++i) {
      state = state * 1664525U + 1013904223U;
      octets += static_cast<char>(state >> 24U);
    }
    peer.Send(octets);
  });
  for (seed = 1; seed <= 15; ++seed) {
    (void)client_.Exchange(kList, 20, 0);
    ExpectReply(client_.Exchange(kSetPduMode, 5000), "OK\r\n");
  }
}

TEST_F(DriverTest, AModemThatRestartsIsSetUpAgain) {
  const auto running = Start(Obey, ",init=AT+CNMI=2,0");
  ASSERT_TRUE(peer_->WaitForRequests(1));
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  peer_->Send("\r\nRDY\r\n\r\n+CPIN: READY\r\n");
  ASSERT_TRUE(WaitFor([] { return !Logged("warning").empty(); }));
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_THAT(peer_->Requests(),
              ElementsAre("AT+CNMI=2,0\r", kSetPduMode, "AT+CNMI=2,0\r", kSetPduMode));
}

TEST_F(DriverTest, AnEchoThatComesBackShowsARestart) {
  std::atomic<bool> echo{false};
  const auto running = Start(
      [&echo](ModemPeer& peer, const std::string& request) {
        if (echo.exchange(false)) peer.Send(request);
        Obey(peer, request);
      },
      ",init=AT+CNMI=2,0");
  ASSERT_TRUE(peer_->WaitForRequests(1));
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  echo = true;
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_THAT(peer_->Requests(),
              ElementsAre("AT+CNMI=2,0\r", kSetPduMode, kSetPduMode, "AT+CNMI=2,0\r", kSetPduMode));
}

TEST_F(DriverTest, ThePinIsSentOnlyIfItIsAskedForAndNeverTwiceIfItIsWrong) {
  std::atomic<int> pins{0};
  const auto running = Start(
      [&pins](ModemPeer& peer, const std::string& request) {
        if (request == "AT+CPIN?\r") return peer.Send("\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n");
        if (request != "AT+CPIN=1234\r") return Obey(peer, request);
        ++pins;
        peer.Send("\r\n+CME ERROR: 16\r\n");
      },
      ",init=AT+CPIN=1234");
  ASSERT_TRUE(WaitFor([&pins] { return pins == 1; }));
  peer_->Unplug();
  peer_->PlugIn();
  // The exchange in which the driver notices the loss may fail.
  auto reply = client_.Exchange(kSetPduMode, 5000);
  if (reply.status < 0) reply = client_.Exchange(kSetPduMode, 5000);
  ExpectReply(reply, "OK\r\n");
  EXPECT_EQ(pins, 1);
  const auto log = TakeLog();
  EXPECT_THAT(log, Contains(HasSubstr("the third wrong one locks the SIM")));
  for (const std::string& line : log) {
    if (line.rfind("trace", 0) == 0) continue;
    EXPECT_THAT(line, Not(HasSubstr("1234")));
  }
}

TEST_F(DriverTest, TraceShowsEveryOctetThatIsNotText) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    peer.Send(request == kSetPduMode ? "\xB2\xFF\x7F~\r\nOK\r\n" : kOk);
  });
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  std::string heard;  // in one piece or in several
  for (const std::string& line : Logged("trace modem port 1: < ")) {
    heard += line.substr(line.find("< ") + 2);
  }
  EXPECT_THAT(heard, HasSubstr("\\xB2\\xFF\\x7F~\\r\\nOK\\r\\n"));
}

TEST_F(DriverTest, APinThatTheSimDoesNotAskForIsNotSent) {
  const auto running = Start(
      [](ModemPeer& peer, const std::string& request) {
        if (request == "AT+CPIN?\r") return peer.Send("\r\n+CPIN: READY\r\n\r\nOK\r\n");
        Obey(peer, request);
      },
      ",init=AT+CPIN=1234");
  ExpectReply(client_.Exchange(kSetPduMode, 5000), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre("AT+CPIN?\r", kSetPduMode));
  EXPECT_THAT(Logged("warning"), IsEmpty());
}

TEST_F(DriverTest, AnInitCommandWaitsForABusySim) {
  std::atomic<int> asked{0};
  const auto running = Start(
      [&asked](ModemPeer& peer, const std::string& request) {
        if (request == "AT+CNMI=2,0\r" && asked++ == 0) return peer.Send("\r\n+CMS ERROR: 314\r\n");
        Obey(peer, request);
      },
      ",init=AT+CNMI=2,0");
  ExpectReply(client_.Exchange(kSetPduMode, 5000), "OK\r\n");
  EXPECT_EQ(asked, 2);
  EXPECT_THAT(Logged("warning"), IsEmpty());
}

TEST_F(DriverTest, AMuteModemIsReportedOnceAndItsReturnToo) {
  std::atomic<bool> mute{false};
  const auto running = Start([&mute](ModemPeer& peer, const std::string& request) {
    if (!mute) Obey(peer, request);
  });
  peer_->ShowSetUp();
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  mute = true;
  ExpectNoAnswer(client_.Exchange(kSetPduMode, 50));
  ExpectNoAnswer(client_.Exchange(kSetPduMode, 50));
  mute = false;
  ExpectReply(client_.Exchange(kSetPduMode, 3000), "OK\r\n");
  const auto log = TakeLog();
  const auto count = [&log](const std::string& text) {
    return std::count_if(log.begin(), log.end(), [&text](const std::string& line) {
      return line.find(text) != std::string::npos;
    });
  };
  EXPECT_EQ(count("no answer to AT+CMGF=0 within"), 1);
  EXPECT_EQ(count("info modem port 1: the modem answers"), 1);
}

TEST_F(DriverTest, DebugShowsExchangesAndTimesButNoTextOfAMessage) {
  const auto running = Start(Obey);
  ExpectMessageSent(client_);
  const auto log = TakeLog();
  EXPECT_THAT(log, Contains(testing::MatchesRegex(
                       "debug modem port 1: AT\\+CMGS=18 -> prompt in [0-9.]+[mu]s")));
  EXPECT_THAT(log, Contains(HasSubstr("debug modem port 1: text of 38 characters -> OK")));
  for (const std::string& line : log) {
    if (line.rfind("trace", 0) == 0) continue;
    EXPECT_THAT(line, Not(HasSubstr("E8329BFD06")));
  }
}

TEST_F(DriverTest, APortThatIsNotConfiguredIsRefused) {
  DriverClient client;
  EXPECT_NE(client.Register(1), 0) << "no driver";
  const auto running = Start(Obey);
  EXPECT_NE(client.Register(2), 0);
  EXPECT_NE(client.Register(-1), 0);
}

TEST_F(DriverTest, APortThatIsNotConfiguredIsReportedOnce) {
  const auto running = Start(Obey);
  DriverClient client;
  for (int round = 0; round < 3; ++round) EXPECT_NE(client.Register(9), 0);
  EXPECT_THAT(
      Logged("warning"),
      ElementsAre(HasSubstr("modem port 9: a block needs it, but it is not configured; start with "
                            "--modem 9=DEVICE")));
  for (int port = 100; port < 200; ++port) EXPECT_NE(client.Register(port), 0);
  EXPECT_THAT(Logged("warning").size(), testing::Lt(20u));
}

TEST_F(DriverTest, ADeviceThatIsNotThereIsRefusedUntilItComes) {
  const auto running = Start(Obey);
  peer_->Unplug();
  DriverClient second;
  ASSERT_TRUE(WaitFor([&second] {
    const bool refused = second.Register(1) != 0;
    second.Unregister();
    return refused;
  }));
  peer_->PlugIn();
  EXPECT_TRUE(WaitFor([&second] { return second.Register(1) == 0; }));
  ExpectReply(second.Exchange(kSetPduMode, 5000), "OK\r\n");
}

/// Counts how often a file is opened.
class Openings {
 public:
  explicit Openings(const std::string& path) {
    EXPECT_GE(inotify_add_watch(events_.get(), path.c_str(), IN_OPEN), 0);
  }
  std::size_t Count() {
    std::array<char, 4096> room{};
    const ssize_t octets = read(events_.get(), room.data(), room.size());
    if (octets > 0) count_ += static_cast<std::size_t>(octets) / sizeof(inotify_event);
    return count_;
  }

 private:
  corvane::Descriptor events_{inotify_init1(IN_NONBLOCK | IN_CLOEXEC)};
  std::size_t count_ = 0;
};

TEST_F(DriverTest, WhyADeviceCannotBeOpenedIsLoggedOnce) {
  const TemporaryFolder folder;
  const std::string path = folder.Write("modem", "an ordinary file");
  Openings openings(path);
  TakeLog();
  const ModemPortDriver driver(ParseModemTargets({"1=" + path}), TheScanLock());
  ASSERT_TRUE(WaitFor([&] { return openings.Count() >= 3; }));
  EXPECT_THAT(Logged("error"),
              ElementsAre("error modem port 1: " + path + " is not a serial device"));
}

/// CPU time of the whole process.
std::chrono::nanoseconds CpuTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(DriverTest, WaitingForADeviceThatIsAwayCostsNoTimeOfTheProcessor) {
  const auto running = Start(Obey);
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  peer_->Unplug();
  ExpectNoAnswer(client_.Exchange(kSetPduMode, 20));  // by now it is known to be away
  const auto before = CpuTime();
  ExpectNoAnswer(client_.Exchange(kSetPduMode, 1000));
  EXPECT_LT(CpuTime() - before, std::chrono::milliseconds(250));
}

TEST_F(DriverTest, AClientWithoutARequestSendsNothing) {
  const auto running = Start(Obey);
  std::atomic<int> asked{0};
  PortDriverRequestFunction nothing = [](void* context, char*, PortDriverRequestData*,
                                         PortDriverReplyFunction*) {
    ++*static_cast<std::atomic<int>*>(context);
    return 0;
  };
  PortDriverPriorityFunction always = [](void*) { return 50; };
  {
    const std::lock_guard guard(TheScanLock());
    ASSERT_EQ(ModemPortDriverRegister(1, &asked, always, nothing, nullptr), 0);
  }
  ASSERT_TRUE(WaitFor([&asked] { return asked >= 3; }));
  {
    const std::lock_guard guard(TheScanLock());
    ModemPortDriverUnregister(&asked);
  }
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kSetPduMode));
}

TEST_F(DriverTest, TheHighestPriorityGoesFirst) {
  const auto running = Start(Obey);
  DriverClient urgent(34);
  {
    const std::lock_guard guard(TheScanLock());  // both want something when the driver asks
    client_.Queue("AT+A\r");
    client_.Queue("AT+B\r");
    urgent.Queue("AT+C\r");
    urgent.Queue("AT+D\r");
  }
  ASSERT_EQ(urgent.Register(1), 0);
  // The first may have begun before the urgent one was there.
  ASSERT_TRUE(peer_->WaitForRequests(4));
  const auto requests = peer_->Requests();
  const auto at = [&requests](const std::string& request) {
    return std::find(requests.begin(), requests.end(), request) - requests.begin();
  };
  EXPECT_LT(at("AT+C\r"), at("AT+B\r"));
  EXPECT_LT(at("AT+D\r"), at("AT+B\r"));
}

TEST_F(DriverTest, EqualPrioritiesTakeTurns) {
  const auto running = Start(Obey);
  DriverClient other;
  for (int i = 0; i < 20; ++i) {
    client_.Queue("AT+A\r");
    other.Queue("AT+B\r");
  }
  client_.SetPriority(0);
  ASSERT_EQ(other.Register(1), 0);
  client_.SetPriority(1);
  ASSERT_TRUE(peer_->WaitForRequests(40));
  const auto requests = peer_->Requests();
  const auto first = std::find(requests.begin(), requests.end(), "AT+A\r");
  ASSERT_NE(first, requests.end());
  for (auto next = first + 1;
       next != requests.end() && std::count(next, requests.end(), "AT+B\r") > 1; ++next) {
    EXPECT_NE(*next, *(next - 1)) << "at " << next - requests.begin();
  }
}

TEST_F(DriverTest, AnOpenPromptBelongsToItsClientWhateverTheOthersWant) {
  DriverClient urgent(34);
  const auto running = Start([&urgent](ModemPeer& peer, const std::string& request) {
    if (request == kAnnounce) urgent.Queue("AT+C\r");
    Obey(peer, request);
  });
  ASSERT_EQ(urgent.Register(1), 0);
  ExpectMessageSent(client_);
  ExpectReply(urgent.WaitForReply(), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, "AT+C\r"));
}

TEST_F(DriverTest, APromptWhoseClientIsGoneIsLeft) {
  std::atomic<bool> announced{false};
  auto leaving = std::make_unique<DriverClient>();
  const auto running = Start([&announced](ModemPeer& peer, const std::string& request) {
    if (request != kAnnounce) return Obey(peer, request);
    announced = true;
  });
  ASSERT_EQ(leaving->Register(1), 0);
  leaving->Queue(kAnnounce, 5000, 0);
  ASSERT_TRUE(WaitFor([&announced] { return announced.load(); }));
  leaving.reset();
  peer_->Send("\r\n> ");
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_GE(peer_->Escapes(), 2);
}

TEST_F(DriverTest, AWithdrawnClientIsNotTouchedWhileItsExchangeGoesOn) {
  std::atomic<bool> asked{false};
  const auto running = Start([&asked](ModemPeer& peer, const std::string& request) {
    if (request != kList) return Obey(peer, request);
    asked = true;
  });
  auto leaving = std::make_unique<DriverClient>();
  ASSERT_EQ(leaving->Register(1), 0);
  leaving->Queue(kList, 10'000, 0);
  ASSERT_TRUE(WaitFor([&asked] { return asked.load(); }));
  leaving.reset();  // the address sanitizer reports any later access
  peer_->Send(kOk);
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
}

TEST_F(DriverTest, AClientThatRegistersAgainIsAskedOnce) {
  const auto running = Start(Obey);
  ASSERT_EQ(client_.Register(1), 0);
  ASSERT_EQ(client_.Register(1), 0);
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  client_.Unregister();
  client_.Queue(kSetPduMode);
  DriverClient other;
  ASSERT_EQ(other.Register(1), 0);
  ExpectReply(other.Exchange("AT+B\r"), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kSetPduMode, "AT+B\r"));
}

TEST_F(DriverTest, ARequestThatIsTooLongIsNotSent) {
  const auto running = Start(Obey);
  const std::string longest = std::string(kPortDriverRequestSize - 1, 'A') + '\r';
  client_.Queue('A' + longest);
  client_.Queue(longest);
  ExpectReply(client_.WaitForReply(), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(longest));
}

TEST_F(DriverTest, EndsAtOnceInTheMiddleOfAnExchange) {
  const auto running = Start([](ModemPeer&, const std::string&) {});
  client_.Queue(kList, 600'000, 0);
  ASSERT_TRUE(peer_->WaitForRequests(1));
  const auto start = std::chrono::steady_clock::now();
  driver_.reset();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(client_.replies(), 0U);
}

TEST_F(DriverTest, AModemThatDoesNotAcceptTheRequestFailsIt) {
  const auto running = Start(Obey);
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  peer_->Unplug();
  ExpectNoAnswer(client_.Exchange(kSetPduMode, 300));
  EXPECT_THAT(peer_->Requests(), ElementsAre(kSetPduMode));
}

/// Asks for a list once, and leaves the driver's thread no memory for its answer.
struct Hungry {
  std::optional<MemoryLimit> limit;  // of the thread that calls the functions
  bool asked = false;
  std::atomic<int> status{0};

  static int Priority(void* context) { return static_cast<Hungry*>(context)->asked ? 0 : 1; }
  static int Request(void* context, char* buffer, PortDriverRequestData* data,
                     PortDriverReplyFunction* on_reply) {
    auto& self = *static_cast<Hungry*>(context);
    self.asked = true;
    self.limit.emplace(4096);
    *on_reply = OnReply;
    data->timeout = 5000;
    std::copy(kList.begin(), kList.end(), buffer);
    return static_cast<int>(kList.size());
  }
  static int OnReply(void* context, char* /*reply*/, int /*length*/, int status) {
    auto& self = *static_cast<Hungry*>(context);
    self.limit.reset();
    self.status = status < 0 ? -1 : 1;
    return 0;
  }
};

TEST_F(DriverTest, AThreadWithoutMemoryLosesItsExchangeAndNothingElse) {
  std::string list;
  for (int i = 0; i < 1000; ++i) {
    list += "+CMGL: " + std::to_string(i) + ",0,,30\r\n" + kPdu + "\r\n";
  }
  Hungry hungry;
  const auto running = Start([&list](ModemPeer& peer, const std::string& request) {
    request == kList ? peer.Send("\r\n" + list + kOk) : Obey(peer, request);
  });
  {
    const std::lock_guard guard(TheScanLock());
    ASSERT_EQ(ModemPortDriverRegister(1, &hungry, Hungry::Priority, Hungry::Request, nullptr), 0);
  }
  EXPECT_TRUE(WaitFor([&hungry] { return hungry.status != 0; }));
  EXPECT_EQ(hungry.status, -1);
  {
    const std::lock_guard guard(TheScanLock());
    ModemPortDriverUnregister(&hungry);
  }
  ExpectReply(client_.Exchange(kSetPduMode, 5000), "OK\r\n");
  EXPECT_THAT(Logged("error"), ElementsAre(HasSubstr("no memory for the answer")));
}

TEST_F(DriverTest, TheSecondDriverForADeviceIsRefusedWithAnError) {
  const auto running = Start(Obey);
  TakeLog();
  {
    corvane::ScanLock lock;
    corvane::PinMemory pins({});
    corvane::ModemPort second(ParseModemTargets({"9=" + peer_->Target()}).front(), lock, pins);
    second.WaitForFirstAttempt(std::chrono::steady_clock::now() + std::chrono::seconds(20));
    EXPECT_THAT(Logged("error"), Contains(HasSubstr("is in use by another program (fuser -v ")));
  }
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
}

/// A list and a message again and again, as both blocks would at full speed.
class Soak {
 public:
  explicit Soak(std::vector<std::string> dialogue, int priority)
      : dialogue_(std::move(dialogue)), priority_(priority) {}
  int rounds() const { return rounds_; }
  int failures() const { return failures_; }
  static int Priority(void* context) { return static_cast<Soak*>(context)->priority_; }
  static int Request(void* context, char* buffer, PortDriverRequestData* data,
                     PortDriverReplyFunction* on_reply) {
    auto& self = *static_cast<Soak*>(context);
    const std::string& request = self.dialogue_[self.step_];
    *on_reply = OnReply;
    data->timeout = 2000;
    data->endChar = 13;
    std::copy(request.begin(), request.end(), buffer);
    return static_cast<int>(request.size());
  }

 private:
  static int OnReply(void* context, char* reply, int length, int status) {
    auto& self = *static_cast<Soak*>(context);
    const std::string text(reply, static_cast<std::size_t>(length));
    const bool good = status >= 0 && (text.find("OK") != std::string::npos || text == ">");
    if (!good) ++self.failures_;
    self.step_ = good ? (self.step_ + 1) % self.dialogue_.size() : 0;
    if (self.step_ == 0) ++self.rounds_;
    return self.step_ == 0 ? 0 : 1;
  }

  // Not atomic on purpose: the scan lock must keep the driver and the PLC task apart.
  std::vector<std::string> dialogue_;
  std::size_t step_ = 0;
  int priority_;
  int rounds_ = 0;
  int failures_ = 0;
};

TEST_F(DriverTest, BothKindsOfClientAtFullSpeedDoNotDisturbEachOther) {
  const char* const seconds = std::getenv("CORVANE_SOAK_SECONDS");
  const auto time = std::chrono::seconds(seconds == nullptr ? 3 : std::atoi(seconds));
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    peer.Send("\r\n+CMTI: \"SM\",1\r\n");
    if (request != kList) return Obey(peer, request);
    peer.Send("\r\n+CMGL: 3,0,,30\r\n" + kPdu + "\r\n\r\nOK\r\n");
  });
  Soak reader({kSetPduMode, kList, "AT+CMGD=3\r"}, 2);
  Soak sender({kSetPduMode, kAnnounce, kText}, 2);
  const auto end = std::chrono::steady_clock::now() + time;
  int drops = 0;
  while (std::chrono::steady_clock::now() < end) {  // the PLC task
    const std::lock_guard guard(TheScanLock());
    ASSERT_EQ(ModemPortDriverRegister(1, &sender, Soak::Priority, Soak::Request, nullptr), 0);
    if (drops++ % 500 != 0) continue;  // now and then a block is dropped and made again
    ModemPortDriverUnregister(&reader);
    reader = Soak({kSetPduMode, kList, "AT+CMGD=3\r"}, 2);
    ASSERT_EQ(ModemPortDriverRegister(1, &reader, Soak::Priority, Soak::Request, nullptr), 0);
  }
  const std::lock_guard guard(TheScanLock());
  ModemPortDriverUnregister(&reader);
  ModemPortDriverUnregister(&sender);
  EXPECT_EQ(sender.failures(), 0);
  EXPECT_GT(sender.rounds(), 10);
  EXPECT_EQ(reader.failures(), 0);
  std::printf("%d messages sent\n", sender.rounds());
}

}  // namespace
}  // namespace test_support
