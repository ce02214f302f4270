// SPDX-License-Identifier: MIT
// The modem's own clock, and times as a modem writes them: "26/01/31,12:00:00+04", the zone in
// quarters of an hour (3GPP TS 27.007 clause 8.15; 3GPP TS 27.005 clause 3.1, <scts>).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "libs/gsm/time_stamp.h"

namespace modem_simulator {

[[nodiscard]] std::string FormatModemTime(const gsm::TimeStamp& time);
/// The zone may be left out, which means UTC. nullopt for anything else, and for days that do not
/// exist.
[[nodiscard]] std::optional<gsm::TimeStamp> ParseModemTime(std::string_view text);

/// Shows the network's time until it is set; from then on it runs from the time that was set.
class ModemClock {
 public:
  void Set(const gsm::TimeStamp& time, const gsm::TimeStamp& network_time);
  [[nodiscard]] gsm::TimeStamp Now(const gsm::TimeStamp& network_time) const;

 private:
  struct Setting {
    gsm::TimeStamp time;
    gsm::TimeStamp network_time;  ///< when it was set
  };

  std::optional<Setting> setting_;
};

}  // namespace modem_simulator
