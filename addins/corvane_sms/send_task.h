// SPDX-License-Identifier: MIT
// Sends what waits in the outbox for one port: AT+CMGS, the prompt, the text of a part, and its
// confirmation (3GPP TS 27.005 clause 4.3). A text goes to the modem only after its attempt is on
// the disk, so that a run that is killed leaves a mark. Threads: under the runtime's scan lock.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "addins/corvane_sms/modem_task.h"
#include "addins/corvane_sms/report_book.h"
#include "addins/corvane_sms/send_result.h"
#include "addins/corvane_sms/sms_text.h"
#include "libs/messages/outbox.h"
#include "libs/messages/store.h"

namespace corvane_sms {

class SendTask : public ModemTask {
 public:
  SendTask(int port, messages::Outbox& outbox, messages::Store& store, ReportBook& reports);

  int Priority(const Now& now) override;
  void OnBegin(const Now& now) override;
  std::optional<AtRequest> Next(const Now& now) override;
  bool OnAnswer(std::string_view answer, int status, const Now& now) override;
  void OnNotReady(std::string_view answer, int status, const Now& now) override;
  void OnLine(std::string_view line, std::string_view pdu, const Now& now) override;

  /// The program ends: an attempt whose text the modem does not have yet has not happened.
  void End(const Now& now);

 private:
  enum class State : std::uint8_t {
    kIdle,       ///< no message is in transfer
    kStoring,    ///< the attempt of the next part is on its way to the disk
    kAnnounced,  ///< AT+CMGS was sent
    kPrompt,     ///< the modem waits for the text
    kText,       ///< the modem has the text
  };

  void Begin(std::int64_t id, const Now& now);
  /// Whether the attempt is on the disk; a store that has failed holds nothing up.
  [[nodiscard]] bool IsMarked() const;
  [[nodiscard]] std::size_t NextPart() const { return progress_.parts.size(); }
  [[nodiscard]] AtRequest Announce();
  bool Handle(const SendResult& result, const Now& now);
  /// Takes over the reports about earlier parts that have come meanwhile.
  void KeepReports();
  /// Once, until the modem shows a prompt.
  void Warn(const std::string& reason);
  bool PartTaken(std::uint8_t reference, const Now& now);

  const std::string route_;
  messages::Outbox& outbox_;
  messages::Store& store_;
  ReportBook& reports_;
  State state_ = State::kIdle;
  bool warned_ = false;
  bool begun_ = false;  // PDU mode is being set for this part
  std::int64_t id_ = 0;
  std::uint64_t marked_ = 0;
  SmsContent content_;
  SmsProgress progress_;
  std::size_t parts_ = 0;
  std::string pdu_;  // hexadecimal
};

}  // namespace corvane_sms
