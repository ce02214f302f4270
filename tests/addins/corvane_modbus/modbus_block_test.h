// SPDX-License-Identifier: MIT
// Fixture for tests of this add-in's block: a server on the loopback, and a clock of the cycles
// that the test sets.
#pragma once

#include <string>

#include "addins/corvane_modbus/corvane_modbus.h"
#include "tests/support/captured_log.h"
#include "tests/support/lua_host.h"
#include "tests/support/modbus_server.h"
#include "tests/support/wait_for.h"

/// Registers the add-in's types once, before any environment is created.
struct RegisteredModbusAddin {
  RegisteredModbusAddin() { [[maybe_unused]] static const int once = InitAddin(); }
};

class ModbusBlockTest : private RegisteredModbusAddin, public test_support::LuaHost {
 protected:
  ModbusBlockTest();
  ~ModbusBlockTest() override;

  /// Seconds on the clock of the cycles.
  static void SetClock(double seconds);
  /// Calls the block `fb` until a condition in Lua holds. @return whether it does
  bool CallUntil(const std::string& condition);

  test_support::ModbusServer server_;
};
