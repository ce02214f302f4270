// SPDX-License-Identifier: MIT
#include "tests/support/command.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>

namespace test_support {
namespace {

std::string Content(int file) {
  std::string text;
  std::array<char, 4096> piece;
  off_t at = 0;
  for (;;) {
    const ssize_t count = pread(file, piece.data(), piece.size(), at);
    if (count <= 0) return text;
    text.append(piece.data(), static_cast<std::size_t>(count));
    at += count;
  }
}

/// In the child: only async-signal-safe calls between fork and exec.
[[noreturn]] void Become(char* const* words, int out, int err) {
  const int null = open("/dev/null", O_RDONLY);
  dup2(null, STDIN_FILENO);
  dup2(out, STDOUT_FILENO);
  dup2(err, STDERR_FILENO);
  close_range(3, ~0U, 0);
  execv(words[0], words);
  _exit(127);
}

}  // namespace

Command::Command(const std::vector<std::string>& words)
    : out_(memfd_create("out", MFD_CLOEXEC)), err_(memfd_create("err", MFD_CLOEXEC)) {
  std::vector<char*> pointers;
  pointers.reserve(words.size() + 1);
  for (const std::string& word : words) pointers.push_back(const_cast<char*>(word.c_str()));
  pointers.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) Become(pointers.data(), out_, err_);
  if (pid_ < 0 || out_ < 0 || err_ < 0) throw std::runtime_error("cannot start " + words.at(0));
}

Command::~Command() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  close(out_);
  close(err_);
}

void Command::Signal(int signal) const {
  kill(pid_, signal);
}

std::string Command::out() const {
  return Content(out_);
}
std::string Command::err() const {
  return Content(err_);
}

bool Command::HasEnded() const {
  siginfo_t info{};
  return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         info.si_pid == pid_;
}

CommandResult Command::Wait() {
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), out(), err()};
}

}  // namespace test_support
