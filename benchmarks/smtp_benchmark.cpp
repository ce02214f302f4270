// SPDX-License-Identifier: MIT
// What an e-mail costs: CSmtp compared with libcurl, which sends the same message to the same
// server in this process, and the Base64 encoder compared with OpenSSL's.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/evp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "addins/corvane_fb_lib/base64.h"
#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"
#include "benchmarks/curl_peer.h"

namespace {

// ---- Base64

std::vector<unsigned char> SomeBytes(std::size_t size) {
  std::vector<unsigned char> bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>(i * 2654435761U >> 7);
  return bytes;
}

void Base64Ours(benchmark::State& state) {
  const auto bytes = SomeBytes(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(base64_encode(bytes.data(), static_cast<unsigned int>(bytes.size())));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Base64Ours)->Name("Base64/ours")->Arg(54)->Arg(1 << 20);

void Base64Peer(benchmark::State& state) {
  const auto bytes = SomeBytes(static_cast<std::size_t>(state.range(0)));
  std::vector<unsigned char> text(bytes.size() * 4 / 3 + 8);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        EVP_EncodeBlock(text.data(), bytes.data(), static_cast<int>(bytes.size())));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Base64Peer)->Name("Base64/peer")->Arg(54)->Arg(1 << 20);

// ---- E-mail

/// Accepts every message as fast as the loopback interface delivers it, and keeps the last one.
class Server {
 public:
  Server() : listener_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener_, any, length) != 0 || listen(listener_, 16) != 0 ||
        getsockname(listener_, any, &length) != 0) {
      throw std::runtime_error("no port for the server");
    }
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] {
      for (int connection; (connection = accept(listener_, nullptr, nullptr)) >= 0;) {
        Serve(connection);
        close(connection);
      }
    });
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() {
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
  }
  [[nodiscard]] unsigned short port() const { return port_; }
  /// The message of the last dialogue, header and body. Call it only between two dialogues.
  [[nodiscard]] const std::string& message() const { return message_; }

 private:
  static void Say(int connection, std::string_view reply) {
    static_cast<void>(send(connection, reply.data(), reply.size(), MSG_NOSIGNAL));
  }
  /// Reads more into `heard_`. False at the end of the connection.
  bool Hear(int connection) {
    const ssize_t length = recv(connection, piece_.data(), piece_.size(), 0);
    if (length > 0) heard_.append(piece_.data(), static_cast<std::size_t>(length));
    return length > 0;
  }
  /// The next line; empty at the end of the connection.
  std::string HearLine(int connection) {
    std::size_t end = 0;
    while ((end = heard_.find("\r\n")) == std::string::npos) {
      if (!Hear(connection)) return {};
    }
    std::string line = heard_.substr(0, end);
    heard_.erase(0, end + 2);
    return line;
  }
  void TakeMessage(int connection) {
    while (!heard_.ends_with("\r\n.\r\n")) {
      if (!Hear(connection)) return;
    }
    heard_.resize(heard_.size() - 5);
    message_.swap(heard_);
    heard_.clear();
  }
  void Serve(int connection) {
    heard_.clear();
    Say(connection, "220 ready\r\n");
    for (;;) {
      const std::string line = HearLine(connection);
      if (line.empty()) return;
      if (line.starts_with("EHLO")) {
        Say(connection, "250-mail.example\r\n250 AUTH LOGIN\r\n");
      } else if (line == "AUTH LOGIN") {
        Say(connection, "334 VXNlcm5hbWU6\r\n");
        HearLine(connection);
        Say(connection, "334 UGFzc3dvcmQ6\r\n");
        HearLine(connection);
        Say(connection, "235 welcome\r\n");
      } else if (line == "DATA") {
        Say(connection, "354 go ahead\r\n");
        TakeMessage(connection);
        Say(connection, "250 queued\r\n");
      } else if (line == "QUIT") {
        Say(connection, "221 bye\r\n");
        return;
      } else {
        Say(connection, "250 ok\r\n");
      }
    }
  }

  int listener_;
  unsigned short port_ = 0;
  std::string heard_;
  std::string message_;
  std::array<char, 65536> piece_;
  std::thread thread_;
};

/// A file of a given size, or none.
class Attachment {
 public:
  explicit Attachment(std::size_t size) : size_(size) {
    if (size == 0) return;
    const int descriptor = mkstemp(path_);
    const auto bytes = SomeBytes(size);
    if (write(descriptor, bytes.data(), size) != static_cast<ssize_t>(size)) std::abort();
    close(descriptor);
  }
  Attachment(const Attachment&) = delete;
  Attachment& operator=(const Attachment&) = delete;
  ~Attachment() {
    if (size_ > 0) unlink(path_);
  }
  void AddTo(CSmtp& mail) const {
    if (size_ > 0) mail.AddAttachment(path_);
  }

