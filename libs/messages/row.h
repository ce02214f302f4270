// SPDX-License-Identifier: MIT
// What the store of messages keeps: its rows, as the models of an outbox and an inbox hold them in
// memory. Plain data; threads: whoever owns a row.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace messages {

/// Milliseconds since 1970, UTC.
using WallTime = std::chrono::sys_time<std::chrono::milliseconds>;

/// A clock that shows less has not been set yet: controllers often start in 1970.
inline constexpr WallTime kClockIsSet = std::chrono::sys_days(std::chrono::year(2026) / 1 / 1);

/// All but the first are final. Stored as these numbers.
enum class OutgoingState : std::uint8_t {
  kWaiting = 0,    ///< has not been sent; an attempt may be in progress
  kSent = 1,       ///< the other side took all of it
  kFailed = 2,     ///< will never be taken (`error_id`, `reason`)
  kExpired = 3,    ///< `expires` came first
  kCancelled = 4,  ///< somebody cancelled it
};

/// The name that users see: "waiting", "sent" ...
[[nodiscard]] inline const char* NameOf(OutgoingState state) {
  switch (state) {
    case OutgoingState::kWaiting: return "waiting";
    case OutgoingState::kSent: return "sent";
    case OutgoingState::kFailed: return "failed";
    case OutgoingState::kExpired: return "expired";
    case OutgoingState::kCancelled: return "cancelled";
  }
  return "";
}

/// One message to one receiver.
struct Outgoing {
  std::int64_t id = 0;   ///< from Store::NewId, or as loaded
  std::int64_t job = 0;  ///< id of the first message of the same job
  std::string channel;   ///< "sms", "mail"
  std::string
      route;  ///< what limits and order are counted by: for "sms" the modem port, in decimal
  std::string receiver;
  std::string content;   ///< what the channel needs to send it; opaque here (for "sms" JSON)
  std::string progress;  ///< what has been done of it; opaque here (for "sms" JSON)
  std::string key;       ///< empty: none
  bool urgent = false;
  WallTime created{};
  WallTime expires{};
  WallTime next_try{};
  WallTime finished{};  ///< when `state` left kWaiting; otherwise unused
  OutgoingState state = OutgoingState::kWaiting;
  int attempts = 0;
  int unknown_ends = 0;
  bool in_transfer = false;  ///< found at loading, it is one more unknown end
  bool report_awaited =
      false;           ///< is loaded although it has ended: a delivery report is outstanding
  int error_id = 0;    ///< of the last attempt, or of the end; 0: none
  std::string reason;  ///< a sentence about it; empty: none
};

/// A message that was sent and had a key.
struct SentKey {
  std::string channel;
  std::string key;
  WallTime finished{};
};

/// A message that was sent within the last hour, for the hourly limit.
struct RecentSend {
  std::string channel;
  std::string route;
  WallTime finished{};
};

/// A complete received message. It is offered until it is accepted.
struct Incoming {
  std::int64_t id = 0;  ///< from Store::NewId, or as loaded
  std::string route;    ///< the modem port, in decimal
  std::string sender;
  std::string text;
  WallTime time{};  ///< when the service centre took it, if `has_time`
  bool has_time = false;
  int kind = 0;         ///< as SMS_INBOX gives it
  WallTime received{};  ///< when it was complete
};

/// One part of a message of which others are missing.
struct Part {
  std::int64_t group = 0;  ///< which incomplete message; the inbox chooses the number
  int sequence = 0;        ///< with `group` the row's identity
  std::string route;
  std::string sender;
  int reference = 0;
  bool wide = false;  ///< a 16-bit reference
  int total = 0;
  std::string pdu;  ///< hexadecimal
  WallTime time{};  ///< as in Incoming
  bool has_time = false;
  WallTime first_seen{};  ///< when the first part of the group came
};

/// A message that is on the disk already, but could not be deleted from the modem yet: it must not
/// be taken again. `route` and `index` are the row's identity.
struct Held {
  std::string route;
  int index = 0;
  std::string digest;  ///< of the PDU, so that a new message in the same place is seen as new
};

/// What `corvane messages` asks the running program for.
enum class RequestKind : std::uint8_t { kCancel = 0, kRetry = 1, kLimit = 2 };

struct Request {
  std::int64_t id = 0;  ///< for AnswerRequest
  RequestKind kind = RequestKind::kCancel;
  std::int64_t value = 0;  ///< kCancel, kRetry: unused; kLimit: messages per hour and route
  bool answered_elsewhere = false;  ///< another channel gives the AnswerRequest
  /// kCancel, kRetry: the message as it is on the disk. What the model has in memory is newer; a
  /// message that has ended is usually only here. Its id is 0 if there is none with this number.
  Outgoing message;
};

}  // namespace messages
