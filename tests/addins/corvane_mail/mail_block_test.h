// SPDX-License-Identifier: MIT
// Fixture for tests of this add-in's block: an environment with it, and a state folder of its own.
#pragma once

#include <string>

#include "addins/corvane_mail/corvane_mail.h"
#include "tests/support/captured_log.h"
#include "tests/support/lua_host.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

/// Registers the add-in's types once, before any environment is created.
struct RegisteredMailAddin {
  RegisteredMailAddin() { [[maybe_unused]] static const int once = InitAddin(); }
};

class MailBlockTest : private RegisteredMailAddin, public test_support::LuaHost {
 protected:
  MailBlockTest();
  ~MailBlockTest() override;

  /// As at the end of a program, and the beginning of the next one.
  static void Restart() { DisposeAddin(); }
  /// Calls the block `fb` until a condition in Lua holds. @return whether it does
  bool CallUntil(const std::string& condition);

  test_support::TemporaryFolder folder_;
};
