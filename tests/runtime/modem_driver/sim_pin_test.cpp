// SPDX-License-Identifier: MIT
// A SIM card that asks for its PIN, in a modem that is opened again and again, in one run and in
// the next. The third wrong PIN would lock the card.
#include "runtime/modem_driver/sim_pin.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "runtime/modem_driver/modem_dialogue.h"
#include "tests/support/captured_log.h"
#include "tests/support/temporary_folder.h"

namespace corvane {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

struct SimCard {
  std::string pin = "1234";
  int tries = 3;
  bool open = false;
  bool reports_tries = false;
  bool answers_pin = true;  // false: the power fails before the answer
  std::string asks_for = "SIM PIN";
  std::string number_answer = "ERROR";  // to AT+CCID
  std::string refusal = "+CME ERROR: 16";
  std::vector<std::string> pins;  // that were sent
  std::vector<std::string> requests;

  std::string Answer(const std::string& request) {
    requests.push_back(request);
    if (request == "AT+CPIN?\r") {
      return "\r\n+CPIN: " +
             (open         ? "READY"
              : tries == 0 ? "SIM PUK"
                           : asks_for) +
             "\r\n\r\nOK\r\n";
    }
    if (request == "AT+CPINR=\"SIM PIN\"\r") {
      const std::string left = "+CPINR: SIM PIN," + std::to_string(tries) + ",3\r\n\r\nOK\r\n";
      return "\r\n" + (reports_tries ? left : "ERROR\r\n");
    }
    if (request == "AT+CCID\r") return "\r\n" + number_answer + "\r\n\r\nOK\r\n";
    if (request.starts_with("AT+CRSM=") || request.starts_with("AT+UNKNOWN")) {
      return "\r\nERROR\r\n";
    }
    const std::size_t begin = request.find("CPIN=");
    return begin == request.npos ? "\r\nOK\r\n" : Try(request.substr(begin + 5, 4));
  }
  std::string Try(const std::string& given) {
    pins.push_back(given);
    open = given == pin && tries > 0;
    tries = open ? 3 : tries - 1;
    return answers_pin ? "\r\n" + (open ? "OK" : refusal) + "\r\n" : "";
  }
};

class SimLine : public SerialLine {
 public:
  explicit SimLine(SimCard& card) : card_(card) {}
  std::string_view Read(SteadyTime /*deadline*/) override {
    read_ = std::exchange(coming_, {});
    return read_;
  }
  bool Write(std::string_view octets, SteadyTime /*deadline*/) override {
    if (octets.starts_with("AT")) coming_ += card_.Answer(std::string(octets));
    return true;
  }
  [[nodiscard]] std::size_t written() const override { return 1; }
  [[nodiscard]] const std::string& loss() const override { return loss_; }

 private:
  SimCard& card_;
  std::string coming_;
  std::string read_;
  std::string loss_;
};

class SimPinTest : public testing::Test {
 protected:
  /// A run of the program, in which the device is opened this often.
  void Run(const std::vector<std::string>& init, int openings = 2) {
    WaitLoop loop;
    ModemStatus status;
    PinMemory memory(folder_.path());
    ModemTarget target;
    target.device = device_;
    target.init = init;
    ModemDialogue dialogue(target, loop, status, memory);
    for (int i = 0; i < openings; ++i) dialogue.Attach(std::make_unique<SimLine>(card_));
  }
  static std::vector<std::string> Warnings() {
    std::vector<std::string> lines;
    for (const std::string& line : test_support::TakeLog()) {
      if (line.starts_with("warning")) lines.push_back(line);
    }
    return lines;
  }

