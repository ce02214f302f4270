// SPDX-License-Identifier: MIT
#include "libs/messages/store_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <system_error>

#include "libs/messages/file_identity.h"
#include "libs/messages/store_error.h"

namespace messages {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void FailToLock(const fs::path& file, int error) {
  throw fs::filesystem_error("cannot lock", file, {error, std::generic_category()});
}

/// What the holder wrote; somebody else may have written anything.
std::string HolderOf(int descriptor) {
  std::array<char, 16> room{};
  const ssize_t size = pread(descriptor, room.data(), room.size(), 0);
  const std::string text(room.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
  return text.substr(0, text.find_first_not_of("0123456789"));
}

/// The lock file must stay usable for the program, whoever makes it first.
void GiveToOwnerOfFolder(int descriptor, const fs::path& folder) {
  struct stat found {};
  if (geteuid() != 0 || stat(folder.c_str(), &found) != 0) return;
  static_cast<void>(!fchown(descriptor, found.st_uid, found.st_gid));
}

[[noreturn]] void Refuse(const fs::path& store, int descriptor) {
  const std::string holder = HolderOf(descriptor);
  const std::string remedy =
      holder == std::to_string(getpid())
          ? "That is this very process: install the same version of all its add-ins"
          : "End that program, or give this one a folder of its own with STATE_DIRECTORY";
  throw StoreError("the store " + store.string() + " is in use by " +
                   (holder.empty() ? "another process" : "process " + holder) +
                   ": messages are kept in memory only. " + remedy);
}

}  // namespace

StoreLock::StoreLock(const fs::path& store)
    : file_(store.string() + ".lock"),
      descriptor_(open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                       S_IRUSR | S_IWUSR)) {
  const int lock = descriptor_.get();
  if (lock < 0) FailToLock(file_, errno);
  GiveToOwnerOfFolder(lock, file_.parent_path());
  if (flock(lock, LOCK_EX | LOCK_NB) != 0) {
    if (errno == EWOULDBLOCK) Refuse(store, lock);
    FailToLock(file_, errno);
  }
  const std::string id = std::to_string(getpid()) + "\n";
  // Only a text for people: the lock works without it, too, as on a full disk.
  if (ftruncate(lock, 0) == 0) static_cast<void>(!pwrite(lock, id.data(), id.size(), 0));
  if (!IsInPlace()) FailToLock(file_, EAGAIN);  // replaced meanwhile
}

bool StoreLock::IsInPlace() const {
  return IdentityOf(descriptor_.get()) == IdentityOf(file_);
}

}  // namespace messages
