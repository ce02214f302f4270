// SPDX-License-Identifier: MIT
// What the terminal's type understands, from terminfo. Threads: any, once made.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "runtime/cli/terminal_keys.h"

namespace corvane::cli {

/// The control sequences of one type of terminal, without padding: a terminal that needs time for
/// them asks for it with XOFF. Sequences that the type does not have are empty.
struct TerminalDescription {
  std::string enter;  ///< to the alternate screen, without cursor and without automatic line breaks
  std::string leave;  ///< undoes `enter`, and attributes that a picture may have left on
  std::string clear;
  std::string clear_to_line_end;
  std::string normal, bold, reverse, underline;
  std::string address;  ///< terminfo's `cup`, with its parameters
  int height = 24;      ///< in rows and columns, if the terminal does not report its size
  int width = 80;
  std::vector<KeySequence> keys;

  /// The octets that move the cursor; both count from 0.
  [[nodiscard]] std::string To(int row, int column) const;

  /// The description of the type that TERM names; nullopt if terminfo does not know that type, or
  /// if it cannot put text at any place on the screen.
  [[nodiscard]] static std::optional<TerminalDescription> Of(int terminal);
};

}  // namespace corvane::cli
