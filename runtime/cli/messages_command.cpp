// SPDX-License-Identifier: MIT
// corvane messages: what a program's store of messages has, and a few changes of it, whether the
// program runs or not.
#include <SQLiteCpp/Exception.h>
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "libs/messages/offline_request.h"
#include "libs/messages/store_error.h"
#include "libs/messages/store_lock.h"
#include "libs/messages/store_view.h"
#include "runtime/cli/commands.h"
#include "runtime/cli/message_lines.h"
#include "runtime/cli/messages.h"
#include "runtime/cli/store_search.h"

namespace corvane::cli {
namespace {

using messages::AnswerRequest;
using messages::Request;
using messages::RequestKind;
using messages::StoreView;

constexpr std::int64_t kShownHistory = 20;
constexpr std::int64_t kHighestLimit = 1000000;
// A program looks for requests twice a second.
constexpr std::chrono::seconds kAnswerTime(5);
constexpr std::chrono::milliseconds kAnswerPoll(50);

struct MessagesOptions {
  std::string store;
  bool json = false;
  bool all = false;
  std::int64_t id = 0;
  std::optional<std::int64_t> limit;
};

std::int64_t NumberOf(const StoredMessage& message) {
  return message.outgoing ? message.outgoing->id : message.incoming->message.id;
}

int List(StoreView& store, const MessagesOptions& options) {
  const std::int64_t history =
      options.all ? std::numeric_limits<std::int64_t>::max() : kShownHistory;
  std::vector<StoredMessage> list;
  for (auto& row : store.OutgoingMessages(history)) list.push_back({std::move(row), {}});
  for (auto& row : store.IncomingMessages(history)) list.push_back({{}, std::move(row)});
  std::ranges::sort(list, {}, NumberOf);
  if (!options.json) {
    fmt::print("{}", list.empty() ? "There are no messages.\n" : ListText(list));
  } else {
    for (const StoredMessage& message : list) fmt::print("{}\n", JsonOf(message, false).dump());
  }
  return kSuccess;
}

std::string NoMessage(std::int64_t id) {
  return fmt::format("there is no message {}", id);
}

int Show(StoreView& store, const MessagesOptions& options) {
  const StoredMessage message{store.FindOutgoing(options.id), store.FindIncoming(options.id)};
  if (!message.outgoing && !message.incoming) {
    PrintError(NoMessage(options.id));
    return kProgramFailed;
  }
  fmt::print("{}", options.json ? JsonOf(message, true).dump() + "\n" : DetailText(message));
  return kSuccess;
}

/// The lock, if no program has it.
std::unique_ptr<messages::StoreLock> TryLock(const std::filesystem::path& file) {
  try {
    return std::make_unique<messages::StoreLock>(file);
  } catch (const messages::StoreError&) {
    return nullptr;
  }
}

/// A request that the running program is to carry out.
class LeftRequest {
 public:
  LeftRequest(StoreView& store, const Request& request)
      : store_(store), number_(store.AddRequest(request.kind, request.message.id, request.value)) {}

  std::optional<AnswerRequest> Answer() { return store_.AnswerTo(number_); }
  /// Takes it back. @return the answer, if that came first.
  std::optional<AnswerRequest> Withdraw() {
    return store_.Withdraw(number_) ? std::nullopt : Answer();
  }

