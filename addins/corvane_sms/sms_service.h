// SPDX-License-Identifier: MIT
// What all blocks of this add-in share: the store, outbox and inbox, and one client for each modem
// port.
// It exists from the first call of a block on, so that loading a program touches neither disk nor
// modem, until the add-in is disposed of. Threads: under the runtime's scan lock; nothing waits.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "addins/corvane_sms/list_task.h"
#include "addins/corvane_sms/port_client.h"
#include "addins/corvane_sms/report_book.h"
#include "addins/corvane_sms/send_task.h"
#include "libs/messages/inbox.h"
#include "libs/messages/outbox.h"
#include "libs/messages/store.h"

namespace corvane_sms {

class SmsService {
 public:
  /// The only one; it is made in the first call.
  [[nodiscard]] static SmsService& The();
  /// Null before the first call of a block, and after the end.
  [[nodiscard]] static SmsService* Existing();
  /// Ends it, in at most a second, and logs what waits.
  static void End();

  /// Whether the runtime has this port; without a runtime that can say so, every port.
  [[nodiscard]] static bool HasPort(int port);

  explicit SmsService(const std::filesystem::path& folder);
  SmsService(const SmsService&) = delete;
  SmsService& operator=(const SmsService&) = delete;
  ~SmsService();

  /// Goes on with the work; to be called in each call of a block. The driver's calls do so, too.
  void Tick(const Now& now);
  /// Uses a port from now on.
  void UsePort(int port, const Now& now);

  /// Takes messages from a port's modem for one more block. @return false: there is no such port
  [[nodiscard]] bool AddInboxUser(int port, const Now& now);
  /// After the last one, messages stay in the modem.
  void RemoveInboxUser(int port, const Now& now);
  /// What SMS_INBOX reports about a port that it uses.
  [[nodiscard]] ModemState InboxState(int port, const Now& now) const;

  [[nodiscard]] messages::Outbox& outbox() { return outbox_; }
  [[nodiscard]] messages::Inbox& inbox() { return inbox_; }
  [[nodiscard]] messages::Store& store() { return store_; }

 private:
  /// One modem port. The tasks outlive the client, which refers to them.
  struct Port {
    Port(int number, SmsService& service, const Now& now);

    SendTask send;
    ListTask list;
    PortClient client;
    messages::SteadyTime first_used;
    int inbox_users = 0;
  };

  [[nodiscard]] messages::InboxHooks HooksOfInbox();
  [[nodiscard]] ListHooks HooksOfList(const std::string& route);

  void TakeContent(const Now& now);
  void TakeRequests(const Now& now);
  void LogNotices();
  /// Says once where the messages are kept.
  void LogPlace();
  void UseLoadedPorts(const Now& now);
  void RegisterPorts(const Now& now);

  messages::Store store_;
  messages::Outbox outbox_;
  messages::Inbox inbox_;
  ReportBook reports_;
  std::map<int, std::unique_ptr<Port>> ports_;
  bool ports_loaded_ = false;  // those of the messages that the store had are in use
  bool problem_logged_ = false;
};

}  // namespace corvane_sms
