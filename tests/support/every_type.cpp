// SPDX-License-Identifier: MIT
#include "tests/support/every_type.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>
#include <vector>

#include "block/plcopen_variables.h"
#include "runtime/corvane/st_library.h"

namespace test_support {
namespace {

std::string NameOf(const FBTypeEntry& type) {
  return type.util().typeName;
}

std::vector<FBMetaEntry> VariablesOf(const FBTypeEntry& type) {
  std::vector<FBMetaEntry> rows;
  for (const FBMetaEntry* row = type.variables(); row->name != nullptr; ++row) rows.push_back(*row);
  return rows;
}

bool IsStrict(const FBTypeEntry& type) {
  return type.variables()->direction != FBDirection::kUnstated;
}

/// A Lua value that every variable of the elementary type keeps exactly.
std::string ValueFor(std::string_view elementary_type) {
  static const std::map<std::string_view, std::string> values{
      {"BOOL", "true"}, {"INT", "3"},         {"DINT", "3"},
      {"LREAL", "1.5"}, {"STRING", "'none'"}, {"DATE_AND_TIME", "1000"}};
  const auto found = values.find(elementary_type);
  EXPECT_NE(found, values.end()) << elementary_type;
  return found == values.end() ? "nil" : found->second;
}

bool IsOneLine(const char* text) {
  return text != nullptr && *text != '\0' && std::strpbrk(text, "\n\r\t") == nullptr;
}

}  // namespace

void ExpectRegistered(std::span<const TypeRow> rows) {
  std::vector<std::string> registered;
  for (const auto& library : corvane::RegisteredStLibraries()) registered.push_back(library.name);
  std::vector<std::string> stated;
  for (const TypeRow& row : rows) stated.emplace_back(row.name);
  EXPECT_EQ(registered, stated) << "each type of block_types.h has a row in the test's table";
}

void ExpectVariablesInOrder(LuaHost& host, const FBTypeEntry& type, std::span<const TypeRow> rows) {
  host.Run(R"(
    function variables(name)
      local rows = {}
      for variable, meta in pairs(TYPES.StandardFB[name].Vars) do
        rows[meta.Hash + 1] = variable .. ':' .. meta.Type.Name
        assert(meta.Retain == true)
      end
      return table.concat(rows, ' ')
    end)");
  const std::string name = NameOf(type);
  const auto row = std::find_if(rows.begin(), rows.end(),
                                [&name](const TypeRow& each) { return each.name == name; });
  ASSERT_NE(row, rows.end()) << name << " needs a row in the test's table";
  EXPECT_EQ(host.Eval("variables('" + name + "')"), row->variables);
  EXPECT_EQ(host.Eval("TYPES.StandardFB." + name + ".Name"), name);
  EXPECT_EQ(host.Eval("TYPES.StandardFB." + name + ".Hash"), "1001");
}

void ExpectCompleteDeclaration(const FBTypeEntry& type) {
  const std::vector<FBMetaEntry> rows = VariablesOf(type);
  for (const FBMetaEntry& row : rows) {
    EXPECT_EQ(row.direction != FBDirection::kUnstated, IsStrict(type)) << row.name;
    EXPECT_EQ(IsOneLine(row.meaning), IsStrict(type)) << row.name;
  }
  if (!IsStrict(type) || !Declares(type.variables(), plcopen::kExecute.name)) return;
  for (const FBMetaEntry& common : {plcopen::kExecute, plcopen::kBusy, plcopen::kDone,
                                    plcopen::kError, plcopen::kErrorId, plcopen::kErrorText}) {
    const auto row = std::find_if(rows.begin(), rows.end(), [&common](const FBMetaEntry& each) {
      return std::string_view(each.name) == common.name;
    });
    ASSERT_NE(row, rows.end()) << common.name;
    EXPECT_STREQ(row->type, common.type) << common.name;
    EXPECT_EQ(row->direction, common.direction) << common.name;
  }
}

void ExpectInitialValuesReadBack(LuaHost& host, const FBTypeEntry& type) {
  std::string initial;
  std::string check;
  for (const FBMetaEntry& row : VariablesOf(type)) {
    if (row.direction == FBDirection::kOutput || IsHidden(row)) continue;
    initial += std::string(row.name) + " = " + ValueFor(row.type) + ", ";
    check += "assert(fb." + std::string(row.name) + " == " + ValueFor(row.type) + ", '" + row.name +
             "') ";
  }
  EXPECT_NO_THROW(host.Run("fb = " + NameOf(type) + ".new{" + initial + "} " + check));
}

void ExpectRuleOfUnknownNames(LuaHost& host, const FBTypeEntry& type) {
  const std::string name = NameOf(type);
  host.Run("fb = " + name + ".new()");
  EXPECT_EQ(host.Eval("fb.__Internal"), "true");
  EXPECT_EQ(host.Eval("fb.EnO"), "true");
  if (!IsStrict(type)) {
    EXPECT_EQ(host.Eval("fb.NoSuchVariable"), "nil");
    EXPECT_EQ(host.Eval(name + ".new{extra = 'x'}.extra"), "x");
    return;
  }
  for (const std::string& use :
       {std::string("local x = fb.NoSuchVariable"), std::string("fb.NoSuchVariable = 1"),
        name + ".new{NoSuchVariable = 1}"}) {
    EXPECT_THAT(host.ErrorOf(use),
                testing::StartsWith("test:1: " + name +
                                    " has no variable 'NoSuchVariable'; did you mean '"))
        << use;
  }
}

void ExpectRuleOfOutputs(LuaHost& host, const FBTypeEntry& type) {
  const std::string name = NameOf(type);
  host.Run("fb = " + name + ".new()");
  for (const FBMetaEntry& row : VariablesOf(type)) {
    if (IsHidden(row)) continue;
    const std::string assignment = std::string(row.name) + " = " + ValueFor(row.type);
    if (row.direction != FBDirection::kOutput) {
      EXPECT_NO_THROW(host.Run("fb." + assignment)) << row.name;
      continue;
    }
    const std::string error =
        "test:1: " + name + ": '" + row.name + "' is an output; only the block sets it";
    EXPECT_EQ(host.ErrorOf("fb." + assignment), error);
    EXPECT_EQ(host.ErrorOf(name + ".new{" + assignment + "}"), error);
  }
}

void ExpectCallReturnsTheBlock(LuaHost& host, const FBTypeEntry& type) {
  host.Run("fb = " + NameOf(type) + ".new()");
  EXPECT_EQ(host.Eval("fb() == fb"), "true");
}

void ExpectOrderlyEnds(LuaHost& host, const FBTypeEntry& type) {
  const std::string make = NameOf(type) + ".new()";
  host.Run("local fb = " + make + " fb()");
  host.Collect();
  host.Run("local fb = " + make + " fb() getmetatable(fb).__gc(fb) assert(not pcall(fb))");
  host.Run("blocks = {} for i = 1, 10 do blocks[i] = " + make + " blocks[i]() end");
  host.CloseHost();
}

void ExpectOtherObjectsRefused(LuaHost& host, const FBTypeEntry& type) {
  const std::string name = NameOf(type);
  std::string variable = type.variables()->name;
  std::vector<std::string> others{"io.stdout",
                                  "setmetatable({}, getmetatable(" + name + ".new()))"};
  for (const auto& library : corvane::RegisteredStLibraries()) {
    if (library.name != name) others.push_back(library.name + ".new()");
  }
  for (const std::string& other : others) {
    EXPECT_THAT(host.ErrorOf(name + ".get(" + other + ", '" + variable + "')"),
                testing::HasSubstr("bad argument #1"))
        << other;
  }
}

}  // namespace test_support
