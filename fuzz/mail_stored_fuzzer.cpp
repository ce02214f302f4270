// SPDX-License-Identifier: MIT
// A mail as a store has it, and after a zero octet what has become of its recipients, both of any
// content: what can be read is the same after it was written again, can be calculated with, and its
// header has no line that is too long or not one of its own.
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "addins/corvane_mail/mail_content.h"
#include "fuzz/require.h"
#include "libs/mail/composer.h"

using namespace corvane_mail;

namespace {

void CheckAccount(const Account& account) {
  Require(account.port >= 1 && account.port <= 65535);
  const auto now = std::chrono::steady_clock::now();
  Require(account.timeout.count() >= 0 && now + account.timeout >= now);
  Require(account.final_timeout.count() >= 0 && now + account.final_timeout >= now);
}

void CheckComposed(const mail::Message& message) {
  mail::Composer composer(message, false);
  std::string octets;
  std::string buffer(500, '\0');
  while (const std::size_t count = composer.Read(buffer)) octets.append(buffer, 0, count);
  Require(octets.size() == composer.size());
  for (std::size_t at = 0; at < octets.size();) {
    const std::size_t end = octets.find("\r\n", at);
    Require(end != std::string::npos && end - at <= 998);
    const std::string_view line = std::string_view(octets).substr(at, end - at);
    Require(line.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos);
    at = end + 2;
  }
}

void CheckProgress(const std::string& text, const std::vector<std::string>& recipients) {
  const MailProgress progress = ReadMailProgress(text, recipients.size());
  Require(progress.recipients.size() == recipients.size());
  const std::string written = ToJson(progress);
  Require(ToJson(ReadMailProgress(written, recipients.size())) == written);
  std::size_t all = 0;
  for (const auto state :
       {RecipientState::kWaiting, RecipientState::kTaken, RecipientState::kRefused}) {
    all += progress.Count(state);
  }
  Require(all == recipients.size());
  (void)RefusedLines(recipients, progress);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string input(data, data + size);
  const std::size_t end = std::min(input.find('\0'), input.size());
  const auto content = ReadMailContent(input.substr(0, end));
  std::vector<std::string> recipients(3);
  if (content) {
    const std::string written = ToJson(*content);
    const auto again = ReadMailContent(written);
    Require(again && ToJson(*again) == written);
    CheckAccount(content->account);
    CheckComposed(content->message);
    recipients = RecipientsOf(*content);
    Require(std::set(recipients.begin(), recipients.end()).size() == recipients.size());
    (void)Summary(recipients);
  }
  CheckProgress(input.substr(std::min(end + 1, input.size())), recipients);
  return 0;
}
