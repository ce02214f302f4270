// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/sms_text.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace corvane_sms {
namespace {

using nlohmann::json;

std::optional<std::vector<gsm::UserData>> Split(const SmsContent& content) {
  return gsm::SplitText(content.text, {.reference = content.reference, .wide_reference = false});
}

/// Parses without exceptions; an object or nothing.
std::optional<json> ReadObject(const std::string& text) {
  json object = json::parse(text, nullptr, false);
  return object.is_object() ? std::optional(std::move(object)) : std::nullopt;
}

template <class T>
T Member(const json& object, const char* name, T otherwise) {
  const auto place = object.find(name);
  if (place == object.end()) return otherwise;
  if constexpr (std::is_same_v<T, bool>) {
    return place->is_boolean() ? place->template get<bool>() : otherwise;
  } else {
    return place->is_number_integer() ? place->template get<T>() : otherwise;
  }
}

std::optional<std::uint8_t> Octet(const json& object, const char* name) {
  const int value = Member(object, name, -1);
  if (value < 0 || value > 0xFF) return std::nullopt;
  return static_cast<std::uint8_t>(value);
}

}  // namespace

std::size_t CountParts(const SmsContent& content) {
  const auto parts = Split(content);
  return parts ? parts->size() : 0;
}

std::string ToJson(const SmsContent& content) {
  json object = {{"text", content.text}, {"reference", content.reference}};
  if (content.flash) object["flash"] = true;
  if (content.report) object["report"] = true;
  return object.dump();
}

std::optional<SmsContent> ReadContent(const std::string& text) {
  const auto object = ReadObject(text);
  if (!object) return std::nullopt;
  const auto place = object->find("text");
  if (place == object->end() || !place->is_string()) return std::nullopt;
  return SmsContent{.text = place->get<std::string>(),
                    .reference = Octet(*object, "reference").value_or(0),
                    .flash = Member(*object, "flash", false),
                    .report = Member(*object, "report", false)};
}

bool SmsProgress::reported() const {
  return std::all_of(parts.begin(), parts.end(), [](const Part& part) {
    return part.status && gsm::OutcomeOf(*part.status) != gsm::Outcome::kStillTrying;
  });
}

bool SmsProgress::delivered() const {
  return std::all_of(parts.begin(), parts.end(), [](const Part& part) {
    return part.status && gsm::OutcomeOf(*part.status) == gsm::Outcome::kDelivered;
  });
}

std::string ToJson(const SmsProgress& progress) {
  json parts = json::array();
  for (const SmsProgress::Part& part : progress.parts) {
    parts.push_back({{"reference", part.reference}});
    if (part.status) parts.back()["status"] = *part.status;
  }
  json object = {{"parts", std::move(parts)}};
  if (progress.validity) object["validity"] = *progress.validity;
  return object.dump();
}

SmsProgress ReadProgress(const std::string& text) {
  SmsProgress progress;
  const auto object = ReadObject(text);
  if (!object) return progress;
  progress.validity = Octet(*object, "validity");
  const auto parts = object->find("parts");
  if (parts == object->end() || !parts->is_array()) return progress;
  for (const json& part : *parts) {
    if (!part.is_object() || progress.parts.size() == gsm::kMaxParts) return progress;
    progress.parts.push_back({Octet(part, "reference").value_or(0), Octet(part, "status")});
  }
  return progress;
}

gsm::Octets MakeSubmit(const SmsContent& content, const std::string& receiver, std::size_t part,
                       std::uint8_t validity) {
  auto parts = Split(content);
  gsm::SubmitPdu pdu;
  pdu.destination = receiver;
  pdu.data = std::move(parts->at(part));
  pdu.data_coding_scheme = content.flash ? gsm::DataCodingScheme(pdu.data.alphabet, std::uint8_t{0})
                                         : gsm::DataCodingScheme(pdu.data.alphabet);
  pdu.validity_period = {validity};
  pdu.status_report_requested = content.report;
  return gsm::EncodeSubmit(pdu);
}

std::uint8_t ValidityOf(std::chrono::milliseconds time) {
  return gsm::RelativeValidity(std::chrono::ceil<std::chrono::minutes>(time));
}

}  // namespace corvane_sms
