// SPDX-License-Identifier: MIT
// A store of messages with rows of any content: all of them are read, an outbox and an inbox go on
// with them, no message is given out again after its end, none is lost, and what the outbox then
// writes is what it still has. The tables may also be without the schema's types and keys; then
// nothing but the end of the program's own work is required.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "fuzz/input_reader.h"
#include "fuzz/quick_folder.h"
#include "fuzz/require.h"
#include "libs/messages/inbox.h"
#include "libs/messages/outbox.h"
#include "libs/messages/row_columns.h"
#include "libs/messages/store_error.h"
#include "libs/messages/store_opening.h"
#include "libs/messages/store_schema.h"

using namespace messages;

namespace {

constexpr WallTime kToday = std::chrono::sys_days(std::chrono::year(2026) / 6 / 1);
constexpr std::size_t kMostRows = 24;

struct Table {
  std::string name;
  std::string columns;
  std::string types;  // a letter each: Integer, Time, Text, Channel, Route, State, sMall number
};
const std::vector<Table>& Tables() {
  static const std::vector<Table> tables = {
      {"outgoing", kOutgoingColumns, "IICRTTTTMttttSMMMMIT"},
      {"incoming", kIncomingColumns, "IRTTtMIt"},
      {"part", kPartColumns, "MMRRMMMTtMt"},
      {"held", "route, place, digest", "RIT"},
      {"setting", "name, value", "NI"},
      {"request", "id, kind, message, value, done, outcome", "ISIIMT"}};
  return tables;
}

/// A file of this version without rows, made once.
const std::string& EmptyStore(const QuickFolder& folder) {
  static const std::string octets = [&] {
    const auto file = folder.path() / "messages.db";
    {
      const OpenedStore made = OpenStore(file, {}, kToday, {});
      made.file->Finish();
    }
    return ReadFile(file);
  }();
  return octets;
}

std::int64_t TimeOf(InputReader& in) {
  if (in.Flag()) return in.Number();
  return kToday.time_since_epoch().count() + 60'000 * (in.Number() % 100'000);
}

void BindAny(SQLite::Statement& row, int index, InputReader& in) {
  switch (in.Below(4)) {
    case 0: return row.bind(index, in.Number());
    case 1: return row.bind(index, static_cast<double>(in.Number()) / 3);
    case 2: {
      const std::string octets = in.Text();
      return row.bind(index, octets.data(), static_cast<int>(octets.size()));
    }
    default: return row.bind(index);
  }
}

void BindOf(SQLite::Statement& row, int index, char type, InputReader& in) {
  static const std::vector<std::string> kRoutes = {"1", "2", "", "-7"};
  switch (type) {
    case 'C': return row.bind(index, in.Below(4) == 0 ? in.Text() : "sms");
    case 'R': return row.bind(index, in.Below(8) == 0 ? in.Text() : kRoutes[in.Below(4)]);
    case 'S':
      return row.bind(index, in.Below(8) == 0 ? in.Number() : std::int64_t(in.Below(6) % 5));
    case 'M': return row.bind(index, in.Below(8) == 0 ? in.Number() : std::int64_t(in.Below(4)));
    case 't': return row.bind(index, TimeOf(in));
    case 'N': return row.bind(index, in.Flag() ? "limit" : in.Text());
    case 'T': return row.bind(index, in.Text());
    default: return row.bind(index, in.Number());
  }
}

std::string Marks(std::size_t count) {
  std::string marks = "?";
  for (std::size_t i = 1; i < count; ++i) marks += ",?";
  return marks;
}

/// The file with the rows of the input. @param loose without types and keys
void Fill(const std::filesystem::path& file, InputReader& in, bool loose) {
  SQLite::Database database(file.string(), SQLite::OPEN_READWRITE);
  database.exec("PRAGMA synchronous=OFF; BEGIN");
  for (const Table& table : Tables()) {
    if (!loose) break;
    database.exec("DROP TABLE " + table.name + "; CREATE TABLE " + table.name + " (" +
                  table.columns + (table.name == "incoming" ? ", accepted)" : ")"));
  }
  for (std::size_t i = 0; i < kMostRows && !in.AtEnd(); ++i) {
    const Table& table = Tables()[in.Below(Tables().size())];
    SQLite::Statement row(database, "INSERT OR REPLACE INTO " + table.name + " (" + table.columns +
                                        ") VALUES (" + Marks(table.types.size()) + ")");
    for (std::size_t column = 0; column < table.types.size(); ++column) {
      const int index = static_cast<int>(column) + 1;
      const bool is_any = loose && in.Flag();
      is_any ? BindAny(row, index, in) : BindOf(row, index, table.types[column], in);
    }
    row.exec();
  }
  database.exec("COMMIT");
}

