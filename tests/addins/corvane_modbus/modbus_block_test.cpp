// SPDX-License-Identifier: MIT
#include "tests/addins/corvane_modbus/modbus_block_test.h"

namespace {

double the_clock = 0;

}  // namespace

/// In this program instead of the runtime's.
extern "C" double CorvaneCycleClock() {
  return the_clock;
}

void ModbusBlockTest::SetClock(double seconds) {
  the_clock = seconds;
}

ModbusBlockTest::ModbusBlockTest() {
  SetClock(1000);
  test_support::TakeLog();
  Run("port = " + std::to_string(server_.port()));
}

ModbusBlockTest::~ModbusBlockTest() {
  CloseHost();
  DisposeAddin();
}

bool ModbusBlockTest::CallUntil(const std::string& condition) {
  return test_support::WaitFor([&] {
    Run("fb()");
    return Eval(condition) == "true";
  });
}
