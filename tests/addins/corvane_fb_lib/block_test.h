// SPDX-License-Identifier: MIT
// Fixture for tests of the add-in's blocks.
#pragma once

#include "addins/corvane_fb_lib/corvane_fb_lib.h"
#include "tests/support/captured_log.h"
#include "tests/support/lua_host.h"

/// Registers the add-in's types once, before any environment is created.
struct RegisteredAddin {
  RegisteredAddin() { [[maybe_unused]] static const int once = InitAddin(); }
};

class BlockTest : private RegisteredAddin, public test_support::LuaHost {
 protected:
  BlockTest() { test_support::TakeLog(); }
};
