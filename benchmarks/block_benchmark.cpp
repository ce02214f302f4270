// SPDX-License-Identifier: MIT
// What a block costs, compared with a userdata written by hand in C style: a map of names to
// numbers with the same four metamethods. Each operation is timed from a Lua loop.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <map>
#include <string>

#include "addins/corvane_fb_lib/corvane_fb_lib.h"
#include "runtime/corvane/lua_environment.h"

namespace {

using Numbers = std::map<std::string, double>;

Numbers& CheckPeer(lua_State* L) {
  return *static_cast<Numbers*>(luaL_checkudata(L, 1, "PEER"));
}

int PeerIndex(lua_State* L) {
  const Numbers& numbers = CheckPeer(L);
  const auto found = numbers.find(luaL_checkstring(L, 2));
  found == numbers.end() ? lua_pushnil(L) : lua_pushnumber(L, found->second);
  return 1;
}

int PeerNewIndex(lua_State* L) {
  CheckPeer(L)[luaL_checkstring(L, 2)] = luaL_checknumber(L, 3);
  return 0;
}

/// Does what a call of SysProcessCreate does while `Run` does not change: reads and compares it.
int PeerCall(lua_State* L) {
  benchmark::DoNotOptimize(CheckPeer(L)["Run"] != 0);
  return 1;
}

int PeerGc(lua_State* L) {
  CheckPeer(L).~Numbers();
  return 0;
}

int PeerNew(lua_State* L) {
  new (lua_newuserdata(L, sizeof(Numbers))) Numbers{{"Command", 0}, {"Args", 0}, {"Run", 0}};
  luaL_setmetatable(L, "PEER");
  return 1;
}

void OpenPeer(lua_State* L) {
  static const luaL_Reg metatable[] = {{"__index", PeerIndex},
                                       {"__newindex", PeerNewIndex},
                                       {"__call", PeerCall},
                                       {"__gc", PeerGc},
                                       {nullptr, nullptr}};
  luaL_newmetatable(L, "PEER");
  luaL_setfuncs(L, metatable, 0);
  lua_newtable(L);
  lua_pushcfunction(L, PeerNew);
  lua_setfield(L, -2, "new");
  lua_setglobal(L, "PEER");
  lua_settop(L, 0);
}

class Host {
 public:
  Host() {
    [[maybe_unused]] static const int once = InitAddin();
    environment_ = std::make_unique<corvane::LuaEnvironment>();
    OpenPeer(L());
  }
  lua_State* L() const { return environment_->state(); }
  void Run(const std::string& chunk) const {
    if (luaL_loadstring(L(), chunk.c_str()) != LUA_OK)
      throw corvane::LuaError(lua_tostring(L(), -1));
    corvane::ProtectedCall(L(), 0, 0);
  }

 private:
  std::unique_ptr<corvane::LuaEnvironment> environment_;
};

constexpr int kOperations = 1000;  // per timed call, so that entering Lua does not count

/// Times `operation` of a block `fb` of type `type`.
void Operation(benchmark::State& state, const char* type, const char* operation) {
  const Host host;
  host.Run(std::string("fb = ") + type + ".new() function run() local fb = fb for _ = 1, " +
           std::to_string(kOperations) + " do " + operation + " end end");
  for (auto _ : state) {
    lua_getglobal(host.L(), "run");
    lua_call(host.L(), 0, 0);
  }
  state.SetItemsProcessed(state.iterations() * kOperations);
}

constexpr const char* kOurs = "SysProcessCreate";
constexpr const char* kPeer = "PEER";
BENCHMARK_CAPTURE(Operation, read_ours, kOurs, "local value = fb.Run");
BENCHMARK_CAPTURE(Operation, read_peer, kPeer, "local value = fb.Run");
BENCHMARK_CAPTURE(Operation, write_ours, kOurs, "fb.Count = 5");
BENCHMARK_CAPTURE(Operation, write_peer, kPeer, "fb.Count = 5");
BENCHMARK_CAPTURE(Operation, call_ours, kOurs, "fb()");
BENCHMARK_CAPTURE(Operation, call_peer, kPeer, "fb()");

/// Bytes in use on the heap, Lua's included.
double HeapInUse() {
  return static_cast<double>(mallinfo2().uordblks);
}

/// Bytes per block with ten thousand of them alive.
void MemoryPerBlock(benchmark::State& state, const char* type) {
  double bytes = 0;
  for (auto _ : state) {
    const Host host;
    host.Run("blocks = {} for i = 1, 10000 do blocks[i] = false end collectgarbage()");
    const double before = HeapInUse();
    host.Run(std::string("for i = 1, 10000 do blocks[i] = ") + type +
             ".new() end collectgarbage()");
    bytes = (HeapInUse() - before) / 10000;
  }
  state.counters["bytes_per_block"] = bytes;
}
BENCHMARK_CAPTURE(MemoryPerBlock, SysProcessCreate, "SysProcessCreate")->Iterations(1);
BENCHMARK_CAPTURE(MemoryPerBlock, SysProcessCreateWithResult, "SysProcessCreateWithResult")
    ->Iterations(1);
BENCHMARK_CAPTURE(MemoryPerBlock, SEND_SMS, "SEND_SMS")->Iterations(1);
BENCHMARK_CAPTURE(MemoryPerBlock, READ_SMS, "READ_SMS")->Iterations(1);
BENCHMARK_CAPTURE(MemoryPerBlock, PEER, kPeer)->Iterations(1);

/// Heap growth over 100,000 blocks created and collected, after the first 10,000.
void Churn(benchmark::State& state) {
  double growth = 0;
  for (auto _ : state) {
    const Host host;
    const std::string make =
        "for i = 1, 10000 do local b = SysProcessCreate.new{Command = 'c'} end "
        "collectgarbage() collectgarbage()";
    host.Run(make);
    const double before = HeapInUse();
    for (int i = 0; i < 10; ++i) host.Run(make);
    growth = HeapInUse() - before;
  }
  state.counters["bytes_of_growth"] = growth;
}
BENCHMARK(Churn)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
