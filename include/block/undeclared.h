// SPDX-License-Identifier: MIT
// The warning when a program assigns to a name that the block does not declare.
// Threads: the one that runs the Lua state.
#pragma once

#include <cstdio>
#include <lua.hpp>

#include "block/declaration.h"
#include "block/program_line.h"
#include "share/log.h"

/// How many names are reported for one block type, so that a program that makes up names does not
/// fill the log.
inline constexpr int kReportedNames = 100;

/// Notes the name on top of the stack and pops it. @return how many names were noted for this table
/// in this Lua state before; -1 if this one was among them
inline int NoteUndeclared(lua_State* L, const FBMetaEntry* table) {
  lua_rawgetp(L, LUA_REGISTRYINDEX, table);
  if (lua_isnil(L, -1)) {
    lua_pop(L, 1);
    lua_newtable(L);
    lua_pushvalue(L, -1);
    lua_rawsetp(L, LUA_REGISTRYINDEX, table);
  }
  lua_insert(L, -2);
  lua_pushvalue(L, -1);
  lua_rawget(L, -3);
  const bool known = lua_toboolean(L, -1) != 0;
  lua_pop(L, 1);
  lua_rawgeti(L, -2, 1);  // the count; the names are strings, so none is 1
  const int count = static_cast<int>(lua_tonumber(L, -1));
  lua_pop(L, 1);
  if (known || count > kReportedNames) {
    lua_pop(L, 2);
    return known ? -1 : count;
  }
  lua_pushboolean(L, 1);
  lua_rawset(L, -3);
  lua_pushnumber(L, count + 1);
  lua_rawseti(L, -2, 1);
  lua_pop(L, 1);
  return count;
}

/// Logs, once for each name in a Lua state, that the program has assigned to the name at `index` (a
/// string), which the blocks of type `type_name` do not declare; with file, line and the nearest
/// name. May raise a Lua error (out of memory), and may run the collector, which may destroy
/// blocks.
inline void ReportUndeclared(lua_State* L, int index, const char* type_name,
                             const FBMetaEntry* table) {
  const char* name = lua_tostring(L, index);
  lua_pushvalue(L, index);
  const int before = NoteUndeclared(L, table);
  if (before < 0 || before > kReportedNames) return;
  char line[LUA_IDSIZE + 16] = "";
  lua_Debug record;
  if (FindProgramLine(L, &record)) {
    std::snprintf(line, sizeof line, "%s:%d: ", record.short_src, record.currentline);
  }
  if (before == kReportedNames) {
    logMsg("%s%s: %d names that it does not declare were reported; further ones are not\n", line,
           type_name, kReportedNames);
    return;
  }
  constexpr int kShown = 60;
  const char* nearest = NearestName(table, name);
  if (nearest == nullptr) {
    logMsg("%s%s does not declare \"%.*s\"\n", line, type_name, kShown, name);
    return;
  }
  logMsg("%s%s does not declare \"%.*s\"; the nearest name is \"%s\"\n", line, type_name, kShown,
         name, nearest);
}
