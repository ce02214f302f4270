// SPDX-License-Identifier: MIT
// Modems that answer after the request was given up: nothing is sent twice, no late answer is taken
// for another, and nothing stops a port for good.
#include "runtime/modem_driver/late_answer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <thread>

#include "tests/support/driver_test.h"

namespace test_support {
namespace {

using corvane::ModemPortDriver;
using corvane::TheScanLock;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

const std::string kProbe = "AT\r";
const std::string kConfirmation = "\r\n+CMGS: 12\r\n\r\nOK\r\n";
constexpr auto kNever = std::chrono::milliseconds(600'000);

/// Obeys, but does not answer texts.
void ObeyAllButTexts(ModemPeer& peer, const std::string& request) {
  if (request.back() != '\x1A') Obey(peer, request);
}

class LateAnswerTest : public DriverTest {
 protected:
  /// Announces a message and sends its text, which is not answered in time.
  void SendInVain(const std::string& text = kText) {
    client_.QueueMessage(kAnnounce, text, 20);
    ExpectReply(client_.WaitForReply(), ">");
    ExpectNoAnswer(client_.WaitForReply());
    // It is written, but on a busy machine the peer may not have read it yet.
    EXPECT_TRUE(WaitFor([&] {
      const auto requests = peer_->Requests();
      return !requests.empty() && requests.back() == text;
    }));
  }
  /// Waits until the driver has the confirmation that the peer has sent.
  static void AwaitConfirmation() {
    EXPECT_TRUE(WaitFor([] {
      return testing::Value(Logged("info"), Contains(HasSubstr("the network confirmed a message")));
    }));
  }
};

TEST_F(LateAnswerTest, AConfirmationThatComesLateAnswersTheSameTextWithoutTheModem) {
  times_.probe = kNever;
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  peer_->Send(kConfirmation);
  ExpectMessageSent(client_);
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText));
  EXPECT_EQ(peer_->Escapes(), 1) << "at the start";
  EXPECT_THAT(Logged("info"), Contains(HasSubstr("the network confirmed a message after")));
}

TEST_F(LateAnswerTest, TheSameTextSentAgainGoesOutAgain) {
  times_.probe = kNever;
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  peer_->Send(kConfirmation);
  ExpectMessageSent(client_);
  SendInVain();
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kAnnounce, kText));
}

TEST_F(LateAnswerTest, ARequestThatWaitsIsAnsweredWhenTheConfirmationComes) {
  times_.probe = kNever;
  times_.undisturbed = std::chrono::milliseconds(0);
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  client_.QueueMessage(kAnnounce, kText, 500, 600'000);
  peer_->Send(kConfirmation);
  ExpectPromptAndConfirmation(client_);
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText));
}

TEST_F(LateAnswerTest, AConfirmationWithoutItsOkCounts) {
  times_.probe = kNever;
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  peer_->Send("\r\n+CMGS: 12\r\n");
  ExpectMessageSent(client_);
}

TEST_F(LateAnswerTest, AnotherTextAfterAPromptFromMemoryIsReallyAnnouncedFirst) {
  times_.probe = kNever;
  const std::string other = "0001000B915155101032F4000005E8329BFD07\x1A";
  const auto running = Start([&other](ModemPeer& peer, const std::string& request) {
    request == other ? peer.Send(kConfirmation) : ObeyAllButTexts(peer, request);
  });
  SendInVain();
  peer_->Send(kConfirmation);
  ExpectReply(client_.Exchange(kAnnounce), ">");
  ExpectReply(client_.Exchange(other), "+CMGS: 12\r\nOK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kAnnounce, other));
}

TEST_F(LateAnswerTest, AnotherMessageEndsTheMemory) {
  times_.probe = kNever;
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    request == "0102\x1A" ? peer.Send(kConfirmation) : ObeyAllButTexts(peer, request);
  });
  SendInVain();
  peer_->Send(kConfirmation);
  client_.QueueMessage("AT+CMGS=2\r", "0102\x1A");
  ExpectPromptAndConfirmation(client_);
  SendInVain();
}

TEST_F(LateAnswerTest, TheMemoryEndsSomeTimeAfterTheClientStoppedWaiting) {
  times_.probe = kNever;
  times_.kept = std::chrono::milliseconds(50);
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  peer_->Send(kConfirmation);
  AwaitConfirmation();
  std::this_thread::sleep_for(2 * times_.kept);  // the time is what is tested
  SendInVain();
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kAnnounce, kText));
}

TEST_F(LateAnswerTest, ARestartOfTheModemEndsTheMemory) {
  times_.probe = kNever;
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  peer_->Send(kConfirmation);
  AwaitConfirmation();
  peer_->Send("\r\nRDY\r\n");
  ASSERT_TRUE(WaitFor([] { return !Logged("warning").empty(); }));
  SendInVain();
  peer_->Send("\r\nRDY\r\n");  // also while the confirmation is awaited
  ASSERT_TRUE(WaitFor([] { return !Logged("warning").empty(); }));
  SendInVain();
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kAnnounce, kText, kAnnounce, kText));
}

