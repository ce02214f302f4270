// SPDX-License-Identifier: MIT
// The add-in as its host sees it: the types that it registers, and their metadata.
#include "addins/corvane_modbus/corvane_modbus.h"

#include "addins/corvane_modbus/block_types.h"
#include "tests/addins/corvane_modbus/modbus_block_test.h"
#include "tests/support/every_type.h"

namespace {

class ModbusAddin : public ModbusBlockTest {};

/// What programs rely on.
constexpr test_support::TypeRow kTypes[] = {
    {"MODBUS_TCP",
     "Execute:BOOL Enable:BOOL Period:LREAL Server:STRING Port:DINT Unit:DINT Table:STRING "
     "Write:BOOL Address:DINT Count:DINT Format:STRING Order:STRING Values:STRING Timeout:LREAL "
     "Busy:BOOL Done:BOOL Error:BOOL ErrorId:DINT ErrorText:STRING Valid:BOOL Age:LREAL "
     "Result:STRING First:LREAL Exception:DINT"},
};

TEST_EVERY_TYPE(ModbusAddin, corvane_modbus::kBlockTypes, kTypes);

}  // namespace
