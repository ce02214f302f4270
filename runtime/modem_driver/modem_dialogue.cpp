// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_dialogue.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <utility>

#include "libs/base/printable.h"
#include "runtime/corvane/duration.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr std::string_view kEscape = "\x1B";
constexpr std::string_view kEchoOff = "ATE0V1\r";  // and result codes as words
constexpr milliseconds kSetupTimeout(1000);
constexpr milliseconds kInitTimeout(10'000);
constexpr milliseconds kQuiet(100);      // so long without an octet: the modem has said all
constexpr milliseconds kMaxNoise(1000);  // a modem that is never quiet is not waited for
constexpr int kSimBusyTries = 30;        // a SIM takes so many seconds after power-up
/// Octets that belong to no answer lengthen an exchange to so many time-outs at most.
constexpr int kMaxTimeouts = 5;
constexpr std::size_t kMaxStray = 256;

/// Network and modem take their time for these: `patience` is for them.
bool IsSlow(RequestKind kind) {
  return kind == RequestKind::kText || kind == RequestKind::kList;
}

/// Octets take ten bits each, with start and stop.
milliseconds TimeOnLine(std::size_t octets, unsigned baud) {
  return milliseconds(octets * 10 * 1000 / baud);
}

/// What the log may show of a request at debug level: no text of a message, no PIN.
std::string Shown(std::string_view request) {
  if (KindOfRequest(request) == RequestKind::kText) {
    return fmt::format("text of {} characters", request.size() - 1);
  }
  const std::string_view command = request.substr(0, request.find_last_not_of("\r\n") + 1);
  if (!IsSecretCommand(command)) return std::string(command);
  return std::string(command.substr(0, command.find('=') + 1)) + "(secret)";
}

const char* Name(ModemDialogue::State state) {
  switch (state) {
    case ModemDialogue::State::kNoLine: return "no line";
    case ModemDialogue::State::kUnknown: return "unknown";
    case ModemDialogue::State::kReady: return "ready";
    case ModemDialogue::State::kPrompt: return "prompt";
  }
  return "?";
}

}  // namespace

ModemDialogue::ModemDialogue(const ModemTarget& target, WaitLoop& loop, ModemStatus& status)
    : target_(target), loop_(loop), status_(status) {}

void ModemDialogue::Report(std::string what) {
  spdlog::debug("modem port {}: {}", target_.port, what);
  status_.Set(std::move(what));
}

void ModemDialogue::SetState(State state) {
  if (state == state_) return;
  spdlog::trace("modem port {}: state {} -> {}", target_.port, Name(state_), Name(state));
  state_ = state;
}

void ModemDialogue::Trace(char direction, std::string_view octets) const {
  if (!spdlog::should_log(spdlog::level::trace)) return;
  spdlog::trace("modem port {}: {} {}", target_.port, direction, Printable(octets));
}

void ModemDialogue::Attach(std::unique_ptr<SerialLine> line) {
  line_ = std::move(line);
  stray_.clear();
  init_done_ = false;
  silent_echo_ = false;
  SetState(State::kUnknown);
  const auto timeout = 2 * kSetupTimeout;
  if (!BecomeReady(steady_clock::now() + timeout)) NoteSilence(kEchoOff, timeout);
}

void ModemDialogue::Detach() {
  line_.reset();
  SetState(State::kNoLine);
}

ExchangeResult ModemDialogue::Exchange(std::string_view request, milliseconds timeout) {
  const RequestKind kind = KindOfRequest(request);
  const bool is_text = kind == RequestKind::kText;
  if (!is_text && state_ == State::kPrompt) LeavePrompt();
  // A late answer is not this one's; or the modem starts anew.
  Idle(steady_clock::now() + (is_text ? target_.prompt_pause : milliseconds(0)));
  if (is_text && state_ != State::kPrompt) {
    Report(Shown(request) + " not sent, its prompt is gone");
    return {};
  }
  if (state_ == State::kUnknown && !BecomeReady(steady_clock::now() + timeout)) {
    Report(Shown(request) + " not sent, the modem does not answer");
    return {};
  }
  if (state_ == State::kNoLine) return {};
  return Transact(request, IsSlow(kind) ? std::max(timeout, target_.patience) : timeout);
}

void ModemDialogue::LeavePrompt() {
  Send(kEscape, kQuiet);
  SetState(State::kUnknown);
}

void ModemDialogue::Idle(SteadyTime until) {
  if (line_ == nullptr) return;
  for (;;) {
    const std::string_view octets = line_->Read(until);
    if (octets.empty()) return;
    Drop(octets);
  }
}

bool ModemDialogue::BecomeReady(SteadyTime deadline) {
  do {
    // A prompt that an earlier run left open would take the command for a text.
    if (!Send(kEscape, kSetupTimeout)) return false;
    DropUntilQuiet();
    if (SwitchEchoOff(deadline)) {
      DropUntilQuiet();  // what came late belongs to nobody any more
      SetState(State::kReady);
      if (!init_done_) RunInit();
      return state_ == State::kReady;
    }
  } while (steady_clock::now() < deadline && loss().empty() && !loop_.stopped());
  return false;
}

