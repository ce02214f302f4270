// SPDX-License-Identifier: MIT
#include "libs/messages/store_opening.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

#include "libs/base/descriptor.h"
#include "libs/base/private_folder.h"
#include "libs/messages/put_aside.h"
#include "libs/messages/store_error.h"
#include "libs/messages/wal_check.h"

namespace messages {
namespace {

namespace fs = std::filesystem;

void RefuseLink(const fs::path& file) {
  if (fs::symlink_status(file).type() != fs::file_type::symlink) return;
  throw StoreError(file.string() +
                   " is a symbolic link, which the store of messages does not follow: messages are "
                   "kept in memory only. Put the file in its place; the folder may be a link");
}

/// What is wrong at first sight; empty: nothing, or there is no file.
std::string VisibleDamage(const fs::path& file) {
  const fs::path log = WithSuffix(file, "-wal");
  if (Exists(log) && !fs::is_regular_file(fs::symlink_status(log))) return "its log is not a file";
  if (!Exists(file)) return Exists(log) ? "only its log was left" : "";
  if (!fs::is_regular_file(fs::symlink_status(file))) return "it is not a file";
  return fs::file_size(file) == 0 ? "it was empty" : "";
}

/// SQLite gives a file the access rights that it finds.
void MakeEmpty(const fs::path& file) {
  const corvane::Descriptor made(
      open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (made.get() < 0) {
    throw fs::filesystem_error("cannot create", file, {errno, std::generic_category()});
  }
}

/// The file has its name only when it is complete, so that an interruption leaves nothing half
/// done.
void MakeStore(const fs::path& file, const std::string& vfs) {
  const fs::path fresh = WithSuffix(file, ".new");
  for (const char* const suffix : {"", "-wal", "-shm", "-journal"}) {
    fs::remove_all(WithSuffix(fresh, suffix));
  }
  MakeEmpty(fresh);
  StoreFile::Make(fresh, vfs);
  fs::rename(fresh, file);
  corvane::SyncFolder(file.parent_path());
}

class Opening {
 public:
  Opening(const fs::path& file, const std::string& vfs, WallTime now)
      : file_(file), vfs_(vfs), now_(now) {}

  void PutAsideAs(const std::string& what) {
    const fs::path name = PutAside(file_, now_);
    opened_.notices.push_back("the store " + file_.string() + " was damaged (" + what +
                              "): it is kept as " + name.string() +
                              ", and a new one has been started");
  }
  void OpenOrMake() {
    if (!Exists(file_)) {
      MakeStore(file_, vfs_);
      opened_.is_new = true;
    }
    if (LostTransactions(WithSuffix(file_, "-wal"))) KeepLog();
    auto file = std::make_unique<StoreFile>(file_, vfs_);
    file->Prepare();
    opened_.file = std::move(file);
  }
  OpenedStore Result() { return std::move(opened_); }

 private:
  void KeepLog() {
    const fs::path name = CopyLogAside(file_, now_);
    opened_.notices.push_back("the log of the store " + file_.string() +
                              " was damaged, and its last changes are lost: a copy is kept as " +
                              name.string());
  }

  const fs::path& file_;
  const std::string& vfs_;
  WallTime now_;
  OpenedStore opened_;
};

}  // namespace

OpenedStore OpenStore(const fs::path& file, const std::string& vfs, WallTime now,
                      const std::string& known_damage) {
  RefuseLink(file);
  RefuseLink(WithSuffix(file, "-wal"));
  Opening opening(file, vfs, now);
  std::string damage = VisibleDamage(file);
  if (damage.empty()) damage = known_damage;
  if (!damage.empty()) opening.PutAsideAs(damage);
  try {
    opening.OpenOrMake();
  } catch (const std::exception& error) {
    if (!MeansDamage(error)) throw;
    opening.PutAsideAs(error.what());
    opening.OpenOrMake();
  }
  return opening.Result();
}

}  // namespace messages
