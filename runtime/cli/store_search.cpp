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

/// The stores of all programs of this user, in alphabetical order.
std::vector<fs::path> StoresIn(const fs::path& home) {
  std::vector<fs::path> stores;
  std::error_code error;
  for (const auto& folder : fs::directory_iterator(home, error)) {
    const fs::path store = folder.path() / kStoreName;
    if (fs::exists(store, error)) stores.push_back(store);
  }
  std::ranges::sort(stores);
  return stores;
}

fs::path TheOnlyOne(const fs::path& home) {
  const std::vector<fs::path> stores = StoresIn(home);
  if (stores.size() == 1) return stores.front();
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
  std::error_code error;
  if (!fs::exists(store, error)) {
    throw std::runtime_error(fmt::format("there is no store {}", store.string()));
  }
  return fs::absolute(store);  // the store also needs its folder
}

}  // namespace corvane::cli
