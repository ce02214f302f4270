// SPDX-License-Identifier: MIT
#include "addins/corvane_modbus/modbus_tcp_fb.h"

DEFINE_FUNCTION_BLOCK(ModbusTcpFB, "MODBUS_TCP")

const FBMetaEntry* ModbusTcpFB::GetMetaTable() {
  using enum FBDirection;
  static const FBMetaEntry entries[] = {
      plcopen::kExecute,
      {"Enable", "BOOL", kInput, "TRUE: does the same again and again, without an edge"},
      {"Period", "LREAL", kInput, "s from one to the next while Enable is TRUE; 0: 1 s"},
      {"Server", "STRING", kInput, "name or address of the Modbus server"},
      {"Port", "DINT", kInput, "its TCP port; 0: 502"},
      {"Unit", "DINT", kInput, "device behind the server (0 to 247, 255)"},
      {"Table", "STRING", kInput,
       "coils, discrete inputs, input registers, holding registers; empty: the last"},
      {"Write", "BOOL", kInput, "TRUE: writes Values, FALSE: reads"},
      {"Address", "DINT", kInput, "of the first coil, input or register, from 0"},
      {"Count", "DINT", kInput, "numbers in Format; 0: one to read, or all of Values"},
      {"Format", "STRING", kInput,
       "of a number in registers: UINT, INT, UDINT, DINT, REAL, ...; empty: UINT"},
      {"Order", "STRING", kInput, "of its octets: ABCD, CDAB, BADC, DCBA; empty: ABCD"},
      {"Values", "STRING", kInput, "numbers to write, separated by blanks"},
      {"Timeout", "LREAL", kInput, "s for connection and answer together; 0: 3 s"},
      plcopen::kBusy,
      plcopen::kDone,
      plcopen::kError,
      plcopen::kErrorId,
      plcopen::kErrorText,
      {"Valid", "BOOL", kOutput, "Enable is TRUE, and the last exchange has succeeded"},
      {"Age", "LREAL", kOutput, "s since the last success, at first since Enable rose"},
      {"Result", "STRING", kOutput, "numbers read, separated by blanks"},
      {"First", "LREAL", kOutput, "the first number of Result"},
      {"Exception", "DINT", kOutput, "number of the Modbus exception with ErrorId 52, otherwise 0"},
      {nullptr, nullptr}};
  return entries;
}
