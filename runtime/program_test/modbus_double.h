// SPDX-License-Identifier: MIT
// Double of MODBUS_TCP: the same variables and rules, with simulated servers. Threads: the one that
// runs the Lua state.
#pragma once

#include <optional>

#include "block/lua_glue.h"
#include "libs/modbus/modbus_job.h"
#include "runtime/program_test/real_declaration.h"

namespace corvane::program_test {

/// A request to a simulated server.
class SimulatedTransfer {
 public:
  explicit SimulatedTransfer(modbus::Plan plan);
  [[nodiscard]] std::optional<modbus::Outcome> Poll();

 private:
  const modbus::Plan plan_;
  const double begin_;
};

}  // namespace corvane::program_test

class ModbusDouble
    : public modbus::ModbusJob<ModbusDouble, corvane::program_test::SimulatedTransfer>,
      public corvane::program_test::RealDeclaration<ModbusDouble> {
 public:
  using ModbusJob::ModbusJob;
};

DECLARE_FUNCTION_BLOCK(ModbusDouble)
