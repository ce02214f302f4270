// SPDX-License-Identifier: MIT
// One received message: SMS-DELIVER (3GPP TS 23.040 clause 9.2.2.1) after the service-centre
// address that modems print before it. Safe for any octets.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sms {

struct SMSDelivered {
  explicit SMSDelivered(unsigned char storage_index) : storageIndex(storage_index) {}

  /// Fills the record from one PDU. Fields that the PDU does not reach keep their values; an empty
  /// PDU changes nothing. These are rejected, with status 5 and the reason in `text`: a PDU that
  /// is not an SMS-DELIVER, one whose protocol identifier is not 0, and one that ends before its
  /// text. A service-centre length above 127 sets status 5 without a reason.
  ///
  /// Compatibility: programs get the fields as they have always been read:
  ///  - An address of type 0x91 ends only at its filler, so an even number of digits runs on into
  ///    the fields after it; one of type 0x81 with an odd number of digits leaves its last octet
  ///    to them. A name (type 0xD0) counts its septets as octets.
  ///  - The time zone is not applied, the user-data length is not used, and any user-data header is
  ///    taken for the six octets of a concatenation header with an 8-bit reference.
  ///  - Septets become characters with their raw values; fill bits are not skipped. 8-bit data have
  ///    the text "Can't read Data value"; unknown coding schemes leave the text as it was.
  void decode(const std::vector<unsigned char>& pdu);

  std::int32_t status = 0;     ///< 0, or 5: rejected
  unsigned char storageIndex;  ///< place in the modem's store
  unsigned char seq = 0;       ///< number of this part, from 1; 0: no header
  unsigned char total = 0;     ///< parts of the whole message; 0: no header
  unsigned char ref = 0;       ///< reference that all parts share
  std::int64_t time = 0;       ///< service-centre time stamp as RTimeToFileTime returns it
  std::string number;          ///< originator
  std::string text;            ///< UTF-8, or the reason of the rejection

 private:
  void Reject(const char* reason);
};

}  // namespace sms
