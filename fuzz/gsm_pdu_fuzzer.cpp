// SPDX-License-Identifier: MIT
// PDUs of any octets: what decodes without error is encoded and decoded again to the same message,
// and texts of the default alphabet and of UCS-2 are compared with libgammu's.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/require.h"
#include "libs/gsm/pdu.h"
#include "tests/support/gammu_codec.h"

namespace {

using gsm::Octets;
using gsm::OctetSpan;

void CheckDeliver(OctetSpan octets) {
  gsm::DeliverPdu pdu;
  const gsm::PduResult result = gsm::DecodeDeliver(octets, pdu);
  const std::string text = gsm::TextOf(pdu.data);
  Require(!result || result.whole);
  Require(result.error_at <= octets.size());
  if (!result.whole) return;
  const std::size_t size = gsm::DeliverSize(octets);
  Require(size <= octets.size() && (result.error == gsm::PduError::kTrailing || size > 0));
  if (!result || pdu.data.header_ignored || !gsm::IsValid(pdu.time)) return;
  if (!pdu.originator.empty() && !gsm::IsAddress(pdu.originator)) return;
  if (!gsm::IsNumber(pdu.service_centre)) pdu.service_centre.clear();
  gsm::DeliverPdu again;
  const Octets encoded = gsm::EncodeDeliver(pdu);
  // A header that was read with unknown elements is written without them, so it may be shorter.
  if (!gsm::DecodeDeliver(encoded, again)) Require(encoded.size() > octets.size());
  Require(again.originator == pdu.originator && again.time == pdu.time);
  Require(again.data.header == pdu.data.header);
  Require(gsm::TextOf(again.data) == text);
}

void CheckSubmit(OctetSpan octets) {
  gsm::SubmitPdu pdu;
  if (!gsm::DecodeSubmit(octets, pdu)) return;
  (void)gsm::TextOf(pdu.data);
  if (pdu.data.header_ignored || !pdu.service_centre.empty()) return;
  if (!pdu.destination.empty() && !gsm::IsAddress(pdu.destination)) return;
  gsm::SubmitPdu again;
  Require(static_cast<bool>(gsm::DecodeSubmit(gsm::EncodeSubmit(pdu), again)));
  Require(again.destination == pdu.destination);
  Require(again.message_reference == pdu.message_reference);
  Require(again.data_coding_scheme == pdu.data_coding_scheme);
  Require(again.data.header == pdu.data.header && again.data.payload == pdu.data.payload);
}

void CheckReport(OctetSpan octets) {
  gsm::StatusReportPdu pdu;
  const gsm::PduResult result = gsm::DecodeStatusReport(octets, pdu);
  if (!result || !gsm::IsNumber(pdu.recipient)) return;
  if (!gsm::IsNumber(pdu.service_centre)) pdu.service_centre.clear();
  gsm::StatusReportPdu again;
  Require(static_cast<bool>(gsm::DecodeStatusReport(gsm::EncodeStatusReport(pdu), again)));
  Require(again == pdu);
}

/// Whether libgammu can hold this text: its texts end at a NUL, it knows no characters above
/// U+FFFF, and it takes U+0001 and '~' for signs of its own.
bool FitsLibgammu(std::string_view text) {
  return std::none_of(text.begin(), text.end(), [](char c) {
    return c == '\0' || c == '\x01' || c == '~' || (c & 0xF8) == 0xF0;
  });
}

/// What libgammu encodes is read as the same text. In the default alphabet only without escapes,
/// which libgammu may cut in two.
void CheckTheirs(const std::string& text, bool ucs2) {
  std::vector<gsm::UserData> data;
  const auto parts = test_support::GammuEncode(text, "+15550101234", ucs2);
  for (const test_support::GammuUserData& part : parts) {
    Octets octets{static_cast<std::uint8_t>(part.length)};
    octets.insert(octets.end(), part.octets.begin(), part.octets.end());
    gsm::OctetReader in(octets);
    data.push_back(gsm::ReadUserData(in, ucs2 ? 0x08 : 0x00, parts.size() > 1));
    in.ExpectEnd();
    Require(in.error() == gsm::PduError::kNone);
  }
  Require(gsm::TextOf(data) == text);
}

/// Any octets as a text: what can be split is read, part by part, as libgammu reads it.
void CheckText(std::string_view text) {
  const auto parts = gsm::SplitText(text, {7, false});
  if (!parts) return;
  Require(gsm::TextOf(*parts) == text);
  if (!text.empty() && FitsLibgammu(text)) {
    const bool ucs2 = parts->front().alphabet == gsm::Alphabet::kUcs2;
    const bool has_escapes = std::ranges::any_of(*parts, [](const gsm::UserData& part) {
      return part.alphabet == gsm::Alphabet::kDefault &&
             std::ranges::find(part.payload, 0x1B) != part.payload.end();
    });
    if (!has_escapes) CheckTheirs(std::string(text), ucs2);
  }
  for (const gsm::UserData& part : *parts) {
    const std::string own = gsm::TextOf(part);
    const Octets pdu = gsm::EncodeDeliver({"", "+4915112345678", 0, 0, {}, part});
    gsm::DeliverPdu read;
    Require(static_cast<bool>(gsm::DecodeDeliver(pdu, read)));
    Require(gsm::TextOf(read.data) == own);
    if (!FitsLibgammu(own)) continue;
    const auto theirs = test_support::GammuDecode(pdu);
    Require(theirs.decoded && theirs.text == own);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const OctetSpan octets(data, size);
  (void)gsm::TypeOfIncoming(octets);
  CheckDeliver(octets);
  CheckSubmit(octets);
  CheckReport(octets);
  CheckText({reinterpret_cast<const char*>(data), size});
  return 0;
}
