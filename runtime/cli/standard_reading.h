// SPDX-License-Identifier: MIT
// A PDU from a modem as the standard reads it (3GPP TS 23.040), compared with what READ_SMS makes
// of it. Pure functions.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "addins/corvane_fb_lib/sms_delivered.h"
#include "libs/gsm/octet_reader.h"
#include "libs/gsm/user_data_header.h"

namespace corvane::cli {

/// What the standard reads. Fields that a PDU of its kind does not have are empty.
struct StandardReading {
  std::string kind = {};    ///< "message", "status report", "message to the network", "reserved"
  std::string number = {};  ///< the sender, or the receiver
  std::string time = {};    ///< local to the service centre: "2026-01-31T12:00:00+01:00"
  std::optional<gsm::Concatenation> part = {};
  std::string text = {};     ///< UTF-8; 8-bit data as hexadecimal digits
  std::string problem = {};  ///< why the PDU cannot be read: "octets are missing (octet 13)"
};

[[nodiscard]] StandardReading ReadByStandard(gsm::OctetSpan pdu);

/// The fields that READ_SMS reads differently, or all of them if it rejects the PDU or takes it for
/// another kind: "number", "time", "part", "text" as lines "number  +15550101234". Empty: it reads
/// them as the standard does.
[[nodiscard]] std::vector<std::string> Differences(const sms::SMSDelivered& block,
                                                   const StandardReading& standard);

/// Why READ_SMS does not read the PDU as the standard does, one sentence for each reason.
[[nodiscard]] std::vector<std::string> Causes(gsm::OctetSpan pdu);

/// The time of a message from READ_SMS, as ISO 8601; nullopt for the null time.
[[nodiscard]] std::optional<std::string> IsoTime(std::int64_t file_time);

}  // namespace corvane::cli
