// SPDX-License-Identifier: MIT
#include "runtime/corvane/retain_file.h"

#include <fcntl.h>
#include <spdlog/spdlog.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <string_view>
#include <system_error>
#include <utility>

#include "libs/base/aside_name.h"
#include "libs/base/printable.h"
#include "libs/base/private_folder.h"
#include "runtime/corvane/retain_json.h"
#include "runtime/corvane/state_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestFile = std::size_t{256} * 1024 * 1024;

/// The whole file. Throws std::runtime_error: it is not an ordinary file, or cannot be read.
std::string ReadWhole(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    throw std::runtime_error("it is not a file");
  }
  if (static_cast<std::uint64_t>(status.st_size) > kLargestFile) {
    throw std::runtime_error("it is too large");
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  std::size_t have = 0;
  while (have < text.size()) {
    const ssize_t size = read(descriptor, text.data() + have, text.size() - have);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) throw std::runtime_error(std::generic_category().message(errno));
    if (size == 0) break;
    have += static_cast<std::size_t>(size);
  }
  text.resize(have);
  return text;
}

bool IsThere(const fs::path& path) {
  return fs::symlink_status(path).type() != fs::file_type::not_found;
}

}  // namespace

RetainFile::RetainFile(const fs::path& folder) : file_(folder / "retain.json") {}

void RetainFile::Lock() {
  const fs::path folder = file_.parent_path();
  MakePrivateFolder(folder);
  Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const bool failed = lock.get() < 0 || flock(lock.get(), LOCK_EX | LOCK_NB) != 0;
  if (failed && errno == EWOULDBLOCK) {
    throw FolderInUse("another program keeps its values in " + Printable(folder.string()) +
                      "; give this one a folder of its own with STATE_DIRECTORY");
  }
  if (failed) throw fs::filesystem_error("cannot lock", folder, {errno, std::generic_category()});
  lock_ = std::move(lock);
}

nlohmann::json RetainFile::Read() {
  // Not blocking, should it be a FIFO.
  const Descriptor in(open(file_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  if (in.get() < 0 && errno == ENOENT) return nlohmann::json::object();
  try {
    if (in.get() < 0) throw std::runtime_error(std::generic_category().message(errno));
    return ReadRetainFileText(ReadWhole(in.get()));
  } catch (const std::runtime_error& error) {
    PutAside(error.what());
    return nlohmann::json::object();
  }
}

void RetainFile::Write(const nlohmann::json& values) {
  WriteStateFile(file_, RetainFileText(values));
}

void RetainFile::PutAside(const std::string& reason) {
  if (!IsThere(file_)) return;
  const fs::path aside = AsideName(file_, std::time(nullptr), IsThere);
  fs::rename(file_, aside);
  SyncFolder(file_.parent_path());
  spdlog::error(
      "the retained values in {} cannot be used: {}; the file is now {}, and the program "
      "starts with its own values",
      Printable(file_.string()), reason, Printable(aside.filename().string()));
}

}  // namespace corvane
