// SPDX-License-Identifier: MIT
// A store of messages whose files or schema are damaged in any way: it is opened with all that
// SQLite itself can still read, or kept aside as it was, octet by octet, with a sentence for the
// log, or left alone. What was damaged once does not come back, and nothing that the file defines
// runs.
#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <array>
#include <chrono>
#include <map>
#include <optional>
#include <string>

#include "fuzz/input_reader.h"
#include "fuzz/quick_folder.h"
#include "fuzz/require.h"
#include "libs/messages/store_error.h"
#include "libs/messages/store_opening.h"
#include "libs/messages/store_schema.h"

using namespace messages;

namespace {

constexpr WallTime kToday = std::chrono::sys_days(std::chrono::year(2026) / 6 / 1);

struct Files {
  std::string database, log;
  bool operator==(const Files&) const = default;
};

class Place {
 public:
  explicit Place(const char* name) : path_(folder_.path() / name) {}

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path log() const { return path_.string() + "-wal"; }
  void Put(const Files& files) const {
    folder_.Clear();
    WriteFile(path_, files.database);
    if (!files.log.empty()) WriteFile(log(), files.log);
  }
  [[nodiscard]] Files Get() const { return {ReadFile(path_), ReadFile(log())}; }
  /// What was put aside last.
  [[nodiscard]] Files Aside() const {
    Files files;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      const std::string name = entry.path().filename();
      if (name.find(".damaged-") == std::string::npos) continue;
      (name.ends_with("-wal") ? files.log : files.database) = ReadFile(entry.path());
    }
    return files;
  }

 private:
  QuickFolder folder_;
  std::filesystem::path path_;
};

Outgoing Message(std::int64_t id) {
  Outgoing row;
  row.id = row.job = id;
  row.channel = "sms";
  row.route = "1";
  row.content = std::string(static_cast<std::size_t>(id) * 40, 'x');
  row.created = kToday;
  row.expires = kToday + std::chrono::hours(24);
  row.state = id % 3 == 0 ? OutgoingState::kSent : OutgoingState::kWaiting;
  return row;
}

