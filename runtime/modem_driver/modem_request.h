// SPDX-License-Identifier: MIT
// A request that a client sends to the modem (ITU-T V.250, 3GPP TS 27.005), parsed once.
#pragma once

#include <cstdint>
#include <string>

namespace corvane {

/// The kind of a request, which decides how its answer ends.
enum class RequestKind : std::uint8_t {
  kCommand,
  kList,          ///< AT+CMGL, AT+CMGR: headers, each followed by its PDU on a line of its own
  kAnnouncement,  ///< AT+CMGS=, AT+CMGW=: a prompt follows
  kText,          ///< what is written at the prompt; ends with Ctrl-Z
};

struct ModemRequest {
  /// @param octets as they are sent, including the final CR or Ctrl-Z
  explicit ModemRequest(std::string octets);

  std::string octets;
  /// What the lines of its answer begin with: "+CMGL" for "at+cmgl=0\r"; empty for commands without
  /// a name. A text is answered in the name of the command that announced it; the sender of the
  /// text fills this in.
  std::string name;
  RequestKind kind;
  /// The PIN for the SIM card, wherever it is in the line ("ATE0+CPIN=1234"); empty: none.
  std::string pin;
  /// What a log may show above the trace level: no message text, no PIN.
  std::string shown;

  /// What a log may show of an answer line: some modems quote a wrong PIN.
  [[nodiscard]] std::string WithoutPin(const std::string& line) const;
};

}  // namespace corvane
