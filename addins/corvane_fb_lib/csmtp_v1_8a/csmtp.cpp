// SPDX-License-Identifier: MIT
// The message's fields, and what fills and empties the buffers.
#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

#include "addins/corvane_fb_lib/csmtp_v1_8a/shown_reply.h"
#include "addins/corvane_fb_lib/csmtp_v1_8a/smtp_socket.h"

using smtp_socket::Direction;
using smtp_socket::WaitBudget;

namespace {

std::unique_ptr<char[]> NewBuffer(std::size_t size) {
  std::unique_ptr<char[]> buffer(new (std::nothrow) char[size + 1]());
  if (buffer == nullptr) throw ECSmtp(SMTP_ERR_LACK_OF_MEMORY);
  return buffer;
}

std::string ReadHostName() {
  constexpr std::size_t kSize = 255;
  const auto name = NewBuffer(kSize);
  if (gethostname(name.get(), kSize) != 0) throw ECSmtp(SMTP_ERR_HOSTNAME);
  return name.get();
}

Recipient NewRecipient(const char* email, const char* name) {
  if (email == nullptr) throw ECSmtp(SMTP_ERR_NO_RECIPIENT_MAIL);
  return {name == nullptr ? "" : name, email};
}

}  // namespace

CSmtp::CSmtp() {
  RecvBuf = NewBuffer(kBufferSize);
  SendBuf = NewBuffer(kBufferSize);
  localHostName = ReadHostName();
}

CSmtp::~CSmtp() = default;

const char* CSmtp::GetLocalHostName() const {
  ReadHostName();  // only for its errors: the name stays the one that EHLO sends
  return localHostName.c_str();
}

void CSmtp::SetSMTPServer(const char* server, unsigned short port) {
  smtpPort = port;
  smtpServer = server;
}

const char* CSmtp::GetMsgLineText(unsigned int n) const {
  return msgLines.at(n).c_str();
}

void CSmtp::AddRecipient(const char* email, const char* name) {
  recipients.push_back(NewRecipient(email, name));
}

void CSmtp::AddCCRecipient(const char* email, const char* name) {
  ccRecipients.push_back(NewRecipient(email, name));
}

void CSmtp::AddBCCRecipient(const char* email, const char* name) {
  bccRecipients.push_back(NewRecipient(email, name));
}

void CSmtp::AddAttachment(const char* path) {
  assert(path != nullptr);
  attachments.emplace_back(path);
}

void CSmtp::DelMsgLine(unsigned int n) {
  if (n > GetMsgLines()) throw ECSmtp(SMTP_ERR_OUT_OF_MSG_RANGE);
  if (msgLines.empty()) return;
  if (n == GetMsgLines()) --n;
  msgLines.erase(msgLines.begin() + static_cast<std::ptrdiff_t>(n));
}

void CSmtp::ModMsgLine(unsigned int n, const char* text) {
  if (text == nullptr) return;
  if (n > GetMsgLines()) throw ECSmtp(SMTP_ERR_OUT_OF_MSG_RANGE);
  msgLines.at(n) = text;
}

int CSmtp::ConnectRemoteServer(const char* server, unsigned short port) {
  return smtp_socket::Connect(server, port);
}

void CSmtp::SendData() {
  SendBuffer(Next::kReply);
}

void CSmtp::SendText(std::string_view text, Next next) {
  for (; !text.empty(); text.remove_prefix(std::min(text.size(), kBufferSize - 1))) {
    const std::size_t length = text.copy(SendBuf.get(), kBufferSize - 1);
    SendBuf[length] = '\0';
    SendBuffer(length < text.size() ? Next::kMoreText : next);
  }
}

void CSmtp::SendBuffer(Next next) {
  assert(SendBuf != nullptr);
  std::string_view rest(SendBuf.get(), strnlen(SendBuf.get(), kBufferSize));
  // Without MSG_NOSIGNAL a peer that has closed would end the process with SIGPIPE.
  const int flags = MSG_NOSIGNAL | (next == Next::kMoreText ? MSG_MORE : 0);
  const WaitBudget budget;
  for (;;) {
    smtp_socket::Wait(hSocket, Direction::kWrite, budget);
    if (rest.empty()) return;
    const ssize_t sent = send(hSocket, rest.data(), rest.size(), flags);
    if (sent < 0) throw ECSmtp(SMTP_ERR_SEND);
    if (sent == 0) return;
    rest.remove_prefix(static_cast<std::size_t>(sent));
  }
}

void CSmtp::ReceiveData() {
  assert(RecvBuf != nullptr);
  const WaitBudget budget;
  // Byte by byte, so that what follows the line stays in the socket for the next reply.
  for (std::size_t count = 0;; ++count) {
    smtp_socket::Wait(hSocket, Direction::kRead, budget);
    if (count == kBufferSize) throw ECSmtp(SMTP_ERR_LACK_OF_MEMORY);
    // Once the connection has ended nothing is read, but each attempt uses up a place, so the
    // buffer is full at once.
    RecvBuf[count] = '\0';
    if (recv(hSocket, &RecvBuf[count], 1, 0) < 0) throw ECSmtp(SMTP_ERR_RECV);
    if (RecvBuf[count] != '\n') continue;
    RecvBuf[count + 1] = '\0';
    progress_.reply.assign(RecvBuf.get(), count);
    return;
  }
}

std::string CSmtp::ShownReply() const {
  return ::ShownReply(progress_.reply, login, password);
}

int CSmtp::SmtpXYZdigits() const {
  assert(RecvBuf != nullptr);
  const auto digit = [this](std::size_t i) { return static_cast<unsigned char>(RecvBuf[i]) - '0'; };
  return 100 * digit(0) + 10 * digit(1) + digit(2);
}
