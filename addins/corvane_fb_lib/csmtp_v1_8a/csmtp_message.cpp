// SPDX-License-Identifier: MIT
// The message as it goes over the wire: header fields and MIME layout (RFC 5322, RFC 2045, 2046),
// with deviations. Compatibility: a Date without weekday, zone and leading zeros, Bcc in the
// header, "Content-type" as well as "Content-Type", two charsets. Spam filters count some of them.
#include <array>
#include <ctime>

#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"

namespace {

constexpr std::string_view kBoundary = "__MESSAGE__ID__54yg6f6h6y456345";
// Compatibility: replaces the sender's address in the header when there is no sender name.
constexpr std::string_view kPlaceholderSender = "sender@example.com";

/// Local time: "Date: 5 Mar 2024 9:7:3\r\n".
std::string ComposeDate(std::time_t now) {
  static constexpr std::array<const char*, 12> kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                          "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  std::tm local{};
  tzset();  // as localtime does, which is not safe with several workers
  localtime_r(&now, &local);
  const auto text = [](int number) { return std::to_string(number); };
  return "Date: " + text(local.tm_mday) + " " + kMonths.at(static_cast<std::size_t>(local.tm_mon)) +
         " " + text(local.tm_year + 1900) + " " + text(local.tm_hour) + ":" + text(local.tm_min) +
         ":" + text(local.tm_sec) + "\r\n";
}

/// "Name<mail>,<mail>".
std::string JoinAddresses(const std::vector<Recipient>& list) {
  std::string text;
  for (const Recipient& recipient : list) {
    if (!text.empty()) text += ",";
    text += recipient.Name + "<" + recipient.Mail + ">";
  }
  return text;
}

/// The field's line, or nothing when the value is empty.
std::string OptionalField(const char* name, const std::string& value) {
  return value.empty() ? "" : name + (": " + value) + "\r\n";
}

const char* PriorityField(CSmptXPriority priority) {
  switch (priority) {
    case XPRIORITY_HIGH: return "X-Priority: 2 (High)\r\n";
    case XPRIORITY_LOW: return "X-Priority: 4 (Low)\r\n";
    case XPRIORITY_NORMAL: break;
  }
  return "X-Priority: 3 (Normal)\r\n";  // any other number, too
}

std::string Boundary() {
  return "--" + std::string(kBoundary) + "\r\n";
}

/// The fields that say what the content is; with attachments, those of the text's part, too.
std::string ComposeContentType(bool with_attachments) {
  if (!with_attachments) return "Content-type: text/plain; charset=utf-8\r\n";
  return "Content-Type: multipart/mixed; boundary=\"" + std::string(kBoundary) + "\"\r\n\r\n" +
         Boundary() + "Content-type: text/plain; charset=US-ASCII\r\n";
}

}  // namespace

void CSmtp::FormatHeader(char* header) const {
  const std::string text = ComposeHeader();
  if (text.size() >= kBufferSize) throw ECSmtp(SMTP_ERR_LACK_OF_MEMORY);
  header[text.copy(header, text.size())] = '\0';
}

std::string CSmtp::ComposeHeader() const {
  const std::time_t now = std::time(nullptr);
  if (now < 1) throw ECSmtp(SMTP_ERR_TIME);
  if (recipients.empty()) throw ECSmtp(SMTP_ERR_NO_RECIPIENTS);
  if (mailFrom.empty()) throw ECSmtp(SMTP_ERR_NO_SENDER);
  std::string text = ComposeDate(now);
  text += ComposeFrom();
  text += OptionalField("X-Mailer", xMailer);
  text += OptionalField("Reply-To", replyTo);
  text += PriorityField(xPriority);
  text += "To: " + JoinAddresses(recipients) + "\r\n";
  text += OptionalField("Cc", JoinAddresses(ccRecipients));
  text += OptionalField("Bcc", JoinAddresses(bccRecipients));
  text += "Subject: " + (subject.empty() ? " " : subject) + "\r\n";
  text += "MIME-Version: 1.0\r\n";
  text += ComposeContentType(!attachments.empty());
  text += "Content-Transfer-Encoding: 7bit\r\n";
  return text + "\r\n";
}

std::string CSmtp::ComposeFrom() const {
  const std::string address(senderName.empty() ? kPlaceholderSender : mailFrom);
  return "From: " + senderName + " <" + address + ">\r\n";
}

std::string CSmtp::ComposeAttachmentHeader(const std::string& path) {
  const std::string name = path.substr(path.rfind('\\') + 1);  // npos + 1 is 0: the whole path
  return Boundary() + "Content-Type: application/x-msdownload; name=\"" + name + "\"\r\n" +
         "Content-Transfer-Encoding: base64\r\n" + "Content-Disposition: attachment; filename=\"" +
         name + "\"\r\n\r\n";
}

std::string CSmtp::ComposeClosingBoundary() {
  return "\r\n--" + std::string(kBoundary) + "--\r\n";
}
