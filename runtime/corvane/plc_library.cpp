// SPDX-License-Identifier: MIT
#include "runtime/corvane/plc_library.h"

#include "corvane/program.h"
#include "runtime/corvane/cycle_time.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvaneshare/log_lines.h"

namespace corvane {
namespace {

PlcContext& Context(lua_State* L) {
  return *static_cast<PlcContext*>(lua_touserdata(L, lua_upvalueindex(1)));
}

/// The exit status at argument 1: a whole number from 0 to 255.
int CheckStatus(lua_State* L) {
  const double status = luaL_optnumber(L, 1, 0);
  const bool valid = status >= 0 && status <= 255 && status == static_cast<int>(status);
  luaL_argcheck(L, valid, 1, "an exit status is a whole number from 0 to 255");
  return static_cast<int>(status);
}

int Stop(lua_State* L) {
  Context(L).stop_status = CheckStatus(L);
  return 0;
}

int Exit(lua_State* L) {
  const bool is_boolean = lua_isboolean(L, 1);
  Context(L).stop_status = is_boolean ? (lua_toboolean(L, 1) != 0 ? 0 : 1) : CheckStatus(L);
  Context(L).exit_requested = true;
  lua_pushlightuserdata(L, const_cast<char*>(&kExitRequest));
  return lua_error(L);
}

int Clock(lua_State* L) {
  lua_pushnumber(L, CycleTime::Read().clock);
  return 1;
}

int Log(lua_State* L) {
  std::size_t length = 0;
  const char* text = luaL_tolstring(L, 1, &length);
  LogLines(spdlog::level::info, {text, length});
  return 0;
}

void SetFunction(lua_State* L, const char* name, lua_CFunction function, PlcContext& context) {
  lua_pushlightuserdata(L, &context);
  lua_pushcclosure(L, function, 1);
  lua_setfield(L, -2, name);
}

int OpenProtected(lua_State* L) {
  auto& context = *static_cast<PlcContext*>(lua_touserdata(L, 1));
  lua_newtable(L);
  SetFunction(L, "stop", Stop, context);
  SetFunction(L, "clock", Clock, context);
  SetFunction(L, "log", Log, context);
  lua_createtable(L, static_cast<int>(context.arguments.size()), 0);
  for (std::size_t i = 0; i < context.arguments.size(); ++i) {
    lua_pushlstring(L, context.arguments[i].data(), context.arguments[i].size());
    lua_rawseti(L, -2, static_cast<int>(i) + 1);
  }
  lua_setfield(L, -2, "args");
  lua_pushnumber(L, 0);
  lua_setfield(L, -2, "cycle");
  lua_pushnumber(L, CorvaneCycleNow());
  lua_setfield(L, -2, "now");
  lua_setglobal(L, "plc");

  lua_getglobal(L, "os");
  SetFunction(L, "exit", Exit, context);
  return 0;
}

}  // namespace

void OpenPlc(lua_State* L, PlcContext& context) {
  lua_pushcfunction(L, OpenProtected);
  lua_pushlightuserdata(L, &context);
  ProtectedCall(L, 1, 0);
}

}  // namespace corvane
