// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "libs/messages/outbox.h"
#include "tests/libs/messages/store_tools.h"
#include "tests/runtime/cli/usage_error.h"
#include "tests/support/command.h"

namespace {

namespace fs = std::filesystem;
using messages::Outgoing;
using messages::OutgoingState;
using messages::Store;
using messages::WallTime;
using nlohmann::json;
using test_support::Command;
using test_support::CommandResult;
using test_support::ExpectUsageError;
using test_support::RunCommand;
using testing::AllOf;
using testing::HasSubstr;

constexpr WallTime kNoon =
    std::chrono::sys_days(std::chrono::year(2026) / 11 / 22) + std::chrono::hours(12);

class MessagesCommand : public testing::Test {
 protected:
  [[nodiscard]] const fs::path& folder() const { return folder_.path(); }
  [[nodiscard]] fs::path file() const { return folder() / "messages.db"; }
  CommandResult Messages(std::vector<std::string> words) {
    words.insert(words.begin(), {CORVANE, "messages", "--store", file().string()});
    return RunCommand(words);
  }
  CommandResult In(const std::string& variables, const std::string& words) {
    return RunCommand({"/bin/sh", "-c",
                       "env -u STATE_DIRECTORY -u XDG_STATE_HOME " + variables +
                           " " CORVANE " messages " + words});
  }
  /// Messages 1 (waits), 2 (failed) and 3 (received).
  void MakeStore() {
    Store store(folder(), "sms", messages::Quick());
    Outgoing row = messages::NewMessage(store, "+491711234567");
    row.created = kNoon;
    row.expires = kNoon + std::chrono::days(36500);
    row.next_try = kNoon + std::chrono::minutes(4);
    row.attempts = 2;
    row.reason = "the network gives no service (+CMS ERROR: 331)";
    row.progress = "first part sent";
    store.Write({row});
    Outgoing failed = messages::NewMessage(store, "112");
    failed.state = OutgoingState::kFailed;
    failed.created = kNoon;
    failed.expires = kNoon + std::chrono::hours(24);
    failed.finished = kNoon;
    failed.error_id = 21;
    failed.reason = "refused \x1b[2J";
    store.Write({failed});
    store.Write({messages::Incoming{store.NewId(), "2", "Bank", "Hello\nyou", kNoon, true, 0,
                                    kNoon + std::chrono::seconds(5)}});
    ASSERT_TRUE(store.Flush(test_support::kPatience));
  }
  [[nodiscard]] Outgoing MessageOne() const {
    const auto content = messages::ContentOf(folder());
    return content.waiting.empty() ? Outgoing{} : content.waiting.front();
  }

 private:
  test_support::TemporaryFolder folder_;
};

TEST_F(MessagesCommand, FindsAStoreThatIsNamedWithoutItsFolder) {
  MakeStore();
  const auto result = In("--chdir=" + folder().string(), "--store messages.db");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_THAT(result.out, HasSubstr("+491711234567"));
}

TEST_F(MessagesCommand, ListsStateAttemptsNextTryAndReason) {
  MakeStore();
  const auto result = Messages({});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out,
            "Id  State    Attempts  Next try              Port   Receiver or sender  Reason\n"
            "1   waiting  2         2026-11-22T12:04:00Z  sms 1  to +491711234567    the network "
            "gives no service (+CMS ERROR: 331)\n"
            "2   failed   0         -                     sms 1  to 112              refused "
            "\\x1B[2J\n"
            "3   offered  -         -                     sms 2  from Bank\n");
  EXPECT_EQ(Messages({"list"}).out, result.out);
}

