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

constexpr milliseconds kEscapeTimeout(1000);

const char* Name(ModemExchange::State state) {
  switch (state) {
    case ModemExchange::State::kNoLine: return "no line";
    case ModemExchange::State::kUnknown: return "unknown";
    case ModemExchange::State::kReady: return "ready";
    case ModemExchange::State::kPrompt: return "prompt";
    case ModemExchange::State::kLate: return "late";
  }
  return "?";
}

}  // namespace

ModemExchange::ModemExchange(const ModemTarget& target, WaitLoop& loop, ModemStatus& status)
    : target_(target),
      loop_(loop),
      status_(status),
      advice_(target),
      news_(target.times.straggler),
      line_(target, [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); }) {}

void ModemExchange::Open(std::unique_ptr<SerialLine> line) {
  line_.Open(std::move(line));
  NoteStart();
  answers_owed_ = false;
  silent_echo_ = false;
  SetState(State::kUnknown);
}

void ModemExchange::Close() {
  line_.Close();
  SetState(State::kNoLine);
}

ExchangeResult ModemExchange::Transact(ModemRequest request, milliseconds timeout) {
  if (request.kind == RequestKind::kText) {
    request.name = command_name_;
  } else {
    command_name_ = request.name;
  }
  prompt_ended_ = false;
  auto pending = std::make_unique<PendingAnswer>(
      std::move(request),
      [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); });
  const ModemRequest& sent = pending->request;
  AtAnswer& answer = pending->answer;
  // Whatever follows, the modem is out of step until its answer has come.
  SetState(State::kUnknown);
  status_.Set(sent.shown + " -> ...");
  status_.NoteLine(true, sent.shown);
  const bool written = line_.Write(sent.octets, timeout);
  if (written) line_.Collect(answer, sent.octets.size(), timeout);
  if (answer.state() == AtAnswer::State::kOpen) {
    const std::string beginning = answer.line();
    AtAnswer ended = answer;
    ended.End();
    const bool silent = ended.state() == AtAnswer::State::kOpen && ended.text().empty();
    if (silent && written && loss().empty() && !stopped()) {
      return BecomeLate(std::move(pending));
    }
    answer = std::move(ended);
    line_.KeepBeginning(beginning);
  }
  const auto time = FormatDuration(steady_clock::now() - pending->since);
  switch (answer.state()) {
    case AtAnswer::State::kPrompt:
      Report(fmt::format("{} -> prompt in {}", sent.shown, time));
      SetState(prompt_ended_ || needs_init_ ? State::kUnknown : State::kPrompt);
      return Finished(*pending);
    case AtAnswer::State::kFinal:
      Report(fmt::format("{} -> {} {}in {}", sent.shown, sent.WithoutPin(answer.final_line()),
                         answer.lines() == 0 ? "" : fmt::format("and {} lines ", answer.lines()),
                         time));
      SetState(needs_init_ ? State::kUnknown : State::kReady);
      return Finished(*pending);
    case AtAnswer::State::kTooLong: advice_.NoteEndlessAnswer(sent); break;
    case AtAnswer::State::kOpen:
      Report(fmt::format("{} -> no end of the answer within {}", sent.shown, time));
      break;
    case AtAnswer::State::kRestarted:
      Report(fmt::format("{} -> the modem has restarted after {}", sent.shown, time));
      break;
  }
  ExchangeResult result = Unfinished(*pending);
  result.written = written || line_.written() > 0;
  return result;
}

LineKind ModemExchange::ResultOf(const ModemRequest& command, milliseconds timeout) {
  status_.NoteLine(true, command.shown);
  if (!line_.Write(command.octets, timeout)) return LineKind::kUnknown;
  AtAnswer answer(command,
                  [this](std::string_view line, LineKind kind) { OnForeignLine(line, kind); });
  line_.Collect(answer, command.octets.size(), timeout);
  const std::string beginning = answer.line();
  const bool is_final = answer.End() == AtAnswer::State::kFinal;
  status_.NoteAnswer(command.WithoutPin(answer.text()));
  if (is_final) return answer.final_kind();
  answers_owed_ = true;
  line_.KeepBeginning(beginning);
  return LineKind::kUnknown;
}

