// SPDX-License-Identifier: MIT
// What the tests of the SMTP client share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "addins/corvane_fb_lib/csmtp_v1_8a/csmtp.h"
#include "tests/support/scripted_smtp_server.h"

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

/// The code with which sending a small mail to the server ends.
inline int CodeOfSending(const ScriptedSmtpServer& server) {
  return CodeOf([&] { SmallMail(server.port())->Send(); });
}

/// A folder that is removed with its contents when the test ends.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "corvane-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// Writes a file. @return its path
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(path_ / name, std::ios::binary) << content;
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

/// Descriptors that the process has open.
inline std::ptrdiff_t OpenDescriptors() {
  const std::filesystem::directory_iterator open("/proc/self/fd");
  return std::distance(begin(open), end(open));
}

}  // namespace test_support
