// SPDX-License-Identifier: MIT
// What a modem's answers say about its network: signal, registration and operator
// (3GPP TS 27.007 clauses 8.5, 7.2, 7.3). Pure functions. Threads: one at a time.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvane::bench {

class ModemFacts {
 public:
  /// Takes a line that the modem has sent; others than those above change nothing.
  void Take(std::string_view line);

  [[nodiscard]] std::optional<int> signal() const { return signal_; }  ///< dBm; empty: unknown
  /// "home", "roaming", "searching", "denied", "none"; empty: unknown.
  [[nodiscard]] const std::string& registration() const { return registration_; }
  [[nodiscard]] const std::string& network() const { return network_; }  ///< the operator

 private:
  std::optional<int> signal_;
  std::string registration_;
  std::string network_;
};

}  // namespace corvane::bench
