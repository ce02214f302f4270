// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/at_interpreter.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "runtime/modem_simulator/commands.h"

namespace modem_simulator {
namespace {

constexpr char kEscape = '\x1B';
constexpr char kCtrlZ = '\x1A';

/// What follows the first "AT" or "at"; nullopt when the line has none (clause 5.2.1).
std::optional<std::string_view> AfterAttention(std::string_view line) {
  const std::size_t at = std::min(line.find("AT"), line.find("at"));
  if (at == std::string_view::npos) return std::nullopt;
  return line.substr(at + 2);
}

/// How long the slowest command in a line takes before its answer begins.
Delays::Duration DelayOf(const std::vector<AtCommand>& commands, const Delays& delays) {
  Delays::Duration longest{0};
  for (const AtCommand& command : commands) {
    if (command.form == CommandForm::kTest) continue;
    if (command.name == "+CMGS" || command.name == "+CMGW") {
      longest = std::max(longest, delays.prompt);
    }
    if (command.name == "+CMGD") longest = std::max(longest, delays.deletion);
    if (command.name == "+CMGL" || command.name == "+CMGR")
      longest = std::max(longest, delays.list);
  }
  return longest;
}

/// A command's name as Faults expects it, without its plus sign: "CMGS".
std::string_view FaultName(std::string_view name) {
  if (name.starts_with('+')) name.remove_prefix(1);
  return name;
}

}  // namespace

void AtInterpreter::SetState(State state) {
  constexpr std::array<std::string_view, 4> kNames{"command", "message", "working", "network"};
  spdlog::trace("state      {}", kNames[static_cast<std::size_t>(state)]);
  state_ = state;
}

void AtInterpreter::Feed(std::string_view bytes) {
  for (const char byte : bytes) {
    if (!Busy()) {
      Take(byte);
    } else if (waiting_.size() < kLongestInput &&
               !modem_.options.quirks.Has(Quirk::kDeafWhileBusy)) {
      waiting_ += byte;
    }
  }
}

void AtInterpreter::Take(char byte) {
  if (Echoes()) modem_.host.Transmit({&byte, 1});
  switch (state_) {
    case State::kCommand: TakeInCommand(byte); break;
    case State::kMessage: TakeInMessage(byte); break;
    case State::kWorking:
    case State::kNetwork: break;  // Feed keeps it for later
  }
}

void AtInterpreter::TakeInCommand(char byte) {
  switch (byte) {
    case '\r': EndLine(); break;
    case '\n':
    case kEscape: break;  // clients send CR LF, or ESC to leave a prompt that may be open
    case '/':
      if (line_ == "A" || line_ == "a") return RepeatLine();
      [[fallthrough]];
    default: IsBackspace(byte) ? TakeBack() : Collect(byte);
  }
}

void AtInterpreter::TakeInMessage(char byte) {
  switch (byte) {
    case kCtrlZ: EndMessage(); break;
    case kEscape:
      line_.clear();
      too_long_ = false;
      SetState(State::kCommand);
      Finish(kOk, {});
      break;
    case '\n':  // of the CR LF after AT+CMGS, or of a text with several lines
      if (modem_.settings.text_mode && !line_.empty()) Collect(byte);
      break;
    case '\r':
      Collect(byte);
      Prompt();
      break;
    default:
      // Only a text has a backspace (3GPP TS 27.005 clause 3.5.1), a PDU does not.
      (modem_.settings.text_mode && IsBackspace(byte)) ? TakeBack() : Collect(byte);
  }
}

bool AtInterpreter::IsBackspace(char byte) const {
  return static_cast<unsigned char>(byte) == modem_.settings.registers.backspace;
}

void AtInterpreter::TakeBack() {
  if (!line_.empty()) line_.pop_back();
}

void AtInterpreter::Collect(char byte) {
  if (line_.size() < kLongestLine) {
    line_ += byte;
  } else {
    too_long_ = true;
  }
}

void AtInterpreter::EndLine() {
  const std::string line = std::exchange(line_, {});
  const bool too_long = std::exchange(too_long_, false);
  if (Echoes() && modem_.options.quirks.Has(Quirk::kDoubleEcho)) {
    modem_.host.Transmit(line + '\r');
  }
  const auto commands = AfterAttention(line);
  if (!commands) return SendIndications();  // not a command line: it needs no answer
  if (too_long) return Finish(kError, {});
  last_line_ = *commands;
  StartLine(last_line_);
}

/// A/ repeats the last command line at once, without a carriage return (clause 5.2.4).
void AtInterpreter::RepeatLine() {
  line_.clear();
  StartLine(last_line_);
}

void AtInterpreter::StartLine(std::string_view line) {
  auto commands = ParseCommands(line);
  if (AnswerAsOrdered(commands && !commands->empty() ? FaultName(commands->back().name) : "AT")) {
    return;
  }
  if (!commands) return Finish(kError, {});
  const auto delay = DelayOf(*commands, modem_.options.delays);
  if (delay == Delays::Duration(0)) return Execute(*commands);
  work_ = std::move(*commands);
  SetState(State::kWorking);
  modem_.host.WakeAfter(delay);
}

void AtInterpreter::Execute(const std::vector<AtCommand>& commands) {
  Answer answer;
  Result result = kOk;
  for (const AtCommand& command : commands) {
    result = modem_simulator::Execute(modem_, command, answer);
    if (result != kOk) break;
  }
  Finish(result, answer);
}

void AtInterpreter::EndMessage() {
  const std::string body = std::exchange(line_, {});
  const bool too_long = std::exchange(too_long_, false);
  SetState(State::kCommand);
  if (AnswerAsOrdered(kMessageBody)) return;
  if (too_long) return Finish(Cms(kInvalidPduParameter), {});
  Answer answer;
  const Result result = TakeMessage(modem_, body, answer);
  Finish(result, answer);
}

void AtInterpreter::Wake() {
  if (!Busy()) return;
  const State was = state_;
  SetState(State::kCommand);
  if (was == State::kWorking) {
    Execute(std::exchange(work_, {}));
  } else {
    Answer answer;
    const Result result = ConfirmMessage(modem_, answer);
    Finish(result, answer);
  }
  Feed(std::exchange(waiting_, {}));
}

bool AtInterpreter::AnswerAsOrdered(std::string_view command) {
  const auto bytes = modem_.faults.TakeAnswer(command);
  if (!bytes) return false;
  modem_.host.Transmit(*bytes);
  SendIndications();
  return true;
}

void AtInterpreter::Finish(Result result, const Answer& answer) {
  const Settings& settings = modem_.settings;
  for (const std::string& block : answer) {
    modem_.host.Transmit(FormatInformation(block, settings.format));
  }
  if (result.kind == ResultKind::kPrompt) {
    SetState(State::kMessage);
    return Prompt();
  }
  if (result.kind == ResultKind::kAwaitNetwork) {
    SetState(State::kNetwork);
    modem_.host.WakeAfter(modem_.options.delays.network);
    return;
  }
  if (!settings.quiet) modem_.host.Transmit(FinalResult(result));
  SendIndications();
}

std::string AtInterpreter::FinalResult(Result result) const {
  std::string bytes = FormatResult(result, modem_.settings.format);
  const std::size_t blank = bytes.find(": ");  // only in "+CMS ERROR: 321" and "+CME ERROR: 14"
  if (blank != std::string::npos && modem_.options.quirks.Has(Quirk::kNoBlank)) {
    bytes.erase(blank + 1, 1);
  }
  return bytes;
}

void AtInterpreter::Prompt() {
  const Quirks& quirks = modem_.options.quirks;
  if (quirks.Has(Quirk::kNoPrompt)) return;
  if (quirks.Has(Quirk::kPromptBare)) return modem_.host.Transmit(">");
  modem_.host.Transmit(quirks.Has(Quirk::kPromptCrLf) ? "\r\n>\r\n" : "\r\n> ");
}

bool AtInterpreter::Echoes() const {
  const Quirks& quirks = modem_.options.quirks;
  if (quirks.Has(Quirk::kNoEcho)) return false;
  return modem_.settings.echo || quirks.Has(Quirk::kEchoAlways);
}

void AtInterpreter::Indicate(std::string line) {
  if (indications_.size() < kMostIndications) indications_.push_back(std::move(line));
  if (Idle()) SendIndications();
}

void AtInterpreter::SendIndications() {
  while (!indications_.empty()) {
    modem_.host.Transmit(fmt::format("\r\n{}\r\n", indications_.front()));
    indications_.pop_front();
  }
}

void AtInterpreter::Reset() {
  SetState(State::kCommand);
  line_.clear();
  too_long_ = false;
  work_.clear();
  waiting_.clear();
  indications_.clear();
}

}  // namespace modem_simulator
