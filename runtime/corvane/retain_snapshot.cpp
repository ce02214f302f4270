// SPDX-License-Identifier: MIT
#include "runtime/corvane/retain_snapshot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

namespace corvane {
namespace {

void AddMark(std::string& octets, SnapshotMark mark) {
  octets.push_back(static_cast<char>(mark));
}

template <class Number>
void AddOctetsOf(std::string& octets, Number number) {
  octets.append(reinterpret_cast<const char*>(&number), sizeof number);
}

}  // namespace

std::string LuaKeyText(lua_State* L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TSTRING: return fmt::format(".{:.60}", lua_tostring(L, index));
    case LUA_TNUMBER: return fmt::format("[{}]", lua_tonumber(L, index));
    case LUA_TBOOLEAN: return lua_toboolean(L, index) != 0 ? "[true]" : "[false]";
    default: return fmt::format("[{}]", luaL_typename(L, index));
  }
}

void SnapshotWriter::AddString(std::string_view text) {
  AddMark(octets_, SnapshotMark::kString);
  AddOctetsOf(octets_, static_cast<std::uint32_t>(text.size()));
  octets_.append(text);
}

void SnapshotWriter::AddTable(int index, const std::string& name) {
  name_ = name;
  levels_.clear();
  AddLevel(lua_absindex(L_, index));
}

void SnapshotWriter::AddLevel(int table) {
  const void* const identity = lua_topointer(L_, table);
  const bool is_inside_itself =
      std::any_of(levels_.begin(), levels_.end(),
                  [identity](const Level& level) { return level.table == identity; });
  if (is_inside_itself) Refuse("is a table that contains itself");
  if (levels_.size() >= kDeepestTable) Refuse("is a table inside too many others");
  luaL_checkstack(L_, 4, "retained values");
  AddMark(octets_, SnapshotMark::kTable);
  lua_pushnil(L_);
  const int key = lua_gettop(L_);
  levels_.push_back({identity, key});
  while (lua_next(L_, table) != 0) {
    AddKey(key);
    AddValue(key + 1);
    if (octets_.size() > kLargestSnapshot) Refuse("makes the retained values larger than 16 MB");
    lua_settop(L_, key);
  }
  levels_.pop_back();
  AddMark(octets_, SnapshotMark::kEnd);
}

void SnapshotWriter::AddKey(int index) {
  switch (lua_type(L_, index)) {
    case LUA_TNUMBER: AddNumber(index); break;
    case LUA_TSTRING: AddStringAt(index); break;
    case LUA_TBOOLEAN:
      AddMark(octets_, lua_toboolean(L_, index) != 0 ? SnapshotMark::kTrue : SnapshotMark::kFalse);
      break;
    default: Refuse("has a key that is neither a boolean, a number nor a string");
  }
}

void SnapshotWriter::AddValue(int index) {
  switch (lua_type(L_, index)) {
    case LUA_TTABLE: AddLevel(index); break;
    case LUA_TNUMBER: AddNumber(index); break;
    case LUA_TSTRING: AddStringAt(index); break;
    case LUA_TBOOLEAN:
      AddMark(octets_, lua_toboolean(L_, index) != 0 ? SnapshotMark::kTrue : SnapshotMark::kFalse);
      break;
    case LUA_TUSERDATA:
      Refuse(
          "is a userdata; a table may hold booleans, numbers, strings and tables, and a block "
          "is retained under a name of its own");
      break;
    default:
      Refuse(fmt::format("is a {}; only booleans, numbers, strings and tables can be retained",
                         luaL_typename(L_, index))
                 .c_str());
  }
}

void SnapshotWriter::AddNumber(int index) {
  AddMark(octets_, SnapshotMark::kNumber);
  AddOctetsOf(octets_, lua_tonumber(L_, index));
}

void SnapshotWriter::AddStringAt(int index) {
  std::size_t length = 0;
  const char* const text = lua_tolstring(L_, index, &length);
  if (length > kLargestSnapshot) Refuse("makes the retained values larger than 16 MB");
  AddString({text, length});
}

void SnapshotWriter::Refuse(const char* what) {
  std::string path = name_;
  for (const Level& level : levels_) path += LuaKeyText(L_, level.key);
  luaL_error(L_, "plc.retain: %s %s", path.c_str(), what);
}

}  // namespace corvane
