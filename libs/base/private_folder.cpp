// SPDX-License-Identifier: MIT
#include "libs/base/private_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "libs/base/descriptor.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void FailOn(const char* what, const fs::path& path) {
  throw fs::filesystem_error(what, path, {errno, std::generic_category()});
}

}  // namespace

void MakePrivateFolder(const fs::path& folder) {
  if (folder.empty() || fs::exists(folder)) return;
  MakePrivateFolder(folder.parent_path());
  if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST) FailOn("cannot create", folder);
}

void SyncFolder(const fs::path& folder) {
  const Descriptor names(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (names.get() < 0 || fsync(names.get()) != 0) FailOn("cannot write", folder);
}

}  // namespace corvane
