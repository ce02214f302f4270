// SPDX-License-Identifier: MIT
// The minimum of a runtime's corvane.so: a list of block types, and no modem.
#include "examples/minimal_host/runtime.h"

#include "corvane/modem_port_driver.h"
#include "corvane/st_library.h"

static std::vector<BlockType> block_types;

const std::vector<BlockType>& BlockTypes() {
  return block_types;
}

int RegisterExternalSTLib(const char* name, lua_CFunction opener) {
  block_types.push_back({name, opener});
  return 0;
}

int ModemPortDriverRegister(int /*port*/, void* /*context*/,
                            PortDriverPriorityFunction /*priority*/,
                            PortDriverRequestFunction /*request*/, void* /*extra*/) {
  return 1;  // no such port: the block tries again at its next call
}
