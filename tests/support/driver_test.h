// SPDX-License-Identifier: MIT
// The fixture for tests of the modem port driver: the driver, and a client on port 1 of a scripted
// modem. The driver's waits for what comes late are short.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "runtime/modem_driver/modem_port_driver.h"
#include "tests/support/captured_log.h"
#include "tests/support/driver_client.h"
#include "tests/support/modem_peer.h"
#include "tests/support/wait_for.h"

namespace test_support {

inline const std::string kSetPduMode = "AT+CMGF=0\r";
inline const std::string kList = "AT+CMGL=0\r";
inline const std::string kAnnounce = "AT+CMGS=18\r";
inline const std::string kText = "0001000B915155101032F4000005E8329BFD06\x1A";
inline const std::string kPdu =
    "07911326040000F0040B911346610089F60000208062917314080CC8F71D14969741F977FD07";
inline const std::string kReport = "0006D60B911326880736F4111011719551401110117195714000";
inline const std::string kOk = "\r\nOK\r\n";

/// Answers everything as a modem does.
inline void Obey(ModemPeer& peer, const std::string& request) {
  if (request.rfind("AT+CMGS=", 0) == 0) {
    peer.Send("\r\n> ");
  } else if (request.back() == '\x1A') {
    peer.Send("\r\n+CMGS: 12\r\n\r\nOK\r\n");
  } else {
    peer.Send(kOk);
  }
}

inline void ExpectReply(const DriverReply& reply, const std::string& text) {
  EXPECT_EQ(reply.text, text);
  EXPECT_GE(reply.status, 0);
}

inline void ExpectNoAnswer(const DriverReply& reply) {
  EXPECT_LT(reply.status, 0);
  EXPECT_EQ(reply.text, "");
}

/// The announcement and the text that the client has queued are answered.
inline void ExpectPromptAndConfirmation(DriverClient& client) {
  ExpectReply(client.WaitForReply(), ">");
  ExpectReply(client.WaitForReply(), "+CMGS: 12\r\nOK\r\n");
}

inline void ExpectMessageSent(DriverClient& client, int timeout_ms = 500) {
  client.QueueMessage(kAnnounce, kText, timeout_ms);
  ExpectPromptAndConfirmation(client);
}

/// The log's lines of a level.
inline std::vector<std::string> Logged(const std::string& level) {
  std::vector<std::string> lines;
  for (const std::string& line : TakeLog()) {
    if (line.rfind(level, 0) == 0) lines.push_back(line);
  }
  return lines;
}

/// The driver's waits for what comes late, in a fiftieth of their time.
inline corvane::ModemTimes ShortTimes() {
  corvane::ModemTimes times;
  for (corvane::ModemTimes::Time* const time :
       {&times.late_command, &times.late_list, &times.late_text, &times.undisturbed, &times.probe,
        &times.kept, &times.straggler, &times.first_pause, &times.longest_pause}) {
    *time /= 50;
  }
  return times;
}

/// The driver and a client on port 1 of a peer.
class DriverTest : public testing::TestWithParam<PeerKind> {
 protected:
  /// Ends what a script uses before the test's own variables are destroyed.
  class Running {
   public:
    explicit Running(DriverTest& test) : test_(test) {}
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running() {
      test_.client_.Unregister();
      test_.driver_.reset();
      test_.peer_.reset();
    }

   private:
    DriverTest& test_;
  };

  [[nodiscard]] Running Start(ModemPeer::Script script, const std::string& settings = "",
                              PeerKind kind = PeerKind::kPseudoTerminal) {
    TakeLog();
    peer_ = std::make_unique<ModemPeer>(std::move(script), kind);
    auto targets = corvane::ParseModemTargets({"1=" + peer_->Target() + settings});
    targets.front().times = times_;
    driver_ = std::make_unique<corvane::ModemPortDriver>(targets, corvane::TheScanLock());
    EXPECT_EQ(client_.Register(1), 0);
    return Running(*this);
  }

  /// Until the restart that opening the device was has been handed over, or is past.
  void ExpectListening() {
    ExpectReply(client_.Exchange("AT\r"), "OK\r\n");
    client_.TakeHeard();
  }

  corvane::ModemTimes times_ = ShortTimes();  // before Start()
  std::unique_ptr<ModemPeer> peer_;
  std::unique_ptr<corvane::ModemPortDriver> driver_;
  DriverClient client_;
};

}  // namespace test_support
