// SPDX-License-Identifier: MIT
#include "runtime/cli/usage_message.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vector>

namespace corvane::cli {
namespace {

std::string KnownSubcommands(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* known : command.get_subcommands(nullptr)) names.push_back(known->get_name());
  return fmt::format("{}", fmt::join(names, ", "));
}

/// The command line has a word that means nothing there.
std::string ExtraWord(const CLI::App& chosen, const std::string& word) {
  if (word.starts_with('-')) return fmt::format("there is no option {}", word);
  if (const std::string known = KnownSubcommands(chosen); !known.empty()) {
    return fmt::format("'{}' is not a subcommand; the subcommands are {}", word, known);
  }
  if (chosen.get_name() == "run") {
    return fmt::format("'{}' is unexpected; words for the program go after --", word);
  }
  return fmt::format("'{}' is unexpected; put a value with spaces in quotes", word);
}

/// Something required is missing.
std::string Missing(const CLI::App& app) {
  const CLI::App& chosen = ChosenCommand(app);
  for (const CLI::Option* option : chosen.get_options()) {
    if (option->get_required() && option->empty()) {
      return fmt::format("{} is missing: {}", option->get_name(), option->get_description());
    }
  }
  const std::vector<std::string> extra = app.remaining(true);
  if (!extra.empty()) return ExtraWord(chosen, extra.front());
  return fmt::format("a subcommand is missing; the subcommands are {}", KnownSubcommands(chosen));
}

/// An option has too few or too many values. `what` begins with its name.
std::string WrongNumber(const CLI::App& chosen, const std::string& what) {
  const std::string name = what.substr(0, what.find(':'));
  const CLI::Option* option = chosen.get_option_no_throw(name);
  if (option != nullptr && option->count() > 1) return name + " is given twice; give it once";
  return name + ": its value is missing; write it after the name";
}

/// A value could not be converted. It is a flag's: all others have been checked before.
std::string FlagWithValue(const CLI::App& chosen, const std::string& what) {
  for (const CLI::Option* option : chosen.get_options()) {
    if (option->get_expected_max() != 0 || option->empty()) continue;
    const std::string& value = option->results().front();
    if (value != "true" && value != "false") {
      return fmt::format("{} takes no value, but got '{}'", option->get_name(), value);
    }
  }
  return what;
}

}  // namespace

const CLI::App& ChosenCommand(const CLI::App& app) {
  const CLI::App* chosen = &app;
  while (!chosen->get_subcommands().empty()) chosen = chosen->get_subcommands().front();
  return *chosen;
}

std::string UsageMessage(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& chosen = ChosenCommand(app);
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return ExtraWord(chosen, app.remaining(true).front());
  }
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr) return Missing(app);
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    return WrongNumber(chosen, error.what());
  }
  if (dynamic_cast<const CLI::ConversionError*>(&error) != nullptr) {
    return FlagWithValue(chosen, error.what());
  }
  return error.what();
}

}  // namespace corvane::cli
