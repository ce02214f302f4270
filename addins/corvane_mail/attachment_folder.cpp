// SPDX-License-Identifier: MIT
#include "addins/corvane_mail/attachment_folder.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "libs/base/descriptor.h"
#include "libs/base/printable.h"
#include "libs/base/private_folder.h"

namespace corvane_mail {
namespace {

namespace fs = std::filesystem;
using corvane::Descriptor;

constexpr std::size_t kPiece = std::size_t{64} << 10;

/// What is wrong with an attachment, for people.
class AttachmentProblem : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] void Refuse(const std::string& path, const std::string& what) {
  throw AttachmentProblem("attachment " + corvane::PrintableBeginning(path, 300) + " " + what);
}

std::string Reason(int error) {
  return std::generic_category().message(error);
}

/// The copy cannot be written; another place is tried.
[[noreturn]] void FailToWrite(const fs::path& file, int error) {
  throw fs::filesystem_error("cannot write", file, {error, std::generic_category()});
}

/// A file that is a file: opening a FIFO or a device would wait, or do something.
Descriptor OpenFile(const std::string& path, std::uint64_t& size) {
  struct stat found {};
  if (stat(path.c_str(), &found) != 0) {
    Refuse(path, "cannot be read: " + Reason(errno) + "; correct the path or the permissions");
  }
  if (!S_ISREG(found.st_mode)) {
    Refuse(path, "is not a file, but a folder, a device or a pipe; name a file");
  }
  Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (file.get() < 0) {
    Refuse(path, "cannot be read: " + Reason(errno) + "; correct the permissions");
  }
  if (fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) {
    Refuse(path, "was replaced while it was opened; send the mail again");
  }
  size = static_cast<std::uint64_t>(found.st_size);
  char octet = 0;
  // As under /proc and /sys: it would be sent as an empty file.
  if (size == 0 && read(file.get(), &octet, 1) != 0) {
    Refuse(path, "does not tell its size; copy it into a file of its own, and attach that");
  }
  return file;
}

void WriteAll(int file, const fs::path& name, const char* octets, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(file, octets, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) FailToWrite(name, written < 0 ? errno : EIO);
    octets += written;
    size -= static_cast<std::size_t>(written);
  }
}

/// Gives out a descriptor's octets without moving its offset.
class FileOctets : public mail::Octets {
 public:
  explicit FileOctets(std::shared_ptr<const Descriptor> file) : file_(std::move(file)) {}

  std::size_t Read(std::span<char> buffer) override {
    ssize_t size = -1;
    do {
      size = pread(file_->get(), buffer.data(), buffer.size(), offset_);
    } while (size < 0 && errno == EINTR);
    if (size <= 0) return 0;
    offset_ += size;
    return static_cast<std::size_t>(size);
  }

 private:
  std::shared_ptr<const Descriptor> file_;
  off_t offset_ = 0;
};

/// Below the folder of attachments.
std::string PlaceOf(const std::string& mail, std::size_t index) {
  return fs::path(mail) / std::to_string(index + 1);
}

std::string NameOf(const std::string& path) {
  return corvane::Printable(fs::path(path).filename().string());
}

}  // namespace

struct AttachmentFolder::Source {
  std::string path;
  Descriptor file;
  std::uint64_t size = 0;

  /// Copies the octets that the file had when it was opened.
  void CopyTo(int target, const fs::path& name) const {
    std::array<char, kPiece> piece{};
    std::uint64_t done = 0;
    while (done < size) {
      const auto most =
          static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), size - done));
      const ssize_t count = pread(file.get(), piece.data(), most, static_cast<off_t>(done));
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) Refuse(path, "cannot be read: " + Reason(errno) + "; check its disk");
      if (count == 0) Refuse(path, "became shorter while it was read; send the mail again");
      WriteAll(target, name, piece.data(), static_cast<std::size_t>(count));
      done += static_cast<std::uint64_t>(count);
    }
  }
};

AttachmentFolder::AttachmentFolder(const fs::path& state_folder)
    : folder_(state_folder.empty() ? fs::path() : state_folder / "attachments") {}

AttachmentFolder::Taken AttachmentFolder::Take(const std::string& mail,
                                               const std::vector<std::string>& paths, Keep keep) {
  try {
    std::vector<Source> sources;
    std::uint64_t total = 0;
    for (const std::string& path : paths) {
      Source source{.path = path, .file = {}, .size = 0};
      source.file = OpenFile(path, source.size);
      total += source.size;
      if (total > kMaxAttachments) {
        Refuse(path, "makes the attachments larger than 25 MB together; send several mails");
      }
      sources.push_back(std::move(source));
    }
    if (keep == Keep::kInMemory) return {Remember(mail, sources), ""};
    try {
      return {Write(mail, sources), ""};
    } catch (const fs::filesystem_error&) {
      Remove(mail);
      return {Remember(mail, sources), ""};
    }
  } catch (const AttachmentProblem& problem) {
    if (keep == Keep::kOnDisk) Remove(mail);
    return {{}, problem.what()};
  }
}

