// SPDX-License-Identifier: MIT
// SMS_INBOX's list of messages with any octets as the modem's answer to AT+CMGL: each place that is
// listed gives at most one message, none comes again while the modem lists the same, and all texts
// are UTF-8.
#include <utf8.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "addins/corvane_sms/incoming_pdu.h"
#include "addins/corvane_sms/list_task.h"
#include "fuzz/require.h"

namespace {

using corvane_sms::ListTask;
using messages::Inbox;

/// A list whose messages the modem does not delete, and all of whose messages are accepted.
class Fixture {
 public:
  explicit Fixture(std::string_view list) : list_(list) {
    inbox_.Load({}, {}, {});
    inbox_.Tick(now_);
    task_.SetEnabled(true, now_);
  }

  /// Lists once. @return how many messages came
  std::size_t List() {
    now_.steady += std::chrono::minutes(1);
    while (task_.Priority(now_) > 0) {
      const auto request = task_.Next(now_);
      if (!request) break;
      const bool lists = request->octets.starts_with("AT+CMGL");
      task_.OnAnswer(lists ? list_ : "ERROR\r\n", 0, now_);
      for (std::size_t done = 0; lists && done <= list_.size(); done += 16) task_.Work(now_);
    }
    std::size_t count = 0;
    for (; const auto* message = inbox_.Offered("1"); ++count) {
      Require(utf8::is_valid(message->text));
      Require(utf8::is_valid(message->sender));
      Require(inbox_.Accept("1", message->id, now_));
    }
    return count;
  }

 private:
  std::string list_;
  messages::Now now_{std::chrono::steady_clock::time_point(std::chrono::hours(1)),
                     messages::kClockIsSet + std::chrono::hours(1)};
  std::int64_t next_id_ = 1;
  std::uint64_t written_ = 0;
  Inbox inbox_{{.new_id = [this] { return next_id_++; },
                .write = [this](const std::vector<messages::Change>&) { return ++written_; },
                .is_on_disk = [this](std::uint64_t sequence) { return sequence <= written_; },
                .text = corvane_sms::ReadParts,
                .same_content = corvane_sms::HaveSameContent}};
  ListTask task_{"1",
                 inbox_,
                 {.can_store = [] { return true; },
                  .awaits_reports = [] { return false; },
                  .on_report = [](const auto&, const auto&) {},
                  .warn = [](const std::string&) {}}};
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view list(reinterpret_cast<const char*>(data), size);
  Fixture fixture(list);
  const std::size_t entries = corvane_sms::ReadMessageList(list).entries.size();
  // A part whose place in its message is taken hands over the older message.
  Require(fixture.List() <= entries);
  Require(fixture.List() == 0);
  return 0;
}
