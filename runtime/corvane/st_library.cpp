// SPDX-License-Identifier: MIT
#include "runtime/corvane/st_library.h"

#include <spdlog/spdlog.h>

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

namespace corvane {
namespace {

std::vector<StLibrary>& Registry() {
  static std::vector<StLibrary> registry;
  return registry;
}

/// Indexed by type, variable and value.
std::map<std::tuple<std::string, std::string, double>, std::string>& Meanings() {
  static std::map<std::tuple<std::string, std::string, double>, std::string> meanings;
  return meanings;
}

/// Indexed by type and variable.
std::map<std::pair<std::string, std::string>, VariableDescription>& Descriptions() {
  static std::map<std::pair<std::string, std::string>, VariableDescription> descriptions;
  return descriptions;
}

}  // namespace

const std::vector<StLibrary>& RegisteredStLibraries() {
  return Registry();
}

bool ReplaceStLibrary(const std::string& name, lua_CFunction opener) {
  for (StLibrary& library : Registry()) {
    if (library.name != name) continue;
    library.opener = opener;
    return true;
  }
  return false;
}

std::string ValueMeaning(const std::string& type, const std::string& variable, double value) {
  const auto found = Meanings().find({type, variable, value});
  return found == Meanings().end() ? std::string() : found->second;
}

const VariableDescription* FindVariableDescription(const std::string& type,
                                                   const std::string& variable) {
  const auto found = Descriptions().find({type, variable});
  return found == Descriptions().end() ? nullptr : &found->second;
}

}  // namespace corvane

int RegisterExternalSTLib(const char* name, lua_CFunction opener) {
  if (name == nullptr || opener == nullptr) return 1;
  auto& registry = corvane::Registry();
  const bool known = std::any_of(registry.begin(), registry.end(),
                                 [name](const auto& library) { return library.name == name; });
  if (known) {
    spdlog::error("block type {} is already registered; the first one is kept", name);
    return 1;
  }
  registry.push_back({name, opener});
  return 0;
}

void DescribeExternalSTLibValues(const char* name, const STValueMeaning* meanings) {
  if (name == nullptr || meanings == nullptr) return;
  for (; meanings->variable != nullptr; ++meanings) {
    corvane::Meanings()[{name, meanings->variable, meanings->value}] = meanings->meaning;
  }
}

void DescribeExternalSTLibVariables(const char* name, const STVariable* variables) {
  if (name == nullptr || variables == nullptr) return;
  for (; variables->variable != nullptr; ++variables) {
    const bool stated = variables->direction == kSTInput || variables->direction == kSTOutput;
    corvane::Descriptions()[{name, variables->variable}] = {
        stated ? variables->direction : 0, variables->meaning == nullptr ? "" : variables->meaning};
  }
}