TEST_F(LateAnswerTest, ADeviceThatIsPluggedInAgainEndsTheMemory) {
  times_.probe = kNever;
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  peer_->Unplug();
  peer_->PlugIn();
  ASSERT_TRUE(WaitFor([] { return !Logged("warning").empty(); }));
  ExpectReply(client_.Exchange(kSetPduMode, 5000), "OK\r\n");
  SendInVain();
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kSetPduMode, kAnnounce, kText));
}

TEST_F(LateAnswerTest, AModemThatAnswersAProbeHasLostTheText) {
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  SendInVain();
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kProbe, kAnnounce, kText));
  EXPECT_THAT(Logged("warning"), Contains(HasSubstr("a message is lost in the modem")));
}

TEST_F(LateAnswerTest, AModemThatMissedTheEndOfTheTextIsBroughtOutOfItsPrompt) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    request == kProbe ? peer.Send("\r\n> ") : ObeyAllButTexts(peer, request);
  });
  SendInVain();
  SendInVain();
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kProbe, kAnnounce, kText));
  EXPECT_GE(peer_->Escapes(), 2);
}

TEST_F(LateAnswerTest, ARefusalThatComesLateLetsTheNextAttemptGoOut) {
  times_.probe = kNever;
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  peer_->Send("\r\n+CMS ERROR: 331\r\n");
  SendInVain();
  EXPECT_THAT(Logged("warning"), Contains(HasSubstr("+CMS ERROR: 331 (no network service)")));
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kAnnounce, kText));
}

// A modem that accepts commands while it waits for the network answers them when it is done.
TEST_F(LateAnswerTest, TheAnswersToProbesAreNotTakenForOthers) {
  std::atomic<int> probes{0};
  const auto running = Start([&probes](ModemPeer& peer, const std::string& request) {
    if (request == kProbe) {
      if (++probes < 3) return;
      peer.Send(kConfirmation);
      for (int i = 0; i < 3; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        peer.Send(kOk);
      }
    } else if (request == "AT+CSQ\r") {
      peer.Send("\r\n+CSQ: 20,0\r\n\r\nOK\r\n");
    } else {
      ObeyAllButTexts(peer, request);
    }
  });
  SendInVain();
  ExpectMessageSent(client_);
  ExpectReply(client_.Exchange("AT+CSQ\r"), "+CSQ: 20,0\r\nOK\r\n");
}

TEST_F(LateAnswerTest, WhileATextIsUnderWayNothingElseIsWrittenAndNobodyFails) {
  times_.probe = kNever;
  const auto running = Start(ObeyAllButTexts);
  DriverClient other(34);
  ASSERT_EQ(other.Register(1), 0);
  SendInVain();
  other.Queue(kSetPduMode, 20);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));  // ten of its time-outs
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText));
  EXPECT_EQ(other.replies(), 0u);
  peer_->Send(kConfirmation);
  ExpectReply(other.WaitForReply(), "OK\r\n");
}

TEST_F(LateAnswerTest, RequestsEndWithATimeOutOnceATextHasTakenVeryLong) {
  times_.probe = kNever;
  times_.undisturbed = std::chrono::milliseconds(50);
  const auto running = Start(ObeyAllButTexts);
  DriverClient other;
  ASSERT_EQ(other.Register(1), 0);
  SendInVain();
  ExpectNoAnswer(other.Exchange(kSetPduMode, 20));
  ExpectNoAnswer(client_.Exchange(kAnnounce, 20));
  peer_->Send(kConfirmation);
  ExpectMessageSent(client_);
  ExpectReply(other.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText, kSetPduMode));
}

TEST_F(LateAnswerTest, ATextThatIsNeverConfirmedDoesNotStopThePortForGood) {
  times_.probe = kNever;
  times_.late_text = std::chrono::milliseconds(50);
  const auto running = Start(ObeyAllButTexts);
  SendInVain();
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  EXPECT_THAT(Logged("warning"), Contains(HasSubstr("no confirmation of a message within")));
}

TEST_F(LateAnswerTest, APromptThatComesLateServesTheSameAnnouncement) {
  std::atomic<bool> late{true};
  const auto running = Start([&late](ModemPeer& peer, const std::string& request) {
    if (request == kAnnounce && late.exchange(false)) return;
    Obey(peer, request);
  });
  ExpectNoAnswer(client_.Exchange(kAnnounce, 20, 0));
  client_.QueueMessage(kAnnounce, kText);
  peer_->Send("\r\n> ");
  ExpectPromptAndConfirmation(client_);
  EXPECT_THAT(peer_->Requests(), ElementsAre(kAnnounce, kText));
  EXPECT_EQ(peer_->Escapes(), 1) << "at the start";
}

