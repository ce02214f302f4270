// SPDX-License-Identifier: MIT
// What a modem on a real line does too rarely for a test: here its octets come when it matters.
#include "runtime/modem_driver/modem_dialogue.h"

#include <gmock/gmock.h>

#include <utility>
#include <vector>

namespace corvane {
namespace {

constexpr std::chrono::milliseconds kTimeout(1000);  // no time passes
const std::string kText = "0001000B915155101032F4000005E8329BFD06\x1A";

/// What was written, and what comes next.
struct Wire {
  std::vector<std::string> written;
  std::string coming;
  std::string before_answer;  // of the next request
  std::string after_prompt;
  std::string coming_in_pauses;  // where the driver waits
};

/// A modem that answers announcements with a prompt, and other commands with OK.
class Line : public SerialLine {
 public:
  explicit Line(Wire& wire) : wire_(wire) {}
  std::string_view Read(SteadyTime deadline) override {
    read_ = std::exchange(wire_.coming, {});
    const bool waits = deadline > std::chrono::steady_clock::now();
    if (waits && read_.empty()) read_ = std::exchange(wire_.coming_in_pauses, {});
    return read_;
  }
  bool Write(std::string_view octets, SteadyTime /*deadline*/) override {
    wire_.written.emplace_back(octets);
    wire_.coming += std::exchange(wire_.before_answer, {});
    if (octets.starts_with("AT")) {
      wire_.coming += octets.starts_with("AT+CMGS=") ? "\r\n> " + wire_.after_prompt : "\r\nOK\r\n";
    }
    return true;
  }
  [[nodiscard]] std::size_t written() const override { return 1; }
  [[nodiscard]] const std::string& loss() const override { return loss_; }

 private:
  Wire& wire_;
  std::string read_;
  std::string loss_;
};

class ModemDialogueTest : public testing::Test {
 protected:
  ModemDialogueTest() { dialogue_.Attach(std::make_unique<Line>(wire_)); }

  ExchangeResult Exchange(const std::string& request) {
    return dialogue_.Exchange(1, ModemRequest(request), kTimeout);
  }

  /// What the modem says on its own, until it is silent: "LINE|PDU".
  std::vector<std::string> IdleAndListen() {
    std::vector<std::string> told;
    do {
      for (const auto& [line, pdu] : dialogue_.TakeNews()) told.push_back(line + "|" + pdu);
      dialogue_.Idle(std::chrono::steady_clock::now());
    } while (!wire_.coming.empty());
    for (const auto& [line, pdu] : dialogue_.TakeNews()) told.push_back(line + "|" + pdu);
    return told;
  }

  Wire wire_;
  ModemTarget target_;
  WaitLoop loop_;
  ModemStatus status_;
  PinMemory pins_{{}};
  ModemDialogue dialogue_{target_, loop_, status_, pins_};
};

// A modem that does not understand ESC without a prompt would read "ESC ATE0V1" as one unknown
// line.
TEST_F(ModemDialogueTest, EndsTheLineOfItsEscape) {
  EXPECT_THAT(wire_.written, testing::ElementsAre("\x1B\r", "ATE0V1\r"));
}

TEST_F(ModemDialogueTest, AnnouncementsSurviveAnExchangeThatBeginsInThemAnywhere) {
  const std::string report = "0006D60B911326880736F4111011719551401110117195714000";
  const std::string said = "\r\n+CMTI: \"SM\",3\r\n\r\n+CDS: 25\r\n" + report + "\r\n";
  (void)dialogue_.TakeNews();  // the line was opened
  // An answer comes between two lines; some modems write one into the middle of a PDU. (A single
  // digit of it could be an echo.)
  std::vector<std::size_t> places{0, said.find("\r\n+CDS"), said.find(report), said.size()};
  for (std::size_t place = places[2] + 2; place < places[2] + report.size(); ++place) {
    places.push_back(place);
  }
  for (const std::string request : {"AT+CMGF=0\r", "AT+CMGL=4\r"}) {
    for (const std::size_t answer : places) {
      for (std::size_t begin = 0; begin <= answer; ++begin) {
        wire_.coming = said.substr(0, begin);
        dialogue_.Idle(std::chrono::steady_clock::now());
        wire_.before_answer = said.substr(begin, answer - begin);
        EXPECT_EQ(Exchange(request).text, "OK\r\n");
        wire_.coming = said.substr(answer);
        EXPECT_THAT(IdleAndListen(), testing::ElementsAre("+CMTI: \"SM\",3|", "+CDS: 25|" + report))
            << "the exchange begins at " << begin << ", its answer comes at " << answer;
      }
    }
  }
}

TEST_F(ModemDialogueTest, WithoutItsLineHasNoPrompt) {
  EXPECT_EQ(Exchange("AT+CMGS=18\r").text, ">");
  ASSERT_EQ(dialogue_.state(), ModemDialogue::State::kPrompt);
  dialogue_.Detach();
  EXPECT_EQ(dialogue_.state(), ModemDialogue::State::kNoLine) << "nothing to leave with ESC";
}

TEST_F(ModemDialogueTest, SendsNoTextToAModemThatHasRestartedAfterItsPrompt) {
  ASSERT_EQ(Exchange("AT+CMGS=18\r").text, ">");
  wire_.coming = "\r\nRDY\r\n";
  EXPECT_FALSE(Exchange(kText).answered);
  EXPECT_THAT(wire_.written, testing::Not(testing::Contains(kText)));
  EXPECT_EQ(Exchange("AT+CMGF=0\r").text, "OK\r\n");
}

TEST_F(ModemDialogueTest, SendsNoTextToAModemWhosePromptHasEndedWithAResult) {
  for (const bool at_once : {false, true}) {
    wire_.after_prompt = at_once ? "\r\nOK\r\n" : "";
    ASSERT_EQ(dialogue_.Exchange(1, ModemRequest("AT+CMGS=18\r"), kTimeout).text, ">");
    if (!at_once) wire_.coming = "\r\nOK\r\n";
    EXPECT_FALSE(dialogue_.Exchange(1, ModemRequest(kText), kTimeout).answered);
    EXPECT_THAT(wire_.written, testing::Not(testing::Contains(kText)));
  }
}

TEST_F(ModemDialogueTest, SendsNoTextToAModemWhosePromptCameTogetherWithItsRestart) {
  wire_.after_prompt = "\r\nRDY\r\n";
  ASSERT_EQ(Exchange("AT+CMGS=18\r").text, ">");
  const ExchangeResult result = Exchange(kText);
  EXPECT_FALSE(result.answered);
  EXPECT_FALSE(result.written);
  EXPECT_THAT(wire_.written, testing::Not(testing::Contains(kText)));
}

TEST_F(ModemDialogueTest, SendsNoTextToAModemThatRestartsInThePauseAfterItsPrompt) {
  target_.prompt_pause = std::chrono::milliseconds(100);
  ASSERT_EQ(Exchange("AT+CMGS=18\r").text, ">");
  wire_.coming_in_pauses = "\r\nRDY\r\n";
  EXPECT_FALSE(Exchange(kText).answered);
  EXPECT_THAT(wire_.written, testing::Not(testing::Contains(kText)));
}

}  // namespace
}  // namespace corvane
