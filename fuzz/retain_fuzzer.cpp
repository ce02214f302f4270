// SPDX-License-Identifier: MIT
// A file of retained values: what is read and written again is the same; filled into a program's
// table it changes no type; and what a program then keeps is what it gets back.
#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <lua.hpp>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/require.h"
#include "runtime/corvane/retain_json.h"
#include "runtime/corvane/retain_restore.h"
#include "runtime/corvane/retain_snapshot.h"

using namespace corvane;
using nlohmann::json;

namespace {

/// A file with these values, whose checksum is right.
std::string FileOf(std::string_view values) {
  std::uint64_t sum = 0xcbf29ce484222325U;  // FNV-1a
  for (const char octet : values) sum = (sum ^ static_cast<std::uint8_t>(octet)) * 0x100000001b3U;
  return fmt::format("{{\"checksum\":\"{:016x}\",\"values\":{}}}\n", sum, values);
}

constexpr const char* kProgram =
    "return {n = 1, s = 'text', b = true, t = {10, 'x', {k = 'v'}}, [3] = 'three', [true] = {}}";

struct Work {
  const json* kept;
  std::vector<std::string> refused;
  std::string snapshot;
  std::map<std::string, std::string> values;  // by their path
};

/// The exact scalar at `index`, with its type.
std::string Exactly(lua_State* L, int index) {
  switch (lua_type(L, index)) {
    case LUA_TBOOLEAN: return lua_toboolean(L, index) != 0 ? "true" : "false";
    case LUA_TNUMBER: {
      const double number = lua_tonumber(L, index);
      return std::isnan(number) ? "nan" : fmt::format("{:a}", number);
    }
    case LUA_TSTRING: {
      std::size_t size = 0;
      const char* const text = lua_tolstring(L, index, &size);
      return fmt::format("'{}:{}'", size, std::string(text, size));
    }
    default: return "table";
  }
}

/// The values of the table on top of the stack.
void Walk(lua_State* L, const std::string& path, std::map<std::string, std::string>& values) {
  luaL_checkstack(L, 4, "values");
  for (lua_pushnil(L); lua_next(L, -2) != 0; lua_pop(L, 1)) {
    const std::string here = path + "/" + Exactly(L, -2);
    values[here] = Exactly(L, -1);
    if (lua_istable(L, -1)) Walk(L, here, values);
  }
}

/// The program's table with what was kept, as a snapshot. A Lua error leaves only what it says.
int FillAndKeep(lua_State* L) {
  auto& work = *static_cast<Work*>(lua_touserdata(L, 1));
  if (luaL_dostring(L, kProgram)) return lua_error(L);
  FillTable(L, *work.kept, "kept", work.refused);
  for (const auto& [key, type] : {std::pair("n", LUA_TNUMBER), std::pair("s", LUA_TSTRING),
                                  std::pair("b", LUA_TBOOLEAN), std::pair("t", LUA_TTABLE)}) {
    lua_getfield(L, -1, key);
    Require(lua_type(L, -1) == type);
    lua_pop(L, 1);
  }
  SnapshotWriter writer(L, work.snapshot);
  writer.AddTable(lua_gettop(L), "kept");
  Walk(L, "", work.values);
  return 0;
}

/// @return false: it is too large or too deep, which a program cannot keep
bool FillAndKeep(Work& work) {
  const std::unique_ptr<lua_State, decltype(&lua_close)> lua(luaL_newstate(), lua_close);
  lua_pushcfunction(lua.get(), FillAndKeep);
  lua_pushlightuserdata(lua.get(), &work);
  if (lua_pcall(lua.get(), 1, 0, 0) == LUA_OK) return true;
  Require(std::string_view(lua_tostring(lua.get(), -1)).find("kept") != std::string_view::npos);
  return false;
}

void CheckKept(const json& object) {
  Work first{&object, {}, {}, {}};
  if (!FillAndKeep(first)) return;
  for (const std::string& path : first.refused) Require(path.starts_with("kept"));
  SnapshotReader reader(first.snapshot);
  const json kept = reader.TakeValue();
  Require(reader.AtEnd());
  const json read = ReadRetainFileText(RetainFileText({{"table", kept}}));
  Require(read.at("table") == kept);
  Work second{&read.at("table"), {}, {}, {}};
  Require(FillAndKeep(second) && second.refused.empty());
  Require(second.values == first.values);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  try {
    // Without the frame it is hardly ever right, so that is tried first.
    const json any = ReadRetainFileText(input);
    Require(any.is_object());
  } catch (const std::runtime_error& error) {
    Require(!std::string_view(error.what()).empty());
  }
  try {
    const json object = ReadRetainFileText(FileOf(input));
    Require(object.is_object());
    Require(ReadRetainFileText(RetainFileText(object)) == object);
    CheckKept(object);
  } catch (const std::runtime_error& error) {
    Require(!std::string_view(error.what()).empty());
  }
  return 0;
}
