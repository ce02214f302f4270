// SPDX-License-Identifier: MIT
// The driver's exchange with a modem that answers with any octets. The first octet chooses the
// request, the second how many octets arrive at a time, the others are the modem's. The result is
// what the reader of answers makes of them octet by octet, and the next exchange is in step again.
#include <spdlog/spdlog.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "fuzz/require.h"
#include "runtime/modem_driver/modem_dialogue.h"

namespace {

using corvane::AtAnswer;
using corvane::ExchangeResult;
using corvane::ModemRequest;
using corvane::RequestKind;
using State = AtAnswer::State;

// No time passes: octets arrive at once or never.
constexpr std::chrono::milliseconds kTimeout(1000);
constexpr std::uint64_t kClient = 1;
constexpr std::string_view kAnnouncement = "AT+CMGS=18\r";
constexpr std::array<std::string_view, 4> kRequests{"AT+CMGL=0\r", "AT+CMGD=1\r", kAnnouncement,
                                                    "0001000B915155101032F4000005E8329BFD06\x1A"};

/// A modem that answers one request with given octets, announcements with a prompt, and other
/// commands with OK.
class Modem : public corvane::SerialLine {
 public:
  Modem(std::string_view request, std::string_view answer, std::size_t piece)
      : request_(request), answer_(answer), piece_(piece) {}

  std::string_view Read(corvane::SteadyTime /*deadline*/) override {
    const std::string_view octets = std::string_view(coming_).substr(read_, piece_);
    read_ += octets.size();
    return octets;
  }
  bool Write(std::string_view octets, corvane::SteadyTime /*deadline*/) override {
    written_ = octets.size();
    if (octets == request_) {
      coming_ += answer_;
      request_ = {};  // only once
    } else if (octets.starts_with("AT")) {
      coming_ += octets == kAnnouncement ? "\r\n> " : "\r\nOK\r\n";
    }
    return true;
  }
  [[nodiscard]] std::size_t written() const override { return written_; }
  [[nodiscard]] const std::string& loss() const override { return loss_; }

 private:
  std::string_view request_;
  std::string_view answer_;
  std::size_t piece_;
  std::string coming_;
  std::size_t read_ = 0;     // how much of it has been read
  std::size_t written_ = 0;  // octets of the last line
  std::string loss_;
};

ExchangeResult Expected(ModemRequest request, std::string_view octets) {
  const bool is_text = request.kind == RequestKind::kText;
  if (is_text) request.name = "+CMGS";
  AtAnswer answer(request, [](std::string_view, corvane::LineKind) {});
  for (const char octet : octets) answer.Feed(octet);
  answer.End();
  const bool has_end = answer.state() == State::kFinal || answer.state() == State::kPrompt;
  if (has_end) return {true, answer.text(), answer.final_kind()};
  // The confirmation of a text is enough; without it the text would be sent again.
  if (is_text && answer.lines() > 0) {
    return {true, answer.text() + "OK\r\n", corvane::LineKind::kOk};
  }
  return {!answer.text().empty(), answer.text(), answer.final_kind()};
}

/// What does not come at once never comes.
corvane::ModemTarget Target() {
  corvane::ModemTarget target;
  target.times.late_command = target.times.late_list = target.times.late_text =
      target.times.straggler = corvane::ModemTimes::Time(0);
  return target;
}

/// Whether the modem's last words are a restart without a line end: the restart then ends the next
/// exchange, with whose answer the line ends.
bool EndsInRestart(std::string octets) {
  octets.erase(0, octets.find_last_of("\r\n\x1A") + 1);  // 0 where there is none
  std::erase(octets, '\0');
  octets.erase(octets.find_last_not_of(' ') + 1);
  return corvane::KindOfLine(octets) == corvane::LineKind::kRestart;
}

bool Equal(const ExchangeResult& a, const ExchangeResult& b) {
  return a.answered == b.answered && a.text == b.text && a.final_kind == b.final_kind;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const corvane::ModemTarget target = Target();
  static corvane::WaitLoop loop;
  static corvane::ModemStatus status;
  spdlog::set_level(spdlog::level::off);
  if (size < 2) return 0;
  const ModemRequest announcement{std::string(kAnnouncement)};
  const ModemRequest request{std::string(kRequests[data[0] % kRequests.size()])};
  const std::string octets(data + 2, data + size);

  corvane::PinMemory pins({});
  corvane::ModemDialogue dialogue(target, loop, status, pins);
  dialogue.Attach(std::make_unique<Modem>(request.octets, octets, std::size_t{data[1]} + 1));
  if (request.kind == RequestKind::kText) {
    Require(dialogue.Exchange(kClient, announcement, kTimeout).text == ">");
  }
  Require(Equal(dialogue.Exchange(kClient, request, kTimeout), Expected(request, octets)));
  if (EndsInRestart(octets)) return 0;
  Require(dialogue.Exchange(kClient, ModemRequest("AT+CMGF=0\r"), kTimeout).text == "OK\r\n");
  return 0;
}
