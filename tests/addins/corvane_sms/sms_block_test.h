// SPDX-License-Identifier: MIT
// Fixture for tests of this add-in's blocks: a modem port that the test plays, and a state folder
// of its own.
#pragma once

#include <string>

#include "addins/corvane_sms/corvane_sms.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_modem_port.h"
#include "tests/support/lua_host.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

/// Registers the add-in's types once, before any environment is created.
struct RegisteredSmsAddin {
  RegisteredSmsAddin() { [[maybe_unused]] static const int once = InitAddin(); }
};

class SmsBlockTest : private RegisteredSmsAddin, public test_support::LuaHost {
 protected:
  SmsBlockTest();
  ~SmsBlockTest() override;

  /// As at the end of a program and the start of the next one.
  static void Restart() { DisposeAddin(); }
  /// Where the blocks keep their messages after the next Restart.
  static void UseFolder(const std::string& folder);
  /// Calls the block `fb` until a condition in Lua holds. @return whether it does
  bool CallUntil(const std::string& condition);

  test_support::TemporaryFolder folder_;
  test_support::FakeModemPort port{1};
};
