// SPDX-License-Identifier: MIT
#include "addins/corvane_fb_lib/send_email_log.h"

#include <algorithm>

#include "block/program_line.h"
#include "libs/base/printable.h"

using corvane::PrintableBeginning;

namespace {

constexpr std::size_t kLongestStep = 200;  // octets, with an address
constexpr std::size_t kLongestName = 60;   // octets of a subject or a server's name
constexpr std::size_t kMaxSubjects = 10;

std::string QuotedSubject(const std::string& subject) {
  return "\"" + PrintableBeginning(subject, kLongestName) + "\"";
}

/// The usual reason; empty where the server's line and the step show it.
const char* Hint(std::int32_t code) {
  switch (code) {
    case SMTP_ERR_RECV: return "; nothing listens there, or the connection was reset";
    case SMTP_ERR_CMD_AUTH_LOGIN:
      return "; usually the server allows a login only over TLS, which SEND_EMAIL does not speak";
    case SMTP_ERR_SERVER_NOT_RESPONDING: return "; nothing was received or sent for ten seconds";
    case SMTP_ERR_CONNECT_TIMEOUT: return "; no connection within ten seconds";
    case SMTP_ERR_LACK_OF_MEMORY: return "; usually the server has closed the connection";
    default: return "";
  }
}

const char* WhoHasIt(SmtpProgress::Taken taken) {
  switch (taken) {
    case SmtpProgress::Taken::kNo: break;
    case SmtpProgress::Taken::kUnknown: return "; the server may have the message";
    case SmtpProgress::Taken::kYes: return "; the server has the message";
  }
  return "";
}

}  // namespace

std::string NameOfBlock(const std::string& type_name, lua_State* L) {
  lua_Debug where;
  if (!FindProgramLine(L, &where)) return type_name;
  return type_name + " of " + corvane::Printable(where.short_src) + ":" +
         std::to_string(where.currentline);
}

std::string NameOfMail(const std::string& block, const std::string& subject,
                       const std::string& server, unsigned short port) {
  return block + ", " + QuotedSubject(subject) + " via " +
         PrintableBeginning(server, kLongestName) + " port " + std::to_string(port);
}

std::string DescribeRefusal(const std::string& name_of_mail, const ECSmtp& error) {
  return name_of_mail + ": code " + std::to_string(error.GetErrorNum()) + ", not queued";
}

std::string DescribeFailure(const std::string& block, const CSmtp& mail, const ECSmtp& error) {
  const SmtpProgress& progress = mail.progress();
  const std::int32_t code = error.GetErrorNum();
  std::string text =
      NameOfMail(block, mail.GetSubject(), mail.GetSMTPServer(), mail.GetSMTPPort()) + ": code " +
      std::to_string(code) + " " + PrintableBeginning(progress.step, kLongestStep) + Hint(code) +
      WhoHasIt(progress.taken);
  const std::string reply = mail.ShownReply();
  return reply.empty() ? text : text + "; the server's last line: " + reply;
}

std::string DescribeDropped(const std::string& block,
                            const std::deque<boost::shared_ptr<CSmtp>>& dropped) {
  std::string text = block + " is gone; " + std::to_string(dropped.size()) +
                     (dropped.size() == 1 ? " message was" : " messages were") + " not sent: ";
  const std::size_t shown = std::min(dropped.size(), kMaxSubjects);
  for (std::size_t i = 0; i < shown; ++i) {
    text += (i == 0 ? "" : ", ") + QuotedSubject(dropped[i]->GetSubject());
  }
  return shown == dropped.size()
             ? text
             : text + " and " + std::to_string(dropped.size() - shown) + " more";
}
