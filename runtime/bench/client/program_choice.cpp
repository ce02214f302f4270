// SPDX-License-Identifier: MIT
#include "runtime/bench/client/program_choice.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <iterator>

namespace corvane::bench {
namespace {

namespace fs = std::filesystem;

std::string NameAndPid(const RunningProgram& program) {
  return fmt::format("{}-{}", program.name, program.pid);
}

/// "; these run: a, b", with what may not be used.
std::string WhatRuns(const FoundPrograms& found) {
  std::vector<std::string> addresses;
  for (const RunningProgram& program : found.programs) {
    addresses.push_back(AddressOf(program, found));
  }
  std::string text = addresses.empty() ? "no program runs"
                                       : fmt::format("these run: {}", fmt::join(addresses, ", "));
  for (const std::string& problem : found.problems) text += " (" + problem + ")";
  return text;
}

RunningProgram OfSocket(const FoundPrograms& found, const fs::path& path) {
  std::error_code error;
  if (!fs::is_socket(path, error)) {
    throw ChoiceError(
        fmt::format("{} is not the socket of a program; {}", path.string(), WhatRuns(found)));
  }
  for (const RunningProgram& program : found.programs) {
    if (fs::equivalent(program.socket, path, error)) return program;
  }
  return {path.stem().string(), path, 0, 0};
}

}  // namespace

std::string AddressOf(const RunningProgram& program, const FoundPrograms& found) {
  const auto same = std::ranges::count(found.programs, program.name, &RunningProgram::name);
  if (same <= 1) return program.name;
  return program.pid > 0 ? NameAndPid(program) : program.socket.string();
}

RunningProgram ChooseProgram(const FoundPrograms& found, const std::string& name) {
  if (name.find('/') != std::string::npos) return OfSocket(found, name);
  std::vector<RunningProgram> chosen;
  std::ranges::copy_if(found.programs, std::back_inserter(chosen), [&name](const auto& program) {
    return name.empty() || program.name == name || NameAndPid(program) == name;
  });
  if (chosen.size() == 1) return chosen.front();
  if (chosen.empty() && name.empty()) throw ChoiceError(WhatRuns(found));
  if (chosen.empty()) {
    throw ChoiceError(fmt::format("no program '{}' runs; {}", name, WhatRuns(found)));
  }
  if (name.empty()) {
    throw ChoiceError(fmt::format("several programs run, so name one; {}", WhatRuns(found)));
  }
  throw ChoiceError(fmt::format("{} programs '{}' run; {}", chosen.size(), name, WhatRuns(found)));
}

}  // namespace corvane::bench
