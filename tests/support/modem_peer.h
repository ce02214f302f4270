// SPDX-License-Identifier: MIT
// A scripted modem at the other end of a pseudo-terminal or of a TCP connection.
// Threads: its own calls the script; the test's calls everything else.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace test_support {

/// How the peer is reached.
enum class PeerKind { kPseudoTerminal, kTcp };

class ModemPeer {
 public:
  /// Gets each request with its end (CR or Ctrl-Z); answers with Send(). It sees neither ESC nor
  /// the driver's set-up, which the peer answers itself unless told otherwise.
  using Script = std::function<void(ModemPeer& peer, const std::string& request)>;

  explicit ModemPeer(Script script, PeerKind kind = PeerKind::kPseudoTerminal);
  ModemPeer(const ModemPeer&) = delete;
  ModemPeer& operator=(const ModemPeer&) = delete;
  ~ModemPeer();

  /// What follows PORT= in the option --modem.
  [[nodiscard]] std::string Target() const;
  /// Writes the octets as fast as the other side reads them.
  void Send(std::string_view octets);
  /// Takes the device away, or closes the connection.
  void Unplug();
  /// Brings the device back under the same name. A TCP peer is always there.
  void PlugIn();

  /// From now on the script sees the set-up, too.
  void ShowSetUp();
  /// The requests so far, without the set-up.
  [[nodiscard]] std::vector<std::string> Requests();
  /// How often ESC arrived.
  [[nodiscard]] int Escapes();
  /// Waits until `number` requests have arrived; returns false if they do not.
  [[nodiscard]] bool WaitForRequests(std::size_t number);

 private:
  void Run();
  void Take(std::string_view octets);
  void OpenTerminal();
  void Listen();
  void CloseLine();

  Script script_;
  PeerKind kind_;
  TemporaryFolder folder_;  // with the name of the terminal
  int listener_ = -1;
  int port_ = 0;
  int wake_ = -1;  // eventfd

  std::mutex mutex_;
  std::condition_variable changed_;
  int line_ = -1;   // the peer's end
  int other_ = -1;  // keeps a terminal alive between two openings
  bool stopping_ = false;
  bool show_set_up_ = false;
  int escapes_ = 0;
  std::vector<std::string> requests_;
  std::string pending_;
  std::thread thread_;
};

}  // namespace test_support