TEST_F(LateAnswerTest, APromptThatComesLateAndThatNobodyWantsIsLeft) {
  std::atomic<bool> late{true};
  const auto running = Start([&late](ModemPeer& peer, const std::string& request) {
    if (request == kAnnounce && late.exchange(false)) return;
    Obey(peer, request);
  });
  ExpectNoAnswer(client_.Exchange(kAnnounce, 20, 0));
  client_.Queue(kSetPduMode);
  peer_->Send("\r\n> ");
  ExpectReply(client_.WaitForReply(), "OK\r\n");
  EXPECT_GE(peer_->Escapes(), 2);
}

TEST_F(LateAnswerTest, AnOkThatComesLateIsNotTakenForTheNextAnswer) {
  times_.late_command = kNever;
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request == "AT+CSQ\r") return peer.Send("\r\n+CSQ: 20,0\r\n\r\nOK\r\n");
    if (request.starts_with("AT+CMGD="))
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    Obey(peer, request);
  });
  for (int place = 1; place <= 5; ++place) {
    ExpectNoAnswer(client_.Exchange("AT+CMGD=" + std::to_string(place) + "\r", 40));
    ExpectReply(client_.Exchange("AT+CSQ\r"), "+CSQ: 20,0\r\nOK\r\n");
  }
  EXPECT_THAT(peer_->Requests(), SizeIs(10));
  EXPECT_EQ(peer_->Escapes(), 1) << "at the start";
  EXPECT_THAT(Logged("warning"), IsEmpty());
}

TEST_F(LateAnswerTest, ACommandThatIsNeverAnsweredDoesNotStopThePortForGood) {
  std::atomic<bool> mute{true};
  const auto running = Start([&mute](ModemPeer& peer, const std::string& request) {
    if (!mute.exchange(false)) Obey(peer, request);
  });
  ExpectNoAnswer(client_.Exchange(kSetPduMode, 20));
  ExpectReply(client_.Exchange(kSetPduMode, 2000), "OK\r\n");
  EXPECT_THAT(Logged("warning"), Contains(HasSubstr("no answer to AT+CMGF=0 within")));
}

TEST_F(LateAnswerTest, AListThatComesLateIsKeptForItsReader) {
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request != kList) Obey(peer, request);
  });
  ExpectNoAnswer(client_.Exchange(kList, 20, 0));
  peer_->Send("\r\n+CMGL: 1,0,,30\r\n" + kPdu + "\r\n" + kOk);
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  ExpectReply(client_.Exchange(kList), "+CMGL: 1,0,,30\r\n" + kPdu + "\r\nOK\r\n");
  EXPECT_THAT(peer_->Requests(), ElementsAre(kList, kSetPduMode));
}

TEST_F(LateAnswerTest, AListThatComesTooLateIsReportedWithTheSettingThatHelps) {
  times_.late_list = std::chrono::milliseconds(20);
  const auto running = Start([](ModemPeer& peer, const std::string& request) {
    if (request != kList) Obey(peer, request);
  });
  ExpectNoAnswer(client_.Exchange(kList, 20, 0));
  ExpectReply(client_.Exchange(kSetPduMode), "OK\r\n");
  peer_->Send("\r\n+CMGL: 1,0,,30\r\n" + kPdu + "\r\n" + kOk);
  EXPECT_TRUE(WaitFor([] {
    const auto log = Logged("warning");
    return std::any_of(log.begin(), log.end(), [](const std::string& line) {
      return line.find("began its list of messages only after") != line.npos &&
             line.find("patience=60s") != line.npos;
    });
  }));
}

/// Sends messages as SEND_SMS does: after four failures in a row, a text is given up, or the
/// message starts again.
class Sender {
 public:
  explicit Sender(int messages) : messages_(messages) {}
  int sent() const { return sent_; }
  int given_up() const { return given_up_; }
  bool done() const { return messages_ == 0; }
  static int Priority(void* context) {
    const auto& self = *static_cast<Sender*>(context);
    return self.messages_ > 0 ? 16 + static_cast<int>(self.step_) : 0;
  }
  static int Request(void* context, char* buffer, PortDriverRequestData* data,
                     PortDriverReplyFunction* on_reply) {
    const std::array requests{kSetPduMode, kAnnounce, kText};
    const std::size_t step = static_cast<Sender*>(context)->step_;
    const std::string& request = requests[step];
    *on_reply = OnReply;
    // For a text a fiftieth of the block's time, as ShortTimes has it for the driver. What the
    // modem answers at once must not fail on a busy machine.
    data->timeout = step == 2 ? 40 : 10'000;
    std::copy(request.begin(), request.end(), buffer);
    return static_cast<int>(request.size());
  }

