// SPDX-License-Identifier: MIT
// The driver and the simulated modem in one program, and a fault after each octet that passes
// between them, in either direction: the line is cut, the modem restarts, or it falls silent for a
// while. Whatever the client is told must be true, and the next attempt must succeed.
#include <gmock/gmock.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "corvane/modem_port_driver.h"
#include "runtime/modem_driver/modem_dialogue.h"
#include "tests/runtime/modem_simulator/fake_host.h"

namespace corvane {
namespace {

using modem_simulator::FakeHost;
using modem_simulator::Modem;

constexpr std::size_t kNever = std::numeric_limits<std::size_t>::max();
constexpr std::chrono::milliseconds kLineTimeout(5);  // no time passes on the line

enum class Fault : std::uint8_t { kCut, kRestart, kSilence };

/// A modem whose line fails after some octets.
struct Bench {
  FakeHost host;
  Modem modem{{}, host};
  Fault fault = Fault::kCut;
  std::size_t left = kNever;  // octets until the fault
  std::size_t passed = 0;
  bool silent = false;
  std::string held_back;  // what the modem says meanwhile

  /// The network has answered, whether or not anybody listens.
  void Settle() {
    while (std::exchange(host.awaiting, false)) modem.Wake();
  }
  /// How many of these octets pass before the fault comes.
  std::size_t Pass(std::size_t wanted) {
    const std::size_t passing = std::min(wanted, left);
    passed += passing;
    if (left != kNever) left -= passing;
    return passing;
  }
  [[nodiscard]] std::ptrdiff_t sent() const {
    return std::count_if(host.reports.begin(), host.reports.end(),
                         [](const std::string& line) { return line.starts_with("sent to "); });
  }
};

class FaultyLine : public SerialLine {
 public:
  explicit FaultyLine(Bench& bench) : bench_(bench) {}

  std::string_view Read(SteadyTime /*deadline*/) override {
    if (!loss_.empty()) return {};
    bench_.Settle();
    coming_ += bench_.host.Take();
    if (bench_.silent) {
      bench_.held_back += std::exchange(coming_, {});
      return {};
    }
    const std::size_t passing = bench_.Pass(coming_.size());
    read_ = coming_.substr(0, passing);
    coming_.erase(0, passing);
    if (bench_.left == 0) Fail();
    return read_;
  }
  bool Write(std::string_view octets, SteadyTime /*deadline*/) override {
    written_ = 0;
    if (!loss_.empty()) return false;
    written_ = bench_.Pass(octets.size());
    bench_.modem.Feed(octets.substr(0, written_));
    const bool failed = bench_.left == 0;
    if (failed) Fail();
    if (failed && bench_.fault != Fault::kCut) {  // the rest reaches a modem that knows nothing
      bench_.modem.Feed(octets.substr(written_));
      written_ = octets.size();
    }
    return written_ == octets.size();
  }
  [[nodiscard]] std::size_t written() const override { return written_; }
  [[nodiscard]] const std::string& loss() const override { return loss_; }

 private:
  void Fail() {
    bench_.left = kNever;
    switch (bench_.fault) {
      case Fault::kCut: loss_ = "unplugged"; break;
      case Fault::kRestart:
        bench_.host.awaiting = false;
        coming_.clear();
        bench_.host.Take();
        bench_.modem.PowerOn();
        bench_.modem.SendUnsolicited("RDY");
        break;
      case Fault::kSilence: bench_.silent = true; break;
    }
  }

  Bench& bench_;
  std::string coming_;
  std::string read_;
  std::string loss_;
  std::size_t written_ = 0;
};

/// What comes late comes at once here, or not at all.
ModemTarget QuickTarget() {
  constexpr std::chrono::milliseconds kSoon(10);
  ModemTarget target;
  target.times.late_command = target.times.late_list = target.times.late_text = kSoon;
  target.times.straggler = std::chrono::milliseconds(1);
  return target;
}

/// A driver's dialogue with the bench.
struct Driver {
  explicit Driver(Bench& the_bench) : bench(the_bench) { PlugIn(); }
  void PlugIn() {
    dialogue.Detach();
    dialogue.Attach(std::make_unique<FaultyLine>(bench));
  }
  ExchangeResult Ask(const std::string& request) {
    return dialogue.Exchange(1, ModemRequest(request), kLineTimeout);
  }
  /// The fault is over.
  void Recover() {
    bench.left = kNever;
    bench.Settle();
    if (std::exchange(bench.silent, false)) bench.host.transmitted.insert(0, bench.held_back);
    if (!dialogue.loss().empty()) {
      bench.host.Take();  // nobody has the line open
      PlugIn();
    }
  }