TEST_F(MessagesCommand, ListsAsJson) {
  MakeStore();
  for (const auto& words : {std::vector<std::string>{"--json"}, {"list", "--json"}}) {
    std::istringstream lines(Messages(words).out);
    std::vector<json> list;
    for (std::string line; std::getline(lines, line);) list.push_back(json::parse(line));
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0]["id"], 1);
    EXPECT_EQ(list[0]["direction"], "out");
    EXPECT_EQ(list[0]["state"], "waiting");
    EXPECT_EQ(list[0]["attempts"], 2);
    EXPECT_EQ(list[0]["next_try"], "2026-11-22T12:04:00Z");
    EXPECT_EQ(list[0]["reason"], "the network gives no service (+CMS ERROR: 331)");
    EXPECT_EQ(list[0]["finished"], nullptr);
    EXPECT_FALSE(list[0].contains("content"));
    EXPECT_EQ(list[1]["state"], "failed");
    EXPECT_EQ(list[1]["next_try"], nullptr);
    EXPECT_EQ(list[1]["finished"], "2026-11-22T12:00:00Z");
    EXPECT_EQ(list[1]["error_id"], 21);
    EXPECT_EQ(list[2]["direction"], "in");
    EXPECT_EQ(list[2]["sender"], "Bank");
    EXPECT_EQ(list[2]["accepted"], nullptr);
  }
}

TEST_F(MessagesCommand, ListsTheLastTwentyThatHaveEndedOrAll) {
  {
    Store store(folder(), "sms", messages::Quick());
    for (int i = 0; i < 30; ++i) {
      Outgoing row = messages::NewMessage(store, "112");
      row.state = OutgoingState::kSent;
      row.finished = kNoon;
      store.Write({row});
    }
    store.Write({messages::NewMessage(store, "110")});
  }
  const auto lines = [](const std::string& out) {
    return std::count(out.begin(), out.end(), '\n');
  };
  EXPECT_EQ(lines(Messages({"list"}).out), 1 + 20 + 1);
  EXPECT_EQ(lines(Messages({"list", "--all"}).out), 1 + 30 + 1);
}

TEST_F(MessagesCommand, SaysThatThereAreNoMessages) {
  messages::MakeStoreIn(folder(), {});
  EXPECT_EQ(Messages({}).out, "There are no messages.\n");
  EXPECT_EQ(Messages({"--json"}).out, "");
}

TEST_F(MessagesCommand, ShowsAMessage) {
  MakeStore();
  EXPECT_THAT(Messages({"show", "1"}).out, AllOf(HasSubstr("state          waiting\n"),
                                                 HasSubstr("receiver       +491711234567\n"),
                                                 HasSubstr("text           Tank 2 is full\n"),
                                                 HasSubstr("progress       first part sent\n")));
  EXPECT_THAT(Messages({"show", "3"}).out, HasSubstr("text           Hello\\nyou\n"));
  const json shown = json::parse(Messages({"show", "1", "--json"}).out);
  EXPECT_EQ(shown["content"]["text"], "Tank 2 is full");
  EXPECT_EQ(json::parse(Messages({"--json", "show", "3"}).out)["text"], "Hello\nyou");
}

TEST_F(MessagesCommand, ABlankFollowsEvenTheLongestName) {
  {
    Store store(folder(), "mail", messages::Quick());
    Outgoing row = messages::NewMessage(store, "anna@plant.example");
    row.channel = "mail";
    row.content = R"({"timeout_ms":60000,"final_timeout_ms":600000})";
    store.Write({row});
    ASSERT_TRUE(store.Flush(test_support::kPatience));
  }
  EXPECT_THAT(Messages({"show", "1"}).out, AllOf(HasSubstr("\ntimeout_ms     60000\n"),
                                                 HasSubstr("\nfinal_timeout_ms 600000\n")));
}

TEST_F(MessagesCommand, EndsWithOneIfThereIsNoSuchMessage) {
  MakeStore();
  for (const std::string name : {"show", "cancel", "retry"}) {
    const auto result = Messages({name, "4"});
    EXPECT_EQ(result.status, 1) << name;
    EXPECT_EQ(result.err, "corvane: there is no message 4\n") << name;
  }
  EXPECT_EQ(Messages({"cancel", "3"}).err, "corvane: message 3 was received, not sent\n");
}

