// SPDX-License-Identifier: MIT
// MODBUS_TCP: reads or writes coils and registers of a Modbus server, at an edge or again and
// again. Threads: the one that runs the Lua state.
#pragma once

#include "addins/corvane_modbus/transfer.h"
#include "block/lua_glue.h"
#include "libs/modbus/modbus_job.h"

class ModbusTcpFB : public modbus::ModbusJob<ModbusTcpFB, corvane_modbus::Transfer> {
 public:
  using ModbusJob::ModbusJob;
  static const FBMetaEntry* GetMetaTable();
};

DECLARE_FUNCTION_BLOCK(ModbusTcpFB)
