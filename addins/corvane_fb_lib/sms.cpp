// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/sms.h"

namespace sms {
namespace {

unsigned HexValue(unsigned char character) {
  if (character >= '0' && character <= '9') return character - unsigned{'0'};
  if (character >= 'A' && character <= 'F') return character - unsigned{'A'} + 10;
  if (character >= 'a' && character <= 'f') return character - unsigned{'a'} + 10;
  return 0;
}

}  // namespace

const std::uint16_t EncodeCP866ToUnicode[128] = {
    0x0410, 0x0411, 0x0412, 0x0413, 0x0414, 0x0415, 0x0416, 0x0417, 0x0418, 0x0419, 0x041A, 0x041B,
    0x041C, 0x041D, 0x041E, 0x041F, 0x0420, 0x0421, 0x0422, 0x0423, 0x0424, 0x0425, 0x0426, 0x0427,
    0x0428, 0x0429, 0x042A, 0x042B, 0x042C, 0x042D, 0x042E, 0,      0x0430, 0x0431, 0x0432, 0x0433,
    0x0434, 0x0435, 0x0436, 0x0437, 0x0438, 0x0439, 0x043A, 0x043B, 0x043C, 0x043D, 0x043E, 0x043F,
    0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,
    0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,
    0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,
    0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,      0,
    0x0440, 0x0441, 0x0442, 0x0443, 0x0444, 0x0445, 0x0446, 0x0447, 0x0448, 0x0449, 0x044A, 0x044B,
    0x044C, 0x044D, 0x044E, 0,      0,      0,      0,      0,      0,      0,      0,      0,
    0,      0,      0,      0,      0,      0,      0,      0};

void pdu_hex2bytes(const unsigned char* hex, unsigned int length, unsigned char* out) {
  for (; length >= 2; length -= 2, hex += 2) {
    *out++ = static_cast<unsigned char>(HexValue(hex[0]) << 4 | HexValue(hex[1]));
  }
}

void HexToString(unsigned char byte, char* out) {
  static const char kDigits[] = "0123456789ABCDEF";
  out[0] = kDigits[byte >> 4];
  out[1] = kDigits[byte & 0x0F];
}

void TextToAscii(const std::vector<unsigned char>& bytes, char* out) {
  for (const unsigned char byte : bytes) {
    HexToString(byte, out);
    out += 2;
  }
}

void ucs2_to_utf8(unsigned short codeUnit, std::string& out) {
  const unsigned unit = codeUnit;
  if (unit < 0x80) {
    out += static_cast<char>(unit);
  } else if (unit < 0x800) {
    out += static_cast<char>(0xC0 | unit >> 6);
    out += static_cast<char>(0x80 | (unit & 0x3F));
  } else if ((unit < 0xD800 || unit > 0xDFFF) && unit != 0xFFFF) {
    out += static_cast<char>(0xE0 | unit >> 12);
    out += static_cast<char>(0x80 | (unit >> 6 & 0x3F));
    out += static_cast<char>(0x80 | (unit & 0x3F));
  }
}

std::string s_ucs2_to_utf8(ByteIterator begin, ByteIterator end, bool bigEndian) {
  if ((end - begin) % 2 != 0) return "ERROR PARSE PDU";
  std::string text;
  text.reserve(static_cast<std::size_t>(end - begin) / 2 * 3);
  for (; begin != end; begin += 2) {
    const unsigned high = bigEndian ? begin[0] : begin[1];
    const unsigned low = bigEndian ? begin[1] : begin[0];
    ucs2_to_utf8(static_cast<unsigned short>(high << 8 | low), text);
  }
  return text;
}

std::string DecodeTextMessage(ByteIterator begin, ByteIterator end) {
  const auto octets = static_cast<std::size_t>(end - begin);
  std::string text;
  text.reserve(octets + octets / 7);
  unsigned carry = 0;  // the bits left over from earlier octets
  unsigned carried = 0;
  for (; begin != end; ++begin) {
    const unsigned octet = *begin;
    text += static_cast<char>((octet << carried | carry) & 0x7F);
    carry = octet >> (7 - carried);
    if (++carried == 7) {
      text += static_cast<char>(carry);
      carry = carried = 0;
    }
  }
  return text;
}

void EncodePhoneNumber(std::vector<unsigned char>& out, const std::string& number) {
  for (std::size_t i = 0; i < number.length(); i += 2) {
    const unsigned first = static_cast<unsigned char>(number[i]) - 0x30u;
    // Shifted by four, only the low half of the second character counts.
    const unsigned second =
        i + 1 < number.length() ? static_cast<unsigned char>(number[i + 1]) & 0x0Fu : 0x0Fu;
    out.push_back(static_cast<unsigned char>((first | second << 4) & 0xFF));
  }
}

}  // namespace sms
