// SPDX-License-Identifier: MIT
#include "runtime/bench/sampling/variable_sampler.h"

#include <fmt/format.h>

#include <array>
#include <bit>
#include <chrono>
#include <utility>
#include <variant>

#include "runtime/bench/sampling/lua_reading.h"
#include "runtime/bench/sampling/sampler_stack.h"
#include "runtime/bench/sampling/secret_names.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvaneshare/live_blocks.h"

namespace corvane::bench {
namespace {

constexpr std::string_view kNotReached = "(not reached)";
constexpr std::size_t kLongestKey = 256;  // a variable with a longer name is not shown
constexpr int kFieldsPerLook = 8;         // at the clock
constexpr int kEntriesPerLook = 64;

}  // namespace

VariableSampler::VariableSampler(lua_State* L) : L_(L) {
  lua_pushcfunction(L, Open);
  lua_pushlightuserdata(L, this);
  ProtectedCall(L, 1, 0);
}

VariableSampler::~VariableSampler() {
  lua_pushnil(L_);
  lua_rawsetp(L_, LUA_REGISTRYINDEX, this);
}

/// Argument 1: the sampler.
int VariableSampler::Open(lua_State* L) {
  auto& sampler = *static_cast<VariableSampler*>(lua_touserdata(L, 1));
  PushTrackedBlocks(L);
  if (!lua_istable(L, -1)) TrackBlocks(L);
  lua_settop(L, 1);
  lua_newtable(L);
  lua_newtable(L);  // objects by their address; it keeps none of them alive
  lua_createtable(L, 0, 1);
  lua_pushliteral(L, "v");
  lua_setfield(L, -2, "__mode");
  lua_setmetatable(L, -2);
  lua_rawseti(L, 2, kObjects);
  sampler.catalogue_.Open(L);
  lua_rawseti(L, 2, kClasses);
  sampler.thread_ = lua_newthread(L);
  lua_sethook(sampler.thread_, nullptr, 0, 0);
  lua_rawseti(L, 2, kThread);
  lua_rawsetp(L, LUA_REGISTRYINDEX, &sampler);
  lua_settop(L, 1);
  sampler.NoteLibraries(L);
  return 0;
}

void VariableSampler::NoteLibraries(lua_State* L) {
  lua_pushglobaltable(L);
  const int globals = lua_gettop(L);
  libraries_.insert(lua_topointer(L, globals));
  for (lua_pushnil(L); lua_next(L, globals) != 0; lua_pop(L, 1)) {
    if (lua_istable(L, -1)) libraries_.insert(lua_topointer(L, -1));
  }
  lua_settop(L, globals - 1);
}

int VariableSampler::Protected(lua_CFunction function, void* argument) noexcept {
  // An allocation may start a collection, which would run the program's finalizers.
  const bool collects = lua_gc(thread_, LUA_GCISRUNNING, 0) != 0;
  if (collects) lua_gc(thread_, LUA_GCSTOP, 0);
  lua_pushcfunction(thread_, function);
  lua_pushlightuserdata(thread_, this);
  lua_pushlightuserdata(thread_, argument);
  const int status = lua_pcall(thread_, 2, 0, 0);
  if (collects) lua_gc(thread_, LUA_GCRESTART, 0);
  return status;
}

bool VariableSampler::Sample(VariableChanges& changes, ScanClock::TimePoint deadline) noexcept {
  deadline_ = deadline;
  changes_ = &changes;
  if (Protected(Continue, nullptr) != LUA_OK) {
    lua_settop(thread_, 0);
    // What raised the error, such as a table that changed between two cycles, is left out this
    // time.
    incomplete_ = true;
    ++next_work_;
    next_upvalue_ = 1;
    if (phase_ == Phase::kUnreached) phase_ = Phase::kSweep;
    resume_ = false;
  }
  changes_ = nullptr;
  changes.truncated = truncated_;
  return phase_ == Phase::kIdle;
}

/// Arguments: the sampler, not used.
int VariableSampler::Continue(lua_State* L) {
  PushSamplerTables(L);
  static_cast<VariableSampler*>(lua_touserdata(L, kSampler))->RunPass(L);
  return 0;
}

void VariableSampler::RunPass(lua_State* L) {
  if (phase_ == Phase::kIdle) BeginPass(L);
  while (phase_ == Phase::kReached) {
    if (next_work_ >= work_.size()) {
      phase_ = Phase::kUnreached;
    } else {
      if (!VisitWork(L)) return;
      ++next_work_;
      if (OutOfTime()) return;
    }
  }
  if (phase_ == Phase::kUnreached) {
    if (!VisitUnreached(L)) return;
    phase_ = Phase::kSweep;
    swept_ = 0;
    if (OutOfTime()) return;
  }
  if (!Sweep()) return;
  truncated_ = truncating_;
  phase_ = Phase::kIdle;
}

void VariableSampler::BeginPass(lua_State* L) {
  ++pass_;
  phase_ = Phase::kReached;
  incomplete_ = false;
  truncating_ = false;
  resume_ = false;
  next_upvalue_ = 1;
  seen_.Clear();
  work_.clear();
  by_key_.reserve(kMostNodes);  // it would be arranged again within a cycle
  next_work_ = 0;
  lua_pushglobaltable(L);
  const void* const globals = lua_topointer(L, -1);
  Refer(L, globals);
  seen_.Insert(globals);
  work_.push_back({globals, 0, 0});
  lua_pop(L, 1);
}

/// @return false: it goes on here in the next cycle
bool VariableSampler::VisitWork(lua_State* L) {
  lua_settop(L, kObject - 1);
  PushReferred(L, work_[next_work_].object);
  if (lua_istable(L, kObject)) return VisitFields(L, &VariableSampler::VisitField);
  if (lua_isfunction(L, kObject)) return VisitFunction(L);
  return true;  // it has been collected
}

/// Visits the fields of the table at kObject. @return false: it goes on in the next cycle
bool VariableSampler::VisitFields(lua_State* L, void (VariableSampler::*visit)(lua_State*)) {
  lua_pushnil(L);
  if (resume_) {
    lua_pop(L, 1);
    lua_rawgeti(L, kTables, kResumeKey);
    resume_ = false;
  }
  for (int visited = 1; lua_next(L, kObject) != 0; ++visited) {
    (this->*visit)(L);
    lua_settop(L, kKey);
    if (!OutOfTimeAfter(visited)) continue;
    lua_rawseti(L, kTables, kResumeKey);
    resume_ = true;
    return false;
  }
  return true;
}

bool VariableSampler::VisitFunction(lua_State* L) {
  const Work work = work_[next_work_];
  for (int visited = 1; const char* name = lua_getupvalue(L, kObject, next_upvalue_); ++visited) {
    const void* const identity = lua_upvalueid(L, kObject, next_upvalue_);
    const std::string_view text(name);
    if (!text.empty() && text != "_ENV" && SeesFirst(identity)) {
      VariableKeyView key{work.parent, PlaceKind::kUpvalue, 0,
                          static_cast<std::uint64_t>(std::bit_cast<std::uintptr_t>(identity)),
                          text};
      Visit(L, {key, text, work.depth, work.object, next_upvalue_});
    }
    lua_settop(L, kObject);
    ++next_upvalue_;
    if (OutOfTimeAfter(visited)) return false;
  }
  next_upvalue_ = 1;
  return true;
}

/// Blocks that the program has, but not in a variable that was found.
bool VariableSampler::VisitUnreached(lua_State* L) {
  lua_settop(L, kObject - 1);
  PushTrackedBlocks(L);
  if (!lua_istable(L, kObject)) return true;
  return VisitFields(L, &VariableSampler::VisitUnreachedBlock);
}

void VariableSampler::VisitUnreachedBlock(lua_State* L) {
  BlockClass* const block_class = catalogue_.Find(L, kValue);
  if (block_class == nullptr || lua_type(L, kKey) != LUA_TNUMBER) return;
  if (seen_.Contains(lua_topointer(L, kValue))) return;
  const Place group{{0, PlaceKind::kUnreached, LUA_TTABLE, 0, {}}, kNotReached};
  const Entry* const parent = Touch(group, NodeKind::kTable, "");
  if (parent == nullptr) return;
  const lua_Number number = lua_tonumber(L, kKey);
  const std::string name = fmt::format("#{}", number);
  Place place{{parent->id, PlaceKind::kUnreached, 0, static_cast<std::uint64_t>(number), {}}, name};
  Visit(L, place);
}

/// Key and value of a table are at kKey and kValue.
void VariableSampler::VisitField(lua_State* L) {
  const Work work = work_[next_work_];
  Place place;
  place.key.parent = work.parent;
  place.depth = work.depth;
  std::array<char, 48> text{};
  switch (lua_type(L, kKey)) {
    case LUA_TSTRING: {
      std::size_t length = 0;
      const char* const key = lua_tolstring(L, kKey, &length);
      if (length > kLongestKey) return;
      place.name = place.key.text = {key, length};
      break;
    }
    case LUA_TNUMBER: {
      const lua_Number number = lua_tonumber(L, kKey);
      place.key.place = PlaceKind::kNumber;
      place.key.bits = std::bit_cast<std::uint64_t>(number);
      const auto end = fmt::format_to_n(text.data(), text.size(), "[{}]", number).out;
      place.name = {text.data(), static_cast<std::size_t>(end - text.data())};
      break;
    }
    case LUA_TBOOLEAN:
      place.key.place = PlaceKind::kBoolean;
      place.key.bits = lua_toboolean(L, kKey) != 0 ? 1 : 0;
      place.name = place.key.bits != 0 ? "[true]" : "[false]";
      break;
    default: return;
  }
  if (work.parent == 0 && place.name == "_VERSION") return;
  Visit(L, place);
}

/// The value at `place` is on top.
void VariableSampler::Visit(lua_State* L, Place place) {
  const int type = lua_type(L, -1);
  place.key.lua_type = type;
  switch (type) {
    case LUA_TBOOLEAN:
    case LUA_TNUMBER:
    case LUA_TSTRING: VisitPlain(L, place); break;
    case LUA_TTABLE: VisitTable(L, place); break;
    case LUA_TFUNCTION: VisitClosure(L, place); break;
    case LUA_TUSERDATA:
      if (BlockClass* const block_class = catalogue_.Find(L, -1)) {
        VisitBlock(L, place, *block_class);
      }
      break;
    default: break;
  }
}

void VariableSampler::VisitPlain(lua_State* L, const Place& place) {
  Entry* const entry = Touch(place, NodeKind::kValue, lua_typename(L, place.key.lua_type));
  if (entry == nullptr || entry->secret) return;
  Report(L, entry->id, entry->values[0]);
}

void VariableSampler::VisitTable(lua_State* L, const Place& place) {
  const void* const table = lua_topointer(L, -1);
  if (libraries_.contains(table)) return;
  if (IsSecretName(place.name)) {
    Touch(place, NodeKind::kValue, "table");
    return;
  }
  if (!SeesFirst(table)) return;
  Entry* const entry = Touch(place, NodeKind::kTable, "table");
  if (entry == nullptr) return;
  entry->object = table;
  Refer(L, table);
  if (place.depth + 1 < kDeepest) {
    work_.push_back({table, entry->id, place.depth + 1});
  } else {
    truncating_ = true;
  }
}

/// The variables of a function belong to what the function is in.
void VariableSampler::VisitClosure(lua_State* L, const Place& place) {
  if (lua_iscfunction(L, -1) != 0) return;
  const void* const function = lua_topointer(L, -1);
  if (place.depth >= kDeepest || !SeesFirst(function)) return;
  Refer(L, function);
  work_.push_back({function, place.key.parent, place.depth + 1});
}

void VariableSampler::VisitBlock(lua_State* L, const Place& place, BlockClass& block_class) {
  const void* const block = lua_topointer(L, -1);
  if (!SeesFirst(block)) return;
  const int top = lua_gettop(L);
  BlockCatalogue::LearnSecrets(L, kClassTables, top, block_class);
  Entry* entry = nullptr;
  const auto found = by_key_.find(place.key);
  // Another block in the same variable is another node: its edges and times are its own.
  if (found != by_key_.end() && found->second->object == block &&
      found->second->block_class == &block_class) {
    entry = found->second;
    entry->pass = pass_;
  } else {
    entry = AddBlock(place, block_class);
  }
  if (entry == nullptr) return;
  if (entry->object == nullptr) {
    entry->object = block;
    Refer(L, block);
  }
  ReadBlock(L, *entry);
  was_long_ = true;
}

/// The block is on top.
void VariableSampler::ReadBlock(lua_State* L, Entry& entry) {
  const int block = lua_gettop(L);
  for (std::size_t i = 0; i < entry.values.size(); ++i) {
    if (entry.block_class->variables[i].secret) continue;
    BlockCatalogue::PushValue(L, kClassTables, block, *entry.block_class, i);
    Report(L, entry.id + 1 + static_cast<NodeId>(i), entry.values[i]);
    lua_settop(L, block);
  }
}

/// The value on top is that of this node.
void VariableSampler::Report(lua_State* L, NodeId id, Value& value) {
  if (Update(value, L, -1)) changes_->values.emplace_back(id, value);
  was_long_ = was_long_ || std::holds_alternative<LongText>(value);
}

/// Removes nodes that this pass has not seen. @return false: it goes on in the next cycle
bool VariableSampler::Sweep() {
  if (incomplete_) return true;
  int visited = 0;
  for (auto entry = entries_.upper_bound(swept_); entry != entries_.end();) {
    swept_ = entry->first;
    if (entry->second.pass != pass_) {
      Remove(entry->second);
      entry = entries_.erase(entry);
    } else {
      ++entry;
    }
    if (++visited % kEntriesPerLook == 0 && OutOfTime()) return false;
  }
  return true;
}

void VariableSampler::Remove(const Entry& entry) {
  const auto variables = entry.block_class == nullptr ? 0 : entry.values.size();
  for (NodeId id = entry.id; id <= entry.id + static_cast<NodeId>(variables); ++id) {
    changes_->removed.push_back(id);
  }
  nodes_ -= variables + 1;
  // Another block may have taken its place.
  const auto found = by_key_.find(entry.key);
  if (found != by_key_.end() && found->second == &entry) by_key_.erase(found);
}

/// The entry of a node that is not a block, seen in this pass; null if there are too many.
VariableSampler::Entry* VariableSampler::Touch(const Place& place, NodeKind kind,
                                               std::string_view type) {
  const auto found = by_key_.find(place.key);
  Entry* const entry = found != by_key_.end() ? found->second : Add(place, kind, type);
  if (entry == nullptr) return nullptr;
  entry->pass = pass_;
  entry->function = place.function;
  entry->upvalue = place.upvalue;
  return entry;
}

VariableSampler::Entry* VariableSampler::Add(const Place& place, NodeKind kind,
                                             std::string_view type) {
  if (!Fits(1)) return nullptr;
  const bool secret = kind == NodeKind::kValue && IsSecretName(place.name);
  const NodeId id = last_id_ + 1;
  Entry& entry = entries_[id];
  entry.id = id;
  entry.key = VariableKey(place.key);
  entry.pass = pass_;
  entry.kind = kind;
  entry.secret = secret;
  if (kind == NodeKind::kValue) entry.values.resize(1);
  by_key_[entry.key] = &entry;
  changes_->added.push_back({id, place.key.parent, std::string(place.name), kind, std::string(type),
                             "", secret, kind == NodeKind::kValue && !secret});
  last_id_ = id;
  ++nodes_;
  return &entry;
}

VariableSampler::Entry* VariableSampler::AddBlock(const Place& place, BlockClass& block_class) {
  const auto variables = block_class.variables.size();
  if (!Fits(variables + 1)) return nullptr;
  Entry* const entry = Add(place, NodeKind::kBlock, block_class.type);
  if (entry == nullptr) return nullptr;
  entry->block_class = &block_class;
  entry->values.resize(variables);
  for (const BlockVariable& variable : block_class.variables) {
    changes_->added.push_back({++last_id_, entry->id, variable.name, NodeKind::kValue,
                               variable.type, variable.direction, variable.secret,
                               variable.writable});
  }
  nodes_ += variables;
  return entry;
}

bool VariableSampler::Fits(std::size_t nodes) {
  if (nodes_ + nodes <= kMostNodes) return true;
  truncating_ = true;
  return false;
}

/// Whether the object has not been seen in this pass. @return false also if there are too many
bool VariableSampler::SeesFirst(const void* object) {
  const ObjectSet::Added added = seen_.Insert(object);
  if (added == ObjectSet::Added::kRefused) truncating_ = true;
  return added == ObjectSet::Added::kNew;
}

/// Remembers the object on top.
void VariableSampler::Refer(lua_State* L, const void* object) {
  lua_pushvalue(L, -1);
  lua_rawsetp(L, kObjectTable, object);
}

void VariableSampler::PushReferred(lua_State* L, const void* object) {
  lua_rawgetp(L, kObjectTable, object);
}

/// `visited`: how many variables of a table or function.
bool VariableSampler::OutOfTimeAfter(int visited) {
  const bool look = std::exchange(was_long_, false) || visited % kFieldsPerLook == 0;
  return look && OutOfTime();
}

bool VariableSampler::OutOfTime() const {
  return std::chrono::steady_clock::now() >= deadline_;
}

std::shared_ptr<void> VariableSampler::Reset() {
  struct Known {
    decltype(entries_) entries;
    decltype(by_key_) by_key;
    ObjectSet seen;
  };
  auto known = std::make_shared<Known>();
  entries_.swap(known->entries);
  by_key_.swap(known->by_key);
  std::swap(seen_, known->seen);
  work_.clear();
  nodes_ = 0;
  phase_ = Phase::kIdle;
  resume_ = false;
  return known;
}

}  // namespace corvane::bench
