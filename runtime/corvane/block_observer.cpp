// SPDX-License-Identifier: MIT
#include "runtime/corvane/block_observer.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string_view>

#include "runtime/corvane/declared_variables.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvane/st_library.h"
#include "runtime/corvane/value_text.h"
#include "runtime/corvaneshare/live_blocks.h"

namespace corvane {
namespace {

using Names = std::map<const void*, std::string>;

/// Looks for the program's variables that hold blocks: globals, the variables that `cycle` and the
/// functions it uses refer to, and fields of tables in them.
class NameSearch {
 public:
  NameSearch(lua_State* L, Names& names) : L_(L), names_(names) {}

  void Run() {
    lua_pushglobaltable(L_);
    seen_.insert(lua_topointer(L_, -1));
    VisitGlobals(false);  // the first name found is kept, so short ones come first
    VisitGlobals(true);
    lua_pop(L_, 1);
  }

 private:
  void VisitGlobals(bool tables) {
    const int globals = lua_gettop(L_);
    for (lua_pushnil(L_); lua_next(L_, globals) != 0; lua_pop(L_, 1)) {
      const bool named = lua_type(L_, -2) == LUA_TSTRING;
      if (named && lua_istable(L_, -1) == tables) Visit(lua_tostring(L_, -2), 0);
    }
  }

  /// Visits the value on top, which the program calls `name`.
  void Visit(const std::string& name, int depth) {
    if (lua_type(L_, -1) == LUA_TUSERDATA) {
      names_.try_emplace(lua_topointer(L_, -1), name);
      return;
    }
    if (depth > kDepth || seen_.size() > kValues || lua_checkstack(L_, 4) == 0) return;
    if (!seen_.insert(lua_topointer(L_, -1)).second) return;
    if (lua_isfunction(L_, -1) && !lua_iscfunction(L_, -1)) VisitUpvalues(depth);
    if (lua_istable(L_, -1)) VisitFields(name, depth);
  }

  void VisitUpvalues(int depth) {
    for (int i = 1;; ++i) {
      const char* name = lua_getupvalue(L_, -1, i);
      if (name == nullptr) return;
      if (std::string_view(name) != "_ENV") Visit(name, depth + 1);
      lua_pop(L_, 1);
    }
  }

  void VisitFields(const std::string& name, int depth) {
    const int table = lua_gettop(L_);
    for (lua_pushnil(L_); lua_next(L_, table) != 0; lua_pop(L_, 1)) {
      if (lua_type(L_, -2) == LUA_TSTRING) {
        Visit(name + "." + lua_tostring(L_, -2), depth + 1);
      } else if (lua_type(L_, -2) == LUA_TNUMBER) {
        Visit(fmt::format("{}[{}]", name, lua_tonumber(L_, -2)), depth + 1);
      }
    }
  }

  static constexpr int kDepth = 4;
  static constexpr std::size_t kValues = 1000;  // a big table must not stop the program
  lua_State* L_;
  Names& names_;
  std::set<const void*> seen_;
};

std::string NumberText(const std::string& type, const std::string& variable, lua_Number number,
                       const char* text) {
  const std::string meaning = ValueMeaning(type, variable, number);
  return meaning.empty() ? text : fmt::format("{} {}", text, meaning);
}

/// The value on top, a variable of a block of type `type`, as people read it.
std::string ValueText(lua_State* L, const std::string& type, const DeclaredVariable& declaration) {
  if (declaration.name == "Password" || declaration.name == "Token")
    return lua_rawlen(L, -1) == 0 ? "''" : kHiddenValue;
  if (lua_isnil(L, -1)) return "-";
  if (lua_isboolean(L, -1)) return lua_toboolean(L, -1) != 0 ? "TRUE" : "FALSE";
  if (declaration.type == "DATE_AND_TIME" && lua_type(L, -1) == LUA_TNUMBER) {
    if (auto date = DateText(lua_tonumber(L, -1))) return *std::move(date);
  }
  const bool quoted = lua_type(L, -1) == LUA_TSTRING;
  const lua_Number number = lua_tonumber(L, -1);
  std::size_t length = 0;
  const char* text = lua_tolstring(L, -1, &length);
  if (text == nullptr) return luaL_typename(L, -1);
  return quoted ? QuotedText({text, length}) : NumberText(type, declaration.name, number, text);
}

/// The registered type of the block on top; empty if the value is not a block, or no longer is one.
std::string TypeOf(lua_State* L) {
  for (const StLibrary& library : RegisteredStLibraries()) {
    if (luaL_testudata(L, -1, library.name.c_str()) != nullptr) return library.name;
  }
  return {};
}

/// The block on top.
BlockState ReadBlock(lua_State* L, const std::string& type,
                     const std::vector<DeclaredVariable>& declarations) {
  BlockState block{0, "", type, {}};
  for (const DeclaredVariable& declaration : declarations) {
    lua_getfield(L, -1, declaration.name.c_str());
    block.variables.push_back({declaration.name, ValueText(L, type, declaration)});
    lua_pop(L, 1);
  }
  return block;
}

struct Reading {
  std::vector<BlockState> blocks;
  Names& names;
  int& named;
};

/// The numbers of the live blocks in the table on top.
std::vector<int> Numbers(lua_State* L) {
  std::vector<int> numbers;
  for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
    if (lua_type(L, -2) == LUA_TNUMBER) numbers.push_back(static_cast<int>(lua_tonumber(L, -2)));
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

/// Argument 1: the Reading. Lua is compiled as C++, so an error destroys the objects here.
int ReadAll(lua_State* L) {
  auto& reading = *static_cast<Reading*>(lua_touserdata(L, 1));
  PushTrackedBlocks(L);
  lua_getfield(L, 2, "n");
  const auto count = static_cast<int>(lua_tonumber(L, -1));
  lua_pop(L, 1);
  if (reading.named != count) {
    reading.names.clear();
    NameSearch(L, reading.names).Run();
    reading.named = count;
  }
  std::map<std::string, std::vector<DeclaredVariable>> declarations;
  for (const int number : Numbers(L)) {
    lua_settop(L, 2);
    lua_rawgeti(L, 2, number);
    const std::string type = TypeOf(L);
    if (type.empty()) continue;
    const auto [of_type, is_new] = declarations.try_emplace(type);
    if (is_new) of_type->second = DeclaredVariables(L, type);
    BlockState block = ReadBlock(L, type, of_type->second);
    block.number = number;
    const auto name = reading.names.find(lua_topointer(L, -1));
    block.name = name != reading.names.end() ? name->second : fmt::format("#{}", number);
    reading.blocks.push_back(std::move(block));
  }
  return 0;
}

int Track(lua_State* L) {
  TrackBlocks(L);
  return 0;
}

}  // namespace

BlockObserver::BlockObserver(lua_State* L) : L_(L) {
  lua_pushcfunction(L, Track);
  ProtectedCall(L, 0, 0);
}

std::vector<BlockState> BlockObserver::Read() {
  Reading reading{{}, names_, named_};
  lua_pushcfunction(L_, ReadAll);
  lua_pushlightuserdata(L_, &reading);
  ProtectedCall(L_, 1, 0);
  return std::move(reading.blocks);
}

}  // namespace corvane
