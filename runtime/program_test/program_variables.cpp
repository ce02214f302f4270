// SPDX-License-Identifier: MIT
#include "runtime/program_test/program_variables.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>

#include "runtime/corvane/lua_environment.h"
#include "runtime/program_test/lua_copy.h"
#include "runtime/program_test/nearest_name.h"

namespace corvane::program_test {
namespace {

const char* KeyText(lua_State* L, const VariablePath::value_type& key) {
  if (const auto* name = std::get_if<std::string>(&key)) return name->c_str();
  return lua_pushfstring(L, "%f", std::get<double>(key));
}

void PushKey(lua_State* L, const VariablePath::value_type& key) {
  if (const auto* name = std::get_if<std::string>(&key)) {
    lua_pushlstring(L, name->data(), name->size());
  } else {
    lua_pushnumber(L, std::get<double>(key));
  }
}

void CheckHasFields(lua_State* L, const VariablePath& path, std::size_t length) {
  if (lua_istable(L, -1) || lua_isuserdata(L, -1) != 0) return;
  luaL_error(L, "'%s' is a %s, so it has no field '%s'", KeyText(L, path[length - 1]),
             luaL_typename(L, -1), KeyText(L, path[length]));
}

/// The globals of a fresh Lua state, which nobody means by a misspelt name.
bool IsOfTheSystem(const std::string& name) {
  static const std::set<std::string> names = [] {
    const LuaEnvironment lua;
    std::set<std::string> found{"plc"};
    lua_pushglobaltable(lua.state());
    for (lua_pushnil(lua.state()); lua_next(lua.state(), -2) != 0; lua_pop(lua.state(), 1)) {
      if (lua_type(lua.state(), -2) == LUA_TSTRING) found.insert(lua_tostring(lua.state(), -2));
    }
    return found;
  }();
  return names.contains(name);
}

}  // namespace

struct ProgramVariables::Access {
  ProgramVariables& variables;
  std::function<void()> work;
};

int ProgramVariables::Run(lua_State* L) {
  static_cast<Access*>(lua_touserdata(L, 1))->work();
  return 0;
}

void ProgramVariables::Protected(Access& access) {
  lua_pushcfunction(L_, Run);
  lua_pushlightuserdata(L_, &access);
  try {
    ProtectedCall(L_, 1, 0);
  } catch (const LuaError& error) {
    throw LuaError(WithoutTraceback(error.what()));
  }
}

/// Notes the local variables that the function on top uses, and searches what they hold; also the
/// functions in a table.
void ProgramVariables::SearchValue(std::vector<const void*>& seen, int depth) {
  constexpr int kMostLevels = 20;
  constexpr std::size_t kMost = 10'000;
  const void* const value = lua_topointer(L_, -1);
  if (depth > kMostLevels || seen.size() > kMost || lua_checkstack(L_, 8) == 0) return;
  if (std::find(seen.begin(), seen.end(), value) != seen.end()) return;
  if (lua_istable(L_, -1)) {
    seen.push_back(value);
    for (lua_pushnil(L_); lua_next(L_, -2) != 0; lua_pop(L_, 1)) {
      if (lua_isfunction(L_, -1) || lua_istable(L_, -1)) SearchValue(seen, depth + 1);
    }
    return;
  }
  if (!lua_isfunction(L_, -1) || lua_iscfunction(L_, -1) != 0) return;
  seen.push_back(value);
  lua_Debug record;
  lua_pushvalue(L_, -1);
  lua_getinfo(L_, ">S", &record);
  if ("@" + file_ != record.source) return;
  for (int number = 1;; ++number) {
    const char* const name = lua_getupvalue(L_, -1, number);
    if (name == nullptr) return;
    if (std::strcmp(name, "_ENV") != 0) {
      if (!upvalues_.contains(name)) {
        lua_pushvalue(L_, -2);
        upvalues_[name] = {luaL_ref(L_, LUA_REGISTRYINDEX), number};
      }
      SearchValue(seen, depth + 1);
    }
    lua_pop(L_, 1);
  }
}

void ProgramVariables::Search() {
  std::vector<const void*> seen;
  lua_pushglobaltable(L_);
  seen.push_back(lua_topointer(L_, -1));
  lua_getfield(L_, -1, "cycle");
  SearchValue(seen, 0);
  lua_pop(L_, 1);
  for (lua_pushnil(L_); lua_next(L_, -2) != 0; lua_pop(L_, 1)) {
    if (lua_type(L_, -2) == LUA_TSTRING && !IsOfTheSystem(lua_tostring(L_, -2))) {
      SearchValue(seen, 0);
    }
  }
  lua_pop(L_, 1);
}

const ProgramVariables::Upvalue* ProgramVariables::Find(const std::string& name) {
  auto found = upvalues_.find(name);
  if (found == upvalues_.end()) {
    Search();
    found = upvalues_.find(name);
  }
  return found == upvalues_.end() ? nullptr : &found->second;
}

void ProgramVariables::RaiseUnknown(const std::string& name) {
  std::vector<std::string> names;
  for (const auto& [known, upvalue] : upvalues_) names.push_back(known);
  lua_pushglobaltable(L_);
  for (lua_pushnil(L_); lua_next(L_, -2) != 0; lua_pop(L_, 1)) {
    if (lua_type(L_, -2) != LUA_TSTRING) continue;
    if (!IsOfTheSystem(lua_tostring(L_, -2))) names.emplace_back(lua_tostring(L_, -2));
  }
  luaL_error(L_, "%s has no variable '%s'; did you mean '%s'?",
             std::filesystem::path(file_).filename().c_str(), name.c_str(),
             NearestOf(names, name).c_str());
  throw LuaError("");  // not reached
}

void ProgramVariables::PushVariable(const std::string& name) {
  lua_pushglobaltable(L_);
  lua_pushlstring(L_, name.data(), name.size());
  lua_rawget(L_, -2);
  lua_remove(L_, -2);
  if (!lua_isnil(L_, -1)) return;
  const Upvalue* const upvalue = Find(name);
  if (upvalue == nullptr) RaiseUnknown(name);
  lua_pop(L_, 1);
  lua_rawgeti(L_, LUA_REGISTRYINDEX, upvalue->function);
  lua_getupvalue(L_, -1, upvalue->number);
  lua_remove(L_, -2);
}

void ProgramVariables::Push(const VariablePath& path, std::size_t length) {
  PushVariable(KeyText(L_, path.front()));
  for (std::size_t i = 1; i < length; ++i) {
    CheckHasFields(L_, path, i);
    PushKey(L_, path[i]);
    lua_gettable(L_, -2);
    lua_remove(L_, -2);
  }
}

VariableKind ProgramVariables::Read(const VariablePath& path, lua_State* to) {
  VariableKind kind = VariableKind::kValue;
  Access access{*this, [&] {
                  Push(path, path.size());
                  switch (lua_type(L_, -1)) {
                    case LUA_TTABLE: kind = VariableKind::kTable; return;
                    case LUA_TUSERDATA: kind = VariableKind::kBlock; return;
                    case LUA_TFUNCTION: kind = VariableKind::kFunction; return;
                    default: CopyLuaValue(L_, -1, to, L_);
                  }
                }};
  Protected(access);
  return kind;
}

void ProgramVariables::Copy(const VariablePath& path, lua_State* to) {
  Access access{*this, [&] {
                  Push(path, path.size());
                  CopyLuaValue(L_, -1, to, L_);
                }};
  Protected(access);
}

/// Stores the value on top.
void ProgramVariables::Store(const VariablePath& path) {
  if (path.size() > 1) {
    Push(path, path.size() - 1);
    CheckHasFields(L_, path, path.size() - 1);
    PushKey(L_, path.back());
    lua_pushvalue(L_, -3);
    lua_settable(L_, -3);
    return;
  }
  const std::string name = KeyText(L_, path.front());
  lua_pushglobaltable(L_);
  lua_getfield(L_, -1, name.c_str());
  const bool is_global = !lua_isnil(L_, -1);
  lua_pop(L_, 1);
  if (is_global) {
    lua_pushvalue(L_, -2);
    lua_setfield(L_, -2, name.c_str());
    return;
  }
  const Upvalue* const upvalue = Find(name);
  if (upvalue == nullptr) RaiseUnknown(name);
  lua_rawgeti(L_, LUA_REGISTRYINDEX, upvalue->function);
  lua_pushvalue(L_, -3);
  lua_setupvalue(L_, -2, upvalue->number);
}

void ProgramVariables::Write(const VariablePath& path, lua_State* from, int index) {
  Access access{*this, [&] {
                  CopyLuaValue(from, index, L_, L_);
                  Store(path);
                }};
  Protected(access);
}

int ProgramVariables::Call(const VariablePath& path, lua_State* test, int index, int count) {
  int results = 0;
  Access access{*this, [&] {
                  Push(path, path.size());
                  const int function = lua_gettop(L_);
                  for (int i = 0; i < count; ++i) CopyLuaValue(test, index + i, L_, L_);
                  lua_call(L_, count, LUA_MULTRET);
                  results = lua_gettop(L_) - function + 1;
                  for (int i = 0; i < results; ++i) CopyLuaValue(L_, function + i, test, L_);
                }};
  Protected(access);
  return results;
}

}  // namespace corvane::program_test