/// An outbox and an inbox with what was in the file, and a modem that does what the input says.
class Program {
 public:
  Program(Content content, InputReader& in) : in_(in) {
    Run(content.waiting.size() + content.keys.size() + content.inbox.size() + content.parts.size() +
            content.held.size(),
        std::move(content));
  }

  [[nodiscard]] const Outbox& outbox() const { return outbox_; }
  [[nodiscard]] const PendingChanges& written() const { return written_; }
  [[nodiscard]] const std::set<std::int64_t>& ended() const { return ended_; }
  [[nodiscard]] const std::multiset<std::string>& received() const { return received_; }

  void Send(int steps) {
    for (int i = 0; i < steps; ++i) {
      for (const std::string& route : outbox_.Routes()) Attempt(route);
      Pass(std::chrono::seconds(in_.Number() % 7200));
      outbox_.Tick(now_);
      NoteExpired();
    }
  }
  /// Accepts all that is offered, after all parts have been waited for.
  void Receive(const std::set<std::string>& routes) {
    Pass(Inbox::kPatience + std::chrono::seconds(2));
    inbox_.Tick(now_);
    for (const std::string& route : routes) {
      while (const Incoming* const offered = inbox_.Offered(route)) {
        received_.insert(offered->text);
        Require(inbox_.Accept(route, offered->id, now_));
      }
      Require(inbox_.Waiting(route) == 0);
    }
  }

 private:
  void Run(std::size_t rows, Content content) {
    std::set<std::int64_t> known;  // without keys a table may have a number twice: the first counts
    for (const Outgoing& row : content.waiting) {
      if (row.channel != "sms" || !known.insert(row.id).second) continue;
      if (row.state == OutgoingState::kWaiting) waiting_.insert(row.id);
    }
    inbox_.Load(std::move(content.inbox), std::move(content.parts), std::move(content.held));
    outbox_.Load(std::move(content.waiting), std::move(content.keys), std::move(content.recent),
                 content.limit_per_hour, now_);
    for (std::size_t i = 0; i <= rows / 100 + 1; ++i) {
      outbox_.Tick(now_);
      inbox_.Tick(now_);
    }
    Require(outbox_.loaded() && inbox_.loaded());
    NoteExpired();
  }
  void Pass(std::chrono::milliseconds time) {
    if (time.count() < 0) return;
    now_.steady += time;
    now_.wall += time;
  }
  /// What waited and is gone has ended, which must have been written.
  void NoteExpired() {
    for (auto id = waiting_.begin(); id != waiting_.end();) {
      const auto current = id++;
      if (outbox_.Find(*current) != nullptr &&
          outbox_.Find(*current)->state == OutgoingState::kWaiting) {
        continue;
      }
      const auto row = written_.outgoing.find(*current);
      Require(row != written_.outgoing.end() && row->second.state != OutgoingState::kWaiting);
      ended_.insert(*current);
      waiting_.erase(current);
    }
  }
  void Attempt(const std::string& route) {
    const auto id = outbox_.Next(route, now_);
    if (!id) return;
    Require(waiting_.contains(*id) && !ended_.contains(*id));
    Require(outbox_.ValidFor(*id, now_).count() > 0);
    outbox_.Begin(*id, now_);
    Require(!outbox_.Next(route, now_));
    Require(outbox_.Find(*id)->attempts > 0);
    Require(unknown_ends_[*id] < 2);
    switch (in_.Below(8)) {
      case 0: outbox_.FailForGood(*id, kRefusedError, "never", now_); break;
      case 1: outbox_.FailForNow(*id, "later", now_); break;
      case 2: outbox_.FailOnRoute(*id, "the port", now_); break;
      case 3:
        ++unknown_ends_[*id];
        outbox_.EndUnknown(*id, "nothing came", now_);
        break;
      case 4: outbox_.Withdraw(*id, now_); break;
      case 5: outbox_.FailForRest(*id, "half", "later", now_); break;
      case 6: outbox_.Sent(*id, "all", in_.Flag(), now_); break;
      default: outbox_.EndJobsOnRoute(*id, 30, "no SIM", std::chrono::minutes(10), now_); break;
    }
    NoteExpired();
  }
  void Keep(const std::vector<Change>& changes) {
    for (const Change& change : changes) written_.Add(change);
  }

  InputReader& in_;
  Now now_{std::chrono::steady_clock::time_point(std::chrono::hours(1000)), kToday};
  std::int64_t next_id_ = kFirstNewId;
  std::uint64_t sequence_ = 0;
  PendingChanges written_;
  std::set<std::int64_t> waiting_, ended_;
  std::map<std::int64_t, int> unknown_ends_;
  std::multiset<std::string> received_;
  Outbox outbox_{
      "sms",
      {[this] { return next_id_++; },
       [this](const std::vector<Change>& changes) { return Keep(changes), ++sequence_; }}};
  Inbox inbox_{
      {.new_id = [this] { return next_id_++; },
       .write = [this](const std::vector<Change>& changes) { return Keep(changes), ++sequence_; },
       .is_on_disk = [](std::uint64_t) { return true; },
       .text =
           [](std::span<const Part> parts) {
             PartsText all;
             for (const Part& part : parts) all.text += "<" + part.pdu + ">";
             return all;
           },
       .same_content = [](const Part&, const Part&) { return false; }}};
};

