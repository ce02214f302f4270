// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/sms_submit.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <limits>

#include "addins/corvane_fb_lib/sms.h"
#include "opcua/opcua.h"
#include "share/utf16.h"

namespace sms {
namespace {

constexpr int kNotConvertible = 11;
constexpr int kNoNumber = 12;

constexpr int kCapacity = 2000;             // code units
constexpr std::size_t kMaxSeptets = 140;    // characters of a text that goes as septets
constexpr std::size_t kMaxWholeUnits = 70;  // code units of a text that goes without a header
constexpr std::size_t kUnitsPerPart = 67;   // code units after a header
constexpr std::size_t kHeaderLength = 6;    // octets

using Pdu = std::vector<unsigned char>;

/// A text in UTF-16.
struct Units {
  std::array<unsigned char, std::size_t{2} * kCapacity> octets;  // high octet first
  std::size_t count;
};

/// @return false if the text is not valid UTF-8 or is too long
bool Convert(const std::string& text, Units& units) {
  constexpr std::size_t kMaxLength = std::numeric_limits<int>::max();
  const auto length = static_cast<int>(std::min(text.length(), kMaxLength));
  const int count =
      convert_utf8_to_utf16(text.data(), length, units.octets.data(), kCapacity, 0) / 2;
  if (count < 0 || count >= kCapacity) return false;
  units.count = static_cast<std::size_t>(count);
  return true;
}

unsigned char LowByte(std::size_t value) {
  return static_cast<unsigned char>(value & 0xFF);
}

/// Everything before the user-data length.
void AppendHead(Pdu& pdu, const std::string& number, std::size_t units, bool septets) {
  pdu.push_back(0x00);  // no service-centre address
  // SMS-SUBMIT without validity period and report; 0x40: there is a user-data header.
  // Compatibility: the alphabet does not count, so long septets claim a header that they do not
  // have.
  pdu.push_back(units <= kMaxWholeUnits ? 0x01 : 0x41);
  pdu.push_back(0x00);  // message reference: the modem's
  pdu.push_back(LowByte(number.length()));
  pdu.push_back(0x91);  // international number
  EncodePhoneNumber(pdu, number);
  pdu.push_back(0x00);  // protocol identifier
  pdu.push_back(septets ? 0x00 : 0x08);
}

/// Packs the characters, all below 0x80, as septets (3GPP TS 23.038 clause 6.1.2.1).
void AppendSeptets(Pdu& pdu, const std::string& text) {
  pdu.push_back(LowByte(text.length()));
  for (std::size_t i = 0; i < text.length(); ++i) {
    const std::size_t shift = i % 8;
    if (shift == 7) continue;  // the previous octet already holds this character
    const unsigned character = static_cast<unsigned char>(text[i]);
    const unsigned next = i + 1 < text.length() ? static_cast<unsigned char>(text[i + 1]) : 0;
    pdu.push_back(LowByte(character >> shift | next << (7 - shift)));
  }
}

void AppendUnits(Pdu& pdu, const Units& units, std::size_t first, std::size_t count) {
  const unsigned char* from = units.octets.data() + 2 * first;
  pdu.insert(pdu.end(), from, from + 2 * count);
}

void AppendWhole(Pdu& pdu, const Units& units) {
  pdu.push_back(LowByte(2 * units.count));
  AppendUnits(pdu, units, 0, units.count);
}

/// Part `number` (from 1) of `total`, after a concatenation header (clause 9.2.3.24.1). Numbers
/// above `total`, in an object that already held PDUs, are empty parts.
void AppendPart(Pdu& pdu, const Units& units, unsigned char reference, std::size_t number,
                std::size_t total) {
  const std::size_t first = std::min(kUnitsPerPart * (number - 1), units.count);
  const std::size_t count = std::min(kUnitsPerPart, units.count - first);
  pdu.push_back(LowByte(kHeaderLength + 2 * count));
  pdu.insert(pdu.end(), {0x05, 0x00, 0x03, reference, LowByte(total), LowByte(number)});
  AppendUnits(pdu, units, first, count);
  // Readers of the log know this position, so it stays, whatever line this is now.
  OpcUa_Trace_Imp(OPCUA_TRACE_LEVEL_DEBUG, "addins/corvane_fb_lib/sms", 312,
                  "FragmentedSMS messageLen=%d _refNumber=%d _totalNumber=%d _curNumber=%d "
                  "messagePos=%d outputLength=%d\n",
                  static_cast<int>(units.count), reference, static_cast<int>(total),
                  static_cast<int>(number), static_cast<int>(2 * first), static_cast<int>(count));
}

}  // namespace

int SMSSubmit::encode(const std::string& text, const std::string& number) {
  if (number.empty()) return kNoNumber;
  Units units;
  if (!Convert(text, units)) return status = kNotConvertible;

  const bool septets = text.length() <= units.count && units.count <= kMaxSeptets;
  const bool whole = units.count <= kMaxWholeUnits;
  // Compatibility: septets go out as often as UCS-2 would need parts, and receivers get copies.
  std::size_t passes = (units.count + kUnitsPerPart - 1) / kUnitsPerPart;
  if (!septets && whole) passes = 1;
  for (std::size_t pass = 0; pass < passes; ++pass) {
    Pdu& pdu = pdus.emplace_back();
    pdu.reserve(256);
    AppendHead(pdu, number, units.count, septets);
    if (septets) {
      AppendSeptets(pdu, text);
    } else if (whole) {
      AppendWhole(pdu, units);
    } else {
      AppendPart(pdu, units, _refNumber, pdus.size(), passes);
    }
  }
  return status;
}

bool FitsInTpdus(const SMSSubmit& message) {
  constexpr std::size_t kMaxTpdu = 164;  // octets: 3GPP TS 23.040 clause 9.2.3
  constexpr std::size_t kServiceCentre = 1;
  return std::all_of(message.pdus.begin(), message.pdus.end(),
                     [](const Pdu& pdu) { return pdu.size() <= kServiceCentre + kMaxTpdu; });
}

}  // namespace sms
