// SPDX-License-Identifier: MIT
// poll instead of select: descriptors above 1023 work like any other.
#include "addins/corvane_fb_lib/csmtp_v1_8a/smtp_socket.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "addins/corvane_fb_lib/csmtp_v1_8a/ecsmtp.h"
#include "libs/base/descriptor.h"

namespace smtp_socket {
namespace {

using corvane::Descriptor;

constexpr unsigned short kSmtpPort = 25;
constexpr std::size_t kMaxResolverBuffer = 65536;

/// Waits up to `timeout` milliseconds for any of `events`. @return what happened; 0: a time-out
int Poll(int descriptor, int events, int timeout) {
  pollfd wait{descriptor, static_cast<short>(events), 0};
  const int count = poll(&wait, 1, timeout);
  if (count < 0 || (wait.revents & POLLNVAL) != 0) throw ECSmtp(SMTP_ERR_SELECT);
  return wait.revents;
}

/// As above, within the budget.
int Poll(int descriptor, int events, const WaitBudget& budget) {
  // A poll that never waits costs half as much as one that may, and most octets of a reply have
  // already arrived.
  const int ready = Poll(descriptor, events, 0);
  return ready != 0 ? ready : Poll(descriptor, events, budget.Left());
}

/// Calls a re-entrant function of the name services with a buffer that grows as required.
/// @return the entry, which points into `buffer`; null when there is none
template <class Entry, class Call>
const Entry* LookUp(std::vector<char>& buffer, Entry& entry, const Call& call) {
  for (buffer.resize(1024); buffer.size() <= kMaxResolverBuffer; buffer.resize(2 * buffer.size())) {
    Entry* result = nullptr;
    if (call(&entry, buffer.data(), buffer.size(), &result) != ERANGE) return result;
  }
  return nullptr;
}

/// In network byte order.
in_port_t MailPort() {
  std::vector<char> buffer;
  servent entry{};
  const servent* found =
      LookUp(buffer, entry, [](servent* e, char* data, std::size_t size, servent** result) {
        return getservbyname_r("mail", nullptr, e, data, size, result);
      });
  return found != nullptr ? static_cast<in_port_t>(found->s_port) : htons(kSmtpPort);
}

in_addr Resolve(const char* server) {
  in_addr address{};
  address.s_addr = inet_addr(server);
  if (address.s_addr != INADDR_NONE) return address;
  std::vector<char> buffer;
  hostent entry{};
  const hostent* found =
      LookUp(buffer, entry, [server](hostent* e, char* data, std::size_t size, hostent** result) {
        int why = 0;
        return gethostbyname_r(server, e, data, size, result, &why);
      });
  if (found == nullptr || found->h_addr_list[0] == nullptr) throw ECSmtp(SMTP_ERR_RESOLVE);
  const auto length = static_cast<std::size_t>(std::max(found->h_length, 0));
  std::memcpy(&address, found->h_addr_list[0], std::min(length, sizeof address));
  return address;
}

/// Waits for the outcome of a connect that is under way.
void AwaitConnection(int descriptor) {
  const WaitBudget budget;
  for (;;) {
    const int events = Poll(descriptor, POLLOUT | POLLPRI, budget);
    if (events == 0) throw ECSmtp(SMTP_ERR_CONNECT_TIMEOUT);
    if ((events & (POLLOUT | POLLERR | POLLHUP)) != 0) return;
    if ((events & POLLPRI) != 0) throw ECSmtp(SMTP_ERR_SELECT);
  }
}

}  // namespace

int WaitBudget::Left() const {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now());
  return static_cast<int>(std::max<std::chrono::milliseconds::rep>(left.count(), 0));
}

void Wait(int descriptor, Direction direction, const WaitBudget& budget) {
  const int events = direction == Direction::kRead ? POLLIN : POLLOUT;
  if (Poll(descriptor, events, budget) == 0) throw ECSmtp(SMTP_ERR_SERVER_NOT_RESPONDING);
}

int Connect(const char* server, unsigned short port) {
  Descriptor descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (descriptor.get() < 0) throw ECSmtp(SMTP_ERR_SOCKET);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = port == 0 ? MailPort() : htons(port);
  address.sin_addr = Resolve(server);
  int on = 1;
  if (ioctl(descriptor.get(), FIONBIO, &on) != 0) throw ECSmtp(SMTP_ERR_IOCTL);
  // The message leaves in several writes; without this the second waits for the peer's delayed
  // acknowledgement of the first. Only speed is at stake, so the result does not matter.
  setsockopt(descriptor.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (connect(descriptor.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    if (errno != EINPROGRESS) throw ECSmtp(SMTP_ERR_CONNECT);
    AwaitConnection(descriptor.get());
  }
  return descriptor.Release();
}

}  // namespace smtp_socket
