// SPDX-License-Identifier: MIT
#include "runtime/corvane/control_program.h"

#include <chrono>

#include "runtime/corvane/plc_file.h"

namespace corvane {
namespace {

/// Puts the folder at argument 1 at the start of package.path.
int AddModuleFolder(lua_State* L) {
  lua_getglobal(L, "package");
  lua_getfield(L, 2, "path");
  lua_pushfstring(L, "%s/?.lua;%s", lua_tostring(L, 1), lua_tostring(L, 3));
  lua_setfield(L, 2, "path");
  return 0;
}

/// Adds `retain` of the RetainedValues at argument 1, and `file` of the FileWatches at argument 2,
/// to the global table `plc`.
int OpenRest(lua_State* L) {
  lua_getglobal(L, "plc");
  static_cast<RetainedValues*>(lua_touserdata(L, 1))->Open(L);
  OpenPlcFile(L, *static_cast<FileWatches*>(lua_touserdata(L, 2)));
  return 0;
}

/// Sets plc.cycle and plc.now to arguments 1 and 2, and calls the global function `cycle`, even if
/// the program has changed any of them since the last time.
int RunCycle(lua_State* L) {
  lua_getglobal(L, "plc");
  if (lua_istable(L, -1)) {
    lua_pushvalue(L, 1);
    lua_setfield(L, -2, "cycle");
    lua_pushvalue(L, 2);
    lua_setfield(L, -2, "now");
  }
  lua_getglobal(L, "cycle");
  lua_call(L, 0, 0);
  return 0;
}

int PushCycle(lua_State* L) {
  lua_getglobal(L, "cycle");
  return 1;
}

/// Whether the program has a global function `cycle`. A program may guard its globals with a
/// metatable that raises errors, so even looking needs protection.
bool HasCycle(lua_State* L) {
  lua_pushcfunction(L, PushCycle);
  try {
    ProtectedCall(L, 0, 1);
  } catch (const LuaError&) {
    return false;
  }
  const bool callable = lua_isfunction(L, -1);
  lua_pop(L, 1);
  return callable;
}

}  // namespace

ControlProgram::ControlProgram(const std::filesystem::path& file,
                               std::vector<std::string> arguments, RetainStore* retained)
    : file_(file), plc_{std::move(arguments), std::nullopt}, retained_(retained) {
  lua_State* L = lua_.state();
  OpenPlc(L, plc_);
  lua_pushcfunction(L, OpenRest);
  lua_pushlightuserdata(L, &retained_);
  lua_pushlightuserdata(L, &files_);
  ProtectedCall(L, 2, 0);
  const auto folder = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
  lua_pushcfunction(L, AddModuleFolder);
  lua_pushstring(L, folder.c_str());
  ProtectedCall(L, 1, 0);
}

ControlProgram::~ControlProgram() {
  retained_.AtEnd(lua_.state());
}

void ControlProgram::Load() {
  lua_State* L = lua_.state();
  // Text only: nothing checks bytecode.
  const int status = luaL_loadfilex(L, file_.c_str(), "t");
  if (status != LUA_OK) {
    std::string message = lua_tostring(L, -1);
    lua_pop(L, 1);
    // All other messages begin with the file's name.
    if (message.starts_with("attempt to load a binary chunk")) {
      message =
          file_.string() + ": the program is precompiled; give the Lua source it was made from";
    }
    // If memory was short, it may work the next time.
    if (status == LUA_ERRMEM) throw LuaError(message);
    throw UnusableProgram(message);
  }
  Call(0);
  if (plc_.stop_status) return;
  if (!HasCycle(L)) {
    throw UnusableProgram(
        file_.string() +
        ": the program has no global function cycle(), which the runtime calls in each cycle");
  }
}

void ControlProgram::Cycle(std::uint64_t number, const CycleTime& time) {
  SetCycleTime(time);
  lua_State* L = lua_.state();
  lua_pushcfunction(L, RunCycle);
  lua_pushnumber(L, static_cast<lua_Number>(number));
  lua_pushnumber(L, time.now);
  Call(2);
  const std::chrono::duration<double> clock(time.clock);
  retained_.AfterCycle(L,
                       RetainedValues::TimePoint(
                           std::chrono::duration_cast<RetainedValues::TimePoint::duration>(clock)));
}

void ControlProgram::Call(int arguments) {
  try {
    ProtectedCall(lua_.state(), arguments, 0);
  } catch (const ExitRequest&) {
    // plc_ holds the status.
  } catch (const FinalizerError& error) {
    // Raised in a finalizer, the request arrives without its value.
    if (!plc_.exit_requested || !error.LostItsValue()) throw;
  }
}

}  // namespace corvane
