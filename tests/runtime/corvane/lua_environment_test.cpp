// SPDX-License-Identifier: MIT
#include "runtime/corvane/lua_environment.h"

#include "runtime/corvaneshare/elementary_types.h"
#include "tests/support/lua_host.h"

namespace {

class LuaEnvironmentTest : public test_support::LuaHost {};

TEST_F(LuaEnvironmentTest, TypesHoldsEveryElementaryType) {
  for (const auto& type : corvane::kElementaryTypes) {
    EXPECT_EQ(Eval("TYPES.Elementary." + std::string(type.name) + ".Name"), type.name);
  }
  EXPECT_EQ(Eval("type(TYPES.StandardFB)"), "table");
}

TEST_F(LuaEnvironmentTest, MetadataOfTheRightShapeIsReturned) {
  Run("t = {Name = 'X', Hash = 1, Vars = {A = {Hash = 0, Type = TYPES.Elementary.BOOL, Retain = "
      "true}}}");
  EXPECT_EQ(Eval("FBMetadata(t) == t"), "true");
  EXPECT_EQ(Eval("select('#', FBMetadata(t))"), "1");
}

TEST_F(LuaEnvironmentTest, MetadataOfTheWrongShapeIsRefusedWithTheField) {
  EXPECT_THAT(ErrorOf("FBMetadata(5)"), testing::HasSubstr("table expected, got number"));
  EXPECT_THAT(
      ErrorOf("FBMetadata{}"),
      testing::HasSubstr("metadata of a block type: the field Name must be a string, not a nil"));
  EXPECT_THAT(ErrorOf("FBMetadata{Name = 'X'}"),
              testing::HasSubstr("metadata of X: the field Hash must be a number"));
  EXPECT_THAT(ErrorOf("FBMetadata{Name = 'X', Hash = 1}"),
              testing::HasSubstr("metadata of X: the field Vars must be a table"));
  EXPECT_THAT(ErrorOf("FBMetadata{Name = 'X', Hash = 1, Vars = {5}}"),
              testing::HasSubstr("Vars must map names to tables"));
  EXPECT_THAT(ErrorOf("FBMetadata{Name = 'X', Hash = 1, Vars = {A = {Hash = 0}}}"),
              testing::HasSubstr("metadata of A: the field Type must be a table"));
  EXPECT_THAT(ErrorOf("FBMetadata{Name = 'X', Hash = 1, Vars = {A = {Hash = 0, Type = {}}}}"),
              testing::HasSubstr("metadata of A: the field Name must be a string"));
}

TEST_F(LuaEnvironmentTest, MetadataThatWouldAnswerDifferentlyTheSecondTimeIsAskedOnce) {
  Run(R"(
    asked = 0
    metadata = setmetatable({Name = 'X', Hash = 1}, {__index = function()
      asked = asked + 1
      return asked == 1 and {} or 5
    end}))");
  EXPECT_EQ(Eval("FBMetadata(metadata) == metadata"), "true");
  EXPECT_EQ(Eval("asked"), "1");
}

TEST_F(LuaEnvironmentTest, AProtectedCallReturnsResultsAndKeepsTheStack) {
  lua_pushliteral(L(), "below");
  luaL_loadstring(L(), "local a, b = ... return a + b, a * b");
  lua_pushnumber(L(), 3);
  lua_pushnumber(L(), 4);
  corvane::ProtectedCall(L(), 2, 2);
  ASSERT_EQ(lua_gettop(L()), 3);
  EXPECT_EQ(lua_tonumber(L(), 2), 7);
  EXPECT_EQ(lua_tonumber(L(), 3), 12);
}

TEST_F(LuaEnvironmentTest, AFailedCallLeavesTheStackAsItWas) {
  lua_pushliteral(L(), "below");
  luaL_loadstring(L(), "error('no')");
  EXPECT_THROW(corvane::ProtectedCall(L(), 0, 3), corvane::LuaError);
  EXPECT_EQ(lua_gettop(L()), 1);
}

}  // namespace
