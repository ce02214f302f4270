// SPDX-License-Identifier: MIT
// Takes the controller's bytes one by one and answers as a modem does: echo, command lines, the
// prompt, results (ITU-T V.250 clause 5; 3GPP TS 27.005 clause 3.5.1). No I/O, one thread.
#pragma once

#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_simulator/at_command.h"
#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

class AtInterpreter {
 public:
  /// Longer lines are an error, and so are longer messages.
  static constexpr std::size_t kLongestLine = 1024;
  /// Bytes that may arrive while the modem is busy; more are lost.
  static constexpr std::size_t kLongestInput = 4096;
  /// Lines that may wait for the end of an exchange; more are lost.
  static constexpr std::size_t kMostIndications = 256;

  explicit AtInterpreter(ModemState& modem) : modem_(modem) {}

  /// Takes bytes from the controller. What arrives while the modem is busy waits: a command that is
  /// sent before a message is confirmed is carried out after the confirmation.
  void Feed(std::string_view bytes);

  /// Ends a delay: that of a slow command, or of a message that the network confirms. Does nothing
  /// when neither is under way.
  void Wake();

  /// An unsolicited line. It waits while a command line arrives or an exchange goes on.
  void Indicate(std::string line);

  /// As after power-up: what was under way is forgotten.
  void Reset();

 private:
  enum class State {
    kCommand,  ///< collects a command line
    kMessage,  ///< has prompted, collects a message up to Ctrl-Z
    kWorking,  ///< works on a slow command line
    kNetwork,  ///< waits for the network to confirm a message
  };

  void SetState(State state);
  void Take(char byte);
  void TakeInCommand(char byte);
  void TakeInMessage(char byte);
  void Collect(char byte);
  [[nodiscard]] bool IsBackspace(char byte) const;
  void TakeBack();
  void EndLine();
  void RepeatLine();
  void EndMessage();
  void StartLine(std::string_view line);
  void Execute(const std::vector<AtCommand>& commands);
  void Finish(Result result, const Answer& answer);
  [[nodiscard]] std::string FinalResult(Result result) const;
  void Prompt();
  void SendIndications();
  [[nodiscard]] bool Busy() const { return state_ == State::kWorking || state_ == State::kNetwork; }
  [[nodiscard]] bool Idle() const { return state_ == State::kCommand && line_.empty(); }
  [[nodiscard]] bool Echoes() const;
  /// Sends the answer that was ordered instead of the true one, if any.
  bool AnswerAsOrdered(std::string_view command);

  ModemState& modem_;
  State state_ = State::kCommand;
  std::string line_;             // at most kLongestLine
  bool too_long_ = false;        // the line or message had more
  std::string last_line_;        // what A/ repeats
  std::vector<AtCommand> work_;  // of kWorking
  std::string waiting_;          // input of kWorking and kNetwork, at most kLongestInput
  std::deque<std::string> indications_;
};

}  // namespace modem_simulator
