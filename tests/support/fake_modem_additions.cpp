// SPDX-License-Identifier: MIT
// What our runtime's driver adds to the contract; a program without this file is a runtime that
// lacks the additions.
#include <algorithm>

#include "tests/support/fake_modem_port.h"

void ModemPortDriverUnregister(void* context) {
  test_support::FakeModemPort* fake = test_support::FakeModemPort::Current();
  if (fake == nullptr) return;
  std::erase_if(fake->clients_, [&](const auto& client) { return client.context == context; });
  if (fake->open_client_ == context) fake->open_client_ = nullptr;
}

int ModemPortDriverHasPort(int port) {
  const test_support::FakeModemPort* fake = test_support::FakeModemPort::Current();
  return fake != nullptr && fake->number_ == port ? 1 : 0;
}

int ModemPortDriverListen(void* context, PortDriverLineFunction hear) {
  test_support::FakeModemPort* fake = test_support::FakeModemPort::Current();
  if (fake == nullptr) return 1;
  int result = 1;
  for (auto& client : fake->clients_) {
    if (client.context != context) continue;
    client.hear = hear;
    result = 0;
  }
  return result;
}
