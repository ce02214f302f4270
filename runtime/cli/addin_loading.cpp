// SPDX-License-Identifier: MIT
#include "runtime/cli/addin_loading.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "runtime/cli/commands.h"

namespace corvane::cli {
namespace {

/// Empty when `file` may be an add-in, else what is wrong with it. (The loader would wait for
/// the content of a pipe.)
std::string CheckAddin(const std::string& file) {
  std::error_code error;
  const auto status = std::filesystem::status(file, error);
  if (!std::filesystem::exists(status)) {
    return fmt::format("add-in {} does not exist; check the path", file);
  }
  if (!std::filesystem::is_regular_file(status)) {
    return fmt::format("{} is not a file, so it cannot be an add-in; check the path", file);
  }
  return {};
}

/// A library that is loaded twice registers its block types twice. Throws CLI::ValidationError.
void CheckDifferent(const std::vector<std::string>& files) {
  for (auto file = files.begin(); file != files.end(); ++file) {
    const auto is_same = [file](const std::string& other) {
      std::error_code error;
      return std::filesystem::equivalent(*file, other, error);
    };
    if (std::any_of(files.begin(), file, is_same)) {
      throw CLI::ValidationError("--addin", *file + " is given twice; give it once");
    }
  }
}

}  // namespace

void AddAddinOption(CLI::App& command, std::vector<std::string>& files) {
  command
      .add_option_function<std::vector<std::string>>(
          "--addin",
          [&files](const std::vector<std::string>& given) {
            CheckDifferent(given);
            files = given;
          },
          "Add-in library to load instead of corvane_fb_lib.so; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CheckNotEmpty)
      ->check(CheckAddin);
}

std::vector<std::unique_ptr<Addin>> LoadAddins(const std::vector<std::string>& files) {
  std::vector<std::unique_ptr<Addin>> addins;
  if (files.empty()) addins.push_back(std::make_unique<Addin>(FindOwnAddin()));
  for (const std::string& file : files) addins.push_back(std::make_unique<Addin>(file));
  return addins;
}

}  // namespace corvane::cli
