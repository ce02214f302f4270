// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/send_result.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "addins/corvane_sms/port_client.h"
#include "corvane/modem_port_driver.h"
#include "libs/base/printable.h"

namespace corvane_sms {
namespace {

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

SendOutcome OutcomeOfCms(int number) {
  constexpr std::array kNever = {1,  8,  10, 21,  28,  29,  30,  50,  69, 95,
                                 96, 97, 99, 111, 193, 195, 196, 304, 305};
  constexpr std::array kPort = {310, 311, 312, 313, 314, 315, 316, 317, 318, 330, 331};
  const auto has = [number](const auto& numbers) {
    return std::find(numbers.begin(), numbers.end(), number) != numbers.end();
  };
  if (has(kNever)) return SendOutcome::kNever;
  return has(kPort) ? SendOutcome::kPort : SendOutcome::kNotNow;
}

SendOutcome OutcomeOfCme(int number) {
  const bool sim = number >= 10 && number <= 18;
  const bool network = number >= 30 && number <= 32;
  return sim || network ? SendOutcome::kPort : SendOutcome::kNotNow;
}

}  // namespace

SendResult ReadRefusal(std::string_view answer, int status) {
  if (status == kPortDriverNotWritten) return {SendOutcome::kPort, 0, "the modem is not there"};
  if (status < 0) return {SendOutcome::kPort, 0, "the modem does not answer"};
  if (const auto number = NumberAfter(answer, "+CMS ERROR:")) {
    return {OutcomeOfCms(*number), 0, "refused with +CMS ERROR: " + std::to_string(*number)};
  }
  if (const auto number = NumberAfter(answer, "+CME ERROR:")) {
    return {OutcomeOfCme(*number), 0, "refused with +CME ERROR: " + std::to_string(*number)};
  }
  return {SendOutcome::kNotNow, 0,
          "the modem answered '" + corvane::PrintableBeginning(answer, 60) + "'"};
}

SendResult ReadPromptAnswer(std::string_view answer, int status) {
  if (status >= 0 && answer.find('>') != answer.npos) return {SendOutcome::kPrompt, 0, {}};
  return ReadRefusal(answer, status);
}

SendResult ReadTextAnswer(std::string_view answer, int status) {
  if (status == kPortDriverNotWritten) return ReadRefusal(answer, status);
  if (status < 0) return {SendOutcome::kUnknown, 0, "the modem did not confirm the text"};
  if (const auto reference = NumberAfter(answer, "+CMGS:")) {
    return {SendOutcome::kTaken, static_cast<std::uint8_t>(*reference), {}};
  }
  return ReadRefusal(answer, status);
}

}  // namespace corvane_sms
