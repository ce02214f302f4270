// SPDX-License-Identifier: MIT
// Classifies a line from a modem of any make: one table holds every known result code and
// unsolicited line (3GPP TS 27.005, TS 27.007, ITU-T V.250, makers' own codes).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvane {

enum class LineKind : std::uint8_t {
  kUnknown,
  kOk,               ///< final result: the command was carried out
  kError,            ///< final result: the command failed
  kSimBusy,          ///< final result: not yet; the same command succeeds later
  kUnsolicited,      ///< sent by the modem on its own
  kAnnouncement,     ///< unsolicited: a message or a report has been stored
  kUnsolicitedPair,  ///< unsolicited, and the next line belongs to it
  kRestart,          ///< unsolicited: the modem has restarted and lost its settings
};

/// @param line without its line end and trailing blanks
[[nodiscard]] LineKind KindOfLine(std::string_view line);

/// Whether these first octets of a line may become a line that the modem sends on its own.
[[nodiscard]] bool MayBecomeUnsolicited(std::string_view beginning);

/// A final result as the standards write it: "+CMS ERROR: 500" for "+CMS ERROR:500" and "+CMGS
/// ERROR: 500", "ERROR" for makers' own words of the same meaning; any other line unchanged.
[[nodiscard]] std::string StandardResult(std::string_view line);

[[nodiscard]] constexpr bool IsFinal(LineKind kind) {
  return kind == LineKind::kOk || kind == LineKind::kError || kind == LineKind::kSimBusy;
}

}  // namespace corvane