  test_support::TemporaryFolder folder_;
  std::string device_ = "/dev/modem";
  SimCard card_;
};

TEST_F(SimPinTest, ARightPinIsSentAfterASingleQuery) {
  Run({"AT+CPIN=1234"}, 1);
  EXPECT_THAT(card_.requests, ElementsAre("ATE0V1\r", "AT+CPIN?\r", "AT+CPIN=1234\r"));
}

TEST_F(SimPinTest, ARightPinIsSentWheneverTheCardAsks) {
  test_support::TakeLog();
  for (int start = 0; start < 5; ++start) {
    card_.open = false;  // the power was off
    Run({"AT+CPIN=1234"});
    EXPECT_TRUE(card_.open);
  }
  EXPECT_EQ(card_.pins.size(), 5u);
  EXPECT_THAT(Warnings(), IsEmpty());
}

TEST_F(SimPinTest, AWrongPinIsNeverSentTwiceInAnyForm) {
  for (const std::string command : {"AT+CPIN=9999", "ATE0+CPIN=9999", "AT +CPIN=9999",
                                    "AT+CMEE=1;+CPIN=9999", "AT+CPIN=\"9999\""}) {
    Run({command});
  }
  EXPECT_THAT(card_.pins, testing::SizeIs(1));
  EXPECT_EQ(card_.tries, 2);
}

TEST_F(SimPinTest, AnotherPinIsSentAndTheOldOneStaysRefused) {
  card_.pins.clear();
  Run({"AT+CPIN=9999"});
  Run({"AT+CPIN=1234"});
  EXPECT_TRUE(card_.open);
  card_.open = false;
  Run({"AT+CPIN=9999"});
  EXPECT_THAT(card_.pins, ElementsAre("9999", "1234"));
}

TEST_F(SimPinTest, AnotherCardGetsThePinIfTheModemReportsItsNumber) {
  for (const std::string number : {"894902000012345678", "894902000087654321"}) {
    card_ = SimCard{};
    card_.number_answer = "+CCID: " + number + "7F";
    for (int start = 0; start < 2; ++start) Run({"AT+CPIN=9999"});
    EXPECT_EQ(card_.pins.size(), 1u) << number;
  }
  card_ = SimCard{};
  Run({"AT+CPIN=9999"});
  EXPECT_THAT(card_.pins, IsEmpty()) << "perhaps one of them";
  device_ = "/dev/other";
  Run({"AT+CPIN=9999"});
  EXPECT_EQ(card_.pins.size(), 1u);
}

TEST_F(SimPinTest, APinWhoseAnswerIsLostCountsAsWrongUnlessTheCardSaysOtherwise) {
  card_.answers_pin = false;
  card_.pin = "other";
  for (int start = 0; start < 3; ++start) Run({"AT+CPIN=1234"});
  EXPECT_EQ(card_.pins.size(), 1u);
  device_ = "/dev/other";
  card_ = SimCard{};  // the modem reports how many tries are left
  card_.reports_tries = true;
  card_.number_answer = "+CCID: 8949020000123456789";
  card_.answers_pin = false;
  card_.pin = "other";
  for (int start = 0; start < 3; ++start) Run({"AT+CPIN=1234"});
  EXPECT_EQ(card_.pins.size(), 1u) << "the card has counted it";
  card_.tries = 3;  // it has not
  card_.pin = "1234";
  card_.answers_pin = true;
  Run({"AT+CPIN=1234"});
  EXPECT_TRUE(card_.open);
}

TEST_F(SimPinTest, APinThatHasOpenedTheCardWithoutAnAnswerIsRight) {
  card_.answers_pin = false;
  Run({"AT+CPIN=1234"}, 1);
  ASSERT_TRUE(card_.open);
  card_.answers_pin = true;
  Run({"AT+CPIN=1234"}, 1);
  card_.open = false;
  Run({"AT+CPIN=1234"}, 1);
  EXPECT_EQ(card_.pins.size(), 2u);
  EXPECT_TRUE(card_.open);
}

TEST_F(SimPinTest, TheLastTryIsLeftToPeople) {
  test_support::TakeLog();
  card_.reports_tries = true;
  for (const std::string wrong : {"9999", "8888"}) Run({"AT+CPIN=" + wrong}, 1);
  test_support::TakeLog();
  Run({"AT+CPIN=1234"}, 1);
  EXPECT_THAT(card_.pins, ElementsAre("9999", "8888"));
  EXPECT_THAT(Warnings(), ElementsAre(HasSubstr("the SIM card has only one try left")));
}

TEST_F(SimPinTest, ThePinOfTheCardIsNotSentForAnythingElse) {
  for (const std::string asked : {"SIM PIN2", "PH-SIM PIN", "SIM PUK", "PH-NET PIN"}) {
    card_.asks_for = asked;
    Run({"AT+CPIN=1234"});
    EXPECT_THAT(card_.pins, IsEmpty()) << asked;
  }
}

TEST_F(SimPinTest, OnlyTheWarningOfThePinSaysThatItIsNotSentAgain) {
  test_support::TakeLog();
  Run({"AT+CPIN=9999", "AT+UNKNOWN=1"}, 1);
  const auto warnings = Warnings();
  EXPECT_THAT(warnings,
              ElementsAre(AllOf(HasSubstr("AT+CPIN=(secret) was answered with '+CME ERROR: 16"),
                                HasSubstr("the PIN is not sent again")),
                          AllOf(HasSubstr("AT+UNKNOWN=1 was answered with 'ERROR"),
                                Not(HasSubstr("PIN")))));
  Run({"AT+CPIN=9999"}, 1);
  EXPECT_THAT(Warnings(), ElementsAre(AllOf(HasSubstr("has refused this PIN; correct the option"),
                                            HasSubstr("refused-pins"))));
}

TEST_F(SimPinTest, NoLogBelowTraceShowsThePinNotEvenWhereTheModemQuotesIt) {
  test_support::TakeLog();
  card_.refusal = "+CME ERROR: 9999 is wrong";
  Run({"AT+CMEE=2;+CPIN=9999"});
  for (const std::string& line : test_support::TakeLog()) {
    if (line.starts_with("trace")) continue;
    EXPECT_THAT(line, Not(HasSubstr("9999")));
  }
}

TEST_F(SimPinTest, AMissingCardIsNotAWrongPin) {
  card_.refusal = "+CME ERROR: 10";
  card_.pin = "other";
  Run({"AT+CPIN=1234"}, 1);
  Run({"AT+CPIN=1234"}, 1);
  EXPECT_EQ(card_.pins.size(), 2u);
}

TEST(CardNumber, IsFoundInEveryForm) {
  const std::string number = "894902000012345678";
  for (const std::string answer :
       {"+CCID: 8949020000123456789\r\nOK\r\n", "+CCID: \"89490200001234567890\"\r\nOK\r\n",
        "^ICCID: 89490200001234567890\r\nOK\r\n", "+ICCID: 894902000012345678F\r\nOK\r\n",
        "^ICCID: 98942000002143658709\r\nOK\r\n", "+CRSM: 144,0,\"98942000002143658709\"\r\nOK\r\n",
        "+CRSM: 144,0,\"989420000021436587F9\"\r\nOK\r\n"}) {
    EXPECT_EQ(CardNumberIn(answer), number) << answer;
  }
  for (const std::string answer : {"", "OK\r\n", "+CRSM: 148,4\r\nOK\r\n", "+CCID: 12345\r\n"}) {
    EXPECT_EQ(CardNumberIn(answer), "") << answer;
  }
}

}  // namespace
}  // namespace corvane
