// SPDX-License-Identifier: MIT
// Finds the end of a PDU in a list of messages (3GPP TS 27.005 clauses 3.4.2 and 3.4.3). There are
// two sources: the length in the header, and the length fields of the PDU. Modems pad the line
// to the size of a SIM record, leave characters of other lines at its end, or announce the same
// length for every message, so neither source is trusted alone.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace corvane {

/// Whether a line looks like a PDU: it begins with enough hexadecimal digits, or has nothing else.
[[nodiscard]] bool LooksLikePdu(std::string_view line);

/// The last number of a list header, which is the length of the PDU in octets, without the
/// service-centre address; nullopt if the header does not end with a number.
[[nodiscard]] std::optional<std::size_t> AnnouncedOctets(std::string_view header);

/// How many characters of `line` belong to the PDU.
///
/// The line is cut where both sources agree. Where they differ, it is cut only if filling follows
/// (the digit F, and anything that is not a hexadecimal digit). The end that the PDU itself gives
/// is tried first, so a wrong length in the header takes nothing from a message.
/// @param header the list header, such as "+CMGL: 1,0,,30"
/// @param line the digits that follow the header, including noise
[[nodiscard]] std::size_t PduEnd(std::string_view header, std::string_view line);

/// How many characters the header announces for the PDU that `line` begins, with its service-centre
/// address, which a page of a cell broadcast (+CBM) does not have; 0: unknown.
[[nodiscard]] std::size_t AnnouncedSize(std::string_view header, std::string_view line);

/// Whether nothing is missing at the end of `line` according to either source; `sure`: according to
/// both. False if neither has a length.
[[nodiscard]] bool IsWholePdu(std::string_view header, std::string_view line, bool sure);

}  // namespace corvane
