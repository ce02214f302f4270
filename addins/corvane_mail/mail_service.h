// SPDX-License-Identifier: MIT
// What all blocks of this add-in share: the desk, and the thread of mails behind it. It exists from
// the first call of a block on, or from the start if the program has a store already, until the
// add-in is disposed of. Threads: the one that runs the Lua state; nothing waits, except End.
#pragma once

#include <filesystem>
#include <memory>
#include <thread>

#include "addins/corvane_mail/mail_desk.h"

namespace corvane_mail {

class MailService {
 public:
  /// The only one; it is made in the first call.
  [[nodiscard]] static MailService& The();
  /// Makes it if a program runs whose folder has a store: mails that wait there go out although no
  /// block is called.
  static void BeginIfNeeded();
  /// Ends it, in at most a second; what waits is logged.
  static void End();

  explicit MailService(const std::filesystem::path& folder);
  MailService(const MailService&) = delete;
  MailService& operator=(const MailService&) = delete;
  /// Waits up to a second for the thread of mails. If that waits for a disk, it is left behind, so
  /// the code must stay loaded (the linker's -z nodelete).
  ~MailService();

  [[nodiscard]] MailDesk& desk() { return *desk_; }

 private:
  const std::shared_ptr<MailDesk> desk_;
  std::thread worker_;
};

}  // namespace corvane_mail
