// SPDX-License-Identifier: MIT
// What a line from a modem is, whatever its maker: one table for every result code and every
// unsolicited line that is known (3GPP TS 27.005, TS 27.007, ITU-T V.250, makers' own codes).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane {

enum class LineKind : std::uint8_t {
  kUnknown,
  kOk,               ///< final result: the command was carried out
  kError,            ///< final result: it was not
  kSimBusy,          ///< final result: not yet; the same command succeeds later
  kUnsolicited,      ///< nobody asked for it
  kUnsolicitedPair,  ///< nobody asked for it, and the next line belongs to it
  kRestart,          ///< unsolicited: the modem has restarted and lost its settings
};

/// @param line without its line end and without blanks at its end
[[nodiscard]] LineKind KindOfLine(std::string_view line);

/// A final result as the standards write it: "+CMS ERROR: 500" for "+CMS ERROR:500" and "+CMGS
/// ERROR: 500", "ERROR" for makers' own words that say no more; any other line as it is.
[[nodiscard]] std::string StandardResult(std::string_view line);

[[nodiscard]] constexpr bool IsFinal(LineKind kind) {
  return kind == LineKind::kOk || kind == LineKind::kError || kind == LineKind::kSimBusy;
}

}  // namespace corvane
