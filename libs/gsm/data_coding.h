// SPDX-License-Identifier: MIT
// The data coding scheme of an SMS: alphabet, class, message-waiting indication
// (3GPP TS 23.038 clause 4).
#pragma once

#include <cstdint>
#include <optional>

namespace gsm {

enum class Alphabet : std::uint8_t {
  kDefault,  ///< GSM 7-bit default alphabet
  kOctets,   ///< 8-bit data, also compressed text
  kUcs2,     ///< UTF-16, high octet first
};

/// What is waiting for the subscriber elsewhere, as bits 1 and 0 of the indication groups say.
enum class Waiting : std::uint8_t { kVoiceMail, kFax, kEmail, kOther };

/// A message that announces other messages.
struct WaitingIndication {
  Waiting kind = Waiting::kVoiceMail;
  bool active = false;   ///< false: nothing is waiting any more
  bool discard = false;  ///< the text need not be kept

  bool operator==(const WaitingIndication&) const = default;
};

struct DataCoding {
  Alphabet alphabet = Alphabet::kDefault;
  /// 0: to be shown at once, 1: for the modem, 2: for the SIM card, 3: for the attached equipment.
  std::optional<std::uint8_t> message_class;
  bool compressed = false;      ///< the text is packed by 3GPP TS 23.042; the alphabet is kOctets
  bool delete_on_read = false;  ///< the automatic deletion group
  std::optional<WaitingIndication> waiting;

  bool operator==(const DataCoding&) const = default;
};

/// What a data coding scheme announces. Reserved codings are the default alphabet without a class,
/// as clause 4 requires of a receiver.
[[nodiscard]] DataCoding ReadDataCoding(std::uint8_t scheme) noexcept;

/// The data coding scheme of a message in this alphabet, with a class (0..3) or without one.
[[nodiscard]] std::uint8_t DataCodingScheme(
    Alphabet alphabet, std::optional<std::uint8_t> message_class = std::nullopt) noexcept;

}  // namespace gsm