ExchangeResult ModemExchange::Finished(PendingAnswer& pending) {
  AtAnswer& answer = pending.answer;
  advice_.NoteAnswer();
  status_.NoteAnswer(pending.request.WithoutPin(answer.text()));
  CompareEcho(answer.echoed());
  const bool is_text = pending.request.kind == RequestKind::kText;
  if (is_text && answer.final_kind() == LineKind::kOk && answer.lines() == 0) {
    advice_.NoteOkWithoutNumber(pending.request);
  }
  return {true, std::move(answer.text()), answer.final_kind()};
}

ExchangeResult ModemExchange::Unfinished(PendingAnswer& pending) {
  if (stopped()) return {};
  AtAnswer& answer = pending.answer;
  status_.NoteAnswer(pending.request.WithoutPin(answer.text()));
  const bool has_lines = answer.lines() > 0;
  // The number shows that the network has the message; without the OK it would be sent again.
  if (pending.request.kind == RequestKind::kText && has_lines) {
    return {true, answer.text() + "OK\r\n", LineKind::kOk};
  }
  const bool of_use = loss().empty() ? !answer.text().empty() : has_lines;
  if (!of_use) return {};
  return {true, std::move(answer.text()), LineKind::kUnknown};
}

ExchangeResult ModemExchange::BecomeLate(std::unique_ptr<PendingAnswer> pending) {
  late_ = std::move(pending);
  SetState(State::kLate);
  Report(fmt::format("{} -> no answer within {}", late_->request.shown,
                     FormatDuration(steady_clock::now() - late_->since)));
  return {};
}

void ModemExchange::Idle(SteadyTime until, bool for_news) {
  while (!(for_news && has_news()) && line_.DropNext(until)) {
  }
}

bool ModemExchange::Escape() {
  SetState(State::kUnknown);
  return line_.Write(kLeavePrompt, kEscapeTimeout);
}

void ModemExchange::BecomeReady() {
  line_.DropUntilQuiet(answers_owed_ ? target_.times.straggler : kQuiet);
  answers_owed_ = false;
  SetState(State::kReady);
}

void ModemExchange::Write(const ModemRequest& request) {
  spdlog::debug("modem port {}: {} while an answer is late", target_.port, request.shown);
  status_.NoteLine(true, request.shown);
  (void)line_.Write(request.octets, kEscapeTimeout);
}

void ModemExchange::EndLate(State next, std::string_view how) {
  const auto time = FormatDuration(steady_clock::now() - late_->since);
  status_.NoteAnswer(late_->request.WithoutPin(late_->answer.text()));
  Report(fmt::format("{} -> {} after {}", late_->request.shown, how, time));
  if (late_->answer.state() == AtAnswer::State::kOpen) line_.KeepBeginning(late_->answer.line());
  if (next == State::kPrompt && (prompt_ended_ || needs_init_)) next = State::kUnknown;
  answers_owed_ = answers_owed_ || next == State::kUnknown;
  SetState(next);
}

void ModemExchange::GiveUpLate() {
  advice_.NoteSilence(late_->request, steady_clock::now() - late_->since);
  EndLate(State::kUnknown, "given up");
}

void ModemExchange::Report(std::string what) {
  spdlog::debug("modem port {}: {}", target_.port, what);
  status_.Set(std::move(what));
}

void ModemExchange::SetState(State state) {
  if (state == state_) return;
  spdlog::trace("modem port {}: state {} -> {}", target_.port, Name(state_), Name(state));
  state_ = state;
  status_.SetState(Name(state));
}

void ModemExchange::OnForeignLine(std::string_view line, LineKind kind) {
  // "> " and then OK, before the text: a modem does this when its other functions are busy.
  prompt_ended_ = prompt_ended_ || IsFinal(kind);
  if (prompt_ended_ && state_ == State::kPrompt) SetState(State::kUnknown);
  if (kind == LineKind::kRestart) {
    advice_.NoteRestart(line);
    NoteStart();
    SetState(State::kUnknown);
  }
  status_.NoteLine(false, line);
  news_.Take(line, kind, steady_clock::now());
  advice_.NoteForeignLine(line);
}

void ModemExchange::CompareEcho(bool echoed) {
  if (silent_echo_ && echoed && state_ == State::kReady) {  // it was off and is on again
    NoteStart();
    SetState(State::kUnknown);
  }
  silent_echo_ = !echoed;
}

void ModemExchange::NoteStart() {
  needs_init_ = true;
  ++starts_;
  news_.NoteStart();
}

}  // namespace corvane