 private:
  StoreView& store_;
  std::int64_t number_;
};

/// Asks the program if one runs; otherwise, and also if it ends meanwhile, does it here.
AnswerRequest Fulfil(StoreView& store, const std::filesystem::path& file, const Request& request) {
  std::unique_ptr<messages::StoreLock> lock = TryLock(file);
  if (lock != nullptr) return CarryOut(store, request, messages::Now::Get());
  LeftRequest left(store, request);
  const auto end = std::chrono::steady_clock::now() + kAnswerTime;
  while (lock == nullptr && std::chrono::steady_clock::now() < end) {
    if (auto answer = left.Answer()) return *answer;
    std::this_thread::sleep_for(kAnswerPoll);
    lock = TryLock(file);
  }
  if (auto answer = left.Withdraw()) return *answer;
  if (lock != nullptr) return CarryOut(store, request, messages::Now::Get());
  throw std::runtime_error(
      "the program that uses the store has not answered within 5 s, so the request was taken back; "
      "it answers only while it calls its SMS blocks");
}

int Ask(StoreView& store, const std::filesystem::path& file, const Request& request,
        const MessagesOptions& options) {
  const AnswerRequest answer = Fulfil(store, file, request);
  if (options.json) {
    const nlohmann::ordered_json object = {{"done", answer.done}, {"outcome", answer.outcome}};
    fmt::print("{}\n", object.dump());
  } else if (answer.done) {
    fmt::print("{}\n", PrintableMessage(answer.outcome));
  } else {
    PrintError(answer.outcome);
  }
  return answer.done ? kSuccess : kProgramFailed;
}

int Change(StoreView& store, const std::filesystem::path& file, RequestKind kind,
           const MessagesOptions& options) {
  const auto message = store.FindOutgoing(options.id);
  if (!message) {
    const bool is_incoming = store.FindIncoming(options.id).has_value();
    PrintError(is_incoming ? fmt::format("message {} was received, not sent", options.id)
                           : NoMessage(options.id));
    return kProgramFailed;
  }
  Request request;
  request.kind = kind;
  request.message = *message;
  return Ask(store, file, request, options);
}

int Limit(StoreView& store, const std::filesystem::path& file, const MessagesOptions& options) {
  if (options.limit.has_value()) {
    Request request;
    request.kind = RequestKind::kLimit;
    request.value = *options.limit;
    return Ask(store, file, request, options);
  }
  if (options.json) {
    fmt::print("{}\n", nlohmann::ordered_json{{"limit", store.LimitPerHour()}}.dump());
  } else {
    fmt::print("limit: {} messages per hour and port or mail account\n", store.LimitPerHour());
  }
  return kSuccess;
}

using Work = std::function<int(StoreView&, const std::filesystem::path&, const MessagesOptions&)>;

/// Why the store cannot be opened, and what to do.
std::string OpeningProblem(const std::filesystem::path& file, const std::exception& error) {
  if (dynamic_cast<const messages::StoreError*>(&error) != nullptr) return error.what();
  if (messages::MeansDamage(error)) {
    return fmt::format(
        "{} is not a store of messages, or is damaged ({}); name a file messages.db with --store",
        file.string(), error.what());
  }
  return fmt::format(
      "the store {} cannot be opened ({}); name a file messages.db that this user may read and "
      "write, as well as its folder",
      file.string(), error.what());
}

/// Does the work with the store that the options name.
int WithStore(const MessagesOptions& options, const Work& work) {
  std::filesystem::path file;
  std::optional<StoreView> store;
  try {
    file = FindStore(options.store);
    store.emplace(file);
  } catch (const std::exception& error) {
    PrintError(file.empty() ? error.what() : OpeningProblem(file, error));
    return kUsage;
  }
  return work(*store, file, options);
}

using SharedOptions = std::shared_ptr<MessagesOptions>;

CLI::App* AddWork(CLI::App& messages, const SharedOptions& options, Action& action,
                  const std::string& name, const std::string& meaning, Work work) {
  CLI::App* command = messages.add_subcommand(name, meaning);
  command->fallthrough();
  command->callback([options, &action, work = std::move(work)] {
    action = [options, work] { return WithStore(*options, work); };
  });
  return command;
}

void AddId(CLI::App* command, const SharedOptions& options) {
  command->add_option("ID", options->id, "Number of the message, as in the list")
      ->required()
      ->check(WholeNumber(1, std::numeric_limits<std::int64_t>::max()));
}

Work ChangeOfKind(RequestKind kind) {
  return [kind](StoreView& store, const std::filesystem::path& file,
                const MessagesOptions& options) { return Change(store, file, kind, options); };
}

void AddWorks(CLI::App& messages, const SharedOptions& options, Action& action) {
  CLI::App* list = AddWork(messages, options, action, "list", "List the messages (the default)",
                           [](StoreView& store, const auto&, const MessagesOptions& chosen) {
                             return List(store, chosen);
                           });
  list->add_flag("--all", options->all, "All that have ended, not only the last 20");
  AddId(AddWork(messages, options, action, "show", "Show all about a message",
                [](StoreView& store, const auto&, const MessagesOptions& chosen) {
                  return Show(store, chosen);
                }),
        options);
  AddId(AddWork(messages, options, action, "cancel", "Do not send a message that waits",
                ChangeOfKind(RequestKind::kCancel)),
        options);
  AddId(AddWork(messages, options, action, "retry", "Try a message at once, also one that failed",
                ChangeOfKind(RequestKind::kRetry)),
        options);
  AddWork(messages, options, action, "limit",
          "Show or set the limit per hour and port or mail account", Limit)
      ->add_option("COUNT", options->limit,
                   "Messages per hour and port or mail account, 0 to 1000000")
      ->check(WholeNumber(0, kHighestLimit));
}

}  // namespace

void AddMessagesCommand(CLI::App& app, Action& action) {
  auto options = std::make_shared<MessagesOptions>();
  CLI::App* command = app.add_subcommand("messages", "List and change the messages of a program");
  command->require_subcommand(0, 1);
  command->add_option("--store", options->store, "The store: a file messages.db")
      ->check(CheckNotEmpty);
  command->add_flag("--json", options->json, "Machine-readable, one object per message");
  command->footer(
      "Example: corvane messages --store /var/lib/corvane/pump/messages.db retry 17\n\n"
      "Without --store: the store in $STATE_DIRECTORY, else the only one of the user's programs.\n"
      "It is safe while the program runs; changes are then carried out by the program.\n"
      "Exit status: 0; 1 when nothing was changed or found; 2 for wrong usage or an unusable "
      "store.");
  AddWorks(*command, options, action);
  command->callback([command, options, &action] {
    if (!command->get_subcommands().empty()) return;
    action = [options] {
      return WithStore(*options, [](StoreView& store, const auto&, const MessagesOptions& chosen) {
        return List(store, chosen);
      });
    };
  });
}

}  // namespace corvane::cli
