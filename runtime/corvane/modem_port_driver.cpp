// SPDX-License-Identifier: MIT
// The modem port driver: no port can be configured yet, so every registration is refused.
#include "corvane/modem_port_driver.h"

int ModemPortDriverRegister(int /*port*/, void* /*context*/,
                            PortDriverPriorityFunction /*priority*/,
                            PortDriverRequestFunction /*request*/, void* /*extra*/) {
  return 1;
}

void ModemPortDriverUnregister(void* /*context*/) {}