bool ModemDialogue::SwitchEchoOff(SteadyTime deadline) {
  const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
  const auto timeout = std::clamp(left, milliseconds(1), kSetupTimeout);
  const auto answered = [&](std::string_view command) {
    if (!Send(command, timeout)) return LineKind::kUnknown;
    AtAnswer answer(command, {},
                    [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); });
    Collect(answer, command, timeout);
    return answer.state() == AtAnswer::State::kFinal ? answer.final_kind() : LineKind::kUnknown;
  };
  const LineKind result = answered(kEchoOff);
  // Some take the two only one by one.
  return result == LineKind::kOk || (result == LineKind::kError && IsFinal(answered("ATE0\r")));
}

void ModemDialogue::DropUntilQuiet() {
  const SteadyTime end = steady_clock::now() + kMaxNoise;
  while (steady_clock::now() < end) {
    const std::string_view octets = line_->Read(steady_clock::now() + kQuiet);
    if (octets.empty()) return;
    Drop(octets);
  }
}

void ModemDialogue::RunInit() {
  init_done_ = true;
  for (const std::string& command : target_.init) {
    if (loop_.stopped() || state_ != State::kReady) return;
    RunInitCommand(command + "\r");
  }
}

void ModemDialogue::RunInitCommand(const std::string& command) {
  const bool is_pin = IsSecretCommand(command) && CommandName(command) == "+CPIN";
  if (is_pin && !MaySendPin(command)) return;
  const ExchangeResult result = TransactOnceSimIsReady(command);
  if (result.final_kind == LineKind::kOk || loop_.stopped()) return;
  pin_refused_ = pin_refused_ || is_pin;
  spdlog::warn(
      "modem port {}: init: {} was answered by {}{}", target_.port, Shown(command),
      result.answered ? "'" + Printable(result.text) + "'" : "nothing",
      pin_refused_ ? "; the PIN is not sent again, since the third wrong one locks the SIM" : "");
}

ExchangeResult ModemDialogue::TransactOnceSimIsReady(std::string_view command) {
  ExchangeResult result = Transact(command, kInitTimeout);
  for (int i = 0; result.final_kind == LineKind::kSimBusy && i < kSimBusyTries; ++i) {
    Idle(steady_clock::now() + seconds(1));
    if (loop_.stopped() || !loss().empty()) break;
    result = Transact(command, kInitTimeout);
  }
  return result;
}

bool ModemDialogue::MaySendPin(const std::string& command) {
  if (pin_refused_) return false;
  const ExchangeResult asked = TransactOnceSimIsReady("AT+CPIN?\r");
  if (asked.text.find("SIM PIN\r") != std::string::npos) return true;
  if (asked.text.find("READY") == std::string::npos && !loop_.stopped()) {
    spdlog::warn("modem port {}: {} is not sent: the SIM asks for no PIN, AT+CPIN? gives '{}'",
                 target_.port, Shown(command), Printable(asked.text));
  }
  return false;
}

ExchangeResult ModemDialogue::Transact(std::string_view request, milliseconds timeout) {
  const auto start = steady_clock::now();
  const RequestKind kind = KindOfRequest(request);
  // A text is answered in the name of the command that announced it.
  if (kind != RequestKind::kText) request_name_ = CommandName(request);
  AtAnswer answer(request, request_name_, [this](std::string_view line, LineKind line_kind) {
    OnForeignLine(line, line_kind);
  });
  // Whatever follows, the modem is out of step until its answer is there.
  SetState(State::kUnknown);
  status_.Set(Shown(request) + " -> ...");
  if (Send(request, timeout)) Collect(answer, request, timeout);
  const auto time = FormatDuration(steady_clock::now() - start);
  switch (answer.state()) {
    case AtAnswer::State::kPrompt: SetState(State::kPrompt); break;
    case AtAnswer::State::kFinal: SetState(init_done_ ? State::kReady : State::kUnknown); break;
    case AtAnswer::State::kTooLong:
      spdlog::warn(
          "modem port {}: {} was answered by a line or a list without end; is the baud "
          "rate right (baud={})?",
          target_.port, Shown(request), target_.baud);
      return Unfinished(answer, kind, start);
    case AtAnswer::State::kOpen:
      Report(fmt::format("{} -> no end of the answer within {}", Shown(request), time));
      if (answer.text().empty()) NoteSilence(request, timeout);
      return Unfinished(answer, kind, start);
  }
  Report(fmt::format("{} -> {} {}in {}", Shown(request),
                     answer.state() == AtAnswer::State::kPrompt ? "prompt" : answer.final_line(),
                     answer.lines() == 0 ? "" : fmt::format("and {} lines ", answer.lines()),
                     time));
  if (kind == RequestKind::kText && answer.final_kind() == LineKind::kOk && answer.lines() == 0) {
    spdlog::warn(
        "modem port {}: the modem said OK to a message without {}: and its number; some "
        "makers' modems do that when sending failed (init=\"AT^SM20=0,0\" helps there)",
        target_.port, request_name_);
  }
  NoteAnswer(answer);
  return {true, std::move(answer.text()), answer.final_kind()};
}

