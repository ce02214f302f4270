// SPDX-License-Identifier: MIT
// Reading and writing single variables.
#include <bit>
#include <iterator>
#include <utility>

#include "libs/base/printable.h"
#include "runtime/bench/sampling/lua_reading.h"
#include "runtime/bench/sampling/sampler_stack.h"
#include "runtime/bench/sampling/variable_sampler.h"

namespace corvane::bench {
namespace {

constexpr const char* kGone = "the variable has gone";

/// The Lua value on top as a value; texts up to kLongestRead are whole.
Value WholeValue(lua_State* L) {
  Value value;
  std::size_t length = 0;
  const char* const text = lua_type(L, -1) == LUA_TSTRING ? lua_tolstring(L, -1, &length) : nullptr;
  if (text == nullptr || length > kLongestRead) {
    Update(value, L, -1);
    return value;
  }
  return std::string(text, length);
}

void PushKey(lua_State* L, const VariableKey& key) {
  if (key.place == PlaceKind::kNumber) {
    lua_pushnumber(L, std::bit_cast<lua_Number>(key.bits));
  } else if (key.place == PlaceKind::kBoolean) {
    lua_pushboolean(L, key.bits != 0 ? 1 : 0);
  } else {
    lua_pushlstring(L, key.text.data(), key.text.size());
  }
}

}  // namespace

struct VariableSampler::Request {
  NodeId id = 0;
  const Value* write = nullptr;  ///< null: a read
  Value read;
  std::string error;
};

std::string VariableSampler::Write(NodeId id, const Value& value) noexcept {
  Request request{id, &value, {}, {}};
  return RunRequest(request);
}

std::string VariableSampler::Read(NodeId id, Value& value) noexcept {
  Request request{id, nullptr, {}, {}};
  std::string error = RunRequest(request);
  value = std::move(request.read);
  return error;
}

std::string VariableSampler::RunRequest(Request& request) noexcept {
  if (Protected(Serve, &request) == LUA_OK) return std::move(request.error);
  // The text of a block's refusal; other values have none.
  std::size_t length = 0;
  const char* const text =
      lua_type(thread_, -1) == LUA_TSTRING ? lua_tolstring(thread_, -1, &length) : nullptr;
  std::string error =
      text == nullptr ? "the variable cannot be used now" : Printable({text, length});
  lua_settop(thread_, 0);
  return error;
}

/// Arguments: the sampler, the request.
int VariableSampler::Serve(lua_State* L) {
  PushSamplerTables(L);
  auto& request = *static_cast<Request*>(lua_touserdata(L, kArgument));
  static_cast<VariableSampler*>(lua_touserdata(L, kSampler))->ServeRequest(L, request);
  return 0;
}

void VariableSampler::ServeRequest(lua_State* L, Request& request) {
  auto found = entries_.upper_bound(request.id);
  if (found == entries_.begin()) {
    request.error = kGone;
    return;
  }
  const Entry& entry = std::prev(found)->second;
  const auto offset = static_cast<std::size_t>(request.id - entry.id);
  if (entry.block_class != nullptr && offset >= 1 && offset <= entry.values.size()) {
    ServeBlock(L, entry, offset - 1, request);
  } else if (offset != 0) {
    request.error = kGone;
  } else if (entry.kind != NodeKind::kValue) {
    request.error = "this is not a single variable";
  } else if (entry.secret) {
    request.error = "the variable is a secret";
  } else {
    ServePlain(L, entry, request);
  }
}

void VariableSampler::ServeBlock(lua_State* L, const Entry& entry, std::size_t variable,
                                 Request& request) {
  PushReferred(L, entry.object);
  if (catalogue_.Find(L, kObject) != entry.block_class) {
    request.error = kGone;
    return;
  }
  const BlockVariable& declared = entry.block_class->variables[variable];
  if (declared.secret) {
    request.error = "the variable is a secret";
    return;
  }
  if (request.write != nullptr && !declared.writable) {
    request.error = declared.name + " is an output; only the block sets it";
    return;
  }
  BlockCatalogue::PushValue(L, kClassTables, kObject, *entry.block_class, variable);
  if (request.write == nullptr) {
    request.read = WholeValue(L);
    return;
  }
  request.error = TypeProblem(lua_type(L, -1), *request.write);
  if (!request.error.empty()) return;
  Push(L, *request.write);
  BlockCatalogue::Store(L, kClassTables, kObject, *entry.block_class, variable);
}

void VariableSampler::ServePlain(lua_State* L, const Entry& entry, Request& request) {
  const bool is_upvalue = entry.key.place == PlaceKind::kUpvalue;
  if (is_upvalue) {
    PushReferred(L, entry.function);
    if (!lua_isfunction(L, kObject) || lua_getupvalue(L, kObject, entry.upvalue) == nullptr) {
      request.error = kGone;
      return;
    }
  } else {
    const auto parent = entries_.find(entry.key.parent);
    if (entry.key.parent == 0) {
      lua_pushglobaltable(L);
    } else {
      PushReferred(L, parent == entries_.end() ? nullptr : parent->second.object);
    }
    if (!lua_istable(L, kObject)) {
      request.error = kGone;
      return;
    }
    PushKey(L, entry.key);
    lua_rawget(L, kObject);
  }
  if (lua_type(L, -1) != entry.key.lua_type) {
    request.error = kGone;
    return;
  }
  if (request.write == nullptr) {
    request.read = WholeValue(L);
    return;
  }
  request.error = TypeProblem(entry.key.lua_type, *request.write);
  if (!request.error.empty()) return;
  lua_settop(L, kObject);
  if (is_upvalue) {
    Push(L, *request.write);
    lua_setupvalue(L, kObject, entry.upvalue);
  } else {
    PushKey(L, entry.key);
    Push(L, *request.write);
    lua_rawset(L, kObject);
  }
}

}  // namespace corvane::bench
