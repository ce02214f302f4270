// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/corvane_modbus.h"

#include "addins/corvane_modbus/block_types.h"
#include "addins/corvane_modbus/modbus_service.h"

int InitAddin() {
  RegisterBlockTypes(corvane_modbus::kBlockTypes);
  return 0;
}

void DisposeAddin() {
  corvane_modbus::ModbusService::The().End(std::chrono::milliseconds(700));
}
