// SPDX-License-Identifier: MIT
// Carries one request to a modem and its answer back, over a line that may fail, be late or be cut
// at any time, and knows the state that this leaves the modem in. Threads: the port's own.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "runtime/modem_driver/at_line.h"
#include "runtime/modem_driver/modem_advice.h"
#include "runtime/modem_driver/modem_news.h"
#include "runtime/modem_driver/modem_request.h"
#include "runtime/modem_driver/modem_status.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

/// How an exchange ended.
struct ExchangeResult {
  bool answered = false;  ///< false: no valid answer came, or nothing was sent
  std::string text;       ///< see AtAnswer::text()
  LineKind final_kind = LineKind::kUnknown;
  bool written = true;  ///< false: not an octet of the request has reached the modem
};

/// The result of a request that was not sent.
[[nodiscard]] inline ExchangeResult NothingWritten() {
  ExchangeResult result;
  result.written = false;
  return result;
}

/// A request that was sent, and the part of its answer that has come.
struct PendingAnswer {
  PendingAnswer(ModemRequest sent, AtAnswer::ForeignLine foreign_line)
      : request(std::move(sent)), answer(request, std::move(foreign_line)) {}
  PendingAnswer(const PendingAnswer&) = delete;  // the answer borrows the request
  PendingAnswer& operator=(const PendingAnswer&) = delete;
  ~PendingAnswer() = default;

  const ModemRequest request;
  AtAnswer answer;
  const SteadyTime since = std::chrono::steady_clock::now();
};

class ModemExchange {
 public:
  enum class State : std::uint8_t {
    kNoLine,   ///< there is no open line
    kUnknown,  ///< what the modem is doing is unknown: the line is new, or an answer is missing
    kReady,    ///< the modem waits for a command
    kPrompt,   ///< the modem waits for the text of a message
    kLate,     ///< an answer did not come in time, and may still come
  };

  /// @param status is set to each exchange, as far as the log may show it
  ModemExchange(const ModemTarget& target, WaitLoop& loop, ModemStatus& status);

  /// Takes a newly opened line to a modem that has not been set up.
  void Open(std::unique_ptr<SerialLine> line);
  void Close();

  /// Sends a request and waits for its answer. If none comes, the state is then kLate.
  /// @param timeout counted from the last octet received; more than 0
  ExchangeResult Transact(ModemRequest request, std::chrono::milliseconds timeout);
  /// The final result of one of the driver's own commands, which is not reported; the state stays.
  [[nodiscard]] LineKind ResultOf(const ModemRequest& command, std::chrono::milliseconds timeout);
  /// Leaves the prompt, if there is one. The modem answers OK, or nothing. False: the line is lost.
  bool Escape();
  /// The modem has answered the command that brings it into a known state: drops anything else.
  void BecomeReady();
  /// Drops what comes until this time, and notices when the line is lost.
  /// @param for_news returns as soon as there is news
  void Idle(SteadyTime until, bool for_news = false);
  void DropUntilQuiet() { line_.DropUntilQuiet(kQuiet); }

  /// The request whose answer is late; valid after the state was kLate, until the next request.
  [[nodiscard]] PendingAnswer& late() { return *late_; }
  [[nodiscard]] const PendingAnswer& late() const { return *late_; }
  /// Waits for octets; empty: none came in time. Valid until the next call.
  [[nodiscard]] std::string_view Receive(SteadyTime until) { return line_.Receive(until); }
  void Drop(std::string_view octets) { line_.Drop(octets); }
  void Write(const ModemRequest& request);
  /// @param next kUnknown if answers to other commands may still come
  /// @param how how it ended, for the log
  void EndLate(State next, std::string_view how);
  /// Stops waiting for the late answer.
  void GiveUpLate();

  [[nodiscard]] State state() const { return state_; }
  /// Why the line was lost; empty while it is open.
  [[nodiscard]] std::string loss() const { return line_.loss(); }
  /// The modem has the settings of its start, because the line was opened or the modem restarted.
  [[nodiscard]] bool needs_init() const { return needs_init_; }
  void InitBegins() { needs_init_ = false; }
  /// How often the modem was found to have the settings of its start.
  [[nodiscard]] unsigned starts() const { return starts_; }

  /// Writes to the log and to the status.
  void Report(std::string what);
  [[nodiscard]] ModemAdvice& advice() { return advice_; }
  /// What the modem has said on its own.
  [[nodiscard]] ModemNews& news() { return news_; }
  [[nodiscard]] bool has_news() const { return news_.any(std::chrono::steady_clock::now()); }
  [[nodiscard]] const ModemTarget& target() const { return target_; }
  [[nodiscard]] bool stopped() const { return loop_.stopped(); }

 private:
  /// After this time without an octet, nothing more will come.
  static constexpr std::chrono::milliseconds kQuiet{100};

  void SetState(State state);
  [[nodiscard]] ExchangeResult Finished(PendingAnswer& pending);
  [[nodiscard]] ExchangeResult Unfinished(PendingAnswer& pending);
  [[nodiscard]] ExchangeResult BecomeLate(std::unique_ptr<PendingAnswer> pending);
  void NoteStart();
  void OnForeignLine(std::string_view line, LineKind kind);
  /// Checks whether the echo shows that the modem has restarted without a message.
  void CompareEcho(bool echoed);

  const ModemTarget& target_;
  WaitLoop& loop_;
  ModemStatus& status_;
  ModemAdvice advice_;
  ModemNews news_;
  AtLine line_;
  State state_ = State::kNoLine;
  std::string command_name_;   // of the last command
  bool prompt_ended_ = false;  // a final result has come since the last request
  std::unique_ptr<PendingAnswer> late_;
  bool answers_owed_ = false;  // the modem may answer commands that were given up
  bool needs_init_ = true;
  unsigned starts_ = 0;
  bool silent_echo_ = false;  // the last exchange came back without an echo
};

}  // namespace corvane
