// SPDX-License-Identifier: MIT
// What the operator of the simulator can do to the modem: the console's commands act on this.
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
  /// A line of output.
  virtual void Print(std::string_view line) = 0;
  /// For so long nothing is heard and nothing is said; what is lost stays lost.
  virtual void Mute(Duration duration) = 0;
  /// For so long what the modem sends is held back; then it goes out.
  virtual void Hold(Duration duration) = 0;
  /// For so long the line is gone; then the modem starts again.
  virtual void Unplug(Duration duration) = 0;
  /// The modem starts again, and says so.
  virtual void Restart() = 0;
  /// So many random bytes for the controller.
  virtual void SendGarbage(int count) = 0;
  /// The service centre's time from now on; nullopt for the true one.
  virtual void SetTime(std::optional<gsm::TimeStamp> time) = 0;
  /// Acts later.
  virtual void After(Duration delay, Action action) = 0;
  virtual void Quit() = 0;
};

}  // namespace modem_simulator
