// SPDX-License-Identifier: MIT
#include "runtime/program_test/modbus_double.h"

#include <utility>

#include "runtime/program_test/world.h"

DEFINE_FUNCTION_BLOCK(ModbusDouble, "MODBUS_TCP")

namespace corvane::program_test {

SimulatedTransfer::SimulatedTransfer(modbus::Plan plan)
    : plan_(std::move(plan)), begin_(World::The().time().clock) {}

std::optional<modbus::Outcome> SimulatedTransfer::Poll() {
  World& world = World::The();
  return world.modbus.Poll(plan_, begin_, world.time().clock);
}

}  // namespace corvane::program_test
