// SPDX-License-Identifier: MIT
#include "runtime/modem_driver/modem_exchange.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

#include <utility>

#include "runtime/corvane/duration.h"
#include "runtime/modem_driver/ascii.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

const char* Name(ModemExchange::State state) {
  switch (state) {
    case ModemExchange::State::kNoLine: return "no line";
    case ModemExchange::State::kUnknown: return "unknown";
    case ModemExchange::State::kReady: return "ready";
    case ModemExchange::State::kPrompt: return "prompt";
  }
  return "?";
}

}  // namespace

ModemExchange::ModemExchange(const ModemTarget& target, WaitLoop& loop, ModemStatus& status)
    : target_(target),
      loop_(loop),
      status_(status),
      advice_(target),
      line_(target, [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); }) {}

void ModemExchange::Open(std::unique_ptr<SerialLine> line) {
  line_.Open(std::move(line));
  needs_init_ = true;
  silent_echo_ = false;
  SetState(State::kUnknown);
}

void ModemExchange::Close() {
  line_.Close();
  SetState(State::kNoLine);
}

ExchangeResult ModemExchange::Transact(ModemRequest request, milliseconds timeout) {
  const auto start = steady_clock::now();
  if (request.kind == RequestKind::kText) {
    request.name = command_name_;
  } else {
    command_name_ = request.name;
  }
  prompt_ended_ = false;
  AtAnswer answer(request,
                  [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); });
  // Whatever follows, the modem is out of step until its answer is there.
  SetState(State::kUnknown);
  status_.Set(request.shown + " -> ...");
  if (line_.Write(request.octets, timeout)) line_.Collect(answer, request.octets.size(), timeout);
  const auto time = FormatDuration(steady_clock::now() - start);
  switch (answer.state()) {
    case AtAnswer::State::kPrompt:
      Report(fmt::format("{} -> prompt in {}", request.shown, time));
      SetState(prompt_ended_ ? State::kUnknown : State::kPrompt);
      return Finished(answer, request);
    case AtAnswer::State::kFinal:
      Report(fmt::format("{} -> {} {}in {}", request.shown, request.WithoutPin(answer.final_line()),
                         answer.lines() == 0 ? "" : fmt::format("and {} lines ", answer.lines()),
                         time));
      SetState(needs_init_ ? State::kUnknown : State::kReady);
      return Finished(answer, request);
    case AtAnswer::State::kTooLong:
      advice_.NoteEndlessAnswer(request);
      return Unfinished(answer, request, start);
    case AtAnswer::State::kOpen:
      Report(fmt::format("{} -> no end of the answer within {}", request.shown, time));
      if (answer.text().empty() && loss().empty() && !stopped()) {
        advice_.NoteSilence(request, timeout);
      }
      return Unfinished(answer, request, start);
    case AtAnswer::State::kRestarted:
      Report(fmt::format("{} -> the modem has restarted after {}", request.shown, time));
      return Unfinished(answer, request, start);
  }
  return {};
}

LineKind ModemExchange::ResultOf(const ModemRequest& command, milliseconds timeout) {
  if (!line_.Write(command.octets, timeout)) return LineKind::kUnknown;
  AtAnswer answer(command,
                  [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); });
  line_.Collect(answer, command.octets.size(), timeout);
  return answer.state() == AtAnswer::State::kFinal ? answer.final_kind() : LineKind::kUnknown;
}

ExchangeResult ModemExchange::Finished(AtAnswer& answer, const ModemRequest& request) {
  advice_.NoteAnswer();
  CompareEcho(answer.echoed());
  const bool is_text = request.kind == RequestKind::kText;
  if (is_text && answer.final_kind() == LineKind::kOk && answer.lines() == 0) {
    advice_.NoteOkWithoutNumber(request);
  }
  return {true, std::move(answer.text()), answer.final_kind()};
}

ExchangeResult ModemExchange::Unfinished(AtAnswer& answer, const ModemRequest& request,
                                         SteadyTime sent) {
  if (stopped()) return {};
  std::string text = std::move(answer.text());
  const bool is_text = request.kind == RequestKind::kText;
  // The number tells that the network has the message; without the OK it would be sent again.
  if (is_text && answer.lines() > 0) return {true, text + "OK\r\n", LineKind::kOk};
  if ((is_text || request.kind == RequestKind::kList) && text.empty()) {
    advice_.NoteOverdue(request, sent);
  }
  const bool of_use = loss().empty() ? !text.empty() : answer.lines() > 0;
  return of_use ? ExchangeResult{true, std::move(text), LineKind::kUnknown} : ExchangeResult{};
}

bool ModemExchange::Escape(milliseconds timeout) {
  SetState(State::kUnknown);
  return line_.Write(kLeavePrompt, timeout);
}

void ModemExchange::Report(std::string what) {
  spdlog::debug("modem port {}: {}", target_.port, what);
  status_.Set(std::move(what));
}

void ModemExchange::SetState(State state) {
  if (state == state_) return;
  spdlog::trace("modem port {}: state {} -> {}", target_.port, Name(state_), Name(state));
  state_ = state;
}

void ModemExchange::OnForeignLine(std::string_view line, LineKind kind) {
  // "> " and then OK, before the text: a modem does that whose other functions are busy.
  prompt_ended_ = prompt_ended_ || IsFinal(kind);
  if (prompt_ended_ && state_ == State::kPrompt) SetState(State::kUnknown);
  if (kind == LineKind::kRestart) {
    advice_.NoteRestart(line);
    needs_init_ = true;
    SetState(State::kUnknown);
  }
  advice_.NoteForeignLine(line);
}

void ModemExchange::CompareEcho(bool echoed) {
  if (silent_echo_ && echoed && state_ == State::kReady) {  // it was off and is on again
    needs_init_ = true;
    SetState(State::kUnknown);
  }
  silent_echo_ = !echoed;
}

}  // namespace corvane