  Bench& bench;
  ModemTarget target = QuickTarget();
  WaitLoop loop;
  ModemStatus status;
  PinMemory pins{{}};
  ModemDialogue dialogue{target, loop, status, pins};
};

/// What a client knows of its message after an attempt.
enum class End : std::uint8_t { kConfirmed, kNotSent, kUnknown };

End Send(Driver& driver) {
  const std::string kText = std::string(modem_simulator::kHello) + "\x1A";
  if (driver.Ask("AT+CMGF=0\r").final_kind != LineKind::kOk) return End::kNotSent;
  if (driver.Ask("AT+CMGS=18\r").text != ">") return End::kNotSent;
  const ExchangeResult result = driver.Ask(kText);
  if (result.answered && result.text.starts_with("+CMGS: ")) return End::kConfirmed;
  return result.answered || !result.written ? End::kNotSent : End::kUnknown;
}

class EveryOctet : public testing::TestWithParam<Fault> {
 protected:
  /// The first octet to fail after. Silence during the set-up only takes its time-out, in full.
  static std::size_t First(const Bench& set_up) {
    return GetParam() == Fault::kSilence ? set_up.passed : 1;
  }
};

INSTANTIATE_TEST_SUITE_P(With, EveryOctet,
                         testing::Values(Fault::kCut, Fault::kRestart, Fault::kSilence),
                         [](const auto& parameter) {
                           switch (parameter.param) {
                             case Fault::kCut: return "ACut";
                             case Fault::kRestart: return "ARestart";
                             case Fault::kSilence: return "Silence";
                           }
                           return "?";
                         });

TEST_P(EveryOctet, TheClientOfASentMessageIsToldTheTruth) {
  Bench whole;
  Driver undisturbed(whole);
  const std::size_t begin = First(whole);
  ASSERT_EQ(Send(undisturbed), End::kConfirmed);
  ASSERT_GT(whole.passed, 100U);
  int unknown = 0;
  for (std::size_t octet = begin; octet <= whole.passed; ++octet) {
    SCOPED_TRACE("after octet " + std::to_string(octet));
    Bench bench;
    bench.fault = GetParam();
    bench.left = octet;
    Driver driver(bench);
    const End first = Send(driver);
    bench.Settle();
    const std::ptrdiff_t sent = bench.sent();
    if (first == End::kConfirmed) {
      EXPECT_EQ(sent, 1);
    } else if (first == End::kNotSent) {
      EXPECT_EQ(sent, 0);
    } else {
      ++unknown;
    }
    driver.Recover();
    End last = first;
    for (int attempt = 0; attempt < 3 && last != End::kConfirmed; ++attempt) last = Send(driver);
    EXPECT_EQ(last, End::kConfirmed);
    EXPECT_LE(bench.sent(), first == End::kUnknown ? 2 : 1);
    EXPECT_GE(bench.sent(), 1);
  }
  EXPECT_GT(unknown, 0);
  EXPECT_LT(unknown, 80) << "only while the text or its confirmation is under way";
}

TEST_P(EveryOctet, AListHasWholeMessagesOnlyAndNoneIsLost) {
  const auto fill = [](Bench& bench) {  // listed in the same way each time
    using enum modem_simulator::MessageStatus;
    EXPECT_TRUE(bench.modem.Store(kRead, "+4915112345678", "the first message"));
    EXPECT_TRUE(bench.modem.Store(kRead, "+4915112345678", "the second message"));
  };
  Bench whole;
  fill(whole);
  Driver undisturbed(whole);
  const std::size_t begin = First(whole);
  const std::string list = undisturbed.Ask("AT+CMGL=4\r").text;
  ASSERT_THAT(list, testing::EndsWith("OK\r\n"));
  for (std::size_t octet = begin; octet <= whole.passed; ++octet) {
    SCOPED_TRACE("after octet " + std::to_string(octet));
    Bench bench;
    bench.fault = GetParam();
    bench.left = octet;
    fill(bench);
    Driver driver(bench);
    const ExchangeResult result = driver.Ask("AT+CMGL=4\r");
    if (result.answered && result.final_kind != LineKind::kOk) {
      const std::size_t end = result.text.size();
      EXPECT_TRUE(list.starts_with(result.text)) << result.text;
      EXPECT_TRUE(end == list.find("+CMGL: 2") || end == list.find("OK\r\n")) << result.text;
    } else if (result.answered) {
      EXPECT_EQ(result.text, list);
    }
    driver.Recover();
    std::string again;
    for (int attempt = 0; attempt < 3 && again != list; ++attempt) {
      again = driver.Ask("AT+CMGL=4\r").text;
    }
    EXPECT_EQ(again, list);
  }
}

}  // namespace
}  // namespace corvane
