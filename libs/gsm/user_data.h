// SPDX-License-Identifier: MIT
// The user data of an SMS: text or octets after a header (3GPP TS 23.040
// clauses 9.2.3.16, 9.2.3.24).
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "libs/gsm/data_coding.h"
#include "libs/gsm/octet_reader.h"
#include "libs/gsm/user_data_header.h"

namespace gsm {

struct UserData {
  Alphabet alphabet = Alphabet::kDefault;
  UserDataHeader header;
  Octets payload;  ///< after the header: one septet or octet per element
  /// The header indicator was set, but what follows is not a header: all of it is payload.
  bool header_ignored = false;
};

/// Length and user data. A malformed header is ignored, as clause 9.2.3.24 requires.
/// Errors: kTruncated, kBadLength (above 160 septets or 140 octets).
[[nodiscard]] UserData ReadUserData(OctetReader& in, std::uint8_t data_coding_scheme,
                                    bool has_header);

/// Length, header if it has any element, and payload.
void WriteUserData(const UserData& data, Octets& out);

/// UTF-8 of consecutive parts of a message; 8-bit data as hexadecimal digits. Parts with the same
/// alphabet and tables are read as one, since a character may lie across two. A surrogate without
/// its other half becomes U+FFFD.
[[nodiscard]] std::string TextOf(std::span<const UserData> parts);
[[nodiscard]] std::string TextOf(const UserData& part);

/// How the parts of a long message refer to each other.
struct SplitOptions {
  std::uint16_t reference = 0;
  bool wide_reference = false;
};

/// The parts of a UTF-8 text: one without a header if it fits, otherwise concatenated ones; in the
/// default alphabet if that has all of its characters, otherwise in UCS-2. An escape sequence or a
/// surrogate pair is never split. nullopt: not UTF-8, or more than 255 parts.
[[nodiscard]] std::optional<std::vector<UserData>> SplitText(std::string_view utf8,
                                                             const SplitOptions& options);

/// The parts of 8-bit data. nullopt: more than 255 parts.
[[nodiscard]] std::optional<std::vector<UserData>> SplitOctets(OctetSpan octets,
                                                               const SplitOptions& options);

}  // namespace gsm
