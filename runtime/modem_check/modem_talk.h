// SPDX-License-Identifier: MIT
// Questions to a modem and its answers, over the driver's own line (ITU-T V.250).
// Threads: one.
#pragma once

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_driver/at_line.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/serial_line.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane::modem_check {

/// The modem can no longer be asked anything: it was unplugged, has restarted, or is silent. The
/// text says so, and what to do.
class TalkEnded : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// The answer to one command.
struct Reply {
  bool answered = false;  ///< a final result, or the prompt, has come
  LineKind result = LineKind::kUnknown;
  bool prompt = false;             ///< the modem waits for a text
  bool echoed = false;             ///< the command came back
  std::vector<std::string> lines;  ///< without the result and without "+NAME: "
  std::string refusal;             ///< "+CME ERROR: 10 (SIM not inserted)", "ERROR"; empty: none

  [[nodiscard]] bool ok() const { return result == LineKind::kOk; }
  /// The first line; empty: there is none.
  [[nodiscard]] std::string line() const { return lines.empty() ? "" : lines.front(); }
  /// What the modem has answered instead of OK, in a few words.
  [[nodiscard]] std::string Refusal() const;
};

/// What is at the other end of a line that was just opened.
enum class FirstContact : std::uint8_t {
  kAnswers,
  kSilent,
  kEchoes,  ///< characters come back, and nothing else
  kNoise,   ///< something comes, but not a modem's answer
};

class ModemTalk {
 public:
  ModemTalk(ModemTarget target, WaitLoop& loop);

  /// Opens the line again with these settings and finds out what answers.
  /// @param time how long to wait for each of two answers before the line counts as silent
  /// @throws LineError: the line cannot be opened
  [[nodiscard]] FirstContact Open(unsigned baud, FlowControl flow, std::chrono::milliseconds time);
  /// What came first instead of an answer: the beginning, printable.
  [[nodiscard]] const std::string& noise() const { return noise_; }
  /// The modem answers only since results were switched on: it was set to ATQ1.
  [[nodiscard]] bool was_quiet() const { return was_quiet_; }
  /// The modem echoed what was sent before anything was switched off.
  [[nodiscard]] bool echoed_at_first() const { return echoed_at_first_; }
  /// Baud rate and flow control are the line's own.
  [[nodiscard]] const ModemTarget& target() const { return target_; }

  /// Sends a command, which has no line end, and waits for its answer. An answer that does not come
  /// is not an error as long as the modem answers AT afterwards.
  /// @param timeout counted from the last octet received
  /// @throws TalkEnded
  [[nodiscard]] Reply Ask(const std::string& command,
                          std::chrono::milliseconds timeout = kUsualTime);
  /// The same, once a busy SIM card is ready, which takes up to half a minute after power-up.
  [[nodiscard]] Reply AskOnceReady(const std::string& command);
  /// Sends the text that was announced, and waits for the network.
  /// @throws TalkEnded
  [[nodiscard]] Reply SendText(const std::string& octets, std::string_view announced_by,
                               std::chrono::milliseconds timeout);
  /// Lets time pass. @throws TalkEnded: the line was lost meanwhile
  void Wait(std::chrono::milliseconds time);
  /// Has someone else use the line, which stays open.
  [[nodiscard]] std::unique_ptr<SerialLine> Borrow();

  static constexpr std::chrono::milliseconds kUsualTime{10'000};

 private:
  [[nodiscard]] Reply Exchange(const ModemRequest& request, std::chrono::milliseconds timeout);
  [[nodiscard]] Reply Probe(const char* command, std::chrono::milliseconds time);
  [[nodiscard]] FirstContact Contact(std::chrono::milliseconds time);
  void OnForeignLine(std::string_view line, LineKind kind);
  void CheckLine() const;
  /// After a missing answer: makes sure that the next answer is not a late one.
  void Resynchronise(const std::string& command);

  ModemTarget target_;
  WaitLoop& loop_;
  std::shared_ptr<SerialLine> serial_;
  AtLine line_;
  std::vector<std::string> foreign_;  // since the last request: lines that may be information
  std::string restart_;               // the line that showed a restart; empty: none
  std::string noise_;
  bool was_quiet_ = false;
  bool echoed_at_first_ = false;
};

}  // namespace corvane::modem_check
