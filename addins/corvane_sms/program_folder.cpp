// SPDX-License-Identifier: MIT
#include "addins/corvane_sms/program_folder.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "corvane/program.h"

namespace corvane_sms {
namespace {

namespace fs = std::filesystem;

std::string Variable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets it
  return value == nullptr ? "" : value;
}

fs::path StateHome() {
  fs::path named = Variable("XDG_STATE_HOME");
  if (named.is_absolute()) return named;  // as the XDG base directory specification requires
  const fs::path home = Variable("HOME");
  return home.empty() ? fs::path() : home / ".local" / "state";
}

}  // namespace

fs::path ProgramFolder() {
  if (CorvaneStateFolder != nullptr) {
    const char* const folder = CorvaneStateFolder();
    return folder == nullptr ? "" : folder;
  }
  if (const std::string folders = Variable("STATE_DIRECTORY"); !folders.empty()) {
    return folders.substr(0, folders.find(':'));
  }
  const fs::path home = StateHome();
  return home.empty() ? home : home / "corvane" / program_invocation_short_name;
}

}  // namespace corvane_sms
