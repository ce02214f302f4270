// SPDX-License-Identifier: MIT
// What client and server say to each other, in the order of RFC 5321 with AUTH LOGIN.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <new>
#include <span>

#include "addins/corvane_fb_lib/base64.h"
#include "addins/corvane_fb_lib/csmtp_v1_8a/attachment_file.h"
#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"

namespace {

constexpr std::size_t kBlockSize = 54;      // bytes of a file in one line of 72 characters
constexpr std::size_t kBlocksOfBatch = 92;  // that are sent at once: about 5 KB of the file
static_assert(kBlocksOfBatch * (base64_length(kBlockSize) + 2) < CSmtp::kBufferSize);

std::string Base64Line(const std::string& text) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
  return base64_encode(bytes, static_cast<unsigned int>(text.size())) + "\r\n";
}

}  // namespace

void CSmtp::Send() {
  try {
    RunDialogue();
  } catch (const std::bad_alloc&) {
    throw ECSmtp(SMTP_ERR_LACK_OF_MEMORY);
  }
}

void CSmtp::RunDialogue() {
  hSocket = ConnectRemoteServer(smtpServer.c_str(), smtpPort);
  Greet();
  Authenticate();
  SendEnvelope();
  SendMessage();
  SendText("QUIT\r\n");
  if (ReadReply() != 221) throw ECSmtp(SMTP_ERR_CMD_QUIT);
  close(hSocket);
  hSocket = 0;
}

void CSmtp::Greet() {
  if (ReadReply() != 220) throw ECSmtp(SMTP_ERR_SERVER_NOT_READY);
  SendText("EHLO " + (localHostName.empty() ? "domain" : localHostName) + "\r\n");
  if (ReadReply() != 250) throw ECSmtp(SMTP_ERR_CMD_EHLO);
}

void CSmtp::Authenticate() {
  SendText("AUTH LOGIN\r\n");
  // The further lines of EHLO's reply come first.
  if (ReadReplyOtherThan(250) != 334) throw ECSmtp(SMTP_ERR_CMD_AUTH_LOGIN);
  if (login.empty()) throw ECSmtp(SMTP_ERR_NO_LOGIN);
  SendText(Base64Line(login));
  if (ReadReply() != 334) throw ECSmtp(SMTP_ERR_UNDEF_XYZ_RESPONSE);
  if (password.empty()) throw ECSmtp(SMTP_ERR_NO_PASSWORD);
  SendText(Base64Line(password));
  const int code = ReadReplyOtherThan(334);
  if (code == 535) throw ECSmtp(SMTP_ERR_BAD_LOGIN_PASS);
  if (code != 235) throw ECSmtp(SMTP_ERR_UNDEF_XYZ_RESPONSE);
}

void CSmtp::SendEnvelope() {
  if (mailFrom.empty()) throw ECSmtp(SMTP_ERR_NO_SENDER);
  SendText("MAIL FROM:<" + mailFrom + ">\r\n");
  if (ReadReply() != 250) throw ECSmtp(SMTP_ERR_CMD_MAIL_FROM);

  if (recipients.empty()) throw ECSmtp(SMTP_ERR_NO_RECIPIENTS);
  // After a refusal the next reply is awaited, though no server says more than it was asked: so a
  // refused recipient ends in 402. The count starts once and is compared once. Intended.
  auto accepted = static_cast<std::ptrdiff_t>(recipients.size());
  for (const Recipient& recipient : recipients) {
    SendText("RCPT TO:<" + recipient.Mail + ">\r\n");
    while (ReadReply() != 250) --accepted;
  }
  if (accepted == 0) throw ECSmtp(SMTP_ERR_CMD_RCPT_TO);
  for (const auto* list : {&ccRecipients, &bccRecipients}) {
    for (const Recipient& recipient : *list) {
      SendText("RCPT TO:<" + recipient.Mail + ">\r\n");
      while (ReadReply() != 250) {
      }
    }
  }
}

void CSmtp::SendMessage() {
  SendText("DATA\r\n");
  if (ReadReplyOtherThan(250) != 354) throw ECSmtp(SMTP_ERR_CMD_DATA);
  SendText(ComposeHeader(), Next::kMoreText);
  for (const std::string& line : msgLines) SendText(line + "\r\n", Next::kMoreText);
  if (msgLines.empty()) SendText(" \r\n", Next::kMoreText);
  SendAttachments();
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
  // Where the size is a multiple of the block, the last block is empty and has its line end all the
  // same: intended.
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
