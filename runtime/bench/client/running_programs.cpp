// SPDX-License-Identifier: MIT
#include "runtime/bench/client/running_programs.h"

#include <fmt/format.h>
#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>
#include <tuple>

#include "runtime/bench/server/socket_path.h"

namespace corvane::bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUsers = "/run/user";

/// "; members of the group corvane may", if they may.
std::string GroupAdvice(const fs::path& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || (status.st_mode & S_IRWXG) == 0) return {};
  const group* const owner = getgrgid(status.st_gid);  // NOLINT(concurrency-mt-unsafe): one thread
  if (owner == nullptr || status.st_gid == 0) return {};
  return fmt::format("; members of the group {} may", owner->gr_name);
}

std::string ProblemText(const fs::path& path, int error) {
  return fmt::format("{}: {}{}", path.string(), std::generic_category().message(error),
                     error == EACCES ? GroupAdvice(path) : "");
}

/// "pump" for pump-1234.sock of the process 1234.
std::string NameOf(const fs::path& socket, pid_t pid) {
  std::string name = socket.stem().string();
  const std::string suffix = fmt::format("-{}", pid);
  if (pid > 0 && name.size() > suffix.size() && name.ends_with(suffix)) {
    name.resize(name.size() - suffix.size());
  }
  return name;
}

class Search {
 public:
  /// Looks for FOLDER/*.sock.
  void LookInto(const fs::path& folder) {
    // A link could lead root anywhere.
    if (!fs::is_directory(fs::symlink_status(folder, error_))) return;
    if (!seen_.insert(fs::weakly_canonical(folder, error_)).second) return;
    for (const fs::path& path : EntriesOf(folder)) {
      if (path.extension() == ".sock") TakeSocket(path);
    }
  }
  /// Looks for FOLDER/*/REST/*.sock.
  void LookBelow(const fs::path& folder, const fs::path& rest) {
    for (const fs::path& path : EntriesOf(folder)) LookInto(rest.empty() ? path : path / rest);
  }
  [[nodiscard]] FoundPrograms Result() {
    std::ranges::sort(found_.programs, {}, [](const RunningProgram& program) {
      return std::tie(program.name, program.pid, program.socket);
    });
    return std::move(found_);
  }

 private:
  std::vector<fs::path> EntriesOf(const fs::path& folder) {
    std::vector<fs::path> entries;
    fs::directory_iterator iterator(folder, error_);
    const bool is_absent = error_ == std::errc::no_such_file_or_directory;
    if (error_ && !is_absent) found_.problems.push_back(ProblemText(folder, error_.value()));
    for (; !error_ && iterator != fs::directory_iterator(); iterator.increment(error_)) {
      entries.push_back(iterator->path());
    }
    std::ranges::sort(entries);
    return entries;
  }

  void TakeSocket(const fs::path& path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return;
    const Descriptor connection = ConnectLocally(path);
    if (connection.get() < 0) {
      // Nobody has listened since the program was killed, or it has just ended.
      if (errno == ECONNREFUSED || errno == ENOENT) return;
      if (errno != EAGAIN) return found_.problems.push_back(ProblemText(path, errno));
      found_.programs.push_back({NameOf(path, 0), path, 0, status.st_uid});
      return;
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return;
    if (peer.uid != status.st_uid) return;  // it leads to somebody else's program
    found_.programs.push_back({NameOf(path, peer.pid), path, peer.pid, peer.uid});
  }

  FoundPrograms found_;
  std::set<fs::path> seen_;
  std::error_code error_;
};

std::string_view Variable(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets any
  return value == nullptr ? "" : value;
}

}  // namespace

SocketPlaces SocketPlaces::OfThisProcess() {
  SocketPlaces places;
  const std::string_view given = Variable("RUNTIME_DIRECTORY");
  if (!given.empty()) places.folders.emplace_back(given.substr(0, given.find(':')));
  const std::string_view home = Variable("XDG_RUNTIME_DIR");
  if (!home.empty()) places.folders.push_back(fs::path(home) / "corvane");
  places.folders.push_back(fs::path(kUsers) / std::to_string(geteuid()) / "corvane");
  if (geteuid() == 0) places.users = kUsers;
  return places;
}

FoundPrograms FindPrograms(const SocketPlaces& places) {
  Search search;
  for (const fs::path& folder : places.folders) search.LookInto(folder);
  search.LookBelow(places.services, {});
  if (!places.users.empty()) search.LookBelow(places.users, "corvane");
  return search.Result();
}

}  // namespace corvane::bench
