// SPDX-License-Identifier: MIT
#include "runtime/modem_check/modem_talk.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "libs/base/printable.h"
#include "runtime/modem_driver/ascii.h"
#include "runtime/modem_driver/refusal.h"

namespace corvane::modem_check {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kQuiet(100);
constexpr milliseconds kResyncTime(1000);
constexpr milliseconds kWriteTime(2000);
constexpr milliseconds kStraggler(1000);
constexpr int kTries = 2;          // a modem that finds the baud rate itself may miss the first one
constexpr int kSimBusyTries = 30;  // one per second
constexpr std::size_t kMostForeign = 64;
constexpr std::size_t kShownNoise = 40;

/// A line that several users hold one after another; the last one closes it.
class SharedLine : public SerialLine {
 public:
  explicit SharedLine(std::shared_ptr<SerialLine> line) : line_(std::move(line)) {}

  std::string_view Read(SteadyTime deadline) override { return line_->Read(deadline); }
  bool Write(std::string_view octets, SteadyTime deadline) override {
    return line_->Write(octets, deadline);
  }
  std::size_t written() const override { return line_->written(); }
  const std::string& loss() const override { return line_->loss(); }

 private:
  std::shared_ptr<SerialLine> line_;
};

/// The lines of an answer's text without "+NAME: " and the final result.
std::vector<std::string> OwnLines(std::string_view text, const std::string& name) {
  std::vector<std::string> lines;
  const std::string beginning = name + ": ";
  while (!text.empty()) {
    const std::size_t end = std::min(text.find("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    if (!name.empty() && line.starts_with(beginning)) {
      lines.emplace_back(line.substr(beginning.size()));
    }
    text.remove_prefix(std::min(end + 2, text.size()));
  }
  return lines;
}

}  // namespace

std::string Reply::Refusal() const {
  if (!answered) return "not answered";
  return fmt::format("answered with {}", refusal.empty() ? "OK alone" : refusal);
}

ModemTalk::ModemTalk(ModemTarget target, WaitLoop& loop)
    : target_(std::move(target)),
      loop_(loop),
      line_(target_, [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); }) {}

std::unique_ptr<SerialLine> ModemTalk::Borrow() {
  return std::make_unique<SharedLine>(serial_);
}

FirstContact ModemTalk::Open(unsigned baud, FlowControl flow, milliseconds time) {
  line_.Close();
  serial_.reset();
  target_.baud = baud;
  target_.flow = flow;
  serial_ = OpenLine(target_, loop_);
  line_.Open(Borrow());
  return Contact(time);
}

FirstContact ModemTalk::Contact(milliseconds time) {
  bool echoed = false;
  for (int i = 0; i < kTries; ++i) {
    // An earlier program may have left a prompt open, where a command would become a text.
    if (!line_.Write(kLeavePrompt, kWriteTime)) break;
    line_.DropUntilQuiet(kQuiet);
    Reply reply = Probe("ATV1", time);
    echoed_at_first_ = reply.echoed;
    if (!reply.answered && reply.echoed) {  // results may be switched off
      reply = Probe("ATQ0V1", time);
      was_quiet_ = reply.answered;
    }
    if (reply.answered) {
      line_.DropUntilQuiet(kQuiet);
      restart_.clear();
      return FirstContact::kAnswers;
    }
    echoed = echoed || reply.echoed;
    if (noise_.empty() && !reply.lines.empty()) {
      noise_ = PrintableBeginning(reply.line(), kShownNoise);
    }
  }
  CheckLine();
  if (!noise_.empty()) return FirstContact::kNoise;
  return echoed ? FirstContact::kEchoes : FirstContact::kSilent;
}

