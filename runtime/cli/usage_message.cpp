// SPDX-License-Identifier: MIT
#include "runtime/cli/usage_message.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <vector>

#include "block/declaration.h"

namespace corvane::cli {
namespace {

std::string KnownSubcommands(const CLI::App& command) {
  std::vector<std::string> names;
  for (const CLI::App* known : command.get_subcommands(nullptr)) names.push_back(known->get_name());
  return fmt::format("{}", fmt::join(names, ", "));
}

/// The first word that looks like an option and is none; empty: there is no such word.
std::string UnknownOption(const CLI::App& app) {
  const std::vector<std::string> words = app.remaining(true);
  const auto found =
      std::ranges::find_if(words, [](const std::string& word) { return word.starts_with('-'); });
  return found == words.end() ? "" : *found;
}

/// The command line has a word that means nothing there.
std::string ExtraWord(const CLI::App& chosen, const std::string& word) {
  if (word.starts_with('-')) {
    return fmt::format("there is no option {}{}", word, MeantOption(chosen, word));
  }
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

std::string MeantOption(const CLI::App& chosen, const std::string& name) {
  const std::string without_value = name.substr(0, name.find('='));
  const std::string bare =
      without_value.substr(std::min(without_value.find_first_not_of('-'), without_value.size()));
  std::string meant;
  auto least = static_cast<unsigned>(bare.size()) + 1;  // half of the letters may be wrong
  for (const CLI::Option* option : chosen.get_options()) {
    for (const std::string& known : option->get_lnames()) {
      const unsigned distance = NameDistance(bare, known);
      if (distance >= least) continue;
      least = distance;
      meant = known;
    }
  }
  if (meant.empty()) return "";
  return fmt::format("; did you mean {}{}?", name.starts_with('-') ? "--" : "", meant);
}

std::string UsageMessage(const CLI::App& app, const CLI::ParseError& error) {
  const CLI::App& chosen = ChosenCommand(app);
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return ExtraWord(chosen, app.remaining(true).front());
  }
  // The value of a misspelt option is taken for the next thing that is expected, such as the
  // program.
  if (const std::string unknown = UnknownOption(app); !unknown.empty()) {
    return ExtraWord(chosen, unknown);
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
