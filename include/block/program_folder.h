// SPDX-License-Identifier: MIT
// Where an add-in keeps data of the program that is running. Threads: any.
#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "corvane/program.h"

/// The value of a variable of the environment; empty if there is none.
inline std::string EnvironmentVariable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets it
  return value == nullptr ? "" : value;
}

/// $XDG_STATE_HOME if it is absolute, as the XDG base directory specification requires; otherwise
/// ~/.local/state. Empty: there is no home.
inline std::filesystem::path StateHome() {
  std::filesystem::path named = EnvironmentVariable("XDG_STATE_HOME");
  if (named.is_absolute()) return named;
  const std::filesystem::path home = EnvironmentVariable("HOME");
  return home.empty() ? std::filesystem::path() : home / ".local" / "state";
}

/// The folder that the runtime names; where it cannot, $STATE_DIRECTORY, else one named after the
/// process under $XDG_STATE_HOME/corvane or ~/.local/state/corvane. Empty: there is none.
inline std::filesystem::path ProgramFolder() {
  if (CorvaneStateFolder != nullptr) {
    const char* const folder = CorvaneStateFolder();
    return folder == nullptr ? "" : folder;
  }
  if (const std::string folders = EnvironmentVariable("STATE_DIRECTORY"); !folders.empty()) {
    return folders.substr(0, folders.find(':'));
  }
  const std::filesystem::path home = StateHome();
  return home.empty() ? home : home / "corvane" / program_invocation_short_name;
}
