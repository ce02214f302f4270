// SPDX-License-Identifier: MIT
// A modem on the bench: what it sends and reports is kept; the network answers when the test says
// so.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "runtime/modem_simulator/modem.h"

namespace modem_simulator {

/// An SMS-SUBMIT of "hello" (3GPP TS 23.040 clause 9.2.2.2) after an empty service centre number.
inline constexpr char kHello[] = "0001000B915155101032F4000005E8329BFD06";

class FakeHost : public ModemHost {
 public:
  void Transmit(std::string_view bytes) override { transmitted += bytes; }
  void WakeAfter(std::chrono::nanoseconds time) override {
    awaiting = true;
    delay = time;
  }
  void Later(std::chrono::nanoseconds time, std::function<void()> action) override {
    later.emplace_back(time, std::move(action));
  }
  void Report(std::string_view line) override { reports.emplace_back(line); }
  gsm::TimeStamp Now() override { return now; }

  /// What the modem has sent since the last call.
  std::string Take() { return std::exchange(transmitted, {}); }

  std::string transmitted;
  std::vector<std::pair<std::chrono::nanoseconds, std::function<void()>>> later;
  std::vector<std::string> reports;
  gsm::TimeStamp now{2026, 1, 31, 12, 0, 0, 60};
  bool awaiting = false;
  std::chrono::nanoseconds delay{0};  ///< the one that was requested last
};

/// Feeds bytes, ends every delay at once, and returns what the modem sends.
inline std::string Exchange(Modem& modem, FakeHost& host, std::string_view bytes) {
  modem.Feed(bytes);
  while (std::exchange(host.awaiting, false)) modem.Wake();
  return host.Take();
}

}  // namespace modem_simulator
