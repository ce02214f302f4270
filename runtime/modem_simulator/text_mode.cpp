// SPDX-License-Identifier: MIT
#include "runtime/modem_simulator/text_mode.h"

#include <fmt/format.h>

#include "libs/gsm/hexadecimal.h"
#include "libs/gsm/seven_bit_text.h"
#include "libs/gsm/utf16.h"

namespace modem_simulator {
namespace {

constexpr std::size_t kMostSeptets = 160;
constexpr std::size_t kMostOctets = 140;
constexpr int kInternationalType = 145;

/// Writes strings and texts in the form that the settings select.
class TextView {
 public:
  TextView(const StoredMessage& message, Shown shown, const Settings& settings)
      : message_(message), shown_(shown), settings_(settings) {}

  [[nodiscard]] std::string Deliver(const gsm::DeliverPdu& pdu) const {
    std::string fields =
        fmt::format("{}{},,\"{}\"", Status(), Number(pdu.originator), FormatModemTime(pdu.time));
    if (HasDetails()) fields += Details(pdu, pdu.originator, "");
    return fields + Text(pdu.data);
  }

  [[nodiscard]] std::string Submit(const gsm::SubmitPdu& pdu) const {
    std::string fields = fmt::format("{}{},", Status(), Number(pdu.destination));
    if (shown_ == Shown::kListed) fields += ",";  // no time of the service centre
    if (HasDetails()) fields += Details(pdu, pdu.destination, Validity(pdu.validity_period) + ",");
    return fields + Text(pdu.data);
  }

  [[nodiscard]] std::string Report(const gsm::StatusReportPdu& pdu) const {
    return fmt::format("{}{},{},{},{},\"{}\",\"{}\",{}", Status(), FirstOctet(),
                       pdu.message_reference, Number(pdu.recipient),
                       gsm::TypeOfAddress(pdu.recipient), FormatModemTime(pdu.time),
                       FormatModemTime(pdu.discharge_time), pdu.status);
  }

  [[nodiscard]] std::string Undecoded() const {
    return fmt::format("{}\"\",,\r\n{}", Status(), gsm::ToHexadecimal(message_.pdu));
  }

 private:
  [[nodiscard]] bool HasDetails() const { return settings_.show_text_parameters == 1; }

  [[nodiscard]] std::string Status() const {
    if (shown_ == Shown::kArriving) return {};
    return fmt::format("\"{}\",", TextOf(message_.status));
  }

  [[nodiscard]] std::string Number(const gsm::Address& address) const {
    return fmt::format("\"{}\"", ToLine(address, settings_.character_set));
  }

  [[nodiscard]] int FirstOctet() const {
    return message_.pdu.at(std::size_t{1} + message_.pdu.front());
  }

  template <typename Pdu>
  std::string Details(const Pdu& pdu, const gsm::Address& peer, std::string_view validity) const {
    const std::size_t length = pdu.data.payload.size();
    if (shown_ == Shown::kListed) return fmt::format(",{},{}", gsm::TypeOfAddress(peer), length);
    return fmt::format(",{},{},{},{},{}{},{},{}", gsm::TypeOfAddress(peer), FirstOctet(),
                       pdu.protocol_identifier, pdu.data_coding_scheme, validity,
                       Number(pdu.service_centre), gsm::TypeOfAddress(pdu.service_centre), length);
  }

  [[nodiscard]] static std::string Validity(const gsm::Octets& octets) {
    if (octets.size() == 1) return fmt::format("{}", octets.front());
    if (octets.empty()) return {};
    gsm::OctetReader in(octets);
    return fmt::format("\"{}\"", FormatModemTime(gsm::ReadTimeStamp(in)));
  }

  [[nodiscard]] std::string Text(const gsm::UserData& data) const {
    if (data.alphabet != gsm::Alphabet::kDefault) return "\r\n" + gsm::ToHexadecimal(data.payload);
    if (settings_.character_set == CharacterSet::kGsm) {
      return "\r\n" + std::string(data.payload.begin(), data.payload.end());
    }
    return "\r\n" + ToLine(gsm::TextOf(data), settings_.character_set);
  }

