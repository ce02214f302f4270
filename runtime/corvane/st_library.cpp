// SPDX-License-Identifier: MIT
#include "runtime/corvane/st_library.h"

#include <spdlog/spdlog.h>

#include <algorithm>

namespace corvane {
namespace {

std::vector<StLibrary>& Registry() {
  static std::vector<StLibrary> registry;
  return registry;
}

}  // namespace

const std::vector<StLibrary>& RegisteredStLibraries() {
  return Registry();
}

}  // namespace corvane

int RegisterExternalSTLib(const char* name, lua_CFunction opener) {
  if (name == nullptr || opener == nullptr) return 1;
  auto& registry = corvane::Registry();
  const bool known = std::any_of(registry.begin(), registry.end(),
                                 [name](const auto& library) { return library.name == name; });
  if (known) {
    spdlog::error("block type {} is registered already; the first one stays", name);
    return 1;
  }
  registry.push_back({name, opener});
  return 0;
}
