// SPDX-License-Identifier: MIT
#include "runtime/corvane/addin.h"

#include <dlfcn.h>

#include <cctype>
#include <string>
#include <system_error>
#include <vector>

namespace corvane {
namespace {

/// Looks up an entry point. Throws AddinError when the library has none of that name.
void* EntryPoint(void* library, const char* name, const std::filesystem::path& file) {
  void* address = dlsym(library, name);
  if (address == nullptr) {
    throw AddinError(file.string() + " is a library, but not a Corvane add-in: it has no " + name);
  }
  return address;
}

bool Exists(const std::filesystem::path& file) {
  std::error_code error;
  return std::filesystem::exists(file, error);
}

/// The library that the loader did not find, from its message about `file`; empty: it complains
/// about something else.
std::string MissingLibrary(const std::string& message, const std::string& file) {
  const std::size_t end = message.find(": cannot open shared object file");
  if (end == std::string::npos) return {};
  const std::string name = message.substr(0, end);
  return name == file ? std::string() : name;
}

/// Debian's name for the package of a shared library (Debian Policy 8.1): libfoo.so.1 is in
/// libfoo1, libfoo2.so.1 in libfoo2-1. Empty for a name that has no version.
std::string DebianPackage(const std::string& library) {
  const std::size_t so = library.find(".so.");
  if (so == std::string::npos || so == 0) return {};
  const bool digit = std::isdigit(static_cast<unsigned char>(library[so - 1])) != 0;
  std::string package = library.substr(0, so) + (digit ? "-" : "") + library.substr(so + 4);
  for (char& c : package) {
    c = c == '_' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return package;
}

/// Why the loader did not load `file`, and what to do if a library is missing.
std::string LoadProblem(const std::filesystem::path& file, const std::string& path) {
  const std::string message = dlerror();
  const std::string library = MissingLibrary(message, path);
  if (library.empty()) return "cannot load add-in " + file.string() + ": " + message;
  const std::string package = DebianPackage(library);
  return "cannot load add-in " + file.string() + ": it needs " + library +
         ", which is not installed" +
         (package.empty() ? "" : " (on Debian: apt install " + package + ")");
}

}  // namespace

Addin::Addin(const std::filesystem::path& file) {
  if (!Exists(file)) {
    throw AddinError("add-in " + file.string() + " does not exist; check the path");
  }
  // With a path that has a slash the loader searches nowhere else.
  const std::string path = std::filesystem::absolute(file).string();
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (library == nullptr) throw AddinError(LoadProblem(file, path));
  const auto init = reinterpret_cast<int (*)()>(EntryPoint(library, "InitAddin", file));
  dispose_ = reinterpret_cast<void (*)()>(EntryPoint(library, "DisposeAddin", file));
  const int result = init();
  if (result != 0) {
    throw AddinError("add-in " + file.string() + " failed to start: InitAddin returned " +
                     std::to_string(result));
  }
}

Addin::~Addin() {
  dispose_();
}

std::vector<std::filesystem::path> FindOwnAddins() {
  const char* const kFirst = "corvane_fb_lib.so";
  const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const std::vector<std::filesystem::path> places{
      folder.parent_path() / "lib",                // the build tree
      folder.parent_path() / CORVANE_LIBRARY_DIR,  // installed
  };
  std::string searched;
  for (const auto& place : places) {
    const auto first = (place / kFirst).lexically_normal();
    if (!Exists(first)) {
      searched += (searched.empty() ? "" : ", ") + first.string();
      continue;
    }
    std::vector<std::filesystem::path> found{first};
    for (const char* name :
         {"corvane_standard.so", "corvane_sms.so", "corvane_mail.so", "corvane_modbus.so"}) {
      const auto file = first.parent_path() / name;
      if (Exists(file)) found.push_back(file);
    }
    return found;
  }
  throw AddinError(std::string("cannot find ") + kFirst + " (searched " + searched +
                   "); name it with --addin");
}

}  // namespace corvane
