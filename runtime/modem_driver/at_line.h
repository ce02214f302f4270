// SPDX-License-Identifier: MIT
// The octets to and from a modem: requests are written, answers collected, and everything else is
// dropped line by line and traced.
// Threads: the port's own.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "runtime/modem_driver/at_answer.h"
#include "runtime/modem_driver/modem_target.h"
#include "runtime/modem_driver/serial_line.h"
#include "runtime/modem_driver/wait_loop.h"

namespace corvane {

class AtLine {
 public:
  using ForeignLine = AtAnswer::ForeignLine;

  /// @param foreign_line called with each line that comes while no answer is being collected
  AtLine(const ModemTarget& target, ForeignLine foreign_line);

  /// Takes a newly opened line.
  void Open(std::unique_ptr<SerialLine> line);
  void Close() { line_.reset(); }
  [[nodiscard]] bool is_open() const { return line_ != nullptr; }
  /// Why the line was lost; empty while it is open, or when there is none.
  [[nodiscard]] std::string loss() const { return line_ == nullptr ? "" : line_->loss(); }

  /// False if the other side did not accept all of it in time, or the line is lost.
  [[nodiscard]] bool Write(std::string_view octets, std::chrono::milliseconds timeout);
  /// Feeds what comes to the answer until the answer is complete or the time is over.
  /// @param sent the number of octets in the request, which a slow line needs time to carry
  /// @param timeout counted from the last octet received; more than 0
  void Collect(AtAnswer& answer, std::size_t sent, std::chrono::milliseconds timeout);
  /// Octets of the last request that the system took; 0: none of it reached the modem.
  [[nodiscard]] std::size_t written() const { return line_->written(); }
  /// Drops what comes next; false: nothing came until this time, or the line is lost.
  bool DropNext(SteadyTime until);
  /// Drops what comes until nothing has come for `quiet`. Does not wait for ever for a line that is
  /// never quiet.
  void DropUntilQuiet(std::chrono::milliseconds quiet);
  /// Waits for octets; empty: none came in time, or the line is lost. Valid until the next call.
  [[nodiscard]] std::string_view Receive(SteadyTime until);
  /// Drops octets that do not belong to any answer.
  void Drop(std::string_view octets);
  /// An answer that has ended without an end leaves these octets after its last line end. They are
  /// kept if an unsolicited line may begin so.
  void KeepBeginning(std::string_view octets);

 private:
  /// Logs octets at the most detailed level: '>' sent, '<' received, 'x' received and dropped.
  void Trace(char direction, std::string_view octets) const;
  void Feed(AtAnswer& answer, std::string_view octets);
  void FeedBeginning(AtAnswer& answer);

  const ModemTarget& target_;
  ForeignLine foreign_line_;
  std::unique_ptr<SerialLine> line_;
  std::string stray_;  // start of a line that came while no answer was being collected
};

}  // namespace corvane
