// SPDX-License-Identifier: MIT
// What the tests of the SMTP client share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"
#include "tests/support/scripted_smtp_server.h"
#include "tests/support/temporary_folder.h"

namespace test_support {

/// The code that `action` throws; 0 if it throws nothing.
template <class Action>
int CodeOf(const Action& action) {
  try {
    action();
  } catch (const ECSmtp& error) {
    return error.GetErrorNum();
  }
  return SMTP_NO_ERROR;
}

/// A complete message for the server at `port`.
inline std::unique_ptr<CSmtp> SmallMail(unsigned short port) {
  auto mail = std::make_unique<CSmtp>();
  mail->SetSMTPServer("127.0.0.1", port);
  mail->SetLogin("plc");
  mail->SetPassword("s3cret");
  mail->SetSenderName("Pump 3");
  mail->SetSenderMail("pump3@plant.example");
  mail->SetSubject("Alarm");
  mail->AddRecipient("operator@plant.example");
  mail->AddMsgLine("Level too high");
  return mail;
}

/// Plays a server that accepts everything up to DATA and waits for the message.
inline void ServeUpToMessage(SmtpPeer& peer) {
  for (const char* reply : {"220 a\r\n", "250 b\r\n", "334 c\r\n", "334 d\r\n", "235 e\r\n",
                            "250 f\r\n", "250 g\r\n"}) {
    peer.Say(reply);
    peer.HearLine();
  }
  peer.Say("354 go\r\n");
}

/// The code with which sending a small mail to the server ends.
inline int CodeOfSending(const ScriptedSmtpServer& server) {
  return CodeOf([&] { SmallMail(server.port())->Send(); });
}

/// Descriptors that the process has open.
inline std::ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return std::distance(begin(open), end(open));
}

}  // namespace test_support
