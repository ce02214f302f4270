// SPDX-License-Identifier: MIT
// What the operator of the simulator can do to the modem: the console's commands use this.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string_view>

#include "runtime/modem_simulator/modem.h"

namespace modem_simulator {

class Controls {
 public:
  using Duration = std::chrono::nanoseconds;
  using Action = std::function<void(Controls&)>;

  virtual ~Controls() = default;
  [[nodiscard]] virtual Modem& modem() = 0;
  /// Prints a line.
  virtual void Print(std::string_view line) = 0;
  /// For this time, nothing is received or sent; what is lost stays lost.
  virtual void Mute(Duration duration) = 0;
  /// For this time, the modem's output is held back; then it is sent.
  virtual void Hold(Duration duration) = 0;
  /// For this time, the line is gone; then the modem starts again.
  virtual void Unplug(Duration duration) = 0;
  /// The modem restarts, and says so.
  virtual void Restart() = 0;
  /// Sends this many random bytes to the controller.
  virtual void SendGarbage(int count) = 0;
  /// Stops the service centre's clock at this time; nullopt: it shows the true time.
  virtual void SetTime(std::optional<gsm::TimeStamp> time) = 0;
  /// Carries out `action` after this time.
  virtual void After(Duration delay, Action action) = 0;
  virtual void Quit() = 0;
};

}  // namespace modem_simulator
