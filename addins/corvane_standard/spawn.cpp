// SPDX-License-Identifier: MIT
#include "addins/corvane_standard/spawn.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>

#include "libs/base/printable.h"

namespace corvane_standard {
namespace {

using corvane::Descriptor;

std::string Shown(const std::string& text) {
  constexpr std::size_t kShownOctets = 100;
  return "'" + corvane::PrintableBeginning(text, kShownOctets) + "'";
}

std::string SystemText(int error) {
  return std::generic_category().message(error);
}

/// Why a process cannot run in the folder; empty if it can.
std::string FolderProblem(const std::string& folder) {
  struct stat found {};
  const std::string name = "the folder " + Shown(folder);
  if (stat(folder.c_str(), &found) != 0) {
    if (errno == ENOENT) return name + " does not exist; create it, or correct Folder";
    return name + " cannot be used (" + SystemText(errno) + "); correct Folder or its permissions";
  }
  if (!S_ISDIR(found.st_mode)) return name + " is not a folder; correct Folder";
  if (access(folder.c_str(), X_OK) != 0) {
    return name + " may not be entered; correct Folder or its permissions";
  }
  return {};
}

std::string StartProblem(const std::string& program, int error) {
  const std::string name = "cannot start " + Shown(program) + ": ";
  switch (error) {
    case ENOENT:
      return name +
             (program.find('/') == std::string::npos ? "it is not in PATH"
                                                     : "it, or its interpreter, does not exist") +
             "; correct Program, or install it";
    case EACCES: return name + "no permission; make it executable, or correct Program";
    case E2BIG: return name + "the arguments are too long; pass the data with Input";
    case ENOEXEC: return name + "it is not a program; give it a first line such as #!/bin/sh";
    default: return name + SystemText(error) + "; find out which limit of the system is reached";
  }
}

/// A pipe with our end first, which does not block. Neither has a number below 3, which the child's
/// standard streams would overwrite if our own ones are closed.
class Pipe {
 public:
  explicit Pipe(bool we_write) {
    std::array<int, 2> ends{-1, -1};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
      error_ = errno;
      return;
    }
    Descriptor read_end = AboveStandard(Descriptor(ends[0]));
    Descriptor write_end = AboveStandard(Descriptor(ends[1]));
    ours = std::move(we_write ? write_end : read_end);
    theirs = std::move(we_write ? read_end : write_end);
    if (ours.get() < 0 || theirs.get() < 0 || fcntl(ours.get(), F_SETFL, O_NONBLOCK) != 0) {
      error_ = EMFILE;
    }
  }
  [[nodiscard]] int error() const { return error_; }

  Descriptor ours;
  Descriptor theirs;

 private:
  static Descriptor AboveStandard(Descriptor descriptor) {
    constexpr int kFirst = STDERR_FILENO + 1;
    if (descriptor.get() < 0 || descriptor.get() >= kFirst) return descriptor;
    return Descriptor(fcntl(descriptor.get(), F_DUPFD_CLOEXEC, kFirst));
  }

  int error_ = 0;
};

/// What the child does before it becomes the program. Errors of these functions are out of memory.
class ChildSetup {
 public:
  ChildSetup() {
    posix_spawn_file_actions_init(&actions_);
    posix_spawnattr_init(&attributes_);
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setpgroup(&attributes_, 0);
    const sched_param ordinary{};
    posix_spawnattr_setschedpolicy(&attributes_, SCHED_OTHER);
    posix_spawnattr_setschedparam(&attributes_, &ordinary);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                                               POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSCHEDULER);
  }
  ChildSetup(const ChildSetup&) = delete;
  ChildSetup& operator=(const ChildSetup&) = delete;
  ~ChildSetup() {
    posix_spawn_file_actions_destroy(&actions_);
    posix_spawnattr_destroy(&attributes_);
  }

  void Use(const Descriptor& descriptor, int number) {
    Note(posix_spawn_file_actions_adddup2(&actions_, descriptor.get(), number));
  }
  void UseNothing(int number) {
    Note(posix_spawn_file_actions_addopen(&actions_, number, "/dev/null", O_RDONLY, 0));
  }
  void Enter(const std::string& folder) {
    Note(posix_spawn_file_actions_addchdir_np(&actions_, folder.c_str()));
  }
  /// @return 0, or an error number
  int Start(const std::vector<std::string>& words, pid_t* pid) {
    // Not every library marks its descriptors as close-on-exec.
    Note(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
    if (error_ != 0) return error_;
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    return posix_spawnp(pid, arguments[0], &actions_, &attributes_, arguments.data(), environ);
  }

 private:
  void Note(int error) {
    if (error_ == 0) error_ = error;
  }

  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
  int error_ = 0;
};

}  // namespace

SpawnedProcess Spawn(const ProcessOrder& order) {
  SpawnedProcess process;
  if (!order.folder.empty()) process.problem = FolderProblem(order.folder);
  if (!process.problem.empty()) return process;
  Pipe output(false);
  Pipe error_output(false);
  ChildSetup child;
  const auto start = [&](const Descriptor* input) {
    if (input != nullptr) {
      child.Use(*input, STDIN_FILENO);
    } else {
      child.UseNothing(STDIN_FILENO);
    }
    child.Use(output.theirs, STDOUT_FILENO);
    child.Use(error_output.theirs, STDERR_FILENO);
    if (!order.folder.empty()) child.Enter(order.folder);
    return child.Start(order.words, &process.pid);
  };
  int error = output.error() != 0 ? output.error() : error_output.error();
  if (error == 0 && order.input.empty()) {
    error = start(nullptr);
  } else if (error == 0) {
    Pipe input(true);
    error = input.error() != 0 ? input.error() : start(&input.theirs);
    process.input = std::move(input.ours);
  }
  if (error != 0) {
    process = {};
    process.problem = StartProblem(order.words.at(0), error);
    return process;
  }
  process.ended = Descriptor(static_cast<int>(syscall(SYS_pidfd_open, process.pid, 0)));
  process.output = std::move(output.ours);
  process.error_output = std::move(error_output.ours);
  return process;
}

}  // namespace corvane_standard
