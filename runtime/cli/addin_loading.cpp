// SPDX-License-Identifier: MIT
#include "runtime/cli/addin_loading.h"

#include <fmt/format.h>
#include <spdlog/spdlog.h>

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

std::vector<std::unique_ptr<Addin>> LoadNamed(const std::vector<std::string>& files) {
  std::vector<std::unique_ptr<Addin>> addins;
  addins.reserve(files.size());
  for (const std::string& file : files) addins.push_back(std::make_unique<Addin>(file));
  return addins;
}

/// A program that needs none of an add-in's blocks must run without the add-in's libraries, too.
std::vector<std::unique_ptr<Addin>> LoadOwn() {
  std::vector<std::unique_ptr<Addin>> addins;
  for (const auto& file : FindOwnAddins()) {
    try {
      addins.push_back(std::make_unique<Addin>(file));
    } catch (const AddinError& error) {
      if (addins.empty()) throw;  // the first is always needed
      spdlog::warn("{}; its blocks are left out", error.what());
    }
  }
  return addins;
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
          "Add-in library to load instead of those beside the command; repeatable")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->check(CheckNotEmpty)
      ->check(CheckAddin);
}

std::vector<std::unique_ptr<Addin>> LoadAddins(const std::vector<std::string>& files) {
  return files.empty() ? LoadOwn() : LoadNamed(files);
}

}  // namespace corvane::cli
