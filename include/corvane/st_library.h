// SPDX-License-Identifier: MIT
// How an add-in brings block types into the runtime. Implemented by corvane.so.
#pragma once

#include <lua.hpp>

extern "C" {

/// Registers a block type under `name` (copied). The runtime calls `opener` once for every Lua
/// state that it prepares; a negative result tells that the type could not be opened there.
/// A name that is registered already is refused. Called from the add-in's InitAddin only.
/// @return 0, or non-zero when refused
int RegisterExternalSTLib(const char* name, lua_CFunction opener);
}