 private:
  static int OnReply(void* context, char* reply, int length, int status) {
    auto& self = *static_cast<Sender*>(context);
    const std::string_view text(reply, static_cast<std::size_t>(length));
    const bool good = status >= 0 && text.find(self.step_ == 1 ? ">" : "OK") != text.npos;
    good ? self.Succeed() : self.Fail();
    return self.step_ != 0 ? 1 : 0;
  }
  void Succeed() {
    if (++step_ < 3) return;
    step_ = failures_ = 0;
    --messages_;
    ++sent_;
  }
  void Fail() {
    if (++failures_ < 4) {
      step_ = 1;
      return;
    }
    if (step_ == 2) --messages_, ++given_up_;
    step_ = failures_ = 0;
  }

  int messages_;
  std::size_t step_ = 0;
  int failures_ = 0;
  int sent_ = 0;
  int given_up_ = 0;
};

/// A modem port with its own clients, whose modem answers when `Script` does.
class SlowPort {
 public:
  SlowPort(int number, int senders, ModemPeer::Script script)
      : number_(number),
        peer_(std::move(script)),
        senders_(static_cast<std::size_t>(senders), Sender(2)) {}
  corvane::ModemTarget Target() const {
    corvane::ModemTarget target =
        corvane::ParseModemTarget(std::to_string(number_) + "=" + peer_.Target());
    target.times = ShortTimes();
    return target;
  }
  void Register() {
    const std::lock_guard guard(TheScanLock());
    for (Sender& sender : senders_) {
      ASSERT_EQ(
          ModemPortDriverRegister(number_, &sender, Sender::Priority, Sender::Request, nullptr), 0);
    }
  }
  /// Waits until all is sent or given up, and withdraws.
  void Finish() {
    EXPECT_TRUE(WaitFor([this] {
      const std::lock_guard guard(TheScanLock());
      return std::all_of(senders_.begin(), senders_.end(),
                         [](const Sender& s) { return s.done(); });
    })) << "port "
        << number_;
    const std::lock_guard guard(TheScanLock());
    for (Sender& sender : senders_) ModemPortDriverUnregister(&sender);
  }
  std::vector<Sender>& senders() { return senders_; }
  ModemPeer& peer() { return peer_; }

 private:
  int number_;
  ModemPeer peer_;
  std::vector<Sender> senders_;
};

std::vector<std::unique_ptr<SlowPort>> ConfirmAfter(const std::vector<int>& seconds, int senders) {
  std::vector<std::unique_ptr<SlowPort>> ports;
  for (const int delay : seconds) {
    ports.push_back(std::make_unique<SlowPort>(
        delay, senders, [delay](ModemPeer& peer, const std::string& request) {
          if (request == kText) {  // the modem reads on only when the network has answered
            std::this_thread::sleep_for(std::chrono::milliseconds(1000 * delay / 50));
          }
          Obey(peer, request);
        }));
  }
  return ports;
}

void ExpectEachMessageOnce(const std::vector<std::unique_ptr<SlowPort>>& ports) {
  std::vector<corvane::ModemTarget> targets;
  for (const auto& port : ports) targets.push_back(port->Target());
  const ModemPortDriver driver(targets, TheScanLock());
  for (const auto& port : ports) port->Register();
  for (const auto& port : ports) port->Finish();
  for (const auto& port : ports) {
    const auto requests = port->peer().Requests();
    EXPECT_EQ(static_cast<std::size_t>(std::count(requests.begin(), requests.end(), kText)),
              2 * port->senders().size())
        << port->Target().port << " s";
    for (const Sender& sender : port->senders()) {
      EXPECT_EQ(sender.sent(), 2) << port->Target().port << " s";
    }
  }
}

TEST(SlowNetwork, EachMessageIsSentOnceHoweverLongTheNetworkTakes) {
  ExpectEachMessageOnce(ConfirmAfter({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 12, 14, 15, 20, 30, 40}, 1));
}

TEST(SlowNetwork, SendersThatShareAPortDoNotMakeEachOtherFail) {
  ExpectEachMessageOnce(ConfirmAfter({3, 7, 9, 15, 25}, 3));
}

TEST(SlowNetwork, AMessageThatTheModemLosesEachTimeIsGivenUpAfterFourAttempts) {
  SlowPort port(1, 1, ObeyAllButTexts);
  const ModemPortDriver driver({port.Target()}, TheScanLock());
  port.Register();
  port.Finish();
  const auto requests = port.peer().Requests();
  EXPECT_EQ(port.senders().front().given_up(), 2);
  EXPECT_EQ(std::count(requests.begin(), requests.end(), kText), 8);
}

}  // namespace
}  // namespace test_support