Reply ModemTalk::Probe(const char* command, milliseconds time) {
  const ModemRequest request(std::string(command) + "\r");
  foreign_.clear();
  AtAnswer answer(request,
                  [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); });
  Reply reply;
  if (!line_.Write(request.octets, kWriteTime)) return reply;
  line_.Collect(answer, request.octets.size(), time);
  answer.End();
  reply.answered = answer.state() == AtAnswer::State::kFinal;
  reply.result = answer.final_kind();
  reply.echoed = answer.echoed();
  const bool endless = answer.state() == AtAnswer::State::kTooLong;
  const std::string& text = endless ? answer.line() : answer.text();
  if (!reply.answered && !text.empty()) reply.lines.push_back(text.substr(0, text.find('\r')));
  return reply;
}

Reply ModemTalk::Ask(const std::string& command, milliseconds timeout) {
  CheckLine();
  Reply reply = Exchange(ModemRequest(command + "\r"), timeout);
  if (!reply.answered) Resynchronise(command);
  return reply;
}

Reply ModemTalk::AskOnceReady(const std::string& command) {
  Reply reply = Ask(command);
  for (int i = 0; reply.result == LineKind::kSimBusy && i < kSimBusyTries; ++i) {
    Wait(std::chrono::seconds(1));
    reply = Ask(command);
  }
  return reply;
}

Reply ModemTalk::SendText(const std::string& octets, std::string_view announced_by,
                          milliseconds timeout) {
  ModemRequest request(octets);
  request.name = announced_by;
  return Exchange(request, timeout);
}

Reply ModemTalk::Exchange(const ModemRequest& request, milliseconds timeout) {
  foreign_.clear();
  AtAnswer answer(request,
                  [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); });
  if (line_.Write(request.octets, kWriteTime)) {
    line_.Collect(answer, request.octets.size(), timeout);
  } else if (line_.loss().empty()) {
    throw TalkEnded(
        "the line accepts nothing more; with flow=rtscts, the cable must have RTS and CTS");
  }
  Reply reply;
  reply.prompt = answer.state() == AtAnswer::State::kPrompt;
  reply.answered = reply.prompt || answer.state() == AtAnswer::State::kFinal;
  CheckLine();
  reply.result = answer.final_kind();
  reply.echoed = answer.echoed();
  reply.lines = OwnLines(answer.text(), request.name);
  if (reply.lines.empty()) reply.lines = foreign_;
  if (reply.answered && !reply.prompt && !reply.ok()) {
    const std::string described = DescribeRefusal(answer.text());
    reply.refusal = described.empty() ? Printable(answer.final_line()) : described;
  }
  return reply;
}

void ModemTalk::Resynchronise(const std::string& command) {
  (void)line_.Write(kLeavePrompt, kWriteTime);  // a prompt may have come too late
  line_.DropUntilQuiet(kStraggler);
  for (int i = 0; i < 3; ++i) {
    CheckLine();
    const bool answered = Probe("AT", kResyncTime).answered;
    line_.DropUntilQuiet(kQuiet);
    if (answered) return CheckLine();
  }
  CheckLine();
  throw TalkEnded(fmt::format(
      "the modem stopped answering after {}; switch it off and on, and check its power supply",
      ModemRequest(command).shown));
}

void ModemTalk::Wait(milliseconds time) {
  const auto end = steady_clock::now() + time;
  while (line_.DropNext(end)) {
  }
  CheckLine();
}

void ModemTalk::CheckLine() const {
  if (!line_.loss().empty()) {
    throw TalkEnded(fmt::format(
        "{} was lost ({}); {}", target_.Name(), line_.loss(),
        target_.device.empty()
            ? "the serial device server has closed the connection: is another program connected?"
            : "was the modem unplugged, or has its power failed?"));
  }
  if (!restart_.empty()) {
    throw TalkEnded(fmt::format(
        "the modem has restarted (it sent {}); check its power supply, which must give 2 A for a "
        "moment, and try again",
        Printable(restart_)));
  }
}

void ModemTalk::OnForeignLine(std::string_view line, LineKind kind) {
  if (kind == LineKind::kRestart) restart_ = line;
  if (kind == LineKind::kUnknown && foreign_.size() < kMostForeign) foreign_.emplace_back(line);
}

}  // namespace corvane::modem_check
