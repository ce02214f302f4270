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

std::string StringField(lua_State* L, int table, const char* key) {
  lua_getfield(L, table, key);
  std::string text = lua_tostring(L, -1);
  lua_pop(L, 1);
  return text;
}

/// Reads TYPES.StandardFB.<name>, whose shape FBMetadata has checked.
BlockType ReadBlockType(lua_State* L, const std::string& name) {
  BlockType block{name, {}};
  lua_getglobal(L, "TYPES");
  lua_getfield(L, -1, "StandardFB");
  lua_getfield(L, -1, name.c_str());
  lua_getfield(L, -1, "Vars");
  const int variables = lua_gettop(L);
  for (lua_pushnil(L); lua_next(L, variables) != 0; lua_pop(L, 1)) {
    const int entry = lua_gettop(L);
    Variable variable;
    variable.name = lua_tostring(L, -2);
    lua_getfield(L, entry, "Hash");
    variable.hash = static_cast<int>(lua_tointeger(L, -1));
    lua_getfield(L, entry, "Type");
    variable.type = StringField(L, lua_gettop(L), "Name");
    lua_pop(L, 2);
    block.variables.push_back(variable);
  }
  lua_settop(L, 0);
  std::sort(block.variables.begin(), block.variables.end(),
            [](const Variable& a, const Variable& b) { return a.hash < b.hash; });
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
