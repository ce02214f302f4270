// SPDX-License-Identifier: MIT
// CSmtp with any octets for what the server says. The first two octets choose the message and how
// the connection behaves; the others are the server's. The socket is not real: the linker leads its
// calls here. Each dialogue must end, with a known code, and say nothing that is cut off.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"

namespace {

constexpr int kSocket = 100000;  // no real descriptor has this number

void Require(bool condition) {
  if (!condition) std::abort();
}

/// How the connection behaves when the server's octets are used up.
enum class End { kSilence, kClose, kReset };

struct Connection {
  std::string_view replies;
  End end = End::kSilence;
  bool small_writes = false;  // takes a few octets at a time
  bool closed = false;
  std::string sent;
};

Connection connection;
int open_file = -1;

/// A file to attach, which is gone with the process.
class Attachment {
 public:
  Attachment() {
    const int descriptor = mkstemp(path_);
    const std::string content(12345, 'x');
    Require(write(descriptor, content.data(), content.size()) == 12345);
    close(descriptor);
  }
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;
  ~Attachment() { unlink(path_); }
  [[nodiscard]] const char* path() const { return path_; }

 private:
  char path_[32] = "/tmp/smtp_fuzzer_XXXXXX";
};

void Fill(CSmtp& mail, unsigned choice) {
  static const Attachment attachment;
  mail.SetSMTPServer("127.0.0.1", 25);
  if ((choice & 1) == 0) mail.SetLogin("plc");
  if ((choice & 2) == 0) mail.SetPassword("s3cret");
  if ((choice & 4) == 0) mail.SetSenderMail("a@plant.example");
  for (unsigned i = 0; i < (choice >> 3 & 3); ++i) mail.AddRecipient("b@plant.example");
  if ((choice & 32) != 0) mail.AddCCRecipient("c@plant.example");
  if ((choice & 64) != 0) mail.AddAttachment(attachment.path());
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

void CheckOutcome(int code) {
  static const std::set<int> kPossible = {0,   102, 103, 201, 203, 204, 205, 300, 301, 302,
                                          303, 304, 305, 306, 401, 402, 405, 406, 407, 408};
  Require(kPossible.count(code) == 1);
  const std::string& sent = connection.sent;
  Require(sent.empty() || sent.ends_with("\r\n") || code == SMTP_ERR_SEND);
  Require((code == SMTP_NO_ERROR) == connection.closed);
  if (code == SMTP_NO_ERROR) Require(sent.ends_with("\r\n.\r\nQUIT\r\n"));
}

}  // namespace

extern "C" {

int __wrap_socket(int /*domain*/, int /*type*/, int /*protocol*/) {
  return kSocket;
}

int __wrap_connect(int /*descriptor*/, const sockaddr* /*address*/, socklen_t /*length*/) {
  return 0;
}

int __real_ioctl(int descriptor, unsigned long request, void* argument);
int __wrap_ioctl(int descriptor, unsigned long request, void* argument) {
  return descriptor == kSocket ? 0 : __real_ioctl(descriptor, request, argument);
}

int __wrap_setsockopt(int, int, int, const void*, socklen_t) {
  return 0;
}

int __real_poll(pollfd* descriptors, nfds_t count, int timeout);
int __wrap_poll(pollfd* descriptors, nfds_t count, int timeout) {
  if (count != 1 || descriptors->fd != kSocket) return __real_poll(descriptors, count, timeout);
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

int __real_close(int descriptor);
int __wrap_close(int descriptor) {
  if (descriptor == open_file) open_file = -1;
  if (descriptor != kSocket) return __real_close(descriptor);
  connection.closed = true;
  return 0;
}

// A failed send leaves its file open; a million of them would be too many.
int __real_open64(const char* path, int flags);
int __wrap_open64(const char* path, int flags) {
  return open_file = __real_open64(path, flags);
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  connection = {};
  connection.replies = {reinterpret_cast<const char*>(data) + 2, size - 2};
  connection.end = static_cast<End>(data[1] % 3);
  connection.small_writes = (data[1] & 0x80) != 0;
  CSmtp mail;
  Fill(mail, data[0]);
  CheckOutcome(CodeOfSending(mail));
  if (open_file >= 0) close(open_file);
  return 0;
}
}
