// SPDX-License-Identifier: MIT
// CSmtp with any octets from the server. The first two octets choose the message and how the
// connection behaves; the others are the server's. There is no connection: the linker redirects the
// socket calls to this file. A simpler client that follows the same replies predicts the commands
// and the outcome.
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"
#include "fuzz/require.h"

extern "C" {
int __real_socket(int domain, int type, int protocol);
int __real_close(int descriptor);
int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
}

namespace {

/// What the connection does when the server's octets are used up.
enum class End { kSilence, kClose, kReset };

struct Connection {
  std::string_view replies;
  End end = End::kSilence;
  bool small_writes = false;  // accepts a few octets at a time
  bool closed = false;
  std::string sent;
};

Connection connection;

/// The socket of every connection: a real one, so that it accepts all settings, but never
/// connected.
int Socket() {
  static const int descriptor = __real_socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  return descriptor;
}

/// The descriptor that the next file will get.
int NextDescriptor() {
  const int descriptor = dup(Socket());
  close(descriptor);
  return descriptor;
}

/// A file to attach, which has no name and so disappears with the process.
int Attachment() {
  static const int descriptor = [] {
    const std::string content(12345, 'x');
    const int file = memfd_create("attachment", MFD_CLOEXEC);
    Require(write(file, content.data(), content.size()) == 12345);
    return file;
  }();
  return descriptor;
}

void Fill(CSmtp& mail, unsigned choice) {
  mail.SetSMTPServer("127.0.0.1", 25);
  if ((choice & 1) == 0) mail.SetLogin("plc");
  if ((choice & 2) == 0) mail.SetPassword("s3cret");
  if ((choice & 4) == 0) mail.SetSenderMail("a@plant.example");
  for (unsigned i = 0; i < (choice >> 3 & 3); ++i) mail.AddRecipient("b@plant.example");
  if ((choice & 32) != 0) mail.AddCCRecipient("c@plant.example");
  if ((choice & 64) != 0) {
    mail.AddAttachment(("/proc/self/fd/" + std::to_string(Attachment())).c_str());
  }
  if ((choice & 128) != 0) mail.AddMsgLine(std::string(20000, 'm').c_str());
}

int CodeOfSending(CSmtp& mail) {
  try {
    mail.Send();
  } catch (const ECSmtp& error) {
    return error.GetErrorNum();
  }
  return SMTP_NO_ERROR;
}

/// The dialogue as far as the replies let it go: what the client says up to the message, and the
/// code.
class PlainClient {
 public:
  explicit PlainClient(const Connection& server)
      : replies_(server.replies), end_(server.end), said_() {}

  int Send(const std::string& host, unsigned choice) {
    try {
      Greet(host);
      Authenticate((choice & 1) == 0, (choice & 2) == 0);
      const int recipients = static_cast<int>(choice >> 3 & 3);
      Address((choice & 4) == 0, recipients, (choice & 32) != 0);
      Transmit();
    } catch (const ECSmtp& error) {
      return error.GetErrorNum();
    }
    return SMTP_NO_ERROR;
  }
  [[nodiscard]] const std::string& said() const { return said_; }
  [[nodiscard]] bool in_message() const { return in_message_; }

 private:
  void Greet(const std::string& host) {
    Expect(220, SMTP_ERR_SERVER_NOT_READY);
    Say("EHLO " + host);
    Expect(250, SMTP_ERR_CMD_EHLO);
    Say("AUTH LOGIN");
    if (ReplyAfter(250) != 334) throw ECSmtp(SMTP_ERR_CMD_AUTH_LOGIN);
  }
  void Authenticate(bool has_login, bool has_password) {
    if (!has_login) throw ECSmtp(SMTP_ERR_NO_LOGIN);
    Say("cGxj");  // "plc"
    Expect(334, SMTP_ERR_UNDEF_XYZ_RESPONSE);
    if (!has_password) throw ECSmtp(SMTP_ERR_NO_PASSWORD);
    Say("czNjcmV0");  // "s3cret"
    const int reply = ReplyAfter(334);
    if (reply == 535) throw ECSmtp(SMTP_ERR_BAD_LOGIN_PASS);
    if (reply != 235) throw ECSmtp(SMTP_ERR_UNDEF_XYZ_RESPONSE);
  }
  void Address(bool has_sender, int recipients, bool has_copy) {
    if (!has_sender) throw ECSmtp(SMTP_ERR_NO_SENDER);
    Say("MAIL FROM:<a@plant.example>");
    Expect(250, SMTP_ERR_CMD_MAIL_FROM);
    if (recipients == 0) throw ECSmtp(SMTP_ERR_NO_RECIPIENTS);
    int refusals = 0;
    for (int i = 0; i < recipients; ++i) {
      Say("RCPT TO:<b@plant.example>");
      while (Reply() != 250) ++refusals;
    }
    if (refusals == recipients) throw ECSmtp(SMTP_ERR_CMD_RCPT_TO);
    if (!has_copy) return;
    Say("RCPT TO:<c@plant.example>");
    while (Reply() != 250) continue;
  }
  void Transmit() {
    Say("DATA");
    if (ReplyAfter(250) != 354) throw ECSmtp(SMTP_ERR_CMD_DATA);
    in_message_ = true;
    Say("");  // the message
    Expect(250, SMTP_ERR_MSG_BODY);
    Say("QUIT");
    Expect(221, SMTP_ERR_CMD_QUIT);
  }