ExchangeResult ModemDialogue::Unfinished(AtAnswer& answer, RequestKind kind, SteadyTime sent) {
  if (loop_.stopped()) return {};
  std::string text = std::move(answer.text());
  // The number tells that the network has the message; without the OK it would be sent again.
  if (kind == RequestKind::kText && answer.lines() > 0) {
    return {true, text + "OK\r\n", LineKind::kOk};
  }
  if (IsSlow(kind) && text.empty()) overdue_ = {kind, request_name_, sent};
  const bool of_use = loss().empty() ? !text.empty() : answer.lines() > 0;
  return of_use ? ExchangeResult{true, std::move(text), LineKind::kUnknown} : ExchangeResult{};
}

bool ModemDialogue::Send(std::string_view request, milliseconds timeout) {
  Trace('>', request);
  return line_->Write(request, steady_clock::now() + timeout);
}

void ModemDialogue::Collect(AtAnswer& answer, std::string_view request, milliseconds timeout) {
  // The system has taken the request; a slow line needs its time for it still.
  SteadyTime last_octet = steady_clock::now() + TimeOnLine(request.size(), target_.baud);
  SteadyTime last_own = last_octet;
  std::size_t own = 0;
  while (answer.state() == AtAnswer::State::kOpen) {
    const auto deadline = std::min(last_octet + timeout, last_own + kMaxTimeouts * timeout);
    const std::string_view octets = line_->Read(deadline);
    if (octets.empty()) {
      answer.End();
      return;
    }
    Feed(answer, octets);
    last_octet = steady_clock::now();
    if (answer.octets() > own) {
      own = answer.octets();
      last_own = last_octet;
    }
  }
}

void ModemDialogue::Feed(AtAnswer& answer, std::string_view octets) {
  Trace('<', octets);
  std::size_t used = 0;
  while (used < octets.size() && answer.state() == AtAnswer::State::kOpen) {
    answer.Feed(octets[used++]);
  }
  stray_.clear();
  if (used < octets.size()) Drop(octets.substr(used));
}

void ModemDialogue::Drop(std::string_view octets) {
  Trace('x', octets);
  for (const char c : octets) {
    if (c == '\r' || c == '\n') {
      const std::string line = std::exchange(stray_, {});
      if (!line.empty()) OnForeignLine(line, KindOfLine(line));
    } else if (stray_.size() < kMaxStray) {
      stray_ += c;
    }
  }
}

void ModemDialogue::OnForeignLine(std::string_view line, LineKind kind) {
  if (kind == LineKind::kRestart) {
    spdlog::warn("modem port {}: the modem has started anew ({}); it is set up again", target_.port,
                 line);
    init_done_ = false;
    SetState(State::kUnknown);
  }
  NoteLateAnswer(line);
}

void ModemDialogue::NoteLateAnswer(std::string_view line) {
  const auto& [kind, name, since] = overdue_;
  if (name.empty() || line.substr(0, name.size() + 1) != name + ":") return;
  const char* const what =
      kind == RequestKind::kText
          ? "the network confirmed a message only after {}, later than it was waited for, so that "
            "the message may go out again"
          : "the modem began its list of messages only after {}, later than it was waited for, so "
            "that they stay in its store, as read";
  const auto took = FormatDuration(steady_clock::now() - since);
  overdue_ = {};
  if (std::exchange(patience_told_, true)) return;
  spdlog::warn("modem port {}: {}; set patience=60s for this port", target_.port,
               fmt::format(fmt::runtime(what), took));
}

void ModemDialogue::NoteAnswer(const AtAnswer& answer) {
  if (!std::exchange(answers_, true))
    spdlog::info("modem port {}: the modem answers", target_.port);
  // The echo was off and is on again: the modem has started anew without telling.
  if (silent_echo_ && answer.echoed() && state_ == State::kReady) {
    init_done_ = false;
    SetState(State::kUnknown);
  }
  silent_echo_ = !answer.echoed();
}

void ModemDialogue::NoteSilence(std::string_view request, milliseconds timeout) {
  if (!loss().empty() || loop_.stopped()) return;
  if (KindOfRequest(request) == RequestKind::kText) return;
  if (!std::exchange(answers_, false)) return;
  spdlog::warn(
      "modem port {}: no answer to {} within {} at {}; check the modem's power, the cable "
      "and baud={}, and that no other program uses the modem",
      target_.port, Shown(request), FormatDuration(timeout), target_.Name(), target_.baud);
}

}  // namespace corvane
