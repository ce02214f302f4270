// SPDX-License-Identifier: MIT
// Takes the controller's bytes one by one and answers as a modem does: echo, command lines, the
// prompt, results (ITU-T V.250 clause 5; 3GPP TS 27.005 clause 3.5.1). No I/O, one thread.
#pragma once

#include <deque>
#include <string>
#include <string_view>

#include "runtime/modem_simulator/modem_state.h"

namespace modem_simulator {

class AtInterpreter {
 public:
  /// Longer lines are an error; longer messages, too.
  static constexpr std::size_t kLongestLine = 1024;
  /// Bytes that may come while the network has not confirmed; more are lost.
  static constexpr std::size_t kLongestInput = 4096;
  /// Lines that may wait for the end of an exchange; more are lost.
  static constexpr std::size_t kMostIndications = 256;

  explicit AtInterpreter(ModemState& modem) : modem_(modem) {}

  /// Bytes from the controller. What comes while the network has to confirm waits.
  void Feed(std::string_view bytes);

  /// Ends a message transfer. Nothing happens when none is under way.
  void NetworkAnswered();

  /// A line that nobody asked for. It waits while a line is typed or an exchange goes on.
  void Indicate(std::string line);

  /// As after power-up: what was under way is forgotten.
  void Reset();

 private:
  enum class State {
    kCommand,  ///< collects a command line
    kMessage,  ///< has prompted, collects a message up to Ctrl-Z
    kNetwork,  ///< waits for the network to confirm a message
  };

  void SetState(State state);
  void Take(char byte);
  void TakeInCommand(char byte);
  void TakeInMessage(char byte);
  void Collect(char byte);
  void EndLine();
  void EndMessage();
  void Execute(std::string_view commands);
  void Finish(Result result, const Answer& answer);
  void Prompt();
  void SendIndications();
  [[nodiscard]] bool Idle() const { return state_ == State::kCommand && line_.empty(); }
  [[nodiscard]] bool Echoes() const;
  /// Sends the answer that was ordered in place of the true one, if any.
  bool AnswerAsOrdered(std::string_view command);

  ModemState& modem_;
  State state_ = State::kCommand;
  std::string line_;       // at most kLongestLine
  bool too_long_ = false;  // the line or message had more
  std::string waiting_;    // input of kNetwork, at most kLongestInput
  std::deque<std::string> indications_;
};

}  // namespace modem_simulator
