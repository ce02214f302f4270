// SPDX-License-Identifier: MIT
// What a program's author can do about an error that Lua reports in its own words.
#pragma once

#include <lua.hpp>
#include <string>
#include <string_view>

namespace corvane {

/// What follows the Lua error `message` to help its reader; empty when nothing is known: a package
/// to install, the block type that a misspelt name is like, or how a block is created. It looks at
/// TYPES.StandardFB without metamethods, leaves the stack as it was, and raises no Lua error
/// but that of a lack of memory.
std::string ErrorAdvice(lua_State* L, std::string_view message);

}  // namespace corvane
