// SPDX-License-Identifier: MIT
// What the terminal's type understands, as terminfo knows it. Threads: values, once made.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "runtime/cli/terminal_keys.h"

namespace corvane::cli {

/// The control sequences of one type of terminal, without padding: a terminal that needs time for
/// them asks for it with XOFF. What the type does not have is empty.
struct TerminalDescription {
  std::string enter;  ///< to a screen of our own, without cursor and without automatic line breaks
  std::string leave;  ///< undoes `enter`, and what a picture may have left on
  std::string clear;
  std::string clear_to_line_end;
  std::string normal, bold, reverse, underline;
  std::string address;  ///< terminfo's `cup`, with its parameters
  int height = 24;      ///< in rows and columns, where the terminal does not tell its size
  int width = 80;
  std::vector<KeySequence> keys;

  /// The octets that move the cursor; both count from 0.
  [[nodiscard]] std::string To(int row, int column) const;

  /// Of the terminal's type, as TERM says; nothing where terminfo does not know that type, or where
  /// it cannot put text at any place of the screen.
  [[nodiscard]] static std::optional<TerminalDescription> Of(int terminal);
};

}  // namespace corvane::cli
