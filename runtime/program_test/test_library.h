// SPDX-License-Identifier: MIT
// What the Lua part of corvane test (test_api.lua) calls. Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>

#include "runtime/program_test/test_session.h"

namespace corvane::program_test {

/// Pushes the table of functions, for a test in this session; null: the file is only being read, so
/// no program can be loaded. The session must outlive the state.
void PushTestLibrary(lua_State* L, TestSession* session);

}  // namespace corvane::program_test
