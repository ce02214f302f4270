// SPDX-License-Identifier: MIT
// The global table `plc`, through which a control program talks to the runtime.
#pragma once

#include <lua.hpp>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// What `plc` reads and writes; it must outlive the Lua state.
struct PlcContext {
  std::vector<std::string> arguments;  ///< plc.args
  std::optional<int> stop_status;      ///< set by plc.stop and os.exit
  bool exit_requested = false;         ///< set by os.exit
};

/// Sets the global `plc`:
///   plc.stop([status])  end after the running cycle with this exit status (0..255, default 0)
///   plc.cycle           number of the running cycle, from 1; 0 while the file itself runs
///   plc.now             seconds since 1970-01-01 UTC at the beginning of the cycle
///   plc.clock()         seconds on the monotonic clock, from an arbitrary start
///   plc.log(text)       one line in the runtime's log, at level info
///   plc.args            the words after `--` on the command line
/// and makes os.exit([status]) end the program at once through ExitRequest, so that blocks are
/// collected and their workers joined.
void OpenPlc(lua_State* L, PlcContext& context);

}  // namespace corvane
