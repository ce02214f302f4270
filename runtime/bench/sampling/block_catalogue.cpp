// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/block_catalogue.h"

#include "runtime/bench/sampling/secret_names.h"
#include "runtime/corvane/declared_variables.h"
#include "runtime/corvane/st_library.h"

namespace corvane::bench {
namespace {

// Indices in the Lua table of a type.
constexpr int kRead = 1;
constexpr int kWrite = 2;
constexpr int kRetained = 3;
constexpr int kFirstName = 4;

BlockVariable Describe(const std::string& type, const DeclaredVariable& declared) {
  BlockVariable variable{declared.name, declared.type, "", IsSecretName(declared.name), false};
  const VariableDescription* const known = FindVariableDescription(type, declared.name);
  const int direction = known == nullptr ? 0 : known->direction;
  if (direction == kSTInput) variable.direction = "input";
  if (direction == kSTOutput) variable.direction = "output";
  variable.writable = direction != kSTOutput && !variable.secret;
  return variable;
}

int NameIndex(std::size_t variable) {
  return kFirstName + static_cast<int>(variable);
}

}  // namespace

void BlockCatalogue::Open(lua_State* L) {
  lua_newtable(L);
  const int table = lua_gettop(L);
  for (const StLibrary& library : RegisteredStLibraries()) {
    luaL_getmetatable(L, library.name.c_str());
    if (lua_istable(L, -1)) AddClass(L, library.name, table);
    lua_settop(L, table);
  }
}

/// The metatable is on top.
void BlockCatalogue::AddClass(lua_State* L, const std::string& type, int table) {
  const int metatable = lua_gettop(L);
  auto block_class = std::make_unique<BlockClass>();
  block_class->type = type;
  block_class->functions = static_cast<int>(classes_.size()) + 1;
  lua_newtable(L);
  constexpr const char* kNames[] = {"__index", "__newindex", "__retained"};
  for (int i = kRead; i <= kRetained; ++i) {
    lua_pushstring(L, kNames[i - kRead]);
    lua_rawget(L, metatable);
    if (lua_iscfunction(L, -1) == 0) {
      if (i != kRetained) return;  // not made by the SDK: its variables cannot be read
      lua_pop(L, 1);
      lua_pushboolean(L, 0);
    }
    lua_rawseti(L, metatable + 1, i);
  }
  for (const DeclaredVariable& declared : DeclaredVariables(L, type)) {
    lua_pushlstring(L, declared.name.data(), declared.name.size());
    lua_rawseti(L, metatable + 1, NameIndex(block_class->variables.size()));
    block_class->variables.push_back(Describe(type, declared));
  }
  lua_rawseti(L, table, block_class->functions);
  classes_[lua_topointer(L, metatable)] = std::move(block_class);
}

BlockClass* BlockCatalogue::Find(lua_State* L, int index) const {
  if (lua_type(L, index) != LUA_TUSERDATA || lua_getmetatable(L, index) == 0) return nullptr;
  const auto found = classes_.find(lua_topointer(L, -1));
  lua_pop(L, 1);
  return found == classes_.end() ? nullptr : found->second.get();
}

void BlockCatalogue::TakeCounts(BlockCounts& counts) {
  for (const auto& [metatable, block_class] : classes_) {
    block_class->has_lived = block_class->has_lived || block_class->counted != 0;
    if (block_class->has_lived) counts[block_class->type] = block_class->counted;
    block_class->counted = 0;
  }
}

/// What a block keeps across restarts are all its variables but the secrets.
void BlockCatalogue::LearnSecrets(lua_State* L, int table, int block, BlockClass& block_class) {
  if (block_class.secrets_known) return;
  const int top = lua_gettop(L);
  lua_rawgeti(L, table, block_class.functions);
  lua_rawgeti(L, top + 1, kRetained);
  if (lua_iscfunction(L, -1) != 0) {
    lua_pushvalue(L, block);
    lua_call(L, 1, 1);
    for (std::size_t i = 0; i < block_class.variables.size() && lua_istable(L, top + 2); ++i) {
      lua_rawgeti(L, top + 1, NameIndex(i));
      lua_rawget(L, top + 2);
      BlockVariable& variable = block_class.variables[i];
      if (lua_isnil(L, -1)) {
        variable.secret = true;
        variable.writable = false;
      }
      lua_pop(L, 1);
    }
  }
  lua_settop(L, top);
  block_class.secrets_known = true;
}

void BlockCatalogue::PushValue(lua_State* L, int table, int block, const BlockClass& block_class,
                               std::size_t variable) {
  lua_rawgeti(L, table, block_class.functions);
  const int functions = lua_gettop(L);
  lua_rawgeti(L, functions, kRead);
  lua_pushvalue(L, block);
  lua_rawgeti(L, functions, NameIndex(variable));
  lua_call(L, 2, 1);
  lua_remove(L, functions);
}

void BlockCatalogue::Store(lua_State* L, int table, int block, const BlockClass& block_class,
                           std::size_t variable) {
  const int value = lua_gettop(L);
  lua_rawgeti(L, table, block_class.functions);
  lua_rawgeti(L, value + 1, kWrite);
  lua_pushvalue(L, block);
  lua_rawgeti(L, value + 1, NameIndex(variable));
  lua_pushvalue(L, value);
  lua_call(L, 3, 0);
  lua_settop(L, value - 1);
}

}  // namespace corvane::bench
