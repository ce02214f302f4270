// SPDX-License-Identifier: MIT
#include "runtime/corvane/retain_restore.h"

#include <fmt/format.h>

#include <cmath>

#include "runtime/corvane/retain_json.h"
#include "runtime/corvane/retain_snapshot.h"

namespace corvane {
namespace {

using nlohmann::json;

class Filling {
 public:
  Filling(lua_State* L, std::vector<std::string>& refused) : L_(L), refused_(refused) {}

  /// Into the table on top.
  void Fill(const json& kept, const std::string& path, std::size_t depth) {
    if (depth > kDeepestTable) return;
    luaL_checkstack(L_, 6, "retained values");
    const int table = lua_gettop(L_);
    const auto fill_pair = [this, table, &path, depth](const json& key, const json& value) {
      FillPair(table, key, value, path, depth);
      lua_settop(L_, table);
    };
    if (!ForEachPair(kept, fill_pair)) refused_.push_back(path);
  }

 private:
  void FillPair(int table, const json& key, const json& value, const std::string& path,
                std::size_t depth) {
    if (!PushScalar(key)) return;
    if (lua_type(L_, -1) == LUA_TNUMBER && std::isnan(lua_tonumber(L_, -1))) return;
    const std::string here = path + LuaKeyText(L_, -1);
    lua_pushvalue(L_, -1);
    lua_rawget(L_, table);
    const int own = lua_type(L_, -1);
    if (PushScalar(value)) {
      if (own != LUA_TNIL && own != lua_type(L_, -1)) {
        refused_.push_back(here);
        return;
      }
    } else if (own == LUA_TTABLE || own == LUA_TNIL) {
      if (own == LUA_TNIL) lua_newtable(L_);
      Fill(value, here, depth + 1);
      if (own == LUA_TTABLE) return;
    } else {
      refused_.push_back(here);
      return;
    }
    lua_remove(L_, -2);  // its own value
    lua_rawset(L_, table);
  }

  /// @return false, and nothing is pushed, if it is a table
  bool PushScalar(const json& value) {
    if (value.is_boolean()) {
      lua_pushboolean(L_, value.get<bool>() ? 1 : 0);
      return true;
    }
    double number = 0;
    if (ReadNumber(value, number)) {
      lua_pushnumber(L_, number);
      return true;
    }
    std::string text;
    if (!ReadText(value, text)) return false;
    lua_pushlstring(L_, text.data(), text.size());
    return true;
  }

  lua_State* L_;
  std::vector<std::string>& refused_;
};

}  // namespace

void FillTable(lua_State* L, const json& kept, const std::string& name,
               std::vector<std::string>& refused) {
  Filling(L, refused).Fill(kept, name, 1);
}

void FillBlock(lua_State* L, int index, const json& variables, const std::string& name,
               std::vector<std::string>& refused) {
  index = lua_absindex(L, index);
  if (luaL_getmetafield(L, index, "__restore") == 0) return;
  lua_pushvalue(L, index);
  lua_newtable(L);
  FillTable(L, variables, name, refused);
  lua_call(L, 2, 1);
  const auto count = static_cast<int>(lua_rawlen(L, -1));
  for (int i = 1; i <= count; ++i) {
    lua_rawgeti(L, -1, i);
    refused.push_back(fmt::format("{}.{}", name, lua_tostring(L, -1)));
    lua_pop(L, 1);
  }
  lua_pop(L, 1);
}

}  // namespace corvane
