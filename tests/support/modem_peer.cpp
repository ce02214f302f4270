// SPDX-License-Identifier: MIT
#include "tests/support/modem_peer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "tests/support/wait_for.h"

namespace test_support {
namespace {

constexpr char kCtrlZ = 0x1A;
constexpr char kEscape = 0x1B;

int Checked(int result) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), "modem peer");
  return result;
}

void CloseIfOpen(int& descriptor) {
  if (descriptor >= 0) close(descriptor);
  descriptor = -1;
}

}  // namespace

ModemPeer::ModemPeer(Script script, PeerKind kind)
    : script_(std::move(script)), kind_(kind), wake_(Checked(eventfd(0, EFD_CLOEXEC))) {
  if (kind_ == PeerKind::kTcp) {
    Listen();
  } else {
    OpenTerminal();
  }
  thread_ = std::thread([this] { Run(); });
}

ModemPeer::~ModemPeer() {
  {
    const std::lock_guard guard(mutex_);
    stopping_ = true;
  }
  eventfd_write(wake_, 1);
  thread_.join();
  CloseLine();
  CloseIfOpen(listener_);
  CloseIfOpen(wake_);
}

std::string ModemPeer::Target() const {
  if (kind_ == PeerKind::kTcp) return "tcp:127.0.0.1:" + std::to_string(port_);
  return folder_.path() / "modem";
}

void ModemPeer::OpenTerminal() {
  const int master = Checked(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  Checked(grantpt(master));
  Checked(unlockpt(master));
  std::array<char, 128> name{};
  Checked(-ptsname_r(master, name.data(), name.size()));
  const int slave = Checked(open(name.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  // Not raw: whoever opens it as a serial line makes it so.
  std::filesystem::create_symlink(name.data(), folder_.path() / "modem");
  const std::lock_guard guard(mutex_);
  line_ = master;
  other_ = slave;
  pending_.clear();
}

void ModemPeer::Listen() {
  listener_ = Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  void* const any = &address;
  Checked(bind(listener_, static_cast<sockaddr*>(any), length));
  Checked(listen(listener_, 4));
  Checked(getsockname(listener_, static_cast<sockaddr*>(any), &length));
  port_ = ntohs(address.sin_port);
}

void ModemPeer::CloseLine() {
  const std::lock_guard guard(mutex_);
  CloseIfOpen(line_);
  CloseIfOpen(other_);
  pending_.clear();
}

void ModemPeer::Unplug() {
  std::filesystem::remove(folder_.path() / "modem");
  CloseLine();
  eventfd_write(wake_, 1);
}

void ModemPeer::PlugIn() {
  if (kind_ == PeerKind::kPseudoTerminal) OpenTerminal();
  eventfd_write(wake_, 1);
}

void ModemPeer::ShowSetUp() {
  const std::lock_guard guard(mutex_);
  show_set_up_ = true;
}

std::vector<std::string> ModemPeer::Requests() {
  const std::lock_guard guard(mutex_);
  return requests_;
}

int ModemPeer::Escapes() {
  const std::lock_guard guard(mutex_);
  return escapes_;
}

bool ModemPeer::WaitForRequests(std::size_t number) {
  std::unique_lock guard(mutex_);
  return changed_.wait_for(guard, kPatience, [&] { return requests_.size() >= number; });
}

void ModemPeer::Send(std::string_view octets) {
  while (!octets.empty()) {
    const std::lock_guard guard(mutex_);
    if (line_ < 0 || stopping_) return;
    const ssize_t sent = write(line_, octets.data(), octets.size());
    if (sent > 0) {
      octets.remove_prefix(static_cast<std::size_t>(sent));
      continue;
    }
    if (errno != EAGAIN) return;
    pollfd room{line_, POLLOUT, 0};
    poll(&room, 1, 10);
  }
}

void ModemPeer::Run() {
  std::array<char, 4096> room{};
  for (;;) {
    std::array<pollfd, 2> waits{pollfd{wake_, POLLIN, 0}, pollfd{-1, POLLIN, 0}};
    bool accepting = false;
    {
      const std::lock_guard guard(mutex_);
      if (stopping_) return;
      accepting = line_ < 0 && listener_ >= 0;
      waits[1].fd = accepting ? listener_ : line_;
    }
    poll(waits.data(), waits.size(), -1);
    eventfd_t count = 0;
    if (waits[0].revents != 0) eventfd_read(wake_, &count);
    if (waits[1].revents == 0) continue;
    ssize_t length = 0;
    {
      const std::lock_guard guard(mutex_);
      if (accepting) {
        line_ = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        continue;
      }
      if (line_ < 0) continue;
      length = read(line_, room.data(), room.size());
      if (length == 0) CloseIfOpen(line_);
    }
    if (length > 0) Take({room.data(), static_cast<std::size_t>(length)});
  }
}

void ModemPeer::Take(std::string_view octets) {
  for (const char c : octets) {
    std::string request;
    bool hidden = false;
    {
      const std::lock_guard guard(mutex_);
      if (c == kEscape) {
        ++escapes_;
        pending_.clear();
        continue;
      }
      pending_ += c;
      if (c != '\r' && c != kCtrlZ) continue;
      request = std::exchange(pending_, {});
      if (request == "\r") continue;  // an empty line, such as the one that ESC CR makes
      hidden = request == "ATE0V1\r" && !show_set_up_;
      if (!hidden) requests_.push_back(request);
    }
    if (hidden) {
      Send("\r\nOK\r\n");
      continue;
    }
    changed_.notify_all();
    script_(*this, request);
  }
}

}  // namespace test_support
