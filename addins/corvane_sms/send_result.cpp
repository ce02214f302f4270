// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/send_result.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "corvane/modem_port_driver.h"
#include "libs/base/printable.h"
#include "libs/gsm/network_errors.h"

namespace corvane_sms {
namespace {

constexpr std::string_view kCms = "+CMS ERROR:";
constexpr std::string_view kCme = "+CME ERROR:";

/// The number after `prefix`, wherever that is in an answer.
std::optional<int> NumberAfter(std::string_view answer, std::string_view prefix) {
  const std::size_t place = answer.find(prefix);
  if (place == answer.npos) return std::nullopt;
  answer.remove_prefix(place + prefix.size());
  answer.remove_prefix(std::min(answer.find_first_not_of(' '), answer.size()));
  int number = 0;
  const auto result = std::from_chars(answer.data(), answer.data() + answer.size(), number);
  return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

SendOutcome OutcomeOf(gsm::ErrorClass error_class) {
  switch (error_class) {
    case gsm::ErrorClass::kForGood: return SendOutcome::kNever;
    case gsm::ErrorClass::kForNow: return SendOutcome::kNotNow;
    case gsm::ErrorClass::kSim:
    case gsm::ErrorClass::kPort: return SendOutcome::kPort;
  }
  return SendOutcome::kNotNow;
}

SendResult Refused(std::string_view prefix, int number, gsm::ErrorClass error_class,
                   const gsm::NetworkError* known) {
  std::string reason = "refused with " + std::string(prefix) + " " + std::to_string(number);
  if (known != nullptr) reason += " (" + std::string(known->meaning) + ")";
  return {OutcomeOf(error_class), 0, std::move(reason)};
}

}  // namespace

SendResult ReadRefusal(std::string_view answer, int status) {
  if (status == kPortDriverNotWritten) return {SendOutcome::kPort, 0, "the modem is not there"};
  if (status < 0) return {SendOutcome::kPort, 0, "the modem does not answer"};
  if (const auto number = NumberAfter(answer, kCms)) {
    return Refused(kCms, *number, gsm::ClassOfCmsError(*number), gsm::FindCmsError(*number));
  }
  if (const auto number = NumberAfter(answer, kCme)) {
    return Refused(kCme, *number, gsm::ClassOfCmeError(*number), gsm::FindCmeError(*number));
  }
  return {SendOutcome::kNotNow, 0,
          "the modem answered '" + corvane::PrintableBeginning(answer, 60) + "'"};
}

SendResult ReadPromptAnswer(std::string_view answer, int status) {
  if (status >= 0 && answer.find('>') != answer.npos) return {SendOutcome::kPrompt, 0, {}};
  if (status == kPortDriverNoAnswer) {
    return {
        SendOutcome::kPort, 0,
        "the modem shows no prompt (>) after AT+CMGS, so it gets no text; restart it, and if it "
        "never shows one, replace it or its firmware"};
  }
  return ReadRefusal(answer, status);
}

SendResult ReadTextAnswer(std::string_view answer, int status) {
  if (status == kPortDriverNotWritten) return ReadRefusal(answer, status);
  if (status < 0) return {SendOutcome::kUnknown, 0, "the modem did not confirm the text"};
  if (const auto reference = NumberAfter(answer, "+CMGS:")) {
    return {SendOutcome::kTaken, static_cast<std::uint8_t>(*reference), {}};
  }
  // The line was lost before the number. A modem writes this only for a message that is sent, and
  // sending it twice would be worse than a report that finds nothing.
  if (answer.starts_with("+CMGS:")) return {SendOutcome::kTaken, 0, {}};
  return ReadRefusal(answer, status);
}

}  // namespace corvane_sms
