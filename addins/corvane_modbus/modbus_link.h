// SPDX-License-Identifier: MIT
// One connection to a Modbus server, on which libmodbus asks and reads answers (Modbus Messaging on
// TCP/IP Implementation Guide, V1.0b). Threads: one at a time.
#pragma once

#include <modbus.h>

#include <memory>
#include <string>

#include "addins/corvane_modbus/exchange.h"
#include "addins/corvane_modbus/stop_signal.h"
#include "libs/base/descriptor.h"

namespace corvane_modbus {

class ModbusLink {
 public:
  /// @param stop ends the waits; it outlives the link
  ModbusLink(corvane::Descriptor socket, StopSignal& stop);
  ModbusLink(const ModbusLink&) = delete;
  ModbusLink& operator=(const ModbusLink&) = delete;
  ~ModbusLink();

  /// Whether the next request may use this connection: the server has not closed it, nothing
  /// has come without being asked for, and every request so far was answered. After a request
  /// without an answer it never is, so that a late answer cannot be taken for another one's.
  [[nodiscard]] bool IsUsable() const;

  /// What has become of a request; ErrorId::kNoAnswer or kModbusException.
  struct Answer {
    Outcome outcome;
    bool connection_lost = false;  ///< by the server, without an answer
  };
  /// Sends the request and waits for the answer, until the deadline.
  [[nodiscard]] Answer Ask(const Endpoint& endpoint, const Exchange& exchange);

 private:
  struct FreeContext {
    void operator()(modbus_t* context) const { modbus_free(context); }
  };

  StopSignal& stop_;
  const corvane::Descriptor socket_;
  const std::unique_ptr<modbus_t, FreeContext> context_;
  bool failed_ = false;
};

}  // namespace corvane_modbus
