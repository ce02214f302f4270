// SPDX-License-Identifier: MIT
// A library with its own copy of the store's code, linked as an add-in is. The names of its
// functions are among those that addins/exports.map exports.
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "libs/messages/store.h"

extern "C" {
[[gnu::visibility("default")]] void luaopen_store(const char* folder);
[[gnu::visibility("default")]] void luaopen_nothing();
[[gnu::visibility("default")]] std::int64_t luaopen_message();
[[gnu::visibility("default")]] const char* luaopen_problem();
}

namespace {

std::optional<messages::Store> store;

}  // namespace

void luaopen_store(const char* folder) {
  store.emplace(folder, STORE_ADDIN_CHANNEL);
}

void luaopen_nothing() {
  store.reset();
}

/// Stores a message. @return its number; 0: it has not reached the disk
std::int64_t luaopen_message() {
  messages::Outgoing row;
  row.id = row.job = store->NewId();
  row.channel = STORE_ADDIN_CHANNEL;
  row.created = messages::kClockIsSet;
  row.expires = row.created + std::chrono::years(100);
  store->Write({row});
  return store->Flush(std::chrono::seconds(2)) ? store->Number(row.id) : 0;
}

const char* luaopen_problem() {
  static std::string problem;
  problem = store->problem();
  return problem.c_str();
}
