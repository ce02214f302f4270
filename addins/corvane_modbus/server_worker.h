// SPDX-License-Identifier: MIT
// Serves the requests to one server, one after the other, on one connection.
// Threads: its own.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "addins/corvane_modbus/modbus_link.h"
#include "addins/corvane_modbus/modbus_service.h"

namespace corvane_modbus {

class ServerWorker {
 public:
  ServerWorker(ModbusService& service, ServerQueue& queue) : service_(service), queue_(queue) {}

  /// Until the service has nothing more for it.
  void Run();

 private:
  [[nodiscard]] Outcome Serve(Exchange& exchange);
  /// @param kept the connection was open before, so the server may have just closed it
  [[nodiscard]] Outcome Ask(Exchange& exchange, bool kept);
  enum class Opening : std::uint8_t {
    kOpen,
    kTooSoon,    ///< the next attempt would come after the deadline; problem_ is of the last one
    kFailed,     ///< problem_ says why
    kAbandoned,  ///< nobody is interested any more
  };
  /// Makes a new connection, when the pause after the last attempt is over.
  [[nodiscard]] Opening Open(Exchange& exchange);
  [[nodiscard]] Opening Attempt(Exchange& exchange);
  [[nodiscard]] Outcome NotSent(const Exchange& exchange) const;
  /// An attempt that failed before its time was over answers those that wait, too.
  void TellOthers(const Exchange& exchange);
  void LogInterrupted(const Exchange& exchange) const;

  ModbusService& service_;
  ServerQueue& queue_;
  std::optional<ModbusLink> link_;
  std::string problem_;                // of the last attempt to connect
  std::chrono::milliseconds pause_{};  // before the next one; 0 after a success
  SteadyTime next_attempt_{};
};

}  // namespace corvane_modbus
