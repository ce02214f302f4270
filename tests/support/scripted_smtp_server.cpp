// SPDX-License-Identifier: MIT
#include "tests/support/scripted_smtp_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <utility>

#include "tests/support/test_certificate.h"
#include "tests/support/wait_for.h"

namespace test_support {
namespace {

/// Ends a script.
struct Stopped {};

int Listen(unsigned short& port) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* any = reinterpret_cast<sockaddr*>(&address);
  if (bind(listener, any, length) != 0 || listen(listener, SOMAXCONN) != 0 ||
      getsockname(listener, any, &length) != 0) {
    throw std::runtime_error("no port for the scripted server");
  }
  port = ntohs(address.sin_port);
  return listener;
}

/// True when the descriptor is ready, false when the server is to stop.
bool Await(int descriptor, short events, int stop_event) {
  std::array<pollfd, 2> wait{{{descriptor, events, 0}, {stop_event, POLLIN, 0}}};
  while (poll(wait.data(), wait.size(), -1) < 0) {
  }
  return wait[1].revents == 0;
}

}  // namespace

SmtpPeer::SmtpPeer(int connection, int stop_event, Sink sink)
    : connection_(connection), stop_event_(stop_event), sink_(std::move(sink)) {}

SmtpPeer::~SmtpPeer() {
  if (connection_ >= 0) close(connection_);
}

void SmtpPeer::WaitFor(short events) {
  if (connection_ < 0 || !Await(connection_, events, stop_event_)) throw Stopped();
}

void SmtpPeer::FreeTls::operator()(ssl_st* tls) const {
  SSL_free(tls);
}

void SmtpPeer::StartTls(const TestCertificate& certificate) {
  SSL_CTX* const context = SSL_CTX_new(TLS_server_method());
  SSL_CTX_use_certificate(context, certificate.certificate());
  SSL_CTX_use_PrivateKey(context, certificate.key());
  tls_.reset(SSL_new(context));
  SSL_CTX_free(context);
  // So that the end of the server is noticed wherever TLS is.
  fcntl(connection_, F_SETFL, fcntl(connection_, F_GETFL) | O_NONBLOCK);
  SSL_set_fd(tls_.get(), connection_);
  for (int result = SSL_accept(tls_.get()); result != 1; result = SSL_accept(tls_.get())) {
    WaitForTls(result);
  }
}

/// Waits for what the call with this result lacked.
void SmtpPeer::WaitForTls(int result) {
  switch (SSL_get_error(tls_.get(), result)) {
    case SSL_ERROR_WANT_READ: return WaitFor(POLLIN);
    case SSL_ERROR_WANT_WRITE: return WaitFor(POLLOUT);
    default: throw Stopped();
  }
}

std::size_t SmtpPeer::Send(std::string_view bytes) {
  if (tls_) {
    int sent = 0;
    while ((sent = SSL_write(tls_.get(), bytes.data(), static_cast<int>(bytes.size()))) <= 0) {
      WaitForTls(sent);
    }
    return static_cast<std::size_t>(sent);
  }
  WaitFor(POLLOUT);
  const ssize_t sent = send(connection_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent <= 0) throw Stopped();
  return static_cast<std::size_t>(sent);
}

std::size_t SmtpPeer::Receive(char* bytes, std::size_t size) {
  if (tls_) {
    int length = 0;
    while ((length = SSL_read(tls_.get(), bytes, static_cast<int>(size))) <= 0) WaitForTls(length);
    return static_cast<std::size_t>(length);
  }
  WaitFor(POLLIN);
  const ssize_t length = recv(connection_, bytes, size, 0);
  if (length <= 0) throw Stopped();
  return static_cast<std::size_t>(length);
}

void SmtpPeer::Say(std::string_view bytes) {
  while (!bytes.empty()) bytes.remove_prefix(Send(bytes));
}

void SmtpPeer::SayByteByByte(std::string_view bytes) {
  for (const char byte : bytes) Say({&byte, 1});
}

std::string SmtpPeer::HearUntil(std::string_view end) {
  std::size_t from = 0;
  for (;;) {
    const std::size_t found = ahead_.find(end, from);
    if (found != std::string::npos) {
      std::string text = ahead_.substr(0, found + end.size());
      ahead_.erase(0, text.size());
      return text;
    }
    from = ahead_.size() < end.size() ? 0 : ahead_.size() - end.size() + 1;
    std::array<char, 65536> piece;
    const std::string_view text(piece.data(), Receive(piece.data(), piece.size()));
    ahead_ += text;
    sink_(text);
  }
}

void SmtpPeer::Idle() {
  Await(stop_event_, POLLIN, stop_event_);
  throw Stopped();
}

void SmtpPeer::Pause(int milliseconds) {
  pollfd wait{stop_event_, POLLIN, 0};
  if (poll(&wait, 1, milliseconds) > 0) throw Stopped();
}

void SmtpPeer::Close() {
  close(std::exchange(connection_, -1));
}

void SmtpPeer::Reset() {
  const linger at_once{1, 0};
  setsockopt(connection_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
  Close();
}

void Serve(SmtpPeer& peer, const SmtpReplies& replies) {
  const auto answer = [&peer](const std::string& reply) {
    if (reply.empty()) throw Stopped();
    peer.Say(reply);
  };
  answer(replies.greeting);
  peer.HearLine();
  answer(replies.ehlo);
  peer.HearLine();
  answer(replies.auth);
  peer.HearLine();
  answer(replies.login);
  peer.HearLine();
  answer(replies.password);
  peer.HearLine();
  answer(replies.mail);
  for (std::string line = peer.HearLine(); line != "DATA\r\n"; line = peer.HearLine()) {
    answer(replies.recipient);
  }
  answer(replies.data);
  peer.HearUntil("\r\n.\r\n");
  answer(replies.message);
  peer.HearLine();
  answer(replies.quit);
}

ScriptedSmtpServer::ScriptedSmtpServer(Script script)
    : script_(std::move(script)),
      listener_(Listen(port_)),
      stop_event_(eventfd(0, EFD_CLOEXEC)),
      thread_([this] { Run(); }) {}

ScriptedSmtpServer::ScriptedSmtpServer(SmtpReplies replies)
    : ScriptedSmtpServer([replies = std::move(replies)](SmtpPeer& peer) { Serve(peer, replies); }) {
}

ScriptedSmtpServer::~ScriptedSmtpServer() {
  eventfd_write(stop_event_, 1);
  thread_.join();
  close(listener_);
  close(stop_event_);
}

std::string ScriptedSmtpServer::heard() const {
  const std::lock_guard guard(mutex_);
  return heard_;
}

std::string ScriptedSmtpServer::HeardUpTo(std::string_view end) const {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, kPatience, [&] { return heard_.ends_with(end); });
  return heard_;
}

void ScriptedSmtpServer::Run() {
  // OpenSSL writes without MSG_NOSIGNAL. The client's threads must do without this.
  sigset_t pipe_only;
  sigemptyset(&pipe_only);
  sigaddset(&pipe_only, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe_only, nullptr);
  while (Await(listener_, POLLIN, stop_event_)) {
    const int connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    ++connections_;
    SmtpPeer peer(connection, stop_event_, [this](std::string_view text) {
      const std::lock_guard guard(mutex_);
      heard_ += text;
      changed_.notify_all();
    });
    try {
      script_(peer);
    } catch (const Stopped&) {
    }
  }
}

}  // namespace test_support
