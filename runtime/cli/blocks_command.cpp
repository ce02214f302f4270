// SPDX-License-Identifier: MIT
// corvane blocks: the block types, as their metadata describes them.
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "runtime/cli/addin_loading.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/log_setup.h"
#include "runtime/cli/messages.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvane/st_library.h"

namespace corvane::cli {
namespace {

struct Variable {
  int hash = 0;  ///< position in the block's declaration
  std::string name;
  std::string type;
};

struct BlockType {
  std::string name;
  std::vector<Variable> variables;
};

/// Reads the metadata table on top of the stack, whose shape FBMetadata has checked.
std::vector<Variable> ReadVariables(lua_State* L) {
  std::vector<Variable> variables;
  lua_getfield(L, -1, "Vars");
  const int table = lua_gettop(L);
  for (lua_pushnil(L); lua_next(L, table) != 0; lua_settop(L, table + 1)) {
    lua_getfield(L, table + 2, "Hash");
    lua_getfield(L, table + 2, "Type");
    lua_getfield(L, -1, "Name");
    variables.push_back({static_cast<int>(lua_tointeger(L, table + 3)), lua_tostring(L, table + 1),
                         lua_tostring(L, -1)});
  }
  lua_pop(L, 1);
  std::sort(variables.begin(), variables.end(),
            [](const Variable& a, const Variable& b) { return a.hash < b.hash; });
  return variables;
}

/// Pushes TYPES.StandardFB; an error if an add-in has turned it into something else.
int PushBlockTypes(lua_State* L) {
  lua_getglobal(L, "TYPES");
  lua_getfield(L, -1, "StandardFB");
  luaL_checktype(L, -1, LUA_TTABLE);
  return 1;
}

/// Reports a type without metadata, which has no variables to show.
BlockType ReadBlockType(lua_State* L, const std::string& name) {
  BlockType block{name, {}};
  lua_pushlstring(L, name.data(), name.size());
  lua_rawget(L, -2);
  if (lua_istable(L, -1)) {
    block.variables = ReadVariables(L);
  } else {
    PrintError(fmt::format("block type {} has published no metadata", name));
  }
  lua_pop(L, 1);
  return block;
}

void PrintText(const std::vector<BlockType>& blocks) {
  for (const BlockType& block : blocks) {
    fmt::print("{}\n", block.name);
    for (const Variable& variable : block.variables) {
      fmt::print("  {:<14}{}\n", variable.name, variable.type);
    }
  }
}

void PrintJson(const std::vector<BlockType>& blocks) {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const BlockType& block : blocks) {
    nlohmann::ordered_json variables = nlohmann::ordered_json::array();
    for (const Variable& variable : block.variables) {
      variables.push_back({{"name", variable.name}, {"type", variable.type}});
    }
    all.push_back({{"name", block.name}, {"variables", variables}});
  }
  fmt::print("{}\n", all.dump(2));
}

int ListBlocks(const std::vector<std::string>& addin_files, bool json) {
  SetUpLog("warning");
  const auto addins = LoadAddins(addin_files);
  const LuaEnvironment lua;
  lua_pushcfunction(lua.state(), PushBlockTypes);
  ProtectedCall(lua.state(), 0, 1);
  std::vector<BlockType> blocks;
  for (const StLibrary& library : RegisteredStLibraries()) {
    blocks.push_back(ReadBlockType(lua.state(), library.name));
  }
  json ? PrintJson(blocks) : PrintText(blocks);
  return kSuccess;
}

}  // namespace

void AddBlocksCommand(CLI::App& app, Action& action) {
  struct Options {
    std::vector<std::string> addins;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  CLI::App* command = app.add_subcommand("blocks", "List the block types and their variables");
  command->add_flag("--json", options->json, "Machine-readable");
  AddAddinOption(*command, options->addins);
  command->footer("Example: corvane blocks --json");
  command->callback([options, &action] {
    action = [options] { return ListBlocks(options->addins, options->json); };
  });
}

}  // namespace corvane::cli
