// SPDX-License-Identifier: MIT
// The dialogue of client and server, in the order of RFC 5321 with AUTH LOGIN.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>
#include <span>
#include <utility>

#include "addins/corvane_fb_lib/base64.h"
#include "addins/corvane_fb_lib/csmtp_v1_8a/attachment_file.h"
#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"

namespace {

constexpr std::size_t kBlockSize = 54;      // bytes of a file in one line of 72 characters
constexpr std::size_t kBlocksOfBatch = 92;  // sent at once: about 5 KB of the file
static_assert(kBlocksOfBatch * (base64_length(kBlockSize) + 2) < CSmtp::kBufferSize);

std::string Base64Line(const std::string& text) {
  return base64_encode(text) + "\r\n";
}

}  // namespace

void CSmtp::Send() {
  try {
    RunDialogue();
  } catch (const std::bad_alloc&) {
    throw ECSmtp(SMTP_ERR_LACK_OF_MEMORY);
  }
}

void CSmtp::Enter(std::string step, SmtpProgress::Taken taken) {
  progress_.step = std::move(step);
  progress_.taken = taken;
}

void CSmtp::RunDialogue() {
  progress_ = {};
  Enter("connecting");
  hSocket = ConnectRemoteServer(smtpServer.c_str(), smtpPort);
  Greet();
  Authenticate();
  SendEnvelope();
  SendMessage();
  Enter("after QUIT", SmtpProgress::Taken::kYes);
  SendText("QUIT\r\n");
  if (ReadReply() != 221) throw ECSmtp(SMTP_ERR_CMD_QUIT);
  close(hSocket);
  hSocket = 0;
}

void CSmtp::Greet() {
  Enter("waiting for the greeting");
  if (ReadReply() != 220) throw ECSmtp(SMTP_ERR_SERVER_NOT_READY);
  Enter("after EHLO");
  SendText("EHLO " + (localHostName.empty() ? "domain" : localHostName) + "\r\n");
  if (ReadReply() != 250) throw ECSmtp(SMTP_ERR_CMD_EHLO);
}

void CSmtp::Authenticate() {
  Enter("after AUTH LOGIN");
  SendText("AUTH LOGIN\r\n");
  // The remaining lines of the reply to EHLO come first.
  if (ReadReplyOtherThan(250) != 334) throw ECSmtp(SMTP_ERR_CMD_AUTH_LOGIN);
  if (login.empty()) throw ECSmtp(SMTP_ERR_NO_LOGIN);
  Enter("after the login");
  SendText(Base64Line(login));
  if (ReadReply() != 334) throw ECSmtp(SMTP_ERR_UNDEF_XYZ_RESPONSE);
  if (password.empty()) throw ECSmtp(SMTP_ERR_NO_PASSWORD);
  Enter("after the password");
  SendText(Base64Line(password));
  const int code = ReadReplyOtherThan(334);
  if (code == 535) throw ECSmtp(SMTP_ERR_BAD_LOGIN_PASS);
  if (code != 235) throw ECSmtp(SMTP_ERR_UNDEF_XYZ_RESPONSE);
}

void CSmtp::SendEnvelope() {
  if (mailFrom.empty()) throw ECSmtp(SMTP_ERR_NO_SENDER);
  Enter("after MAIL FROM:<" + mailFrom + ">");
  SendText("MAIL FROM:<" + mailFrom + ">\r\n");
  if (ReadReply() != 250) throw ECSmtp(SMTP_ERR_CMD_MAIL_FROM);

  if (recipients.empty()) throw ECSmtp(SMTP_ERR_NO_RECIPIENTS);
  // Compatibility: after a refusal another reply is awaited, though no server sends one, so a
  // refused recipient ends in 402. One count for all recipients is compared once, after the last.
  auto accepted = static_cast<std::ptrdiff_t>(recipients.size());
  for (const Recipient& recipient : recipients) {
    SendRecipient(recipient);
    while (ReadReply() != 250) --accepted;
  }
  if (accepted == 0) throw ECSmtp(SMTP_ERR_CMD_RCPT_TO);
  for (const auto* list : {&ccRecipients, &bccRecipients}) {
    for (const Recipient& recipient : *list) {
      SendRecipient(recipient);
      while (ReadReply() != 250) {
      }
    }
  }
}

void CSmtp::SendRecipient(const Recipient& recipient) {
  Enter("after RCPT TO:<" + recipient.Mail + ">");
  SendText("RCPT TO:<" + recipient.Mail + ">\r\n");
}

void CSmtp::SendMessage() {
  Enter("after DATA");
  SendText("DATA\r\n");
  if (ReadReplyOtherThan(250) != 354) throw ECSmtp(SMTP_ERR_CMD_DATA);
  Enter("while the message was being sent");
  SendText(ComposeHeader(), Next::kMoreText);
  for (const std::string& line : msgLines) SendText(line + "\r\n", Next::kMoreText);
  if (msgLines.empty()) SendText(" \r\n", Next::kMoreText);
  SendAttachments();
  Enter("after the end of the message", SmtpProgress::Taken::kUnknown);
  SendText("\r\n.\r\n");
  if (ReadReply() != 250) throw ECSmtp(SMTP_ERR_MSG_BODY);
}

void CSmtp::SendAttachments() {
  std::size_t total = 0;
  for (const std::string& path : attachments) {
    SendText(ComposeAttachmentHeader(path));
    AttachmentFile file(path);
    const std::size_t size = file.Measure(kMaxAttachments - total);
    total += size;
    SendFile(file, size);
    file.Close();
  }
  if (!attachments.empty()) SendText(ComposeClosingBoundary(), Next::kMoreText);
}

void CSmtp::SendFile(AttachmentFile& file, std::size_t size) {
  std::array<unsigned char, kBlocksOfBatch * kBlockSize> bytes;
  // Compatibility: where the size is a multiple of the block, an empty last block adds a line end.
  for (std::size_t left = size / kBlockSize + 1; left > 0;) {
    const std::size_t blocks = std::min(left, kBlocksOfBatch);
    const std::size_t length = file.Read({bytes.data(), blocks * kBlockSize});
    std::span<const unsigned char> rest(bytes.data(), length);
    char* end = SendBuf.get();
    for (std::size_t i = 0; i < blocks; ++i) {
      const auto block = rest.first(std::min(rest.size(), kBlockSize));
      end = base64_write(end, block.data(), block.size());
      *end++ = '\r';
      *end++ = '\n';
      rest = rest.subspan(block.size());
    }
    *end = '\0';
    SendBuffer(Next::kMoreText);
    left -= blocks;
  }
}

int CSmtp::ReadReply() {
  ReceiveData();
  return SmtpXYZdigits();
}

int CSmtp::ReadReplyOtherThan(int code) {
  int reply = ReadReply();
  while (reply == code) reply = ReadReply();
  return reply;
}