/// The messages of a column, as the file itself has them.
std::set<std::int64_t> Ids(SQLite::Database& database, const std::string& rest) {
  std::set<std::int64_t> ids;
  SQLite::Statement row(database, "SELECT id FROM " + rest);
  while (row.executeStep()) ids.insert(row.getColumn(0).getInt64());
  return ids;
}

std::set<std::string> RoutesOf(const Content& content) {
  std::set<std::string> routes;
  for (const Incoming& row : content.inbox) routes.insert(row.route);
  for (const Part& row : content.parts) routes.insert(row.route);
  return routes;
}

template <class Rows>
std::set<std::int64_t> IdsOf(const Rows& rows) {
  std::set<std::int64_t> ids;
  for (const auto& row : rows) ids.insert(row.id);
  return ids;
}

/// All that the file has is loaded, with the very same texts.
void CheckLoaded(SQLite::Database& database, const Content& content) {
  const std::string plausible = " AND id > 0 AND id < " + std::to_string(kFirstNewId);
  Require(IdsOf(content.waiting) ==
          Ids(database, "outgoing WHERE (state = 0 OR report_awaited <> 0)" + plausible));
  Require(IdsOf(content.inbox) == Ids(database, "incoming WHERE accepted IS NULL" + plausible));
  SQLite::Statement text(database, "SELECT content FROM outgoing WHERE id = ?");
  for (const Outgoing& row : content.waiting) {
    text.bind(1, row.id);
    Require(text.executeStep() && text.getColumn(0).getString() == row.content);
    text.reset();
    Require(row.expires >= WallTime() && row.state <= OutgoingState::kCancelled);
  }
}

/// Every text that waited for the program has been offered, once.
void CheckReceived(const Content& content, const std::multiset<std::string>& received) {
  std::string joined;
  std::size_t whole = 0;
  for (const std::string& text : received) joined += text;
  for (const Incoming& row : content.inbox) {
    Require(received.contains(row.text));
    ++whole;
  }
  Require(received.size() >= whole);
  const Part* first = nullptr;  // of those with the same number
  for (const Part& part : content.parts) {
    if (part.total < 1 || part.total > 255 || part.sequence < 1 || part.sequence > part.total ||
        part.group < 1 || part.group >= kFirstNewId) {
      continue;
    }
    const auto key = [](const Part& of) {
      return std::tie(of.group, of.route, of.sender, of.reference, of.wide, of.total);
    };
    if (first == nullptr || first->group != part.group) first = &part;
    if (key(*first) != key(part)) continue;
    Require(joined.find("<" + part.pdu + ">") != std::string::npos);
  }
}

/// After the rows were written, the file has what the outbox still has.
void CheckWritten(StoreFile& file, const Program& program, std::int64_t first_free) {
  file.Write(program.written(), first_free);
  for (const Outgoing& row : file.Load(kToday).waiting) {
    if (row.channel != "sms") continue;
    Require(!program.ended().contains(row.id) || row.report_awaited);
    const Outgoing* const own = program.outbox().Find(row.id);
    Require(own != nullptr && own->state == row.state && own->content == row.content);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const QuickFolder folder;
  const auto file = folder.path() / "messages.db";
  const std::string& empty = EmptyStore(folder);
  folder.Clear();
  WriteFile(file, empty);
  InputReader in(data, size);
  const bool loose = in.Below(4) == 3;
  Fill(file, in, loose);

  OpenedStore opened = OpenStore(file, {}, kToday, {});
  Require(!opened.is_new && opened.notices.empty());
  Content content = opened.file->Load(kToday);
  if (!loose) CheckLoaded(opened.file->database(), content);
  std::int64_t first_free = 0;
  try {
    first_free = opened.file->FirstFreeNumber();
    Require(first_free > 0);
  } catch (const StoreDamaged&) {
    return 0;  // the numbers are used up: the writer puts the file aside
  }
  (void)opened.file->Requests(0);
  const std::set<std::string> routes = RoutesOf(content);
  Program program(content, in);
  program.Send(16);
  program.Receive(routes);
  if (loose) return 0;
  CheckReceived(content, program.received());
  CheckWritten(*opened.file, program, first_free);
  while (opened.file->RemoveOld(kToday, 10)) {
  }
  return 0;
}
