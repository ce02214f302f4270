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
    if (octets.starts_with("AT")) {
      wire_.coming += octets.starts_with("AT+CMGS=") ? "\r\n> " + wire_.after_prompt : "\r\nOK\r\n";
    }
    return true;
  }
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

TEST_F(ModemDialogueTest, SendsNoTextToAModemThatRestartsInThePauseAfterItsPrompt) {
  target_.prompt_pause = std::chrono::milliseconds(100);
  ASSERT_EQ(Exchange("AT+CMGS=18\r").text, ">");
  wire_.coming_in_pauses = "\r\nRDY\r\n";
  EXPECT_FALSE(Exchange(kText).answered);
  EXPECT_THAT(wire_.written, testing::Not(testing::Contains(kText)));
}

}  // namespace
}  // namespace corvane
