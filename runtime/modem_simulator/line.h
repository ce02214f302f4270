// SPDX-License-Identifier: MIT
// The line between the modem and its controller. Used on the thread that runs the io_context.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace modem_simulator {

class Line {
 public:
  using OnBytes = std::function<void(std::string_view)>;

  virtual ~Line() = default;
  /// Makes the line reachable. Throws std::runtime_error, which says what is wrong and where.
  virtual void Plug() = 0;
  /// The controller loses its connection and cannot open the line until Plug.
  virtual void Unplug() = 0;
  /// Sends bytes to the controller; they are lost if none has opened the line.
  virtual void Write(std::string_view bytes) = 0;
  /// Where a controller finds the line, as in the ready line: "link=/tmp/modem device=/dev/pts/3".
  [[nodiscard]] virtual std::string Address() const = 0;
};

}  // namespace modem_simulator
