// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_content.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

namespace corvane_mail {
namespace {

using nlohmann::ordered_json;
using std::chrono::milliseconds;

constexpr std::array<const char*, 3> kSecurityNames = {"starttls", "tls", "none"};
constexpr std::array<const char*, 3> kStateNames = {"waiting", "taken", "refused"};
constexpr std::size_t kShownMailboxes = 3;
constexpr std::int64_t kLatestDate = 253402300799;  // the end of the year 9999
constexpr int kLargestZone = 24 * 60 - 1;

template <std::size_t kCount>
std::size_t IndexOf(const std::array<const char*, kCount>& names, const std::string& name) {
  const auto place = std::ranges::find(names, name);
  return place == names.end() ? 0 : static_cast<std::size_t>(place - names.begin());
}

/// A text of people as it is, or with U+FFFD instead of what is not UTF-8.
std::string Dump(const ordered_json& object) {
  return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

// Member by member: an initializer list makes an array of each pair first, which takes twice as
// long.
ordered_json AddressTo(const mail::Address& address) {
  ordered_json object;
  object["name"] = address.name;
  object["mailbox"] = address.mailbox;
  return object;
}

ordered_json Addresses(const std::vector<mail::Address>& addresses) {
  ordered_json list = ordered_json::array();
  for (const mail::Address& address : addresses) list.push_back(AddressTo(address));
  return list;
}

mail::Address AddressFrom(const ordered_json& object) {
  return {object.at("name").get<std::string>(), object.at("mailbox").get<std::string>()};
}

std::vector<mail::Address> AddressesFrom(const ordered_json& list) {
  std::vector<mail::Address> addresses;
  for (const ordered_json& object : list) addresses.push_back(AddressFrom(object));
  return addresses;
}

ordered_json AttachmentsOf(const MailContent& content) {
  ordered_json list = ordered_json::array();
  for (const StoredAttachment& one : content.attachments) {
    list.push_back({{"name", one.name}, {"size", one.size}, {"file", one.file}});
  }
  return list;
}

void AddAccount(const Account& account, ordered_json& object) {
  object["server"] = account.server;
  object["port"] = account.port;
  object["security"] = kSecurityNames.at(static_cast<std::size_t>(account.security));
  object["user"] = account.user;
  object["ca_file"] = account.ca_file;
  object["insecure"] = account.insecure;
  object["timeout_ms"] = account.timeout.count();
  object["final_timeout_ms"] = account.final_timeout.count();
}

/// A whole number, or the limit that it exceeds: the file may have any. Throws an exception for
/// what is not a whole number, whose conversion may be undefined.
std::int64_t WholeFrom(const ordered_json& object, const char* name, std::int64_t least,
                       std::int64_t most) {
  const auto number = object.at(name).get_ref<const ordered_json::number_integer_t&>();
  return std::clamp(number, least, most);
}

milliseconds TimeFrom(const ordered_json& object, const char* name) {
  constexpr milliseconds kLongest = std::chrono::years(100);
  return milliseconds(WholeFrom(object, name, 0, kLongest.count()));
}

Account AccountFrom(const ordered_json& object) {
  Account account;
  account.server = object.at("server").get<std::string>();
  account.port = static_cast<int>(WholeFrom(object, "port", 1, 65535));
  account.security =
      static_cast<Security>(IndexOf(kSecurityNames, object.at("security").get<std::string>()));
  account.user = object.at("user").get<std::string>();
  account.ca_file = object.at("ca_file").get<std::string>();
  account.insecure = object.at("insecure").get<bool>();
  account.timeout = TimeFrom(object, "timeout_ms");
  account.final_timeout = TimeFrom(object, "final_timeout_ms");
  return account;
}

MailContent ContentFrom(const ordered_json& object) {
  MailContent content;
  content.account = AccountFrom(object);
  mail::Message& message = content.message;
  message.from = AddressFrom(object.at("from"));
  message.to = AddressesFrom(object.at("to"));
  message.cc = AddressesFrom(object.at("cc"));
  content.bcc = AddressesFrom(object.at("bcc"));
  message.reply_to = AddressesFrom(object.at("reply_to"));
  message.subject = object.at("subject").get<std::string>();
  message.text = object.at("text").get<std::string>();
  message.html = object.at("html").get<std::string>();
  message.message_id = object.at("message_id").get<std::string>();
  message.date =
      std::chrono::sys_seconds(std::chrono::seconds(WholeFrom(object, "date", 0, kLatestDate)));
  message.zone_minutes =
      static_cast<int>(WholeFrom(object, "zone_minutes", -kLargestZone, kLargestZone));
  for (const ordered_json& one : object.at("attachments")) {
    content.attachments.push_back(
        {.name = one.at("name").get<std::string>(),
         .size = static_cast<std::uint64_t>(WholeFrom(one, "size", 0, INT64_MAX)),
         .file = one.at("file").get<std::string>(),
         .memory = nullptr});
  }
  return content;
}

}  // namespace

std::string ToJson(const MailContent& content) {
  const mail::Message& message = content.message;
  ordered_json object;
  object["subject"] = message.subject;
  object["from"] = AddressTo(message.from);
  object["to"] = Addresses(message.to);
  object["cc"] = Addresses(message.cc);
  object["bcc"] = Addresses(content.bcc);
  object["reply_to"] = Addresses(message.reply_to);
  object["text"] = message.text;
  object["html"] = message.html;
  object["attachments"] = AttachmentsOf(content);
  object["message_id"] = message.message_id;
  object["date"] = message.date.time_since_epoch().count();
  object["zone_minutes"] = message.zone_minutes;
  AddAccount(content.account, object);
  return Dump(object);
}

std::optional<MailContent> ReadMailContent(const std::string& json) {
  try {
    return ContentFrom(ordered_json::parse(json));
  } catch (const ordered_json::exception&) {
    return std::nullopt;
  }
}

std::vector<std::string> RecipientsOf(const MailContent& content) {
  std::vector<std::string> mailboxes;
  std::set<std::string> known;
  for (const auto* list : {&content.message.to, &content.message.cc, &content.bcc}) {
    for (const mail::Address& address : *list) {
      if (known.insert(address.mailbox).second) mailboxes.push_back(address.mailbox);
    }
  }
  return mailboxes;
}

std::string Summary(const std::vector<std::string>& mailboxes) {
  std::string text;
  const std::size_t shown = std::min(mailboxes.size(), kShownMailboxes);
  for (std::size_t i = 0; i < shown; ++i) text += (i == 0 ? "" : ", ") + mailboxes[i];
  const std::size_t more = mailboxes.size() - shown;
  return more == 0 ? text : text + " and " + std::to_string(more) + " more";
}

std::size_t MailProgress::Count(RecipientState state) const {
  return static_cast<std::size_t>(std::ranges::count(recipients, state, &Recipient::state));
}

std::string ToJson(const MailProgress& progress) {
  ordered_json list = ordered_json::array();
  for (const MailProgress::Recipient& one : progress.recipients) {
    list.push_back(
        {{"state", kStateNames.at(static_cast<std::size_t>(one.state))}, {"reply", one.reply}});
  }
  return Dump({{"recipients", std::move(list)}});
}

MailProgress ReadMailProgress(const std::string& json, std::size_t recipients) {
  MailProgress progress;
  const ordered_json object = ordered_json::parse(json, nullptr, false);
  try {
    if (object.is_object()) {
      for (const ordered_json& one : object.at("recipients")) {
        progress.recipients.push_back(
            {static_cast<RecipientState>(IndexOf(kStateNames, one.at("state").get<std::string>())),
             one.at("reply").get<std::string>()});
      }
    }
  } catch (const ordered_json::exception&) {
    progress.recipients.clear();  // a mail twice is better than none
  }
  progress.recipients.resize(recipients);
  return progress;
}

std::string RefusedLines(const std::vector<std::string>& mailboxes, const MailProgress& progress) {
  std::string lines;
  for (std::size_t i = 0; i < std::min(mailboxes.size(), progress.recipients.size()); ++i) {
    if (progress.recipients[i].state != RecipientState::kRefused) continue;
    lines += (lines.empty() ? "" : "\n") + mailboxes[i] + ": " + progress.recipients[i].reply;
  }
  return lines;
}

}  // namespace corvane_mail
