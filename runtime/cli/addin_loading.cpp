// SPDX-License-Identifier: MIT
#include "runtime/cli/addin_loading.h"

namespace corvane::cli {

void AddAddinOption(CLI::App& command, std::vector<std::string>& files) {
  command.add_option("--addin", files, "Add-in library to load in place of our own; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

std::vector<std::unique_ptr<Addin>> LoadAddins(const std::vector<std::string>& files) {
  std::vector<std::unique_ptr<Addin>> addins;
  if (files.empty()) addins.push_back(std::make_unique<Addin>(FindOwnAddin()));
  for (const std::string& file : files) addins.push_back(std::make_unique<Addin>(file));
  return addins;
}

}  // namespace corvane::cli
