// SPDX-License-Identifier: MIT
// Takes what a modem has received out of it (3GPP TS 27.005 clauses 3.4.2, 3.5.4): lists all
// messages when the port opens, every 30 s and when the modem announces one, gives the
// inbox its messages and the outbox its reports, and deletes what is on the disk. Threads: under
// the runtime's scan lock.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "addins/corvane_sms/message_list.h"
#include "addins/corvane_sms/modem_task.h"
#include "libs/gsm/pdu.h"
#include "libs/messages/inbox.h"

namespace corvane_sms {

/// What the task needs from outside.
struct ListHooks {
  /// The store is loaded and has no problem; otherwise everything stays in the modem.
  std::function<bool()> can_store;
  /// The outbox waits for reports: they are looked for even if no inbox takes messages.
  std::function<bool()> awaits_reports;
  std::function<void(const gsm::StatusReportPdu&, const Now&)> on_report;
  /// Logs a sentence.
  std::function<void(const std::string&)> warn;
};

/// The state of the modem, as the last list showed it.
struct ModemState {
  bool valid = false;  ///< it has answered
  int error_id = 0;    ///< 0, 24 (it does not answer, or refuses) or 25 (SIM card)
  std::string error_text;
};

class ListTask : public ModemTask {
 public:
  static constexpr std::chrono::seconds kInterval{30};
  static constexpr std::chrono::seconds kIntervalAfterFailure{5};

  /// @param route the number of the modem port
  ListTask(std::string route, messages::Inbox& inbox, ListHooks hooks);

  /// Whether messages are taken for the program. Begins with a list.
  void SetEnabled(bool enabled, const Now& now);
  [[nodiscard]] ModemState state() const;
  /// Takes a few of the messages that were listed: to be called often, since a list may be long and
  /// no call may take long.
  void Work(const Now& now);

  int Priority(const Now& now) override;
  void OnBegin(const Now& now) override;
  void OnNotReady(std::string_view answer, int status, const Now& now) override;
  std::optional<AtRequest> Next(const Now& now) override;
  bool OnAnswer(std::string_view answer, int status, const Now& now) override;
  void OnLine(std::string_view line, std::string_view pdu, const Now& now) override;

 private:
  using Time = std::chrono::steady_clock::time_point;
  enum class Step : std::uint8_t { kIdle, kListing, kDeleting };

  [[nodiscard]] bool WantsLists() const;
  [[nodiscard]] bool IsListDue(const Now& now) const;
  [[nodiscard]] bool IsDeletionDue(const Now& now) const;
  void OnList(std::string_view answer, int status, const Now& now);
  void OnDeleted(std::string_view answer, int status, const Now& now);
  void OnAnnouncement(std::string_view line);
  void NoteStuck(int index, std::string_view why, const Now& now);
  void QueueDeletion(int index, const Now& now);
  /// Ends the sequence; the next list tells whether the modem has recovered.
  void Fail(std::string_view answer, const Now& now);
  void TakeEntry(const ListedPdu& entry, const Now& now);
  void TakeMessage(std::string_view pdu, const std::optional<messages::Place>& place,
                   const Now& now);
  void EndList(const Now& now);
  void ForgetModem();

  std::string route_;
  messages::Inbox& inbox_;
  ListHooks hooks_;
  bool enabled_ = false;
  bool was_enabled_ = false;  // since the start: what the modem hands on directly is for us
  bool could_store_ = false;
  ModemState state_;
  Step step_ = Step::kIdle;

  Time next_list_{};
  Time not_before_{};  // so that other work gets its turn
  Time list_begun_{};
  bool announced_ = false;  // the modem has a new message
  std::string answer_;      // the last list, which is being taken
  MessageList list_;
  std::size_t taken_ = 0;  // entries of it
  std::set<int> listed_;   // places in it
  std::set<int> listed_before_;
  bool has_listed_before_ = false;

  /// A place that the modem has refused, or failed, to clear.
  struct Stuck {
    int attempts = 0;
    Time next_try;
  };
  std::deque<int> to_delete_;  // of the last list
  int deleting_ = 0;
  Time listed_at_{};
  std::set<int> deleted_;  // since the last list, as the modem says
  /// Places that the modem says are empty, as far as lists have not shown otherwise. What it then
  /// announces in one of them is new, even if it is the very same text of the same second.
  std::set<int> cleared_;
  bool reused_ = false;  // the place that is being cleared has a new message already
  std::map<int, Stuck> stuck_;
  int failures_in_a_row_ = 0;     // of deletions
  bool deletes_no_more_ = false;  // before the next list
  Time next_warning_{};
  std::deque<std::string> direct_;  // PDUs handed on before the store was loaded
};

}  // namespace corvane_sms
