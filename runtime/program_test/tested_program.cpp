// SPDX-License-Identifier: MIT
#include "runtime/program_test/tested_program.h"

#include <fmt/format.h>

#include <utility>

#include "corvane/program.h"
#include "runtime/corvane/state_folder.h"
#include "runtime/program_test/deadline.h"
#include "runtime/program_test/embedded_lua.h"
#include "runtime/program_test/nearest_name.h"

namespace corvane::program_test {
namespace {

constexpr double kFirstClock = 1000;  // a program must not count on a clock that begins with 0

int Now(lua_State* L) {
  lua_pushnumber(L, CorvaneCycleNow());
  return 1;
}

int Clock(lua_State* L) {
  lua_pushnumber(L, CorvaneCycleClock());
  return 1;
}

/// os.execute: notes the command.
int Execute(lua_State* L) {
  if (lua_isnoneornil(L, 1)) {
    lua_pushboolean(L, 1);
    return 1;
  }
  World& world = World::The();
  const ProcessAnswer answer = world.processes.Start({{"block", "os.execute"},
                                                      {"command", luaL_checkstring(L, 1)},
                                                      {"clock", world.time().clock}});
  const bool signalled = answer.signal != 0;
  const int code = signalled ? answer.signal : answer.exit_code;
  if (code == 0) {
    lua_pushboolean(L, 1);
  } else {
    lua_pushnil(L);
  }
  lua_pushstring(L, signalled ? "signal" : "exit");
  lua_pushnumber(L, code);
  return 3;
}

}  // namespace

TestedProgram::TestedProgram(Options options, World& world)
    : options_(std::move(options)), world_(world), now_offset_(options_.now - kFirstClock) {
  SetStateFolder(options_.state_folder);
  Start();
}

TestedProgram::~TestedProgram() {
  End();
  SetStateFolder({});
}

CycleTime TestedProgram::time() const {
  const double clock = kFirstClock + static_cast<double>(periods_) * options_.period + skipped_;
  return {clock, clock + now_offset_};
}

void TestedProgram::Start() {
  cycle_ = 0;
  world_.Advance(time());
  retained_ = std::make_unique<RetainStore>(options_.state_folder);
  program_ = std::make_unique<ControlProgram>(options_.file, options_.arguments, retained_.get());
  SetCycleTime(time());
  lua_State* L = program_->lua();
  EndAtDeadline(L, "the program");
  Prepare(L);
  variables_ = std::make_unique<ProgramVariables>(L, options_.file.string());
  try {
    program_->Load();
  } catch (const LuaError& error) {
    End();
    throw LuaError(WithoutTraceback(error.what()));
  }
}

/// Gives the program the test's time, and doubles of what would start processes.
void TestedProgram::Prepare(lua_State* L) {
  lua_pushcfunction(L, [](lua_State* program) {
    if (luaL_loadbufferx(program, kProgramEnvironment, kProgramEnvironmentSize, "=corvane test",
                         "t") != LUA_OK) {
      return lua_error(program);
    }
    for (const lua_CFunction function : {Now, Clock, Execute}) {
      lua_pushcfunction(program, function);
    }
    lua_call(program, 3, 0);
    lua_getglobal(program, "plc");
    lua_pushnumber(program, CorvaneCycleNow());
    lua_setfield(program, -2, "now");
    return 0;
  });
  ProtectedCall(L, 0, 0);
}

void TestedProgram::Step() {
  if (program_ == nullptr) throw LuaError("the program is not running; restart it");
  if (cycle_ != 0) ++periods_;
  ++cycle_;
  world_.Advance(time());
  try {
    program_->Cycle(cycle_, time());
  } catch (const LuaError& error) {
    throw LuaError(fmt::format("error in cycle {}: {}", cycle_, WithoutTraceback(error.what())));
  }
}

void TestedProgram::Restart(double off, bool power_cut) {
  if (power_cut && program_ != nullptr) program_->ForgetUnwritten();
  End();
  ++periods_;
  skipped_ += off;
  Start();
}

void TestedProgram::End() {
  variables_.reset();
  program_.reset();
  retained_.reset();  // writes what waits
  world_.ProgramEnded();
}

ProgramVariables& TestedProgram::variables() {
  if (variables_ == nullptr) throw LuaError("the program is not running; restart it");
  return *variables_;
}

}  // namespace corvane::program_test
