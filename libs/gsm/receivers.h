// SPDX-License-Identifier: MIT
// The telephone numbers in the input `Receiver`. Pure functions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace gsm {

/// A job with more would take too long to queue within one call.
inline constexpr std::size_t kMaxReceivers = 100;

struct Receivers {
  std::vector<std::string> numbers;  ///< "+" and digits, or digits, * and #; each one once
  std::string problem;               ///< a sentence; empty: none, and there is at least one number
};

/// Numbers are separated by ; , or line feeds. In a number blanks and - / ( ) . are ignored; a + in
/// front makes it international. It has at most 20 digits. Empty entries are skipped.
[[nodiscard]] Receivers ReadReceivers(std::string_view text);

}  // namespace gsm
