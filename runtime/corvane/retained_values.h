// SPDX-License-Identifier: MIT
// plc.retain: values of a program that survive its end. Threads: the one that runs the Lua state.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <lua.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace corvane {

class RetainStore;

/// What a program has passed to plc.retain, and which snapshot of it was handed to the store last.
class RetainedValues {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  /// From one snapshot to the next, so that what a power cut takes is a second at most, and copying
  /// costs one cycle in many a little.
  static constexpr std::chrono::milliseconds kInterval{1000};

  /// @param store null: nothing is kept, and every program starts with its own values
  explicit RetainedValues(RetainStore* store) : store_(store) {}

  /// Adds the function `retain` to the table on top of the stack. This object must outlive the
  /// state. Raises a Lua error when memory runs out.
  void Open(lua_State* L);

  /// Between two cycles: hands a snapshot to the store if it is time and something has changed.
  /// Throws LuaError when a table has come to hold what cannot be retained.
  void AfterCycle(lua_State* L, TimePoint now);
  /// The same at the end of the program, whatever the time; a failure is logged.
  void AtEnd(lua_State* L) noexcept;
  /// From now on nothing more is handed over, as after a power cut.
  void Forget() { store_ = nullptr; }

 private:
  struct Entry {
    std::string name;
    std::string block_type;  ///< empty: a table
    int value;               ///< reference in the registry
    int read;                ///< reference of a block's __retained
  };

  static int Retain(lua_State* L);
  static int TakeSnapshot(lua_State* L);
  void CheckName(lua_State* L) const;
  void Restore(lua_State* L, const Entry& entry);
  void HandOver(lua_State* L);

  RetainStore* store_;
  std::deque<Entry> entries_;  // references stay valid when a finalizer adds an entry
  std::string fresh_;
  std::shared_ptr<const std::string> handed_over_;
  TimePoint next_{};
  bool slow_reported_ = false;
};

}  // namespace corvane
