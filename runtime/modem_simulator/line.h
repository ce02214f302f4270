// SPDX-License-Identifier: MIT
// The wire between the modem and its controller. Used from the thread that runs the io_context.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace modem_simulator {

class Line {
 public:
  using OnBytes = std::function<void(std::string_view)>;

  virtual ~Line() = default;
  /// Makes the line reachable. Throws std::runtime_error with what is wrong and where.
  virtual void Plug() = 0;
  /// The controller loses its connection and cannot open the line until Plug.
  virtual void Unplug() = 0;
  /// Bytes for the controller; lost when none has opened the line.
  virtual void Write(std::string_view bytes) = 0;
  /// Where a controller finds it, as words of the ready line: "link=/tmp/modem device=/dev/pts/3".
  [[nodiscard]] virtual std::string Address() const = 0;
};

}  // namespace modem_simulator
