// SPDX-License-Identifier: MIT
// Where a modem is and how to talk to it, as `--modem PORT=TARGET,SETTING=VALUE,...` says.
#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "runtime/modem_driver/modem_times.h"

namespace corvane {

/// Says in one line what is wrong with an option.
class ModemTargetError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

enum class FlowControl : std::uint8_t { kNone, kRtsCts };

/// One configured modem port. Times are not negative.
struct ModemTarget {
  int port = 0;            ///< number in a block's input `Port`, 0 or more
  std::string device;      ///< path of a serial device; empty: the modem is at host and service
  std::string host;        ///< of a serial device server
  std::string service;     ///< its TCP port, 1..65535
  unsigned baud = 115200;  ///< bits per second, one that the system knows
  FlowControl flow = FlowControl::kNone;
  std::chrono::milliseconds poll{20};         ///< how often clients are asked, 1 ms .. 1 min
  std::chrono::milliseconds patience{0};      ///< least wait for a message transfer, .. 10 min
  std::chrono::milliseconds prompt_pause{0};  ///< between the prompt and the text, .. 5 s
  std::vector<std::string> init;              ///< AT commands for each opening, without line ends
  ModemTimes times;                           ///< not a setting

  /// The target as the user wrote it: the path, or "tcp:HOST:PORT".
  [[nodiscard]] std::string Name() const;
};

/// Reads `PORT=DEVICE` or `PORT=tcp:HOST:PORT`, followed by any number of `,SETTING=VALUE`.
///
/// The value of `init` is a list of AT commands separated by semicolons. It may be in double
/// quotes, where \" is a quote; without them (a shell removes them) a comma belongs to the value
/// unless the name of a setting and "=" follow. Throws ModemTargetError.
[[nodiscard]] ModemTarget ParseModemTarget(std::string_view text);

/// Reads several. Throws ModemTargetError, also if a port number or a device is given twice.
[[nodiscard]] std::vector<ModemTarget> ParseModemTargets(const std::vector<std::string>& texts);

}  // namespace corvane
