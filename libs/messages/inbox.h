// SPDX-License-Identifier: MIT
// The messages that have come in and that the program has not accepted yet, by route (the modem
// port). Joins the parts of long ones, and remembers what the modem still holds, so that nothing is
// taken twice. The model in memory is the truth; each change is written to the store at once. Not
// synchronised; nothing here waits.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "libs/messages/now.h"
#include "libs/messages/row.h"
#include "libs/messages/store.h"

namespace messages {

/// The values of Incoming::kind.
enum class IncomingKind : std::uint8_t {
  kText,
  kTextWithGaps,  ///< parts are missing
  kBinary,        ///< the text is hexadecimal
  kUndecoded,     ///< the text is what came, in hexadecimal
};

/// What consecutive parts of a message say.
struct PartsText {
  std::string text;
  bool binary = false;
};

/// What an inbox needs from outside: the store, and the reading of parts, whose PDUs it does not
/// understand.
struct InboxHooks {
  std::function<std::int64_t()> new_id;
  std::function<std::uint64_t(std::vector<Change>)> write;
  std::function<bool(std::uint64_t)> is_on_disk;
  std::function<PartsText(std::span<const Part>)> text;
  /// Whether two PDUs of a part differ only in what does not matter, like the time of a repetition.
  std::function<bool(const Part&, const Part&)> same_content;
};

/// Where the modem keeps a message, and the PDU that it lists there.
struct Place {
  int index = 0;
  std::string pdu;
};

class Inbox {
 public:
  /// Messages that wait for the program, and the octets of their texts, for each route; above that,
  /// the rest stays in the modem.
  static constexpr std::size_t kMostWaiting = 10'000;
  static constexpr std::size_t kMostText = std::size_t{8} << 20;
  /// Parts of incomplete messages for each route; above that, the oldest message is handed over
  /// with gaps.
  static constexpr std::size_t kMostParts = 2'000;
  /// How long an incomplete message waits for its other parts.
  static constexpr std::chrono::hours kPatience{24};

  explicit Inbox(InboxHooks hooks) : hooks_(std::move(hooks)) {}

  /// What the store had. To be called once. It is taken over in the following calls of Tick, so
  /// that none takes long; nothing may be taken from the modem before that.
  void Load(std::deque<Incoming> inbox, std::deque<Part> parts, std::deque<Held> held);
  /// Whether all that was stored is known.
  [[nodiscard]] bool loaded() const { return loaded_; }
  /// Writes every row again, after the file had to be created again.
  void WriteAgain(const Now& now);
  /// Goes on loading, and hands over, with gaps, the messages that have waited too long for their
  /// parts.
  void Tick(const Now& now);

  // What comes from the modem.

  /// Whether this very message was taken from this place before, and the modem has not deleted it.
  [[nodiscard]] bool IsHeld(std::string_view route, const Place& place) const;
  /// Whether the program has to accept messages before more are taken.
  [[nodiscard]] bool IsFull(std::string_view route) const;
  /// Takes a whole message. @param message its id and time of receipt are set here
  /// @param place none: the modem does not keep it
  void Take(Incoming message, const std::optional<Place>& place, const Now& now);
  /// Takes a part, and with the last one the message. A part that is already there is dropped. A
  /// different part in its place begins another message; the older one is handed over with gaps.
  /// @param part its group and time of receipt are set here
  void TakePart(Part part, const std::optional<Place>& place, const Now& now);
  /// Remembers what is not a message for the program, such as a report, until the modem has deleted
  /// it.
  void Hold(std::string_view route, const Place& place);
  /// Whether the message in this place may be deleted: it is on the disk.
  [[nodiscard]] bool MayDelete(std::string_view route, int index) const;
  /// The modem has deleted what was in this place: what it lists there from now on is new.
  void Forget(std::string_view route, int index);
  /// Forgets what the modem no longer lists. @param listed all places of a complete list
  void KeepHeld(std::string_view route, const std::set<int>& listed);

  // What the program sees.

  /// The oldest message, as soon as it and the removal of the one before it are on the disk;
  /// otherwise null. Valid until the next change.
  [[nodiscard]] const Incoming* Offered(std::string_view route) const;
  /// Removes the offered message. @return false if another one, or none, is offered
  bool Accept(std::string_view route, std::int64_t id, const Now& now);
  /// Messages in the store for this route, also the accepted one until its removal is on the disk.
  [[nodiscard]] std::size_t Waiting(std::string_view route) const;

 private:
  struct Waiter {
    Incoming message;
    std::uint64_t written = 0;  // sequence number; 0: found on the disk
  };
  struct HeldPdu {
    std::string pdu;
    std::uint64_t written = 0;
  };
  struct Route {
    std::deque<Waiter> waiting;
    std::size_t text_octets = 0;
    std::map<int, HeldPdu> held;
    std::uint64_t removal = 0;       // of the message accepted last
    std::size_t parts = 0;           // of incomplete messages
    std::deque<std::string> joined;  // parts of complete messages: a network may repeat them
  };
  /// What parts of one message have in common: route, sender, reference, its width, total.
  using Key = std::tuple<std::string, std::string, int, bool, int>;
  struct Group {
    Key key;
    std::map<int, Part> parts;  // by sequence; never empty
    std::chrono::steady_clock::time_point deadline;
  };
  using Groups = std::map<std::int64_t, Group>;  // the oldest first
  struct Loading {
    std::deque<Incoming> inbox;
    std::deque<Part> parts;
    std::deque<Held> held;
  };

  [[nodiscard]] const Route* Find(std::string_view route) const;
  Route& At(std::string_view route);
  [[nodiscard]] bool IsOnDisk(std::uint64_t sequence) const;
  bool IsRepeated(const Part& part, const Route& route) const;
  void LoadSome(const Now& now);
  void LoadMessage(Incoming message);
  void LoadPart(Part part, const Now& now);
  Groups::iterator GroupOf(const Part& part, const Now& now, std::vector<Change>& changes);
  void Insert(Groups::iterator group, Part part);
  void HandOver(Groups::iterator group, const Now& now, std::vector<Change>& changes);
  void GiveUpOldest(std::string_view route, const Now& now, std::vector<Change>& changes);
  void Queue(Incoming message, const Now& now, std::vector<Change>& changes);
  void Commit(std::string_view route, const std::optional<Place>& place,
              std::vector<Change> changes);
  [[nodiscard]] PartsText Text(const Group& group) const;

  InboxHooks hooks_;
  bool loaded_ = false;
  std::unique_ptr<Loading> loading_;
  std::map<std::string, Route, std::less<>> routes_;
  Groups groups_;
  std::map<Key, std::int64_t> group_of_;
  std::int64_t next_group_ = 1;
  std::chrono::steady_clock::time_point next_look_{};
};

}  // namespace messages