  void Say(const std::string& line) {
    if (replies_.empty() && end_ == End::kReset) throw ECSmtp(SMTP_ERR_SEND);
    if (!in_message_) said_ += line + "\r\n";
  }
  void Expect(int code, CSmtpError otherwise) {
    if (Reply() != code) throw ECSmtp(otherwise);
  }
  int ReplyAfter(int code) {
    int reply = code;
    while (reply == code) reply = Reply();
    return reply;
  }
  int Reply() {
    // The end of the connection also takes a place in the buffer; silence does not.
    const std::size_t places = replies_.size() + (end_ == End::kSilence ? 0 : 1);
    const std::size_t line_end = replies_.find('\n');
    if (line_end >= CSmtp::kBufferSize && places > CSmtp::kBufferSize) {
      throw ECSmtp(SMTP_ERR_LACK_OF_MEMORY);
    }
    const std::string_view line = replies_.substr(0, line_end);
    replies_.remove_prefix(line.size());
    if (replies_.empty()) ThrowEnd();
    replies_.remove_prefix(1);
    const auto digit = [&](std::size_t i) { return static_cast<unsigned char>(line[i]) - '0'; };
    return line.size() < 3 ? -1 : 100 * digit(0) + 10 * digit(1) + digit(2);
  }
  [[noreturn]] void ThrowEnd() const {
    if (end_ == End::kSilence) throw ECSmtp(SMTP_ERR_SERVER_NOT_RESPONDING);
    throw ECSmtp(end_ == End::kClose ? SMTP_ERR_LACK_OF_MEMORY : SMTP_ERR_RECV);
  }

  std::string_view replies_;
  End end_;
  std::string said_;
  bool in_message_ = false;
};

void CheckSent(int code, const PlainClient& plain) {
  const std::string& sent = connection.sent;
  Require(plain.in_message() ? sent.starts_with(plain.said()) : sent == plain.said());
  Require(sent.empty() || sent.ends_with("\r\n") || code == SMTP_ERR_SEND);
  Require((code == SMTP_NO_ERROR) == connection.closed);
  if (code == SMTP_NO_ERROR) Require(sent.ends_with("\r\n.\r\nQUIT\r\n"));
}

/// Checks what a failure's log line is made of.
void CheckProgress(const CSmtp& mail, int code, bool has_password) {
  const std::string& sent = connection.sent;
  const bool has_end = sent.find("\r\n.\r\n") != std::string::npos;
  const auto taken = mail.progress().taken;
  if (code == SMTP_NO_ERROR) Require(taken == SmtpProgress::Taken::kYes);
  if (taken == SmtpProgress::Taken::kYes) Require(has_end);
  if (taken == SmtpProgress::Taken::kNo) Require(!has_end);
  const std::string reply = mail.ShownReply();
  Require(!has_password || reply.find("s3cret") == std::string::npos);
  Require(reply.find('\n') == std::string::npos);
  Require(mail.progress().reply.find('\n') == std::string::npos);
}

}  // namespace

extern "C" {

int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
  return Socket();
}

int __wrap_connect(int /*descriptor*/, const sockaddr* /*address*/, socklen_t /*length*/) {
  return 0;
}

int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  if (count != 1 || descriptors->fd != Socket()) return __real_poll(descriptors, count, timeout);
  const bool silent = connection.replies.empty() && connection.end == End::kSilence;
  if ((descriptors->events & POLLIN) != 0 && silent) return 0;
  descriptors->revents = descriptors->events;
  return 1;
}

ssize_t __wrap_send(int /*descriptor*/, const void* data, std::size_t size, int /*flags*/) {
  if (connection.end == End::kReset && connection.replies.empty()) {
    errno = ECONNRESET;
    return -1;
  }
  if (connection.small_writes) size = std::min<std::size_t>(size, 997);
  connection.sent.append(static_cast<const char*>(data), size);
  return static_cast<ssize_t>(size);
}

ssize_t __wrap_recv(int /*descriptor*/, void* data, std::size_t size, int /*flags*/) {
  if (connection.replies.empty()) return connection.end == End::kClose ? 0 : -1;
  const std::size_t length = connection.replies.copy(static_cast<char*>(data), size);
  connection.replies.remove_prefix(length);
  return static_cast<ssize_t>(length);
}

int __wrap_close(int descriptor) {
  if (descriptor != Socket()) return __real_close(descriptor);
  connection.closed = true;
  return 0;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  connection = {};
  connection.replies = {reinterpret_cast<const char*>(data) + 2, size - 2};
  connection.end = static_cast<End>(data[1] % 3);
  connection.small_writes = (data[1] & 0x80) != 0;
  CSmtp mail;
  Fill(mail, data[0]);
  PlainClient plain(connection);
  const int file = NextDescriptor();
  const int code = plain.Send(mail.GetLocalHostName(), data[0]);
  Require(CodeOfSending(mail) == code);
  CheckSent(code, plain);
  CheckProgress(mail, code, (data[0] & 2) == 0);
  // A failed send leaves its file open; a million of them would be too many.
  if (code != SMTP_NO_ERROR) close(file);
  return 0;
}
}
