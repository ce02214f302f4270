// SPDX-License-Identifier: MIT
// Reads the variables of a program, a little at the end of each cycle, without running any of its
// code: no metamethods, no finalizers, no hooks; on a Lua thread of its own.
// Threads: the one that runs the Lua state, between cycles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <lua.hpp>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "runtime/bench/sampling/block_catalogue.h"
#include "runtime/bench/sampling/object_set.h"
#include "runtime/bench/sampling/variable_key.h"
#include "runtime/bench/sampling/variables.h"
#include "runtime/corvane/scan_clock.h"

namespace corvane::bench {

class VariableSampler {
 public:
  /// Prepares a state in which no program has been loaded yet: what its global tables are now are
  /// libraries, and not shown. The state outlives the sampler. Throws LuaError when memory runs
  /// out.
  explicit VariableSampler(lua_State* L);
  VariableSampler(const VariableSampler&) = delete;
  VariableSampler& operator=(const VariableSampler&) = delete;
  ~VariableSampler();

  /// Goes on with the pass over all variables until about `deadline`, and appends what has changed
  /// since the last pass. @return whether the pass has ended; the next call begins another
  bool Sample(VariableChanges& changes, ScanClock::TimePoint deadline) noexcept;
  /// Forgets everything: the next pass reports all variables, as new nodes. @return what was known,
  /// which takes milliseconds to free: another thread should
  [[nodiscard]] std::shared_ptr<void> Reset();
  /// Sets a variable; @return what is wrong, or empty
  [[nodiscard]] std::string Write(NodeId id, const Value& value) noexcept;
  /// Reads a variable, texts whole; @return what is wrong, or empty
  [[nodiscard]] std::string Read(NodeId id, Value& value) noexcept;

  /// Goes on counting the live blocks until about `deadline`. @return whether the count has ended;
  /// `counts` then has it, and the next call begins another
  bool CountBlocks(BlockCounts& counts, ScanClock::TimePoint deadline);

  static constexpr int kMostNodes = 10000;
  static constexpr int kDeepest = 8;  ///< tables in one another

 private:
  /// One node; that of a block stands for its variables, too, whose numbers follow its own.
  struct Entry {
    NodeId id = 0;
    VariableKey key;
    NodeKind kind = NodeKind::kValue;
    std::uint32_t pass = 0;  ///< in which it was seen last
    bool secret = false;
    const void* object = nullptr;    ///< a table or a block
    const void* function = nullptr;  ///< whose upvalue it is, or null
    int upvalue = 0;
    BlockClass* block_class = nullptr;
    std::vector<Value> values;  ///< one, or those of a block
  };
  /// A table or function whose variables are still to be looked at.
  struct Work {
    const void* object;
    NodeId parent;  ///< number of the node that its variables belong to
    int depth;
  };
  /// Where a value is.
  struct Place {
    VariableKeyView key;
    std::string_view name;
    int depth = 0;
    const void* function = nullptr;
    int upvalue = 0;
  };
  struct Request;
  enum class Phase : std::uint8_t { kIdle, kReached, kUnreached, kSweep };

  static int Open(lua_State* L);
  static int Continue(lua_State* L);
  static int Serve(lua_State* L);
  static int Count(lua_State* L);
  void NoteLibraries(lua_State* L);

  void BeginPass(lua_State* L);
  void RunPass(lua_State* L);
  bool VisitWork(lua_State* L);
  bool VisitFields(lua_State* L, void (VariableSampler::*visit)(lua_State*));
  bool VisitFunction(lua_State* L);
  bool VisitUnreached(lua_State* L);
  void VisitField(lua_State* L);
  void VisitUnreachedBlock(lua_State* L);
  void Visit(lua_State* L, Place place);
  void VisitPlain(lua_State* L, const Place& place);
  void VisitTable(lua_State* L, const Place& place);
  void VisitBlock(lua_State* L, const Place& place, BlockClass& block_class);
  void VisitClosure(lua_State* L, const Place& place);
  void ReadBlock(lua_State* L, Entry& entry);
  bool Sweep();
  void Report(lua_State* L, NodeId id, Value& value);
  void Remove(const Entry& entry);
  Entry* Touch(const Place& place, NodeKind kind, std::string_view type);
  Entry* Add(const Place& place, NodeKind kind, std::string_view type);
  Entry* AddBlock(const Place& place, BlockClass& block_class);
  void Refer(lua_State* L, const void* object);
  void PushReferred(lua_State* L, const void* object);
  [[nodiscard]] bool OutOfTime() const;
  bool OutOfTimeAfter(int visited);
  bool Fits(std::size_t nodes);
  bool SeesFirst(const void* object);
  void ServeRequest(lua_State* L, Request& request);
  void ServeBlock(lua_State* L, const Entry& entry, std::size_t variable, Request& request);
  void ServePlain(lua_State* L, const Entry& entry, Request& request);
  std::string RunRequest(Request& request) noexcept;
  int Protected(lua_CFunction function, void* argument) noexcept;

  lua_State* L_;
  lua_State* thread_ = nullptr;  // anchored in the registry, with the tables below
  BlockCatalogue catalogue_;
  std::unordered_set<const void*> libraries_;

  std::map<NodeId, Entry> entries_;
  std::unordered_map<VariableKey, Entry*, VariableKeyHash, VariableKeyEqual> by_key_;
  NodeId last_id_ = 0;
  std::size_t nodes_ = 0;

  Phase phase_ = Phase::kIdle;
  std::uint32_t pass_ = 0;
  std::vector<Work> work_;
  std::size_t next_work_ = 0;
  int next_upvalue_ = 1;
  bool incomplete_ = false;  // something may not have been seen, so nothing is removed
  bool truncating_ = false;  // in this pass
  bool truncated_ = false;   // in the last one
  bool resume_ = false;      // the table at work has been begun in an earlier cycle
  NodeId swept_ = 0;
  lua_Number count_from_ = 0;  // where the count of the blocks goes on; 0: at the beginning
  ObjectSet seen_;
  bool was_long_ = false;  // a block or a long text takes as long as many other variables
  ScanClock::TimePoint deadline_{};
  VariableChanges* changes_ = nullptr;
};

}  // namespace corvane::bench
