// SPDX-License-Identifier: MIT
// The block types of this add-in. Registration, the tests and the checks of the pages read this
// table: a new block is a new row at its end.
#pragma once

#include "addins/corvane_modbus/modbus_tcp_fb.h"
#include "block/block_types.h"

namespace corvane_modbus {

/// In the order in which hosts list them.
inline constexpr FBTypeEntry kBlockTypes[] = {
    BLOCK_TYPE(ModbusTcpFB),  // MODBUS_TCP
};

}  // namespace corvane_modbus
