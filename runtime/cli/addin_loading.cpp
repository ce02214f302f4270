// SPDX-License-Identifier: MIT
#include "runtime/cli/addin_loading.h"

#include <fmt/format.h>

#include <filesystem>

namespace corvane::cli {
namespace {

/// Empty when `file` may be an add-in, else what is wrong with it. (The loader would wait for what
/// comes out of a pipe.)
std::string CheckAddin(const std::string& file) {
  std::error_code error;
  const auto status = std::filesystem::status(file, error);
  if (!std::filesystem::exists(status)) {
    return fmt::format("add-in {} does not exist; check the path", file);
  }
  if (!std::filesystem::is_regular_file(status)) {
    return fmt::format("{} is no file, and so no add-in; check the path", file);
  }
  return {};
}

}  // namespace

void AddAddinOption(CLI::App& command, std::vector<std::string>& files) {
  command.add_option("--addin", files, "Add-in library to load in place of our own; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CheckAddin);
}

std::vector<std::unique_ptr<Addin>> LoadAddins(const std::vector<std::string>& files) {
  std::vector<std::unique_ptr<Addin>> addins;
  if (files.empty()) addins.push_back(std::make_unique<Addin>(FindOwnAddin()));
  for (const std::string& file : files) addins.push_back(std::make_unique<Addin>(file));
  return addins;
}

}  // namespace corvane::cli
