// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/process_group.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <filesystem>
#include <string>
#include <string_view>

#include "libs/base/descriptor.h"

namespace corvane_standard {
namespace {

/// Whether /proc/PID/stat is that of a process of the group that runs: `PID (NAME) STATE PARENT
/// GROUP ...`, see proc(5). The name may contain anything.
bool RunsInGroup(std::string_view stat, pid_t group) {
  const std::size_t name_end = stat.rfind(')');
  if (name_end == std::string_view::npos || name_end + 4 > stat.size()) return false;
  const char state = stat[name_end + 2];
  if (state == 'Z' || state == 'X') return false;
  const std::size_t parent = name_end + 4;
  const std::size_t number = stat.find(' ', parent);
  if (number == std::string_view::npos) return false;
  pid_t found = 0;
  std::from_chars(stat.data() + number + 1, stat.data() + stat.size(), found);
  return found == group;
}

std::string StatOf(const std::filesystem::path& process) {
  const corvane::Descriptor file(open((process / "stat").c_str(), O_RDONLY | O_CLOEXEC));
  std::array<char, 512> text{};  // the beginning is enough
  const ssize_t length = file.get() < 0 ? 0 : read(file.get(), text.data(), text.size());
  return {text.data(), length > 0 ? static_cast<std::size_t>(length) : 0};
}

}  // namespace

bool GroupRuns(pid_t group) {
  if (kill(-group, 0) != 0 && errno == ESRCH) return false;
  std::error_code error;
  std::filesystem::directory_iterator entry("/proc", error);
  if (error) return true;  // as far as one can tell
  for (; entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    if (error) return true;
    const std::string name = entry->path().filename();
    if (std::isdigit(static_cast<unsigned char>(name[0])) == 0) continue;
    if (RunsInGroup(StatOf(entry->path()), group)) return true;
  }
  return false;
}

}  // namespace corvane_standard
