// SPDX-License-Identifier: MIT
#include "runtime/corvane/plc_file.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <string_view>

#include "corvane/program.h"

namespace corvane {
namespace {

constexpr const char* kFileType = "corvane.plc.file";

/// What the userdata holds.
struct WatchedFile {
  std::shared_ptr<FileWatch> watch;
  std::shared_ptr<const FileValue> value;  // in this cycle
  double cycle = -1;                       // its time
};

WatchedFile& CheckFile(lua_State* L) {
  return *static_cast<WatchedFile*>(luaL_checkudata(L, 1, kFileType));
}

double Seconds(FileValue::Time time) {
  return std::chrono::duration<double>(time.time_since_epoch()).count();
}

void PushNumber(lua_State* L, const FileValue& value) {
  lua_pushlstring(L, value.text.data(), value.text.size());
  int is_number = 0;
  const double number = lua_tonumberx(L, -1, &is_number);
  lua_pop(L, 1);
  is_number != 0 ? lua_pushnumber(L, number) : lua_pushnil(L);
}

int Index(lua_State* L) {
  WatchedFile& file = CheckFile(L);
  const std::string_view field = luaL_checkstring(L, 2);
  const double now = CorvaneCycleClock();
  if (file.cycle != now) file.value = file.watch->value();
  file.cycle = now;
  const std::shared_ptr<const FileValue> value = file.value;
  if (field == "path") {
    lua_pushstring(L, file.watch->path().c_str());
  } else if (field == "error") {
    value->error.empty() ? lua_pushnil(L)
                         : static_cast<void>(lua_pushstring(L, value->error.c_str()));
  } else if (field != "text" && field != "number" && field != "age") {
    return luaL_error(L, "plc.file has no field '%s'; there are text, number, age, error and path",
                      lua_tostring(L, 2));
  } else if (!value->read) {
    lua_pushnil(L);
  } else if (field == "text") {
    lua_pushlstring(L, value->text.data(), value->text.size());
  } else if (field == "number") {
    PushNumber(L, *value);
  } else {
    lua_pushnumber(L, std::max(0.0, now - Seconds(*value->read)));
  }
  return 1;
}

int NewIndex(lua_State* L) {
  return luaL_error(L, "the fields of plc.file cannot be assigned");
}

/// The metatable goes first, so that a program which calls this by hand has nothing left to use.
int Collect(lua_State* L) {
  WatchedFile& file = CheckFile(L);
  lua_pushnil(L);
  lua_setmetatable(L, 1);
  file.~WatchedFile();
  return 0;
}

int File(lua_State* L) {
  auto& watches = *static_cast<FileWatches*>(lua_touserdata(L, lua_upvalueindex(1)));
  std::size_t length = 0;
  const char* const path = luaL_checklstring(L, 1, &length);
  luaL_argcheck(L, length != 0 && std::strlen(path) == length, 1, "a path is expected");
  const double interval = luaL_optnumber(L, 2, 1);
  luaL_argcheck(L, interval >= 0.01 && interval <= 86400, 2,
                "an interval from 0.01 to 86400 seconds is expected");
  void* const memory = lua_newuserdata(L, sizeof(WatchedFile));
  auto* const file = new (memory) WatchedFile;
  luaL_setmetatable(L, kFileType);
  const auto nanoseconds = std::chrono::duration<double>(interval);
  file->watch = watches.Add(std::filesystem::absolute(path).string(),
                            std::chrono::duration_cast<std::chrono::nanoseconds>(nanoseconds));
  return 1;
}

}  // namespace

void OpenPlcFile(lua_State* L, FileWatches& watches) {
  luaL_newmetatable(L, kFileType);
  lua_pushcfunction(L, Index);
  lua_setfield(L, -2, "__index");
  lua_pushcfunction(L, NewIndex);
  lua_setfield(L, -2, "__newindex");
  lua_pushcfunction(L, Collect);
  lua_setfield(L, -2, "__gc");
  lua_pushboolean(L, 0);
  lua_setfield(L, -2, "__metatable");
  lua_pop(L, 1);
  lua_pushlightuserdata(L, &watches);
  lua_pushcclosure(L, File, 1);
  lua_setfield(L, -2, "file");
}

}  // namespace corvane
