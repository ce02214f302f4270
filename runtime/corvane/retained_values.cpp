// SPDX-License-Identifier: MIT
#include "runtime/corvane/retained_values.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>
#include <utf8.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "libs/base/printable.h"
#include "runtime/corvane/duration.h"
#include "runtime/corvane/lua_environment.h"
#include "runtime/corvane/retain_json.h"
#include "runtime/corvane/retain_restore.h"
#include "runtime/corvane/retain_snapshot.h"
#include "runtime/corvane/retain_store.h"
#include "runtime/corvane/st_library.h"

namespace corvane {
namespace {

using nlohmann::json;

constexpr std::chrono::milliseconds kSlow{20};
constexpr std::size_t kReportedPaths = 10;

/// The registered type of the block at `index`; empty if it is none, or cannot be retained.
std::string TypeOfBlock(lua_State* L, int index) {
  if (lua_type(L, index) != LUA_TUSERDATA) return {};
  for (const StLibrary& library : RegisteredStLibraries()) {
    if (luaL_testudata(L, index, library.name.c_str()) == nullptr) continue;
    if (luaL_getmetafield(L, index, "__retained") == 0) return {};
    lua_pop(L, 1);
    return library.name;
  }
  return {};
}

void ReportRefused(const std::vector<std::string>& refused) {
  if (refused.empty()) return;
  std::string paths;
  for (std::size_t i = 0; i < std::min(refused.size(), kReportedPaths); ++i) {
    paths += (i == 0 ? "" : ", ") + Printable(refused[i]);
  }
  if (refused.size() > kReportedPaths) paths += ", ...";
  spdlog::warn("retained values of another type than the program's own are not used: {}", paths);
}

}  // namespace

void RetainedValues::Open(lua_State* L) {
  lua_pushlightuserdata(L, this);
  lua_pushcclosure(L, Retain, 1);
  lua_setfield(L, -2, "retain");
}

void RetainedValues::CheckName(lua_State* L) const {
  luaL_argcheck(L, lua_type(L, 1) == LUA_TSTRING, 1, "a name for the values is expected");
  std::size_t length = 0;
  const char* const text = lua_tolstring(L, 1, &length);
  luaL_argcheck(L, length != 0 && utf8::is_valid(text, text + length), 1,
                "the name must be a text in UTF-8, and not empty");
  const std::string_view name(text, length);
  const bool is_known = std::any_of(entries_.begin(), entries_.end(),
                                    [name](const Entry& entry) { return entry.name == name; });
  if (is_known) luaL_error(L, "plc.retain: the name '%s' is used twice", text);
}

int RetainedValues::Retain(lua_State* L) {
  auto& self = *static_cast<RetainedValues*>(lua_touserdata(L, lua_upvalueindex(1)));
  lua_settop(L, 2);
  self.CheckName(L);
  Entry entry{lua_tostring(L, 1), TypeOfBlock(L, 2), LUA_NOREF, LUA_NOREF};
  if (lua_istable(L, 2)) {
    std::string checked;
    SnapshotWriter(L, checked).AddTable(2, entry.name);
  } else if (entry.block_type.empty()) {
    return luaL_argerror(
        L, 2, lua_pushfstring(L, "a table or a block expected, got %s", luaL_typename(L, 2)));
  }
  self.Restore(L, entry);
  if (!entry.block_type.empty()) {
    luaL_getmetafield(L, 2, "__retained");
    entry.read = luaL_ref(L, LUA_REGISTRYINDEX);
  }
  lua_settop(L, 2);
  lua_pushvalue(L, 2);
  entry.value = luaL_ref(L, LUA_REGISTRYINDEX);
  self.entries_.push_back(std::move(entry));
  return 1;
}

void RetainedValues::Restore(lua_State* L, const Entry& entry) {
  const json* const kept = store_ == nullptr ? nullptr : store_->Find(entry.name);
  if (kept == nullptr) return;
  std::vector<std::string> refused;
  const bool was_block = kept->is_object() && kept->contains(kBlockForm);
  if (entry.block_type.empty() && !was_block) {
    lua_pushvalue(L, 2);
    FillTable(L, *kept, entry.name, refused);
  } else if (was_block && kept->contains(kBlockVariables) &&
             kept->at(kBlockForm) == entry.block_type) {
    FillBlock(L, 2, kept->at(kBlockVariables), entry.name, refused);
  } else {
    refused.push_back(entry.name);
  }
  ReportRefused(refused);
}

int RetainedValues::TakeSnapshot(lua_State* L) {
  auto& self = *static_cast<RetainedValues*>(lua_touserdata(L, 1));
  self.fresh_.clear();
  SnapshotWriter writer(L, self.fresh_);
  // By number: a finalizer that runs meanwhile may add an entry.
  // NOLINTNEXTLINE(modernize-loop-convert)
  for (std::size_t i = 0; i < self.entries_.size(); ++i) {
    const Entry& entry = self.entries_[i];
    lua_settop(L, 1);
    lua_rawgeti(L, LUA_REGISTRYINDEX, entry.value);
    if (!entry.block_type.empty()) {
      lua_rawgeti(L, LUA_REGISTRYINDEX, entry.read);
      lua_insert(L, 2);
      lua_call(L, 1, 1);
    }
    writer.AddString(entry.name);
    if (!entry.block_type.empty()) writer.AddString(entry.block_type);
    writer.AddTable(2, entry.name);
  }
  return 0;
}

void RetainedValues::HandOver(lua_State* L) {
  lua_pushcfunction(L, TakeSnapshot);
  lua_pushlightuserdata(L, this);
  ProtectedCall(L, 1, 0);
  if (handed_over_ != nullptr && *handed_over_ == fresh_) return;
  handed_over_ = std::make_shared<const std::string>(fresh_);
  store_->Write(handed_over_);
}

void RetainedValues::AfterCycle(lua_State* L, TimePoint now) {
  if (store_ == nullptr || entries_.empty() || now < next_) return;
  next_ = now + kInterval;
  const auto begin = std::chrono::steady_clock::now();
  HandOver(L);
  const auto took = std::chrono::steady_clock::now() - begin;
  if (took > kSlow && !std::exchange(slow_reported_, true)) {
    spdlog::warn("copying the retained values ({} KB) took {} of a cycle; it is done once a second",
                 fresh_.size() / 1024, FormatDuration(took));
  }
}

void RetainedValues::AtEnd(lua_State* L) noexcept {
  if (store_ == nullptr || entries_.empty()) return;
  try {
    HandOver(L);
  } catch (const std::exception& error) {
    spdlog::error("the retained values are those of up to a second ago: {}",
                  Printable(error.what(), "\n\t"));
  }
}

}  // namespace corvane
