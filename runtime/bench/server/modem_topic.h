// SPDX-License-Identifier: MIT
// The topic "modem": each port's dialogue, state and network. Threads: the server's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "runtime/bench/server/modem_facts.h"
#include "runtime/bench/server/topic.h"
#include "runtime/modem_driver/modem_status.h"

namespace corvane::bench {

/// A modem port that the bench observes.
class ObservedModem {
 public:
  ObservedModem(int number, ModemStatus& status) : number_(number), status_(status) {}

  /// Takes over what the modem has said of its network, and lets the port ask for more.
  void UpdateFacts();
  /// The same, and the lines since the last call.
  [[nodiscard]] std::vector<DialogueLine> Update();
  /// What changes in a frame besides the lines.
  [[nodiscard]] std::string Summary() const;
  [[nodiscard]] Frame FrameOf(const std::vector<DialogueLine>& lines) const;
  [[nodiscard]] std::vector<DialogueLine> AllLines() const;
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] const ModemFacts& facts() const { return facts_; }

 private:
  int number_;
  ModemStatus& status_;
  ModemFacts facts_;
  std::uint64_t facts_next_ = 0;
  std::uint64_t next_ = 0;
};

class ModemTopic : public Topic {
 public:
  /// @param modems outlives this object
  explicit ModemTopic(std::vector<ObservedModem>& modems) : modems_(modems) {}

  void SetWatched(bool watched) override;
  [[nodiscard]] std::vector<Frame> Changes() override;
  [[nodiscard]] std::vector<Frame> Complete() override;

 private:
  std::vector<ObservedModem>& modems_;
  std::vector<std::string> summaries_;  // as they were sent last
};

}  // namespace corvane::bench
