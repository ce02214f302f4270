// SPDX-License-Identifier: MIT
// One outgoing message as SMS-SUBMIT PDUs (3GPP TS 23.040 clause 9.2.2.2), each after an empty
// service-centre address, so that the modem's own service centre is used.
// Threads: the PLC task; the reference counter is shared by all messages.
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace sms {

struct SMSSubmit {
  /// Takes the next reference number, whether or not it will be needed.
  SMSSubmit() : _refNumber(smsID++) {}

  /// Appends the PDUs of `text` (UTF-8) for `number` (digits only, not checked) to `pdus`.
  /// An empty text yields none.
  ///
  /// Plain ASCII of up to 140 characters goes as septets, of the characters' own values. Other text
  /// goes as UCS-2, above 70 code units in parts of 67. Compatibility: from 68 characters on there
  /// are two such PDUs of septets, from 135 on three, so the receiver gets the text two or three
  /// times; from 71 on they claim a header that they do not have, so phones take the beginning of
  /// the text for one.
  /// @return `status`, which is 0 for a message that never failed; 11 when `text` is not valid
  ///   UTF-8 or has 2000 or more UTF-16 code units; 12 when `number` is empty
  int encode(const std::string& text, const std::string& number);

  unsigned char _refNumber;                     ///< shared by the parts of a long text
  std::int32_t status = 0;                      ///< 11 after a text that could not be converted
  std::deque<std::vector<unsigned char>> pdus;  ///< complete PDUs in sending order

  static inline unsigned char smsID = 0;  ///< the next message's reference number
};

/// Whether every PDU has at most the 164 octets that modems accept, not counting the service
/// centre's address; a longer one would always be refused. Only a receiver that is not a phone
/// number makes a PDU longer than that.
[[nodiscard]] bool FitsInTpdus(const SMSSubmit& message);

}  // namespace sms
