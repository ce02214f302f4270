// SPDX-License-Identifier: MIT
// One AT command after the other over a line that may fail, be late or be cut at any time: set-up
// of the modem, exchanges with their time-outs, and the way back to a known state.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/modem_driver/at_answer.h"
#include "runtime/modem_driver/modem_status.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/serial_line.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

/// How an exchange ended.
struct ExchangeResult {
  bool answered = false;  ///< false: no valid answer came, or nothing was sent
  std::string text;       ///< see AtAnswer::text()
  LineKind final_kind = LineKind::kUnknown;
};

class ModemDialogue {
 public:
  enum class State : std::uint8_t {
    kNoLine,   ///< there is no open line
    kUnknown,  ///< what the modem does is not known: new line, or an answer is missing
    kReady,    ///< the modem waits for a command
    kPrompt,   ///< the modem waits for the text of a message
  };

  /// @param status told each exchange, as far as the log may show it
  ModemDialogue(const ModemTarget& target, WaitLoop& loop, ModemStatus& status);

  /// Takes a newly opened line and sets the modem up, as far as it answers.
  void Attach(std::unique_ptr<SerialLine> line);
  /// Closes the line.
  void Detach();

  /// Sends a request and waits for its answer. A command that finds the modem in an unknown state
  /// sets it up first; a text is sent to an open prompt only, and only once.
  /// @param timeout from the last octet received, more than 0
  [[nodiscard]] ExchangeResult Exchange(std::string_view request,
                                        std::chrono::milliseconds timeout);
  /// Leaves the prompt; the text that was announced is not sent.
  void LeavePrompt();
  /// Drops what comes until then, and notices when the line is lost.
  void Idle(SteadyTime until);

  [[nodiscard]] State state() const { return state_; }
  /// Why the line was lost; empty while it is open.
  [[nodiscard]] std::string loss() const { return line_ == nullptr ? "" : line_->loss(); }

 private:
  /// A text or a list that had no answer in time; `name`, of its command, is empty when there is
  /// none.
  struct Overdue {
    RequestKind kind = RequestKind::kCommand;
    std::string name;
    SteadyTime since;  // when it was sent
  };

  void SetState(State state);
  /// To the log, and to whoever watches.
  void Report(std::string what);
  /// Logs octets at the most detailed level: '>' sent, '<' received, 'x' received and dropped.
  void Trace(char direction, std::string_view octets) const;
  [[nodiscard]] bool BecomeReady(SteadyTime deadline);
  [[nodiscard]] bool SwitchEchoOff(SteadyTime deadline);
  void DropUntilQuiet();
  void RunInit();
  void RunInitCommand(const std::string& command);
  [[nodiscard]] bool MaySendPin(const std::string& command);
  ExchangeResult TransactOnceSimIsReady(std::string_view command);
  ExchangeResult Transact(std::string_view request, std::chrono::milliseconds timeout);
  ExchangeResult Unfinished(AtAnswer& answer, RequestKind kind, SteadyTime sent);
  bool Send(std::string_view request, std::chrono::milliseconds timeout);
  void Collect(AtAnswer& answer, std::string_view request, std::chrono::milliseconds timeout);
  void Feed(AtAnswer& answer, std::string_view octets);
  void Drop(std::string_view octets);
  void OnForeignLine(std::string_view line, LineKind kind);
  void NoteAnswer(const AtAnswer& answer);
  void NoteSilence(std::string_view request, std::chrono::milliseconds timeout);
  void NoteLateAnswer(std::string_view line);

  const ModemTarget& target_;
  WaitLoop& loop_;
  ModemStatus& status_;
  std::unique_ptr<SerialLine> line_;
  State state_ = State::kNoLine;
  std::string stray_;         // start of a line that came while no exchange was open
  std::string request_name_;  // name of the last command
  Overdue overdue_;
  bool init_done_ = false;    // since the line was opened or the modem started
  bool pin_refused_ = false;  // never to be sent again: the third failure locks the SIM
  bool silent_echo_ = false;  // the last exchange came back without an echo
  bool answers_ = true;       // false once silence was reported
  bool patience_told_ = false;
};

}  // namespace corvane
