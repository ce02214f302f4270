// SPDX-License-Identifier: MIT
#include "runtime/corvane/state_folder.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "corvane/program.h"
#include "libs/base/descriptor.h"
#include "libs/base/private_folder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody sets it
  return value == nullptr ? "" : value;
}

fs::path Home() {
  if (const std::string home = Environment("HOME"); !home.empty()) return home;
  std::array<char, 4096> room{};
  struct passwd entry {};
  struct passwd* found = nullptr;
  getpwuid_r(getuid(), &entry, room.data(), room.size(), &found);
  return found == nullptr ? "" : entry.pw_dir;
}

[[noreturn]] void Fail(const char* what, const fs::path& path) {
  throw fs::filesystem_error(what, path, {errno, std::generic_category()});
}

void WriteAll(int descriptor, std::string_view content, const fs::path& file) {
  while (!content.empty()) {
    const ssize_t written = write(descriptor, content.data(), content.size());
    if (written < 0 && errno != EINTR) Fail("cannot write", file);
    if (written > 0) content.remove_prefix(static_cast<std::size_t>(written));
  }
}

void WriteNew(const fs::path& file, std::string_view content) {
  const Descriptor out(
      open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
  if (out.get() < 0) Fail("cannot write", file);
  WriteAll(out.get(), content, file);
  if (fsync(out.get()) != 0) Fail("cannot write", file);
}

std::string& ProgramFolder() {
  static std::string folder;
  return folder;
}

}  // namespace

std::string ProgramName(const fs::path& program) {
  const bool is_lua = program.extension() == ".lua";
  return is_lua ? program.stem().string() : program.filename().string();
}

StateHome FindStateHome() {
  if (const std::string folders = Environment("STATE_DIRECTORY"); !folders.empty()) {
    return {folders.substr(0, folders.find(':')), true};
  }
  fs::path base = Environment("XDG_STATE_HOME");
  if (!base.is_absolute()) {  // as the XDG base directory specification requires
    base = Home();
    if (base.empty()) return {};
    base = base / ".local" / "state";
  }
  return {base / "corvane", false};
}

fs::path StateFolder(const fs::path& program) {
  const StateHome home = FindStateHome();
  if (home.is_of_one_program || home.folder.empty()) return home.folder;
  return home.folder / ProgramName(program);
}

void SetStateFolder(const fs::path& folder) {
  ProgramFolder() = folder.empty() ? std::string() : fs::absolute(folder).string();
}

void WriteStateFile(const fs::path& file, std::string_view content) {
  const fs::path folder = file.parent_path();
  MakePrivateFolder(folder);
  const fs::path fresh = file.string() + ".new";
  try {
    WriteNew(fresh, content);
    fs::rename(fresh, file);
  } catch (const fs::filesystem_error&) {
    unlink(fresh.c_str());  // it may be what fills the disk
    throw;
  }
  SyncFolder(folder);  // the new name must survive a power cut, too
}

}  // namespace corvane

const char* CorvaneStateFolder() {
  return corvane::ProgramFolder().c_str();
}
