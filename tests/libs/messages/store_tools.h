// SPDX-License-Identifier: MIT
// What the tests of the store share.
#pragma once

#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "libs/messages/store.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/wait_for.h"

namespace messages {

inline WallTime TimeNow() {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

/// Does not wait long after a failure.
inline StoreOptions Quick() {
  StoreOptions options;
  options.first_retry = std::chrono::milliseconds(5);
  options.longest_retry = std::chrono::milliseconds(20);
  options.request_poll = std::chrono::milliseconds(10);
  return options;
}

inline Content LoadedFrom(Store& store) {
  std::optional<Content> content;
  EXPECT_TRUE(test_support::WaitFor([&] { return (content = store.TakeContent()).has_value(); }))
      << store.problem();
  return content.value_or(Content{});
}

/// What the store in a folder has.
inline Content ContentOf(const std::filesystem::path& folder) {
  Store store(folder, "sms", Quick());
  return LoadedFrom(store);
}

inline Outgoing NewMessage(Store& store, const std::string& receiver) {
  Outgoing row;
  row.id = row.job = store.NewId();
  row.channel = "sms";
  row.route = "1";
  row.receiver = receiver;
  row.content = R"({"text":"Tank 2 is full"})";
  row.created = TimeNow();
  row.expires = row.created + std::chrono::hours(24);
  return row;
}

/// Writes messages to these receivers in one batch, and waits for the disk.
inline void WriteMessages(Store& store, const std::vector<std::string>& receivers) {
  std::vector<Change> changes;
  changes.reserve(receivers.size());
  for (const std::string& receiver : receivers) changes.emplace_back(NewMessage(store, receiver));
  store.Write(changes);
  ASSERT_TRUE(store.Flush(test_support::kPatience)) << store.problem();
}

inline std::vector<std::string> Receivers(const Content& content) {
  std::vector<std::string> receivers;
  receivers.reserve(content.waiting.size());
  for (const Outgoing& row : content.waiting) receivers.push_back(row.receiver);
  return receivers;
}

/// A folder with the store of one message, closed in an orderly way.
inline void MakeStoreIn(const std::filesystem::path& folder,
                        const std::vector<std::string>& receivers = {"112"}) {
  Store store(folder, "sms", Quick());
  WriteMessages(store, receivers);
}

inline std::string ProblemOf(Store& store) {
  EXPECT_TRUE(test_support::WaitFor([&] { return !store.problem().empty(); }));
  return store.problem();
}

inline std::string FileContent(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void SetFileContent(const std::filesystem::path& file, const std::string& content) {
  std::ofstream(file, std::ios::binary) << content;
}

/// The names in a folder that begin with `beginning`.
inline std::vector<std::string> NamesThatBeginWith(const std::filesystem::path& folder,
                                                   const std::string& beginning) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(beginning)) names.push_back(name);
  }
  return names;
}

}  // namespace messages
