// SPDX-License-Identifier: MIT
// No program can crash its host through what the blocks and the host offer it: hostile_calls.lua
// tries to, and the sanitizers watch. Its random choices follow a seed, which the tests print and
// CORVANE_TEST_SEED sets.
#include <cstdlib>
#include <iomanip>
#include <iostream>

#include "addins/corvane_fb_lib/block_types.h"
#include "runtime/corvane/plc_library.h"
#include "tests/addins/corvane_fb_lib/block_test.h"
#include "tests/support/fake_modem_port.h"

namespace {

using test_support::FakeModemPort;

double Seed() {
  const char* text = std::getenv("CORVANE_TEST_SEED");
  return text != nullptr ? std::atof(text) : 20261121;
}

/// raw(f, ...): calls a C function as the interpreter does, and checks the stack afterwards.
int Raw(lua_State* L) {
  const lua_CFunction function = lua_tocfunction(L, 1);
  if (lua_getupvalue(L, 1, 1) != nullptr) {  // it needs the closure
    lua_pop(L, 1);
    lua_call(L, lua_gettop(L) - 1, LUA_MULTRET);
    return lua_gettop(L);
  }
  lua_remove(L, 1);
  const int arguments = lua_gettop(L);
  const int results = function(L);
  EXPECT_GE(results, 0);
  EXPECT_LE(results, lua_gettop(L)) << "more results than there are values";
  EXPECT_LE(lua_gettop(L), arguments + LUA_MINSTACK) << "more values than there is room for";
  return results;
}

/// fill(room, f, ...): pcall(f, ...) on a stack with room only for the arguments and `room` values.
int Fill(lua_State* L) {
  const int room = static_cast<int>(luaL_checknumber(L, 1));
  const int call = lua_gettop(L) - 1;
  int chunk = 100000;
  while (chunk > 0) {
    if (lua_checkstack(L, chunk) == 0) {
      chunk /= 10;
      continue;
    }
    for (int i = 0; i < chunk; ++i) lua_pushnil(L);
  }
  lua_pop(L, call + room);
  for (int i = 2; i <= call + 1; ++i) lua_pushvalue(L, i);
  const int status = lua_pcall(L, call - 1, 1, 0);
  lua_pushboolean(L, status == LUA_OK ? 1 : 0);
  lua_insert(L, -2);
  return 2;
}

/// light(): a light userdata; bare(): a full one without a metatable.
int Light(lua_State* L) {
  static char somewhere = 0;
  lua_pushlightuserdata(L, &somewhere);
  return 1;
}

int Bare(lua_State* L) {
  lua_newuserdata(L, 0);
  return 1;
}

class HostileCalls : public BlockTest {
 protected:
  HostileCalls() {
    corvane::OpenPlc(L(), plc_);
    if (luaL_loadfile(L(), PROJECT_FOLDER "/tests/addins/corvane_fb_lib/hostile_calls.lua") != 0) {
      ADD_FAILURE() << lua_tostring(L(), -1);
    }
    lua_newtable(L());
    for (const auto& [name, function] : {luaL_Reg{"raw", Raw}, luaL_Reg{"fill", Fill},
                                         luaL_Reg{"light", Light}, luaL_Reg{"bare", Bare}}) {
      lua_pushcfunction(L(), function);
      lua_setfield(L(), -2, name);
    }
    lua_pushlightuserdata(L(), this);
    lua_pushcclosure(L(), Drive, 1);
    lua_setfield(L(), -2, "drive");
    lua_newtable(L());
    for (const FBTypeEntry& type : kBlockTypes) {
      lua_pushstring(L(), type.util().typeName);
      lua_rawseti(L(), -2, static_cast<int>(lua_rawlen(L(), -2)) + 1);
    }
    lua_setfield(L(), -2, "types");
    lua_pushnumber(L(), Seed());
    lua_setfield(L(), -2, "seed");
    corvane::ProtectedCall(L(), 1, 1);
  }
  ~HostileCalls() override {
    CloseHost();  // while the port still exists
    test_support::TakeLog();
  }

  /// Runs one of the functions in hostile_calls.lua. With the collector at full speed it makes only
  /// one in ten of its calls, since each costs a whole collection.
  void Attack(const char* name) {
    const bool slow = std::getenv("CORVANE_TEST_GC_STRESS") != nullptr;
    lua_getfield(L(), -1, name);
    lua_pushnumber(L(), slow ? 10 : 1);
    corvane::ProtectedCall(L(), 1, 1);
    std::cout << "seed " << std::fixed << std::setprecision(0) << Seed() << ": "
              << lua_tonumber(L(), -1) << " calls\n";
    EXPECT_GT(lua_tonumber(L(), -1), 0);
    lua_pop(L(), 1);
    EXPECT_EQ(lua_gettop(L()), 1) << "the stack has changed";
  }

 private:
  /// drive(): the modem port asks for a request and answers it, sometimes well, sometimes badly.
  static int Drive(lua_State* L) {
    static const char* const kAnswers[] = {"OK\r\n", "> ", "ERROR\r\n", "+CMS ERROR: 38\r\n",
                                           "+CMGL: 1,0,,5\r\nFFFFFFFFFF\r\nOK\r\n"};
    auto& self = *static_cast<HostileCalls*>(lua_touserdata(L, lua_upvalueindex(1)));
    if (!self.port_.Poll().empty()) self.port_.Answer(kAnswers[self.answer_++ % 5]);
    test_support::TakeLog();
    return 0;
  }

  FakeModemPort port_{1};
  std::size_t answer_ = 0;
  corvane::PlcContext plc_{{"one"}, std::nullopt};
};

TEST_F(HostileCalls, WithFewArgumentsAreRefusedOrDone) {
  Attack("few_arguments");
}

TEST_F(HostileCalls, WithManyArgumentsAreRefusedOrDone) {
  Attack("many_arguments");
}

TEST_F(HostileCalls, ThatAssignEveryValueChangeOneVariableOrNone) {
  Attack("assignments");
}

TEST_F(HostileCalls, AreRefusedOrDoneInEveryWayOfCalling) {
  Attack("every_way_of_calling");
}

TEST_F(HostileCalls, BetweenThoseOfTheModemDriverLeaveTheBlocksAlive) {
  Attack("lives_of_blocks");
}

TEST_F(HostileCalls, OnBlocksAtWorkWithHostileInputsAreLuaErrorsOrDone) {
  Attack("inputs_at_work");
}

TEST_F(HostileCalls, ByOperatorsAndTheLibraryAreLuaErrors) {
  Attack("operators");
}

TEST_F(HostileCalls, OnAFullStackAreLuaErrors) {
  Attack("full_stack");
}

TEST_F(HostileCalls, InFinalizersAtTheEndOfTheProgramDoNoHarm) {
  Attack("at_the_end");
  CloseHost();
}

}  // namespace
