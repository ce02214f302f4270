// SPDX-License-Identifier: MIT
// os.execute for programs that signals must be able to end.
#pragma once

#include <lua.hpp>

namespace corvane {

/// os.execute([command]) of the Lua 5.2 manual, with the same results. Lua's own (system() of the C
/// library) ignores SIGINT until the command has ended, so Ctrl-C would end the command, but not a
/// program that runs one in each cycle; here signals keep their effect meanwhile.
int ExecuteCommand(lua_State* L);

}  // namespace corvane
