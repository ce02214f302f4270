// SPDX-License-Identifier: MIT
#include "runtime/cli/config_file.h"

#include <fmt/format.h>

#include <boost/algorithm/string/replace.hpp>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "runtime/cli/commands.h"
#include "runtime/cli/text_file.h"
#include "runtime/cli/usage_message.h"

namespace corvane::cli {
namespace {

struct Setting {
  std::string name;
  std::string value;
};

/// The setting that a line holds. Throws CLI::ConfigError. (The library's own reader would
/// split a modem at the commas before its settings, and skip short lines.)
Setting ParseLine(const std::string& line) {
  const std::size_t equals = line.find('=');
  if (equals == std::string::npos)
    throw CLI::ConfigError("'" + line + "' is not of the form name = value");
  Setting setting{CLI::detail::trim_copy(line.substr(0, equals)),
                  CLI::detail::trim_copy(line.substr(equals + 1))};
  std::string& value = setting.value;
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
    value = boost::replace_all_copy(value.substr(1, value.size() - 2), "\\\"", "\"");
  }
  return setting;
}

CLI::Option& FindOption(CLI::App& command, const std::string& name) {
  CLI::Option* option = command.get_option_no_throw("--" + name);
  if (option == nullptr) option = command.get_option_no_throw(name);
  if (option == nullptr) {
    throw CLI::ConfigError("there is no option '" + name + "'" + MeantOption(command, name));
  }
  if (!option->get_configurable()) {
    throw CLI::ConfigError("'" + name + "' belongs on the command line");
  }
  return *option;
}

void Store(CLI::Option& option, const Setting& setting) {
  const bool flag = option.get_expected_min() == 0;
  if (flag && setting.value != "true" && setting.value != "false") {
    throw CLI::ConfigError(setting.name + ": '" + setting.value + "' is neither true nor false");
  }
  option.add_result(setting.value);
  // An error is found at its own line; after the last line the option's variable has all values.
  option.run_callback();
}

/// Options that the command line does not set; decided when the file first names them.
class Unset {
 public:
  bool Contains(const CLI::Option& option) {
    return unset_.try_emplace(&option, option.empty()).first->second;
  }

 private:
  std::map<const CLI::Option*, bool> unset_;
};

std::vector<std::string> Lines(const std::string& path) {
  try {
    return ReadLines("configuration", path);
  } catch (const TextFileError& error) {
    throw CLI::ConfigError(error.what());
  }
}

void ReadConfig(CLI::App& command, const std::string& path) {
  Unset unset;
  int number = 0;
  for (std::string& line : Lines(path)) {
    ++number;
    CLI::detail::trim(line);
    if (line.empty() || line.front() == '#') continue;
    try {
      const Setting setting = ParseLine(line);
      CLI::Option& option = FindOption(command, setting.name);
      if (unset.Contains(option)) Store(option, setting);
    } catch (const CLI::ParseError& error) {
      throw CLI::ConfigError(fmt::format("{}:{}: {}", path, number, UsageMessage(command, error)));
    }
  }
}

}  // namespace

void AddConfigOption(CLI::App& command) {
  auto path = std::make_shared<std::string>();
  command.add_option("--config", *path, "File with these options, one per line: cycle = 500ms")
      ->check(CheckNotEmpty)
      ->configurable(false);
  command.get_help_ptr()->configurable(false);
  // After the command line, and before the subcommand's own callback.
  command.parse_complete_callback([path, &command] {
    if (!path->empty()) ReadConfig(command, *path);
  });
}

}  // namespace corvane::cli
