// SPDX-License-Identifier: MIT
#include "runtime/cli/store_search.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "runtime/corvane/state_folder.h"

namespace corvane::cli {
namespace {

namespace fs = std::filesystem;

constexpr const char* kStoreName = "messages.db";

/// Whether the file is there. @throws std::runtime_error when that cannot be seen
bool IsThere(const fs::path& store) {
  std::error_code error;
  const bool is_there = fs::exists(store, error);
  if (error) {
    throw std::runtime_error(
        fmt::format("the store {} cannot be read: {}", store.string(), error.message()));
  }
  return is_there;
}

struct FoundStores {
  std::vector<fs::path> stores;  ///< of all programs of this user, in alphabetical order
  std::string unseen;            ///< why another one cannot be seen; empty: there is none
};

FoundStores StoresIn(const fs::path& home) {
  FoundStores found;
  std::error_code error;
  for (const auto& folder : fs::directory_iterator(home, error)) {
    const fs::path store = folder.path() / kStoreName;
    try {
      if (IsThere(store)) found.stores.push_back(store);
    } catch (const std::runtime_error& unseen) {
      found.unseen = unseen.what();
    }
  }
  if (error && error != std::errc::no_such_file_or_directory) {
    found.unseen = fmt::format("the folder {} cannot be read: {}; name a store with --store FILE",
                               home.string(), error.message());
  }
  std::ranges::sort(found.stores);
  return found;
}

fs::path TheOnlyOne(const fs::path& home) {
  const auto [stores, unseen] = StoresIn(home);
  if (stores.size() == 1) return stores.front();
  if (stores.empty() && !unseen.empty()) throw std::runtime_error(unseen);
  if (stores.empty()) {
    throw std::runtime_error(fmt::format(
        "no program has a store of messages in {}; name one with --store FILE", home.string()));
  }
  std::string names;
  for (const fs::path& store : stores) names += (names.empty() ? "" : ", ") + store.string();
  throw std::runtime_error(
      fmt::format("there are several stores; choose one with --store: {}", names));
}

}  // namespace

fs::path FindStore(const std::string& given) {
  fs::path store = given;
  if (given.empty()) {
    const StateHome home = FindStateHome();
    if (!home.is_of_one_program) return TheOnlyOne(home.folder);
    store = home.folder / kStoreName;
  }
  if (!IsThere(store)) {
    throw std::runtime_error(fmt::format("there is no store {}", store.string()));
  }
  return fs::absolute(store);  // the store also needs its folder
}

}  // namespace corvane::cli
