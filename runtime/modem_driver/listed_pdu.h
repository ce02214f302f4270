// SPDX-License-Identifier: MIT
// Where a PDU in a list of messages ends (3GPP TS 27.005 clauses 3.4.2 and 3.4.3). Two places tell:
// the length in its header, and its own length fields. Modems fill the line up to the size of a SIM
// record, leave characters of other lines at its end, or announce the same length for every
// message, so neither place is believed alone.
#pragma once

#include <cstddef>
#include <string_view>

namespace corvane {

/// A line that begins with so many hexadecimal digits, or is made of them, is taken for a PDU.
[[nodiscard]] bool LooksLikePdu(std::string_view line);

/// How many characters of `line` are the PDU.
///
/// It is cut where both places agree. Where they differ, it is cut only in front of filling (the
/// digit F, and what is no hexadecimal digit), at its own end first: a length that is wrong takes
/// nothing from a message.
/// @param header of the list, such as "+CMGL: 1,0,,30"
/// @param line the digits that follow it, noise included
[[nodiscard]] std::size_t PduEnd(std::string_view header, std::string_view line);

/// Nothing is missing at the end of `line`, as far as either place tells; `sure`: as far as both
/// tell. False where neither does.
[[nodiscard]] bool IsWholePdu(std::string_view header, std::string_view line, bool sure);

}  // namespace corvane
