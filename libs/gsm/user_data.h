// SPDX-License-Identifier: MIT
// The user data of an SMS: text or octets, and its place in a concatenated message
// (3GPP TS 23.040 clauses 9.2.3.16, 9.2.3.24; data coding: 3GPP TS 23.038 clause 4).
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "libs/gsm/octet_reader.h"

namespace gsm {

enum class Alphabet : std::uint8_t {
  kDefault,  ///< GSM 7-bit default alphabet
  kOctets,   ///< 8-bit data, also compressed text
  kUcs2,     ///< UTF-16, high octet first
};

/// Which alphabet a data coding scheme announces; reserved codings are the default alphabet.
[[nodiscard]] Alphabet AlphabetOf(std::uint8_t data_coding_scheme) noexcept;

/// The data coding scheme of a message without a class: 0x00, 0x04, 0x08.
[[nodiscard]] std::uint8_t DataCodingScheme(Alphabet alphabet) noexcept;

/// The place of a part in its message; 1 <= sequence <= total.
struct Concatenation {
  std::uint16_t reference = 0;
  std::uint8_t total = 1;
  std::uint8_t sequence = 1;
  bool wide = false;  ///< 16-bit reference

  bool operator==(const Concatenation&) const = default;
};

struct UserData {
  Alphabet alphabet = Alphabet::kDefault;
  std::optional<Concatenation> concatenation;
  Octets payload;  ///< behind the header: one septet or one octet an element
  /// The header indicator was set, but what follows is no header: all of it counts as text.
  bool header_ignored = false;
};

/// Length and user data. A header that is malformed is ignored, as clause 9.2.3.24 wants.
/// Errors: kTruncated, kBadLength (above 160 septets or 140 octets).
[[nodiscard]] UserData ReadUserData(OctetReader& in, std::uint8_t data_coding_scheme,
                                    bool has_header);

/// Length, header if the part has a place in a message, and payload.
void WriteUserData(const UserData& data, Octets& out);

/// UTF-8 of a payload; 8-bit data as hexadecimal digits. A surrogate without its other half gives
/// U+FFFD. Joined parts are decoded as one payload, since a character may lie across two.
[[nodiscard]] std::string PayloadText(Alphabet alphabet, OctetSpan payload);

/// How the parts of a long message refer to each other.
struct SplitOptions {
  std::uint16_t reference = 0;
  bool wide_reference = false;
};

/// The parts of a UTF-8 text: one without a header where it fits, else concatenated ones. In the
/// default alphabet where it has all characters, else UCS-2. An escape sequence or a surrogate
/// pair is never torn. nullopt: not UTF-8, or more than 255 parts.
[[nodiscard]] std::optional<std::vector<UserData>> SplitText(std::string_view utf8,
                                                             const SplitOptions& options);

/// The parts of 8-bit data. nullopt: more than 255 parts.
[[nodiscard]] std::optional<std::vector<UserData>> SplitOctets(OctetSpan octets,
                                                               const SplitOptions& options);

}  // namespace gsm
