// SPDX-License-Identifier: MIT
// plc.file: the value in a file, without waiting for it. Threads: the one that runs the Lua state.
#pragma once

#include <lua.hpp>

#include "runtime/corvane/file_watches.h"

namespace corvane {

/// Adds the function `file` to the table on top of the stack; it uses the watches, which must
/// outlive the state:
///   plc.file(path[, interval])  reads the file every `interval` seconds (0.01 to 86400, default 1)
/// The result has the fields
///   text    the content without the last line feed; nil: never read
///   number  the same as a number; nil: it is not one
///   age     seconds since it was read, at the beginning of the cycle; nil: never read
///   error   what is wrong now; nil: nothing. text, number and age are then of the last success
///   path    the file's absolute path
/// None of them changes within a cycle; any other field, and every assignment, is a Lua error.
/// Raises a Lua error when memory runs out.
void OpenPlcFile(lua_State* L, FileWatches& watches);

}  // namespace corvane
