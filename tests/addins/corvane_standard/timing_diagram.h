// SPDX-License-Identifier: MIT
// Timing diagrams in text, as the pages of the blocks show them; replayed on a real block.
//
//     TON, PT = 3; a column is 1 s
//          0    5
//     IN   ▁████▁██▁
//     Q    ▁▁▁▁█▁▁▁▁
//     ET   001230010
//
// The first line has the type, initial values, and the time from one call to the next. A column is
// a call: ▁ is FALSE, █ is TRUE, a digit is a number, "?" any value. A row without a name counts
// the columns: a number is written where its column begins.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/support/lua_host.h"

namespace test_support {

struct TimingDiagram {
  struct Row {
    std::string name;
    std::vector<std::string> cells;  // a character each
  };

  std::string text;     // as it was read
  std::string type;     // of the block
  std::string initial;  // a Lua table
  double step = 0;      // s
  std::vector<Row> rows;

  /// Throws std::invalid_argument for a diagram that is not one.
  static TimingDiagram Read(const std::string& text);
};

/// Called before each call of the block with the time since the first one, in seconds.
using SetTime = std::function<void(double)>;

/// Creates the block as `fb`, and calls it for each column with what the rows of its inputs say.
/// @return the diagram, with what the outputs were in the rows of the outputs
std::string Replay(LuaHost& host, const TimingDiagram& diagram, const SetTime& set_time);

/// The diagrams of a page, which are blocks of the language "timing".
std::vector<TimingDiagram> DiagramsOf(const std::string& page);

}  // namespace test_support
