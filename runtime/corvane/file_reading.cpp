// SPDX-License-Identifier: MIT
#include "runtime/corvane/file_reading.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "libs/base/descriptor.h"

namespace corvane {
namespace {

FileContent FileProblem(const std::string& what) {
  return {{}, what};
}

FileContent SystemProblem() {
  return FileProblem(std::generic_category().message(errno));
}

FileContent ReadDescriptor(int descriptor) {
  std::string text(kLargestValueFile + 1, '\0');  // files of /sys and /proc do not tell their size
  std::size_t size = 0;
  while (size < text.size()) {
    const ssize_t count = read(descriptor, text.data() + size, text.size() - size);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return SystemProblem();
    if (count == 0) break;
    size += static_cast<std::size_t>(count);
  }
  if (size > kLargestValueFile) return FileProblem("the file is larger than 64 KB");
  text.resize(size);
  if (text.ends_with('\n')) text.pop_back();
  text.shrink_to_fit();
  return {std::move(text), {}};
}

}  // namespace

FileContent ReadValueFile(const std::string& path) {
  const Descriptor place(open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat status {};
  if (place.get() < 0 || fstat(place.get(), &status) != 0) return SystemProblem();
  if (S_ISDIR(status.st_mode)) return FileProblem("it is a folder");
  if (!S_ISREG(status.st_mode))
    return FileProblem("it is a device, a FIFO or a socket, not a file");
  const std::string again = "/proc/self/fd/" + std::to_string(place.get());
  const Descriptor file(open(again.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  return file.get() < 0 ? SystemProblem() : ReadDescriptor(file.get());
}

}  // namespace corvane