  const StoredMessage& message_;
  Shown shown_;
  const Settings& settings_;
};

/// The septets of a text; nullopt if the default alphabet lacks a character.
std::optional<gsm::Octets> Septets(std::string_view body, CharacterSet set) {
  const auto text = FromLine(body, set);
  if (!text) return std::nullopt;
  if (set == CharacterSet::kGsm) return gsm::Octets(body.begin(), body.end());
  gsm::Octets septets;
  for (const char32_t character : gsm::CodePoints(*text).value_or(U"")) {
    const auto encoded = gsm::EncodeDefaultAlphabet(character);
    if (!encoded) return std::nullopt;
    septets.insert(septets.end(), encoded->begin(), encoded->end());
  }
  return septets;
}

/// Length and user data from hexadecimal digits, which include a header.
bool WriteDigits(std::string_view body, gsm::Alphabet alphabet, gsm::Octets& out) {
  const auto octets = gsm::FromHexadecimal(body);
  if (!octets || octets->size() > kMostOctets) return false;
  if (alphabet == gsm::Alphabet::kUcs2 && octets->size() % 2 != 0) return false;
  const bool packed = alphabet == gsm::Alphabet::kDefault;  // its length counts septets
  const std::size_t length = packed ? octets->size() * 8 / 7 : octets->size();
  out.push_back(static_cast<std::uint8_t>(length));
  out.insert(out.end(), octets->begin(), octets->end());
  return true;
}

bool WriteBody(std::string_view body, const Settings& settings, gsm::Octets& out) {
  const TextParameters& parameters = settings.text_parameters;
  const auto scheme = static_cast<std::uint8_t>(parameters.data_coding_scheme);
  const gsm::Alphabet alphabet = gsm::ReadDataCoding(scheme).alphabet;
  if (alphabet != gsm::Alphabet::kDefault || parameters.HasHeader()) {
    return WriteDigits(body, alphabet, out);
  }
  auto septets = Septets(body, settings.character_set);
  if (!septets || septets->size() > kMostSeptets) return false;
  gsm::WriteUserData({alphabet, {}, std::move(*septets)}, out);
  return true;
}

void WriteValidity(const TextParameters& parameters, gsm::Octets& out) {
  switch (parameters.validity_format()) {
    case TextParameters::kNoValidity:
    case TextParameters::kEnhanced: break;
    case TextParameters::kRelative:
      out.push_back(static_cast<std::uint8_t>(parameters.validity_period));
      break;
    case TextParameters::kAbsolute:
      gsm::WriteTimeStamp(parameters.valid_until.value_or(gsm::TimeStamp{}), out);
      break;
  }
}

}  // namespace

std::string TextEntry(const StoredMessage& message, Shown shown, const Settings& settings) {
  const TextView view(message, shown, settings);
  gsm::DeliverPdu deliver;
  gsm::SubmitPdu submit;
  gsm::StatusReportPdu report;
  if (gsm::DecodeDeliver(message.pdu, deliver)) return view.Deliver(deliver);
  if (gsm::DecodeSubmit(message.pdu, submit)) return view.Submit(submit);
  if (gsm::DecodeStatusReport(message.pdu, report)) return view.Report(report);
  return view.Undecoded();
}

std::optional<gsm::Address> NumberGiven(const AtCommand& command, std::size_t index,
                                        CharacterSet set) {
  if (index >= command.parameters.size()) return std::nullopt;
  auto number = FromLine(command.parameters[index], set);
  const auto type = command.Number(index + 1, 0);
  if (!number || !type || *type > 255) return std::nullopt;
  if (*type == kInternationalType && !number->starts_with('+')) number->insert(0, "+");
  return gsm::IsNumber(*number) ? number : std::nullopt;
}

std::optional<gsm::Octets> SubmitOctets(const gsm::Address& destination, std::string_view body,
                                        const Settings& settings) {
  const TextParameters& parameters = settings.text_parameters;
  gsm::Octets out{0, static_cast<std::uint8_t>(parameters.first_octet), 0};
  gsm::WriteAddress(destination, out);
  out.push_back(static_cast<std::uint8_t>(parameters.protocol_identifier));
  out.push_back(static_cast<std::uint8_t>(parameters.data_coding_scheme));
  WriteValidity(parameters, out);
  if (!WriteBody(body, settings, out)) return std::nullopt;
  return out;
}

}  // namespace modem_simulator