std::vector<StoredAttachment> AttachmentFolder::Write(const std::string& mail,
                                                      std::vector<Source>& sources) const {
  if (folder_.empty()) FailToWrite("attachments", ENOENT);
  const fs::path own = folder_ / mail;
  corvane::MakePrivateFolder(own);
  std::vector<StoredAttachment> stored;
  for (const Source& source : sources) {
    const fs::path file = folder_ / PlaceOf(mail, stored.size());
    const Descriptor copy(
        open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (copy.get() < 0) FailToWrite(file, errno);
    source.CopyTo(copy.get(), file);
    if (fsync(copy.get()) != 0) FailToWrite(file, errno);
    stored.push_back({.name = NameOf(source.path),
                      .size = source.size,
                      .file = PlaceOf(mail, stored.size()),
                      .memory = nullptr});
  }
  corvane::SyncFolder(own);
  corvane::SyncFolder(folder_);
  return stored;
}

bool AttachmentFolder::Save(const std::string& mail,
                            const std::vector<StoredAttachment>& in_memory) const {
  std::vector<Source> sources;
  for (const StoredAttachment& one : in_memory) {
    Descriptor copy(fcntl(one.memory->get(), F_DUPFD_CLOEXEC, 0));
    sources.push_back({.path = one.name, .file = std::move(copy), .size = one.size});
  }
  try {
    return Write(mail, sources).size() == in_memory.size();
  } catch (const std::exception&) {  // the disk, or no descriptor is left
    Remove(mail);
    return false;
  }
}

std::vector<StoredAttachment> AttachmentFolder::Remember(const std::string& mail,
                                                         std::vector<Source>& sources) {
  std::uint64_t total = 0;
  for (const Source& source : sources) total += source.size;
  if (*in_memory_ + total > kMaxMemory) {
    Refuse(sources.front().path,
           "cannot be taken over, since the state folder cannot be written, and 100 MB of "
           "attachments are in memory already; check the disk");
  }
  std::vector<StoredAttachment> stored;
  for (const Source& source : sources) {
    Descriptor copy(memfd_create("attachment", MFD_CLOEXEC));
    try {
      if (copy.get() < 0) FailToWrite("memory", errno);
      source.CopyTo(copy.get(), "memory");
    } catch (const fs::filesystem_error& error) {
      Refuse(source.path, std::string("cannot be taken over: ") + error.code().message());
    }
    *in_memory_ += source.size;
    const auto forget = [counter = in_memory_, size = source.size](const Descriptor* descriptor) {
      delete descriptor;
      *counter -= size;
    };
    stored.push_back({.name = NameOf(source.path),
                      .size = source.size,
                      .file = PlaceOf(mail, stored.size()),
                      .memory = {new Descriptor(std::move(copy)), forget}});
  }
  return stored;
}

std::unique_ptr<mail::Octets> AttachmentFolder::Open(const StoredAttachment& attachment) const {
  if (attachment.memory != nullptr) return std::make_unique<FileOctets>(attachment.memory);
  if (folder_.empty()) return nullptr;
  // The name comes from the store, which may be damaged: nothing else may be sent.
  const fs::path name(attachment.file);
  const bool is_ours = std::ranges::distance(name) == 2 && name.is_relative() &&
                       attachment.file.find("..") == std::string::npos;
  if (!is_ours) return nullptr;
  const fs::path path = folder_ / name;
  auto file = std::make_shared<Descriptor>(
      open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  struct stat found {};
  if (file->get() < 0 || fstat(file->get(), &found) != 0 || !S_ISREG(found.st_mode)) return nullptr;
  if (static_cast<std::uint64_t>(found.st_size) != attachment.size) return nullptr;
  return std::make_unique<FileOctets>(std::move(file));
}

void AttachmentFolder::Remove(const std::string& mail) const noexcept {
  std::error_code ignored;
  if (!folder_.empty() && !mail.empty()) fs::remove_all(folder_ / mail, ignored);
}

void AttachmentFolder::RemoveOthers(const std::set<std::string>& mails) noexcept {
  if (folder_.empty()) return;
  std::error_code error;
  for (fs::directory_iterator at(folder_, error), end; !error && at != end; at.increment(error)) {
    std::error_code ignored;
    if (!mails.contains(at->path().filename().string())) fs::remove_all(at->path(), ignored);
  }
}

std::string FolderOf(const std::string& message_id) {
  std::string name;
  for (const char c : message_id.substr(0, message_id.find('@'))) {
    if (std::isalnum(static_cast<unsigned char>(c)) != 0) name += c;
  }
  return name;
}

}  // namespace corvane_mail
