// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/mail_inputs.h"

#include <filesystem>
#include <initializer_list>
#include <string_view>
#include <system_error>
#include <utility>

#include "addins/corvane_mail/server_url.h"
#include "block/duration_input.h"
#include "libs/base/printable.h"
#include "libs/mail/text_check.h"
#include "libs/messages/message_key.h"

namespace corvane_mail {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

constexpr std::chrono::days kDefaultValidity(4);
constexpr std::chrono::seconds kDefaultTimeout(60);
constexpr std::chrono::minutes kDefaultFinalTimeout(10);  // RFC 5321 clause 4.5.3.2.6
constexpr std::size_t kLongestLine = 1000;
constexpr std::size_t kMostAttachments = 1000;

/// Thrown while inputs are read.
struct Bad {
  JobFailure failure;
};

[[noreturn]] void Refuse(ErrorId id, std::string text) {
  throw Bad{{id, std::move(text)}};
}

void Require(ErrorId id, const std::string& problem) {
  if (!problem.empty()) Refuse(id, problem);
}

/// One line that can be logged and kept as it is.
void RequireLine(const char* name, const std::string& value) {
  if (value.size() <= kLongestLine && corvane::Printable(value) == value) return;
  Refuse(ErrorId::kBadValue,
         std::string(name) + " must be one line of UTF-8 with at most 1000 octets; correct it");
}

Security SecurityOf(const std::string& text) {
  if (text.empty() || text == "starttls") return Security::kStartTls;
  if (text == "tls") return Security::kTls;
  if (text == "none") return Security::kNone;
  Refuse(ErrorId::kBadValue, "Security is " + corvane::PrintableBeginning(text, 40) +
                                 R"(, but must be "starttls", "tls" or "none")");
}

int PortOf(int port, Security security) {
  constexpr int kLargest = 65535;
  if (port < 0 || port > kLargest) {
    Refuse(ErrorId::kBadValue, "Port is " + std::to_string(port) +
                                   ", but must be from 1 to 65535, or 0 for the usual one");
  }
  if (port != 0) return port;
  switch (security) {
    case Security::kStartTls: return 587;
    case Security::kTls: return 465;
    case Security::kNone: break;
  }
  return 25;
}

Account AccountOf(const MailInputs& inputs) {
  RequireLine("Server", inputs.server);
  if (!IsServerName(inputs.server)) {
    Refuse(ErrorId::kBadValue,
           inputs.server.empty()
               ? "Server is empty; give the name or address of a mail server"
               : "Server is " + corvane::PrintableBeginning(inputs.server, 100) +
                     ", which is not the name or address of a server; correct it");
  }
  RequireLine("User", inputs.user);
  Account account;
  account.server = inputs.server;
  account.security = SecurityOf(inputs.security);
  account.port = PortOf(inputs.port, account.security);
  account.user = inputs.user;
  account.insecure = inputs.insecure;
  return account;
}

milliseconds Duration(const char* name, double seconds, milliseconds otherwise) {
  const auto duration = DurationInput(seconds, otherwise);
  if (duration) return *duration;
  Refuse(ErrorId::kBadValue,
         std::string(name) + " must be a number of seconds from 0 on; 0 means the default");
}

/// A path that still means the same after a restart from another folder.
std::string Absolute(const std::string& path) {
  std::error_code error;
  const fs::path absolute = fs::absolute(path, error);
  return error ? path : absolute.string();
}

std::vector<mail::Address> Addresses(const char* name, const std::string& text) {
  mail::AddressList list = mail::ReadAddresses(text);
  if (!list.problem.empty()) Refuse(ErrorId::kReceiver, std::string(name) + ": " + list.problem);
  return std::move(list.addresses);
}

mail::Address Sender(const std::string& text) {
  mail::AddressList list = mail::ReadAddress(text);
  if (!list.problem.empty()) Refuse(ErrorId::kReceiver, "From: " + list.problem);
  return std::move(list.addresses.front());
}

std::vector<std::string> Paths(const std::string& text) {
  std::vector<std::string> paths;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find_first_of(";\n"), rest.size());
    std::string_view path = rest.substr(0, end);
    rest.remove_prefix(std::min(end + 1, rest.size()));
    while (!path.empty() && (path.front() == ' ' || path.front() == '\t')) path.remove_prefix(1);
    while (!path.empty() && std::string_view(" \t\r").find(path.back()) != std::string_view::npos) {
      path.remove_suffix(1);
    }
    if (path.empty()) continue;
    if (path.find('\0') != std::string_view::npos) {
      Refuse(ErrorId::kAttachment, "Attachments has a NUL, which no path can have; correct it");
    }
    if (paths.size() == kMostAttachments) {
      Refuse(ErrorId::kAttachment, "Attachments has more than 1000 paths; send several mails");
    }
    paths.push_back(Absolute(std::string(path)));
  }
  return paths;
}

void ReadText(const MailInputs& inputs, mail::Message& message) {
  Require(ErrorId::kText, mail::CheckSubject(inputs.subject));
  Require(ErrorId::kText, mail::CheckText(inputs.text, "Text"));
  Require(ErrorId::kText, mail::CheckText(inputs.html, "Html"));
  message.subject = inputs.subject;
  message.text = inputs.text;
  message.html = inputs.html;
}

MailOrder OrderOf(const MailInputs& inputs, const messages::Now& now) {
  MailOrder order;
  Account& account = order.content.account;
  account = AccountOf(inputs);
  RequireLine("CaFile", inputs.ca_file);
  if (!inputs.ca_file.empty()) account.ca_file = Absolute(inputs.ca_file);
  order.valid_for = Duration("ValidFor", inputs.valid_for, kDefaultValidity);
  account.timeout = Duration("Timeout", inputs.timeout, kDefaultTimeout);
  account.final_timeout = Duration("Timeout", inputs.timeout, kDefaultFinalTimeout);
  if (!messages::IsKey(inputs.key)) Refuse(ErrorId::kBadValue, messages::kKeyProblem);
  mail::Message& message = order.content.message;
  message.from = Sender(inputs.from);
  message.to = Addresses("To", inputs.to);
  message.cc = Addresses("Cc", inputs.cc);
  order.content.bcc = Addresses("Bcc", inputs.bcc);
  message.reply_to = Addresses("ReplyTo", inputs.reply_to);
  if (message.to.empty() && message.cc.empty() && order.content.bcc.empty()) {
    Refuse(ErrorId::kReceiver, "To, Cc and Bcc are empty; give an address in one of them");
  }
  ReadText(inputs, message);
  message.date = std::chrono::floor<std::chrono::seconds>(now.wall);
  order.attachments = Paths(inputs.attachments);
  if (inputs.subject.empty() && inputs.text.empty() && inputs.html.empty() &&
      order.attachments.empty()) {
    Refuse(ErrorId::kText, "Subject, Text, Html and Attachments are all empty; give one of them");
  }
  order.key = inputs.key;
  order.urgent = inputs.urgent;
  order.added = now;
  return order;
}

}  // namespace

std::variant<Account, JobFailure> ReadAccount(const MailInputs& inputs) {
  try {
    return AccountOf(inputs);
  } catch (Bad& bad) {
    return std::move(bad.failure);
  }
}

std::variant<MailOrder, JobFailure> ReadOrder(const MailInputs& inputs, const messages::Now& now) {
  try {
    return OrderOf(inputs, now);
  } catch (Bad& bad) {
    return std::move(bad.failure);
  }
}

}  // namespace corvane_mail