 private:
  std::size_t size_;
  char path_[32] = "/tmp/smtp_benchmark_XXXXXX";
};

void Send(unsigned short port, const Attachment& attachment) {
  CSmtp mail;
  mail.SetSMTPServer("127.0.0.1", port);
  mail.SetLogin("plc");
  mail.SetPassword("s3cret");
  mail.SetSenderName("Pump 3");
  mail.SetSenderMail("pump3@plant.example");
  mail.SetSubject("Report");
  mail.AddRecipient("operator@plant.example");
  mail.AddMsgLine("The report is attached.");
  attachment.AddTo(mail);
  mail.Send();
}

void MailOurs(benchmark::State& state) {
  const Attachment attachment(static_cast<std::size_t>(state.range(0)));
  const Server server;
  for (auto _ : state) Send(server.port(), attachment);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MailOurs)->Name("Mail/ours")->Arg(0)->Arg(5 << 20)->UseRealTime();

/// The port of a real mail server on this machine, from the environment.
unsigned short RealServerPort() {
  const char* port = std::getenv("MAIL_SERVER_PORT");
  if (port == nullptr) throw std::runtime_error("MAIL_SERVER_PORT is not set");
  return static_cast<unsigned short>(std::stoi(port));
}

void RealMailOurs(benchmark::State& state) {
  const Attachment attachment(static_cast<std::size_t>(state.range(0)));
  const unsigned short port = RealServerPort();
  for (auto _ : state) Send(port, attachment);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RealMailOurs)->Name("RealMail/ours")->Arg(0)->Arg(5 << 20)->UseRealTime();

/// The message that Send sends. Curl finds it in memory: it neither reads the file nor encodes it.
std::string ReadyMessage(const Server& server, std::size_t attachment_size) {
  Send(server.port(), Attachment(attachment_size));
  return server.message() + "\r\n";
}

void MailPeer(benchmark::State& state) {
  const Server server;
  const std::string message = ReadyMessage(server, static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmarks::CurlPeer(server.port(), false).Send(message);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(MailPeer)->Name("Mail/peer")->Arg(0)->Arg(5 << 20)->UseRealTime();

void RealMailPeer(benchmark::State& state) {
  const std::string message = ReadyMessage(Server(), static_cast<std::size_t>(state.range(0)));
  const unsigned short port = RealServerPort();
  for (auto _ : state) benchmarks::CurlPeer(port, false).Send(message);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RealMailPeer)->Name("RealMail/peer")->Arg(0)->Arg(5 << 20)->UseRealTime();

/// A field of the process's status, in kilobytes.
double Kilobytes(const std::string& field) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(field)) return std::stod(line.substr(field.size()));
  }
  std::abort();
}

/// A server in a separate process, whose memory does not count as ours.
class ServerProcess {
 public:
  ServerProcess() {
    std::array<int, 2> pipe_ends{};
    if (pipe(pipe_ends.data()) != 0 || (child_ = fork()) < 0) std::abort();
    if (child_ == 0) {
      const Server server;
      const unsigned short port = server.port();
      static_cast<void>(write(pipe_ends[1], &port, sizeof port) == sizeof port);
      for (;;) pause();
    }
    if (read(pipe_ends[0], &port_, sizeof port_) != sizeof port_) std::abort();
    for (const int end : pipe_ends) close(end);
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess() {
    kill(child_, SIGKILL);
    waitpid(child_, nullptr, 0);
  }
  [[nodiscard]] unsigned short port() const { return port_; }

 private:
  pid_t child_ = -1;
  unsigned short port_ = 0;
};

/// How much the resident memory grows, at its peak, while 5 MB are sent.
void Memory(benchmark::State& state) {
  const Attachment attachment(5 << 20);
  const ServerProcess server;
  Send(server.port(), Attachment(1));  // what is loaded and set up once
  double growth = 0;
  for (auto _ : state) {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << 5;  // the peak is measured from here
    const double before = Kilobytes("VmRSS:");
    Send(server.port(), attachment);
    growth = Kilobytes("VmHWM:") - before;
  }
  state.counters["bytes_of_growth"] = growth * 1024;
}
BENCHMARK(Memory)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
