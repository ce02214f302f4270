// SPDX-License-Identifier: MIT
// corvane blocks: the block types, as their metadata describes them.
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
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
  VariableDescription description;
};

struct BlockType {
  std::string name;
  std::vector<Variable> variables;
};

/// Reads the metadata table on top of the stack, whose shape FBMetadata has checked.
std::vector<Variable> ReadVariables(lua_State* L, const std::string& block) {
  std::vector<Variable> variables;
  lua_getfield(L, -1, "Vars");
  const int table = lua_gettop(L);
  for (lua_pushnil(L); lua_next(L, table) != 0; lua_settop(L, table + 1)) {
    lua_getfield(L, table + 2, "Hash");
    lua_getfield(L, table + 2, "Type");
    lua_getfield(L, -1, "Name");
    const std::string name = lua_tostring(L, table + 1);
    const VariableDescription* description = FindVariableDescription(block, name);
    variables.push_back({static_cast<int>(lua_tointeger(L, table + 3)), name, lua_tostring(L, -1),
                         description == nullptr ? VariableDescription() : *description});
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
    block.variables = ReadVariables(L, name);
  } else {
    PrintError(fmt::format("block type {} has published no metadata", name));
  }
  lua_pop(L, 1);
  return block;
}

/// Prints the variables of one direction under `title`; nothing if there are none.
void PrintVariables(const BlockType& block, int direction, std::string_view title) {
  for (const Variable& variable : block.variables) {
    if (variable.description.direction != direction) continue;
    if (!title.empty()) fmt::print(" {}\n", title);
    title = {};
    const std::string& meaning = variable.description.meaning;
    if (meaning.empty()) {
      fmt::print("  {:<14}{}\n", variable.name, variable.type);
    } else {
      fmt::print("  {:<14}{:<14}{}\n", variable.name, variable.type, meaning);
    }
  }
}

void PrintText(const std::vector<BlockType>& blocks) {
  for (const BlockType& block : blocks) {
    fmt::print("{}\n", block.name);
    PrintVariables(block, 0, {});
    PrintVariables(block, kSTInput, "Inputs");
    PrintVariables(block, kSTOutput, "Outputs");
  }
}

nlohmann::ordered_json ToJson(const Variable& variable) {
  nlohmann::ordered_json object{{"name", variable.name}, {"type", variable.type}};
  const VariableDescription& description = variable.description;
  if (description.direction == kSTInput) object["direction"] = "input";
  if (description.direction == kSTOutput) object["direction"] = "output";
  if (!description.meaning.empty()) object["meaning"] = description.meaning;
  return object;
}

void PrintJson(const std::vector<BlockType>& blocks) {
  nlohmann::ordered_json all = nlohmann::ordered_json::array();
  for (const BlockType& block : blocks) {
    nlohmann::ordered_json variables = nlohmann::ordered_json::array();
    for (const Variable& variable : block.variables) variables.push_back(ToJson(variable));
    all.push_back({{"name", block.name}, {"variables", variables}});
  }
  fmt::print("{}\n", all.dump(2));
}

struct BlocksOptions {
  std::string type;  ///< empty: all
  std::vector<std::string> addins;
  bool json = false;
};

/// Reports a type that no add-in has.
int FailForType(const std::string& type) {
  std::string known;
  for (const StLibrary& library : RegisteredStLibraries()) {
    known += (known.empty() ? "" : ", ") + library.name;
  }
  PrintError(fmt::format("there is no block type {}; there are {}", type, known));
  return kUsage;
}

int ListBlocks(const BlocksOptions& options) {
  SetUpLog("warning");
  const auto addins = LoadAddins(options.addins);
  const LuaEnvironment lua;
  lua_pushcfunction(lua.state(), PushBlockTypes);
  ProtectedCall(lua.state(), 0, 1);
  std::vector<BlockType> blocks;
  for (const StLibrary& library : RegisteredStLibraries()) {
    if (!options.type.empty() && library.name != options.type) continue;
    blocks.push_back(ReadBlockType(lua.state(), library.name));
  }
  if (blocks.empty() && !options.type.empty()) return FailForType(options.type);
  options.json ? PrintJson(blocks) : PrintText(blocks);
  return kSuccess;
}

}  // namespace

void AddBlocksCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<BlocksOptions>();
  CLI::App* command = app.add_subcommand("blocks", "List the block types and their variables");
  command->add_option("type", options->type, "List this type only");
  command->add_flag("--json", options->json, "Machine-readable");
  AddAddinOption(*command, options->addins);
  command->footer("Example: corvane blocks SEND_SMS");
  command->callback([options, &action] { action = [options] { return ListBlocks(*options); }; });
}

}  // namespace corvane::cli
