// SPDX-License-Identifier: MIT
// The server side of an SMTP dialogue, played from a script on a real socket of the loopback
// interface. A separate thread serves one connection after another. Destruction ends it, wherever
// the script is.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

struct ssl_st;

namespace test_support {

class TestCertificate;

/// A connection as the script sees it. A call that cannot go on, because the client is gone or the
/// server is to stop, ends the script.
class SmtpPeer {
 public:
  using Sink = std::function<void(std::string_view)>;
  /// Takes over the descriptor. What is heard also goes to `sink`.
  SmtpPeer(int connection, int stop_event, Sink sink);
  SmtpPeer(const SmtpPeer&) = delete;
  SmtpPeer& operator=(const SmtpPeer&) = delete;
  ~SmtpPeer();

  /// Sends the bytes; ends the script if the client is gone.
  void Say(std::string_view bytes);
  /// The same, one segment per byte.
  void SayByteByByte(std::string_view bytes);
  /// What arrives up to and including `end`.
  std::string HearUntil(std::string_view end);
  std::string HearLine() { return HearUntil("\r\n"); }
  /// Begins TLS, as a server with this certificate; ends the script if the client does not.
  void StartTls(const TestCertificate& certificate);
  /// Waits, without reading, until the server is to stop.
  void Idle();
  /// Waits this long; less if the server is to stop.
  void Pause(int milliseconds);
  /// Ends the connection in an orderly way.
  void Close();
  /// Ends it with a reset.
  void Reset();

 private:
  void WaitFor(short events);
  void WaitForTls(int result);
  std::size_t Send(std::string_view bytes);
  std::size_t Receive(char* bytes, std::size_t size);

  int connection_;
  int stop_event_;
  Sink sink_;
  std::string ahead_;  // received, not yet heard
  struct FreeTls {
    void operator()(ssl_st* tls) const;
  };
  std::unique_ptr<ssl_st, FreeTls> tls_;
};

/// What a server answers at each stage. An empty text closes the connection there.
struct SmtpReplies {
  std::string greeting = "220 mail.example ready\r\n";
  std::string ehlo = "250-mail.example\r\n250-8BITMIME\r\n250 AUTH LOGIN\r\n";
  std::string auth = "334 VXNlcm5hbWU6\r\n";
  std::string login = "334 UGFzc3dvcmQ6\r\n";
  std::string password = "235 welcome\r\n";
  std::string mail = "250 sender ok\r\n";
  std::string recipient = "250 recipient ok\r\n";
  std::string data = "354 go ahead\r\n";
  std::string message = "250 queued\r\n";
  std::string quit = "221 bye\r\n";
};

/// Plays a server that answers like this, up to QUIT.
void Serve(SmtpPeer& peer, const SmtpReplies& replies);

class ScriptedSmtpServer {
 public:
  using Script = std::function<void(SmtpPeer&)>;

  explicit ScriptedSmtpServer(Script script);
  explicit ScriptedSmtpServer(SmtpReplies replies = {});
  ScriptedSmtpServer(const ScriptedSmtpServer&) = delete;
  ScriptedSmtpServer& operator=(const ScriptedSmtpServer&) = delete;
  ~ScriptedSmtpServer();

  [[nodiscard]] unsigned short port() const { return port_; }
  /// Everything that the scripts have heard so far.
  [[nodiscard]] std::string heard() const;
  /// The same, as soon as it ends with `end`; if it never does, what there is when patience runs
  /// out.
  [[nodiscard]] std::string HeardUpTo(std::string_view end) const;
  /// How many connections have been accepted so far.
  [[nodiscard]] int connections() const { return connections_; }

 private:
  void Run();

  Script script_;
  unsigned short port_ = 0;
  int listener_;
  int stop_event_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::string heard_;
  std::atomic<int> connections_{0};
  std::thread thread_;
};

}  // namespace test_support
