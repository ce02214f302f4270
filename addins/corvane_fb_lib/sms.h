// SPDX-License-Identifier: MIT
// What both directions of the SMS codec share: hexadecimal PDU text, UCS-2 and packed 7-bit text
// (3GPP TS 23.038, 23.040), and semi-octet numbers. Pure functions; no shared state.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sms {

using ByteIterator = std::vector<unsigned char>::const_iterator;

/// Unicode of the bytes 0x80 to 0xFF of code page 866; 0 for bytes without an entry, among them
/// the two letters at 0x9F and 0xEF. Nothing here uses the table: it is public data.
extern const std::uint16_t EncodeCP866ToUnicode[128];

/// Converts `length / 2` pairs of hexadecimal characters, the high half first, into octets at
/// `out`, which has room for them. Any other character counts as 0.
void pdu_hex2bytes(const unsigned char* hex, unsigned int length, unsigned char* out);

/// Writes the octet as two upper-case hexadecimal characters, without a NUL.
void HexToString(unsigned char byte, char* out);

/// Writes every octet as HexToString does: twice as many characters, without a NUL.
void TextToAscii(const std::vector<unsigned char>& bytes, char* out);

/// Appends the UTF-8 form of one UTF-16 code unit; surrogates and 0xFFFF append nothing.
void ucs2_to_utf8(unsigned short codeUnit, std::string& out);

/// The UTF-8 text of UCS-2 octets; the first octet of each pair is the high one if `bigEndian`,
/// otherwise the low one. An odd number of octets yields "ERROR PARSE PDU".
std::string s_ucs2_to_utf8(ByteIterator begin, ByteIterator end, bool bigEndian);

/// Unpacks septets (3GPP TS 23.038 clause 6.1.2.1) into characters with their raw values.
/// Compatibility: seven octets yield eight characters, so a text of seven characters ends with a
/// character of value 0 that was not sent.
std::string DecodeTextMessage(ByteIterator begin, ByteIterator end);

/// Appends the number in semi-octets, the low half first, filled up with 0xF. Characters other than
/// digits are not refused; they yield meaningless octets.
void EncodePhoneNumber(std::vector<unsigned char>& out, const std::string& number);

}  // namespace sms
