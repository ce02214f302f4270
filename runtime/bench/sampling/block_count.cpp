// SPDX-License-Identifier: MIT
// Counting the live blocks of each type.
#include <utility>

#include "runtime/bench/sampling/variable_sampler.h"
#include "runtime/corvaneshare/live_blocks.h"

namespace corvane::bench {
namespace {

constexpr int kBlocksPerLook = 64;  // at the clock

}  // namespace

bool VariableSampler::CountBlocks(BlockCounts& counts, ScanClock::TimePoint deadline) {
  deadline_ = deadline;
  lua_pushcfunction(thread_, Count);
  lua_pushlightuserdata(thread_, this);
  if (lua_pcall(thread_, 1, 0, 0) != LUA_OK) {  // the table has changed too much between two cycles
    lua_settop(thread_, 0);
    count_from_ = 0;
  }
  if (count_from_ != 0) return false;
  catalogue_.TakeCounts(counts);
  return true;
}

/// Argument: the sampler. Allocates nothing, so no collection and no finalizer runs.
int VariableSampler::Count(lua_State* L) {
  auto& sampler = *static_cast<VariableSampler*>(lua_touserdata(L, 1));
  PushTrackedBlocks(L);
  const lua_Number from = std::exchange(sampler.count_from_, 0);
  if (from == 0) {
    lua_pushnil(L);
  } else {
    lua_pushnumber(L, from);
  }
  for (int visited = 1; lua_next(L, 2) != 0; ++visited) {
    BlockClass* const block_class = sampler.catalogue_.Find(L, -1);
    if (block_class != nullptr) ++block_class->counted;
    lua_pop(L, 1);
    if (visited % kBlocksPerLook != 0 || !sampler.OutOfTime()) continue;
    if (lua_type(L, -1) != LUA_TNUMBER) continue;  // the field `n`
    sampler.count_from_ = lua_tonumber(L, -1);
    return 0;
  }
  return 0;
}

}  // namespace corvane::bench
