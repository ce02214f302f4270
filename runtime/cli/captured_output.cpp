// SPDX-License-Identifier: MIT
#include "runtime/cli/captured_output.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "runtime/cli/screen_text.h"

namespace corvane::cli {
namespace {

constexpr off_t kMaximum = 1 << 20;   // octets; above it, everything before the tail is dropped
constexpr std::size_t kTail = 16384;  // octets that are searched for lines
constexpr std::size_t kLinesLeft = 20;

Descriptor Duplicate(int descriptor) {
  Descriptor copy(fcntl(descriptor, F_DUPFD_CLOEXEC, 3));
  if (copy.get() < 0) throw std::system_error(errno, std::generic_category(), "standard output");
  return copy;
}

}  // namespace

CapturedOutput::CapturedOutput() {
  std::fflush(stdout);
  file_ = Descriptor(memfd_create("output", MFD_CLOEXEC));
  if (file_.get() < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
  // Several programs write to it, each at the end.
  fcntl(file_.get(), F_SETFL, O_APPEND);
  out_ = Duplicate(STDOUT_FILENO);
  if (isatty(STDERR_FILENO) != 0) {
    err_ = Duplicate(STDERR_FILENO);
    dup2(file_.get(), STDERR_FILENO);
  }
  dup2(file_.get(), STDOUT_FILENO);
}

CapturedOutput::~CapturedOutput() {
  std::fflush(stdout);
  if (!kept_) {
    dup2(out_.get(), STDOUT_FILENO);
    if (err_.get() >= 0) dup2(err_.get(), STDERR_FILENO);
  }
}

std::string CapturedOutput::Tail() {
  const off_t size = lseek(file_.get(), 0, SEEK_END);
  const off_t begin = std::max<off_t>(0, size - static_cast<off_t>(kTail));
  std::string text(static_cast<std::size_t>(size - begin), '\0');
  const ssize_t count = pread(file_.get(), text.data(), text.size(), begin);
  text.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  if (size > kMaximum) {
    // Output between these calls is lost; a program that has printed so much soon prints more.
    if (ftruncate(file_.get(), 0) == 0 && write(file_.get(), text.data(), text.size()) < 0)
      text.clear();
  }
  return text;
}

std::vector<std::string> CapturedOutput::LastLines(std::size_t count) {
  const std::string text = Tail();
  std::vector<std::string> lines;
  std::size_t end = text.size();
  if (end > 0 && text.back() == '\n') --end;
  while (text.size() > 0 && lines.size() < count) {
    const std::size_t feed = end == 0 ? std::string::npos : text.rfind('\n', end - 1);
    const std::size_t begin = feed == std::string::npos ? 0 : feed + 1;
    lines.push_back(ScreenText(text.substr(begin, end - begin)));
    if (feed == std::string::npos) break;
    end = feed;
  }
  std::reverse(lines.begin(), lines.end());
  return lines;
}

std::string CapturedOutput::LastText() {
  std::fflush(stdout);
  std::string text;
  for (const std::string& line : LastLines(kLinesLeft)) text += line + "\n";
  return text;
}

}  // namespace corvane::cli