TEST_F(MessagesCommand, CancelsAndRetriesWhileNoProgramRuns) {
  MakeStore();
  auto result = Messages({"cancel", "1"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.out, "cancelled\n");
  EXPECT_EQ(MessageOne().id, 0);
  result = Messages({"cancel", "1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err, "corvane: not cancelled: it is no longer waiting\n");
  result = Messages({"retry", "1", "--json"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(json::parse(result.out)["done"], true);
  const Outgoing row = MessageOne();
  EXPECT_EQ(row.id, 1);
  EXPECT_EQ(row.attempts, 0);
  EXPECT_GT(row.expires, messages::TimeNow());
}

TEST_F(MessagesCommand, ShowsAndSetsTheLimit) {
  MakeStore();
  EXPECT_EQ(Messages({"limit"}).out, "limit: 60 messages per hour and port or mail account\n");
  const std::string list = Messages({}).out;
  EXPECT_EQ(Messages({"limit", "5"}).out, "limit: 5 messages per hour and port or mail account\n");
  EXPECT_EQ(Messages({"limit"}).out, "limit: 5 messages per hour and port or mail account\n");
  EXPECT_EQ(Messages({"limit", "--json"}).out, "{\"limit\":5}\n");
  EXPECT_EQ(Messages({}).out, list) << "the messages are as before";
  EXPECT_EQ(messages::ContentOf(folder()).limit_per_hour, 5);
}

TEST_F(MessagesCommand, LeavesNothingButTheStoreBehind) {
  MakeStore();
  static_cast<void>(Messages({}));
  static_cast<void>(Messages({"cancel", "1"}));
  EXPECT_THAT(messages::NamesThatBeginWith(folder(), ""),
              testing::UnorderedElementsAre("messages.db", "messages.db.lock"));
}

/// A program with an outbox that takes requests.
class RunningProgram {
 public:
  explicit RunningProgram(const fs::path& folder)
      : store_(folder, "sms", messages::Quick()),
        outbox_("sms", {[this] { return store_.NewId(); },
                        [this](const auto& changes) { return store_.Write(changes); }}) {
    auto content = messages::LoadedFrom(store_);
    const auto now = messages::Now::Get();
    outbox_.Load(std::move(content.waiting), {}, {}, {}, now);
    while (!outbox_.ready()) outbox_.Tick(now);
  }
  /// Goes on until the command has ended.
  CommandResult Serve(Command& command) {
    EXPECT_TRUE(test_support::WaitFor([&] {
      for (const auto& request : store_.TakeRequests()) {
        outbox_.Apply(request, messages::Now::Get());
      }
      return command.HasEnded();
    }));
    return command.Wait();
  }
  std::size_t Waiting() { return outbox_.Waiting("1"); }

 private:
  Store store_;
  messages::Outbox outbox_;
};

TEST_F(MessagesCommand, HasTheRunningProgramMakeChanges) {
  MakeStore();
  RunningProgram program(folder());
  const auto run = [&](const std::vector<std::string>& words) {
    std::vector<std::string> all = {CORVANE, "messages", "--store", file().string()};
    all.insert(all.end(), words.begin(), words.end());
    Command command(all);
    return program.Serve(command);
  };
  EXPECT_EQ(program.Waiting(), 1U);
  EXPECT_EQ(run({"retry", "2"}).status, 0);
  EXPECT_EQ(program.Waiting(), 2U);
  const auto result = run({"cancel", "1"});
  EXPECT_EQ(result.out, "cancelled\n") << result.err;
  EXPECT_EQ(program.Waiting(), 1U);
  EXPECT_EQ(run({"cancel", "1"}).status, 1);
  EXPECT_EQ(run({"limit", "7"}).out, "limit: 7 messages per hour and port or mail account\n");
  EXPECT_EQ(run({"limit"}).out, "limit: 7 messages per hour and port or mail account\n");
  EXPECT_THAT(run({}).out, HasSubstr("1   cancelled"));
}

TEST_F(MessagesCommand, TakesARequestBackThatNobodyAnswers) {
  MakeStore();
  Store store(folder(), "sms", messages::Quick());  // of a program that calls no block
  static_cast<void>(messages::LoadedFrom(store));
  const auto result = Messages({"cancel", "1"});
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.err, HasSubstr("has not answered within 5 s"));
  EXPECT_THAT(Messages({"show", "1"}).out, HasSubstr("state          waiting\n"));
}

TEST_F(MessagesCommand, MakesAChangeItselfWhenTheProgramEndsMeanwhile) {
  MakeStore();
  auto store = std::make_optional<Store>(folder(), "sms", messages::Quick());
  static_cast<void>(messages::LoadedFrom(*store));
  Command command({CORVANE, "messages", "--store", file().string(), "cancel", "1"});
  ASSERT_TRUE(test_support::WaitFor([&] { return !store->TakeRequests().empty(); }));
  store.reset();
  EXPECT_EQ(command.Wait().out, "cancelled\n");
}

TEST_F(MessagesCommand, FindsTheStoreOfTheService) {
  MakeStore();
  EXPECT_THAT(In("STATE_DIRECTORY=" + folder().string(), "show 1").out, HasSubstr("+491711234567"));
}

TEST_F(MessagesCommand, FindsTheOnlyStoreOfTheUserOrListsThem) {
  const std::string home = "XDG_STATE_HOME=" + folder().string();
  ExpectUsageError(In(home, ""), "no program has a store of messages in " +
                                     (folder() / "corvane").string() + "; name one with --store");
  messages::MakeStoreIn(folder() / "corvane" / "pump");
  EXPECT_THAT(In(home, "").out, HasSubstr("to 112"));
  messages::MakeStoreIn(folder() / "corvane" / "gate");
  ExpectUsageError(In(home, ""), "there are several stores; choose one with --store: " +
                                     (folder() / "corvane/gate/messages.db").string() + ", " +
                                     (folder() / "corvane/pump/messages.db").string());
}

TEST_F(MessagesCommand, RefusesWhatIsNotAStore) {
  ExpectUsageError(Messages({}), "there is no store " + file().string());
  messages::SetFileContent(file(), std::string(3000, 'x'));
  ExpectUsageError(Messages({}), file().string() + " is not a store of messages, or is damaged " +
                                     "(file is not a database); name a file messages.db");
  EXPECT_EQ(messages::FileContent(file()), std::string(3000, 'x'));
}

TEST_F(MessagesCommand, SaysWhyAStoreCannotBeSeenOrOpened) {
  const std::string home = "XDG_STATE_HOME=" + folder().string();
  const fs::path store = folder() / "corvane/pump/messages.db";
  // A link to itself is what a folder without permission is for users other than root.
  fs::create_symlink(folder() / "corvane", folder() / "corvane");
  ExpectUsageError(In(home, ""), "the folder " + (folder() / "corvane").string() +
                                     " cannot be read: Too many levels of symbolic links; name a");
  fs::remove(folder() / "corvane");
  fs::create_directories(store.parent_path());
  fs::create_symlink(store, store);
  ExpectUsageError(In(home, ""),
                   "the store " + store.string() + " cannot be read: Too many levels");
  messages::MakeStoreIn(folder() / "corvane" / "gate");
  EXPECT_THAT(In(home, "").out, HasSubstr("to 112"));
  fs::create_directory(file());
  ExpectUsageError(Messages({}), "the store " + file().string() + " cannot be opened (unable");
}

TEST_F(MessagesCommand, RefusesWrongUsage) {
  MakeStore();
  ExpectUsageError(Messages({"show"}), "ID");
  ExpectUsageError(Messages({"cancel", "one"}), "one");
  ExpectUsageError(Messages({"cancel", "0"}), "0");
  ExpectUsageError(Messages({"limit", "-1"}), "-1");
  ExpectUsageError(Messages({"limit", "1000001"}), "1000001");
  ExpectUsageError(Messages({"send"}), "send");
  ExpectUsageError(Messages({"list", "show", "1"}), "show");
}

}  // namespace