/// A store with messages, of which the later ones are in the log.
const Files& Sample(const Place& place) {
  static const Files files = [&] {
    place.Put({});
    std::filesystem::remove(place.path());
    const OpenedStore opened = OpenStore(place.path(), {}, kToday, {});
    Files sample;
    for (std::int64_t id = 1; id <= 6; ++id) {
      PendingChanges changes;
      changes.Add(Message(id));
      Incoming received;
      received.id = id;
      received.route = "1";
      received.text = "text " + std::to_string(id);
      changes.Add(received);
      opened.file->Write(changes, 100);
      if (id == 3) opened.file->database().exec("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    return place.Get();
  }();
  return files;
}

/// Statements of somebody who wants the program to fail. `%` is a number of the input.
constexpr std::array kHostile = {
    "PRAGMA user_version=%",
    "PRAGMA application_id=%",
    "DROP TABLE part",
    "DROP TABLE setting",
    "ALTER TABLE incoming RENAME COLUMN text TO words",
    "ALTER TABLE outgoing ADD COLUMN more INTEGER",
    "CREATE TRIGGER eat AFTER INSERT ON outgoing BEGIN DELETE FROM outgoing; END",
    "DROP TABLE request; CREATE VIEW request AS SELECT id, 0 AS kind, id AS message, 0 AS value, "
    "NULL AS done, '' AS outcome FROM outgoing",
    "DROP TABLE held; CREATE VIEW held AS WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x+1 "
    "FROM n) SELECT x AS route, x AS place, x AS digest FROM n",
    "DROP TABLE held; CREATE TABLE held (route, place, digest AS (hex(zeroblob(%))))",
    "CREATE INDEX slow ON outgoing (length(hex(zeroblob(1000))))",
    "UPDATE sqlite_sequence SET seq = %",
    "DELETE FROM sqlite_sequence",
    "INSERT OR REPLACE INTO setting VALUES ('limit', %)",
    "INSERT INTO request (kind, message, value) VALUES (%, 1, 1)",
    "UPDATE outgoing SET created = %, expires = -%, next_try = %",
    "PRAGMA journal_mode=DELETE",
    "PRAGMA page_size=512; PRAGMA journal_mode=DELETE; VACUUM",
    "PRAGMA encoding='UTF-16'",
};

void Execute(const Place& place, InputReader& in) {
  std::string sql = kHostile[in.Below(kHostile.size())];
  const std::string number = std::to_string(in.Number() % 1'000'000'000'000);
  for (auto at = sql.find('%'); at != std::string::npos; at = sql.find('%')) {
    sql.replace(at, 1, number);
  }
  try {
    SQLite::Database database(place.path(), SQLite::OPEN_READWRITE);
    database.exec("PRAGMA synchronous=OFF; " + sql);
  } catch (const SQLite::Exception&) {
    // It is damaged already.
  }
}

void Damage(std::string& octets, InputReader& in) {
  const auto at = static_cast<std::size_t>(static_cast<std::uint64_t>(in.Number()));
  switch (in.Below(5)) {
    case 0: octets.resize(octets.empty() ? 0 : at % octets.size()); break;
    case 1: octets += in.Text(); break;
    case 2: octets = in.Text(); break;
    case 3:
      if (!octets.empty()) octets[at % octets.size()] ^= static_cast<char>(in.Octet());
      break;
    default: {
      const std::string text = in.Text();
      if (!octets.empty()) octets.replace(at % octets.size(), text.size(), text);
    }
  }
}

Files Damaged(const Place& place, InputReader& in) {
  place.Put(Sample(place));
  const std::size_t statements = in.Below(3);
  for (std::size_t i = 0; i < statements; ++i) Execute(place, in);
  Files files = place.Get();
  for (int i = 0; i < 8 && !in.AtEnd(); ++i) Damage(in.Flag() ? files.database : files.log, in);
  place.Put(files);
  return files;
}

/// The contents of waiting messages that SQLite reads in a copy of the files; none if it cannot.
std::optional<std::map<std::int64_t, std::string>> ReadableBySqlite(const Files& files) {
  static const Place place("copy.db");
  place.Put(files);
  std::map<std::int64_t, std::string> rows;
  try {
    SQLite::Database database(place.path(), SQLite::OPEN_READWRITE);
    if (database.execAndGet("PRAGMA quick_check(1)").getString() != "ok") return std::nullopt;
    SQLite::Statement row(database, "SELECT id, content FROM outgoing WHERE state = 0 AND id > 0");
    while (row.executeStep()) rows[row.getColumn(0).getInt64()] = row.getColumn(1).getString();
  } catch (const SQLite::Exception&) {
    return std::nullopt;
  }
  return rows;
}

bool MeansThatTheFileIsLeft(const std::exception& error) {
  return dynamic_cast<const StoreError*>(&error) != nullptr;
}

/// What the writer does with a store at its start. @return what is damaged; empty: nothing
std::string Use(const OpenedStore& opened,
                const std::optional<std::map<std::int64_t, std::string>>& rows) {
  try {
    const Content content = opened.file->Load(kToday);
    if (rows && !opened.is_new) {
      std::map<std::int64_t, std::string> loaded;
      for (const Outgoing& row : content.waiting) {
        if (row.state == OutgoingState::kWaiting) loaded[row.id] = row.content;
      }
      for (const auto& [id, text] : *rows) Require(loaded.contains(id) && loaded.at(id) == text);
    }
    const std::int64_t first = opened.file->FirstFreeNumber();
    (void)opened.file->Requests(0);
    PendingChanges changes;
    Outgoing row = Message(7);
    row.id = row.job = kFirstNewId;
    row.key = "written";
    changes.Add(row);
    opened.file->Write(changes, first);
    const Content after = opened.file->Load(kToday);
    Require(after.waiting.size() >= content.waiting.size() + 1 || first <= 6);
    Require(after.inbox.size() == content.inbox.size());
  } catch (const std::exception& error) {
    Require(!ProblemSentence("messages.db", error, opened.file->SystemError()).empty());
    return MeansDamage(error) ? error.what() : "";
  }
  return {};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Place place("messages.db");
  InputReader in(data, size);
  const Files files = Damaged(place, in);
  const auto rows = ReadableBySqlite(files);

  std::string damage;
  bool put_aside = false;
  for (int run = 0; run < 2 || (run < 3 && (put_aside || !damage.empty())); ++run) {
    try {
      const OpenedStore opened = OpenStore(place.path(), {}, kToday, damage);
      if (opened.is_new) {
        Require(!put_aside && !opened.notices.empty());  // a new file is not damaged again
        put_aside = true;
        if (run == 0) Require(place.Aside() == files);
      } else if (run > 0 && damage.empty()) {
        Require(opened.notices.empty());
      }
      damage = Use(opened, run == 0 ? rows : std::nullopt);
      Require(!put_aside || damage.empty());
    } catch (const std::exception& error) {
      Require(!put_aside && !MeansDamage(error));
      if (MeansThatTheFileIsLeft(error)) Require(place.Get().database == files.database);
      return 0;
    }
  }
  Require(damage.empty());
  return 0;
}
